#include "codec/lzop_decoder.h"

#include "vekdc.h"

namespace vekdc::codec {
namespace {

/// No LZO1X stream expands further: a byte adds at most this many to a run or match.
constexpr size_t kLargestExpansion = 255;
constexpr unsigned kLargestFilter = 16;

uint32_t wordAt(const uint8_t* from) {
    return static_cast<uint32_t>(getBigEndian(from, 4));
}

/// Takes back what the filter did: replaced every byte by its difference to the one `step` before.
void unfilter(uint8_t* data, size_t size, size_t step) {
    for (size_t i = step; i < size; ++i) data[i] = static_cast<uint8_t>(data[i] + data[i - step]);
}

}  // namespace

Status LzopDecoder::reset() {
    restart();
    stage_ = Stage::Header;
    info_ = {};
    return Status::Going;
}

bool LzopDecoder::step(Input& in, Output& out) {
    switch (stage_) {
        case Stage::Header:
            return readHeader(in);
        case Stage::Extra:
            return readExtra(in);
        case Stage::ExtraData:
            return sumExtra(in);
        case Stage::ExtraEnd:
            return endExtra(in);
        case Stage::Block:
            return readBlock(in, out);
        case Stage::Done:
            break;
    }
    return leave(Status::Ended);
}

bool LzopDecoder::readHeader(Input& in) {
    constexpr size_t start = kLzopMagic.size();
    const uint8_t* bytes = showMagic(in, start + 2, kLzopMagic, "not an lzo file");
    if (bytes == nullptr) return false;
    const auto version = static_cast<uint32_t>(getBigEndian(bytes + start, 2));
    if (version < kLzopOldest) return broken(start, "unknown version of the format");
    const bool isOld = version < kLzopHasLevel;

    // Offsets of the fields, whose lengths come one by one.
    constexpr size_t needed = start + 4;
    const size_t method = isOld ? needed : needed + 2;
    const size_t flags = isOld ? method + 1 : method + 2;
    bytes = ahead_.show(in, flags + 4);
    if (bytes == nullptr) return wait();
    if (!isOld) {
        const auto reader = static_cast<uint32_t>(getBigEndian(bytes + needed, 2));
        if (reader < kLzopOldest || reader > kLzopNewest)
            return broken(needed, "needs a reader of a version that is unknown");
        info_.level = bytes[method + 1];
    }
    info_.method = bytes[method];
    info_.flags = wordAt(bytes + flags);
    const size_t filter = flags + 4;
    const size_t mode = (info_.flags & kLzopFiltered) != 0 ? filter + 4 : filter;
    const size_t name = mode + (isOld ? 8 : 12) + 1;
    bytes = ahead_.show(in, name);
    if (bytes == nullptr) return wait();
    info_.filter = mode != filter ? wordAt(bytes + filter) : 0;
    info_.mode = wordAt(bytes + mode);
    info_.modified = wordAt(bytes + mode + 4);
    info_.nameSize = bytes[name - 1];
    const size_t sum = name + info_.nameSize;
    bytes = ahead_.show(in, sum + 4);
    if (bytes == nullptr) return wait();
    std::memcpy(info_.name, bytes + name, info_.nameSize);
    const Checksum& checksum = lzopHeaderChecksum(info_.flags);
    if (wordAt(bytes + sum) != checksum.update(checksum.initial, {bytes + start, sum - start}))
        return broken(sum, "the header's checksum does not match");

    if (info_.method < 1 || info_.method > kLzopMethods.size())
        return broken(method, "unknown compression method", info_.method);
    if ((info_.flags & kLzopReserved) != 0)
        return broken(flags, "reserved flags are set in the header");
    if (info_.filter > kLargestFilter) return broken(filter, "unknown filter", info_.filter);
    ahead_.accept(in, sum + 4);
    stage_ = (info_.flags & kLzopExtra) != 0 ? Stage::Extra : Stage::Block;
    return true;
}

/// The extra field is summed, and nothing of it is kept.
bool LzopDecoder::readExtra(Input& in) {
    const uint8_t* const bytes = ahead_.show(in, 4);
    if (bytes == nullptr) return wait();
    const Checksum& checksum = lzopHeaderChecksum(info_.flags);
    sum_ = checksum.update(checksum.initial, {bytes, 4});
    info_.extraSize = left_ = wordAt(bytes);
    ahead_.accept(in, 4);
    stage_ = Stage::ExtraData;
    return true;
}

bool LzopDecoder::sumExtra(Input& in) {
    const size_t size = std::min<size_t>(left_, in.left);
    if (size != 0) sum_ = lzopHeaderChecksum(info_.flags).update(sum_, {in.next, size});
    ahead_.accept(in, size);
    left_ -= static_cast<uint32_t>(size);
    if (left_ != 0) return leave(Status::Going);
    stage_ = Stage::ExtraEnd;
    return true;
}

bool LzopDecoder::endExtra(Input& in) {
    const uint8_t* const bytes = ahead_.show(in, 4);
    if (bytes == nullptr) return wait();
    if (wordAt(bytes) != sum_)
        return broken(ahead_.offset(), "the extra field's checksum does not match");
    ahead_.accept(in, 4);
    stage_ = Stage::Block;
    return true;
}

bool LzopDecoder::readBlock(Input& in, Output& out) {
    const uint64_t at = ahead_.offset();
    const uint8_t* bytes = ahead_.show(in, 4);
    if (bytes == nullptr) return wait();
    const size_t size = wordAt(bytes);
    if (size == 0) {
        ahead_.accept(in, 4);
        stage_ = Stage::Done;
        return true;
    }
    block_ = info_.blocks + 1;
    if (size > kLzopLargestBlock) return broken(at, "the block is larger than 64 MiB");
    bytes = ahead_.show(in, 8);
    if (bytes == nullptr) return wait();
    const size_t codedSize = wordAt(bytes + 4);
    if (codedSize == 0 || codedSize > size || size / kLargestExpansion > codedSize)
        return broken(at + 4, "the compressed length is impossible");
    const bool stored = codedSize == size;

    const auto isThere = [&](const LzopBlockCheck& check) {
        return (info_.flags & check.flag) != 0 && !(stored && check.ofStream);
    };
    size_t head = 8;
    for (const LzopBlockCheck& check : kLzopBlockChecks) head += isThere(check) ? 4 : 0;
    bytes = ahead_.show(in, head + codedSize);
    if (bytes == nullptr) return wait();
    const auto verify = [&](bool ofStream, Bytes data) {
        size_t field = 8;
        for (const LzopBlockCheck& check : kLzopBlockChecks) {
            if (!isThere(check)) continue;
            if (check.ofStream == ofStream && check.of(data) != wordAt(bytes + field))
                return broken(at + field, check.mismatch);
            field += 4;
        }
        return true;
    };

    const Bytes coded(bytes + head, codedSize);
    uint8_t* const to = delivery_.room(out, size);
    if (to == nullptr) return leave(Status::NoMemory);
    if (stored) {
        std::memcpy(to, coded.data(), size);
    } else {
        if (!verify(true, coded)) return false;
        const Status status = decodeStream(coded, to, size);
        if (status == Status::Broken) return broken(at + head, "the block's data are broken");
        if (status != Status::Ended) return leave(status);
    }
    if (info_.filter != 0) unfilter(to, size, info_.filter);
    if (!verify(false, {to, size})) return false;
    ++info_.blocks;
    info_.storedBlocks += stored ? 1 : 0;
    info_.plain += size;
    delivery_.deliver(out, {to, size});
    ahead_.accept(in, head + codedSize);
    return true;
}

/// Decodes the LZO1X stream of a block of `size` bytes.
Status LzopDecoder::decodeStream(Bytes stream, uint8_t* to, size_t size) {
    // What the library takes for its own container it writes to that one's length, which may be 0.
    // A container is none of ours: this is a run of 68 literals, which can be said in two bytes
    // too.
    if (vekLZOContainerParts(stream.data(), static_cast<uint32_t>(stream.size())) != 0) {
        constexpr uint8_t longRun = 18;
        if (!rewritten_.reserve(stream.size() + 1)) return Status::NoMemory;
        rewritten_[0] = 0;
        rewritten_[1] = 68 - longRun;
        std::memcpy(rewritten_.data() + 2, stream.data() + 1, stream.size() - 1);
        stream = {rewritten_.data(), stream.size() + 1};
    }
    auto written = static_cast<uint32_t>(size);
    const VekStatus status =
        veksDecodeLZOSafe_8u(stream.data(), static_cast<uint32_t>(stream.size()), to, &written);
    return status == vekStatusOk && written == size ? Status::Ended : Status::Broken;
}

}  // namespace vekdc::codec
