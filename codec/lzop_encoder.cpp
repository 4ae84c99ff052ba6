#include "codec/lzop_encoder.h"

#include "vekdc.h"

namespace vekdc::codec {
namespace {

// The library's two methods. Which of them makes the smaller stream depends on the data.
constexpr int32_t kUsualMethod = 0;
constexpr int32_t kFastMethod = 2;

}  // namespace

size_t putLzopHeader(const LzopOptions& options, uint8_t* to) {
    uint8_t* next = std::copy(kLzopMagic.begin(), kLzopMagic.end(), to);
    uint8_t* const fields = next;
    const auto put = [&](uint64_t value, size_t count) {
        putBigEndian(next, value, count);
        next += count;
    };
    put(kLzopNewest, 2);
    put(kLzopLibrary, 2);
    put((options.flags & kLzopHeaderCrc) != 0 ? kLzopHasCrc : kLzopHasLevel, 2);
    // The container's name for the like of the method, and a level of that.
    if (options.deep != 0)
        put(uint64_t{3} << 8 | options.deep, 2);
    else
        put(options.fast ? 2U << 8 | 1 : 1U << 8 | 5, 2);
    put(options.flags, 4);
    put(options.mode, 4);
    put(options.modified, 4);
    put(0, 4);
    const size_t length = strnlen(options.name, kLzopLongestName);
    put(length, 1);
    std::memcpy(next, options.name, length);
    next += length;
    const Checksum& checksum = lzopHeaderChecksum(options.flags);
    put(checksum.update(checksum.initial, {fields, static_cast<size_t>(next - fields)}), 4);
    return static_cast<size_t>(next - to);
}

size_t LzopBlockEncoder::bound(size_t length) {
    return 8 + 4 * kLzopBlockChecks.size() + vekLZOEncodeBound(static_cast<uint32_t>(length));
}

bool LzopBlockEncoder::encodeStream(Bytes data, uint8_t* stream, uint32_t& size) {
    if (isDeep_) {
        size_t written = 0;
        if (!deep_.encode(data, stream, written)) return false;
        size = static_cast<uint32_t>(written);
        return true;
    }
    if (!encodeBy(kFastMethod, data, stream, size)) return false;
    if (isFast_) return true;
    uint32_t other = 0;
    if (!other_.reserve(vekLZOEncodeBound(static_cast<uint32_t>(data.size()))) ||
        !encodeBy(kUsualMethod, data, other_.data(), other))
        return false;
    if (other < size) std::memcpy(stream, other_.data(), size = other);
    return true;
}

bool LzopBlockEncoder::encodeBy(int32_t method, Bytes data, uint8_t* stream, uint32_t& size) {
    const auto length = static_cast<uint32_t>(data.size());
    uint32_t stateSize = 0;
    veksEncodeLZOGetSize(method, 0, &stateSize);
    if (!state_.reserve((stateSize + 3) / 4)) return false;
    size = vekLZOEncodeBound(length);
    veksEncodeLZOInit_8u(method, 0, state_.data());
    veksEncodeLZO_8u(data.data(), length, stream, &size, state_.data());
    return true;
}

bool LzopBlockEncoder::encode(Bytes data, uint8_t* to, size_t& written) {
    const auto length = static_cast<uint32_t>(data.size());

    // Two lengths and the checksums, of which a stored block has fewer.
    size_t head = 8;
    for (const LzopBlockCheck& check : kLzopBlockChecks) head += (flags_ & check.flag) != 0 ? 4 : 0;
    uint8_t* const stream = to + head;
    uint32_t size = 0;
    if (!encodeStream(data, stream, size)) return false;
    const bool stored = size >= length;

    putBigEndian(to, length, 4);
    putBigEndian(to + 4, stored ? length : size, 4);
    uint8_t* next = to + 8;
    for (const LzopBlockCheck& check : kLzopBlockChecks) {
        if ((flags_ & check.flag) == 0 || (stored && check.ofStream)) continue;
        putBigEndian(next, check.of(check.ofStream ? Bytes(stream, size) : data), 4);
        next += 4;
    }
    if (stored) std::memcpy(next, data.data(), length);
    written = static_cast<size_t>(next - to) + (stored ? length : size);
    return true;
}

}  // namespace vekdc::codec
