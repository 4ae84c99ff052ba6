// Bzip2's table description and coded symbols on hostile bytes: read whole, and in pieces of input
// and output, they give the same symbols, statuses and positions, and touch nothing outside their
// buffers (exact allocations under AddressSanitizer), the record sized for the most groups among
// them. Until a description is read to its end, nothing is decoded.
//
// Input: alphabet size less 1 (2 bytes), size of the pieces (1 byte), bits.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "vekdc.h"

namespace {

using Data = std::vector<uint8_t>;

constexpr int kMostGroups = 32767;
constexpr int kGroup = 50;
constexpr size_t kRoom = 1000;

void require(bool holds) {
    if (!holds) abort();
}

struct Result {
    VekStatus unpacked = 0;
    VekStatus decoded = 0;
    std::vector<uint16_t> symbols;
    size_t position = 0;  // In bits.

    bool operator==(const Result&) const = default;
};

/// A stream that shows its next `piece` bytes, in memory of their own.
class Pieces {
 public:
    Pieces(const Data& data, size_t piece) : data_(data), piece_(piece) {}

    /// Calls a stage until it wants no more, or there is no more.
    template <class Stage>
    VekStatus run(bool stageTakesNothing, Stage&& stage) {
        for (;;) {
            const auto at = data_.begin() + static_cast<ptrdiff_t>(at_);
            const Data part(at, at + static_cast<ptrdiff_t>(std::min(piece_, data_.size() - at_)));
            const bool atEnd = part.empty();
            if (atEnd && !stageTakesNothing) return vekStatusSourceIncomplete;
            const uint8_t* const begin = atEnd ? data_.data() : part.data();
            const uint8_t* src = begin;
            auto left = static_cast<int32_t>(part.size());
            const VekStatus status = stage(&code_, &count_, &src, &left);
            require(src == begin + part.size() - left && left >= 0);
            require(count_ >= 0 && count_ <= 32);
            at_ += static_cast<size_t>(src - begin);
            if (atEnd || status != vekStatusSourceIncomplete) return status;
            require(left == 0);
        }
    }
    size_t position() const { return 8 * at_ - static_cast<size_t>(count_); }

 private:
    const Data& data_;
    size_t piece_;
    size_t at_ = 0;
    uint32_t code_ = 0;
    int32_t count_ = 0;
};

/// The decoder must refuse a record without tables, and leave everything as it was.
void requireRefusal(const Data& data, VekBz2HuffDecState* state) {
    uint32_t code = 0x5A5A5A5A;
    int32_t count = 32;
    const uint8_t* src = data.data();
    auto left = static_cast<int32_t>(data.size());
    uint16_t out = 0;
    int32_t written = 1;
    require(veksDecodeHuff_BZ2_8u16u(&code, &count, &src, &left, &out, &written, state) ==
            vekStatusError);
    require(src == data.data() && count == 32 && written == 1);
}

Result decode(const Data& data, int alphaSize, size_t piece, size_t room) {
    int32_t size = 0;
    require(veksDecodeHuffGetSize_BZ2_8u16u(kMostGroups * kGroup, &size) == vekStatusOk);
    Data memory(static_cast<size_t>(size), 0xA5);
    auto* const state = reinterpret_cast<VekBz2HuffDecState*>(memory.data());
    require(veksDecodeHuffInit_BZ2_8u16u(alphaSize, state) == vekStatusOk);
    requireRefusal(data, state);
    Pieces stream(data, piece);
    Result result;
    result.unpacked = stream.run(false, [&](auto... source) {
        const VekStatus status = veksUnpackHuffContext_BZ2_8u16u(source..., state);
        if (status != vekStatusOk) requireRefusal(data, state);
        return status;
    });
    if (result.unpacked != vekStatusOk) return result;
    do {
        result.decoded = stream.run(true, [&](auto... source) {
            std::vector<uint16_t> out(room);
            auto written = static_cast<int32_t>(room);
            const VekStatus status =
                veksDecodeHuff_BZ2_8u16u(source..., out.data(), &written, state);
            require(written >= 0 && static_cast<size_t>(written) <= room);
            for (int32_t i = 0; i < written; ++i) {
                require(out[static_cast<size_t>(i)] < alphaSize - 1);
                result.symbols.push_back(out[static_cast<size_t>(i)]);
            }
            return status;
        });
    } while (result.decoded == vekStatusDestinationFull);
    result.position = stream.position();
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    const int alphaSize = 1 + (data[0] + 256 * data[1]) % 258;
    const size_t piece = 1U + data[2];
    const Data bits(data + 3, data + size);
    const Result whole = decode(bits, alphaSize, bits.size(), kRoom);
    require(decode(bits, alphaSize, piece, kRoom) == whole);
    require(decode(bits, alphaSize, bits.size(), 1 + piece * 3) == whole);
    return 0;
}
