// A whole block from its symbols, in one pass and a walk: zero runs, move-to-front, symbol map and
// block sort undone together.
//
// The move-to-front list holds the mapped values themselves, and each decoded byte goes straight
// into the entry that the inverse sort links and follows, so nothing is written twice. Every symbol
// is checked: the block can neither leave its capacity nor name a value that the map lacks.

#include <algorithm>

#include "bytes/fill.h"
#include "bzip2/move_to_front_list.h"
#include "bzip2/unsort.h"
#include "frame/args.h"
#include "vekdc.h"

namespace {

constexpr uint16_t firstLiteral = 2;  // symbols below it are the digits of zero runs

/// Decodes symbols into entries and counts their values.
class BlockReader {
 public:
    BlockReader(const uint8_t* values, uint32_t valueCount, vek::bzip2::BwtEntries entries,
                uint32_t capacity)
        : list_(values), valueCount_(valueCount), entries_(entries), capacity_(capacity) {}

    /// False when a symbol has no value or the block would leave its capacity; length() then tells
    /// how many entries stand before it.
    bool read(const uint16_t* src, int32_t srcLen) {
        if (valueCount_ == 0) return false;
        const uint16_t* end = src + srcLen;
        while (src != end) {
            if (*src < firstLiteral) {
                if (!putRun(readRun(src, end))) return false;
            } else if (!putLiteral(*src++)) {
                return false;
            }
        }
        return true;
    }

    uint32_t length() const { return length_; }
    uint32_t* counts() { return counts_; }

 private:
    /// A run's length; lengths that no block has are cut.
    static uint32_t readRun(const uint16_t*& src, const uint16_t* end) {
        constexpr uint32_t enough = 1U << 25;
        uint32_t run = 0;
        for (uint32_t weight = 1; src != end && *src < firstLiteral; ++src) {
            if (run < enough) run += (*src + 1U) * weight;
            weight <<= 1;
        }
        return run;
    }

    bool putRun(uint32_t run) {
        constexpr uint32_t shortRun = 8;
        const uint8_t value = list_.first();
        const uint32_t room = capacity_ - length_;
        if (run > room) return false;
        uint8_t* at = entries_.at(length_);
        if (run <= shortRun && room >= shortRun) {
            const __m128i values = _mm_set1_epi32(value);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(at), values);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(at + 16), values);
        } else {
            ownsSet_32s(value, reinterpret_cast<int32_t*>(at), run);
        }
        length_ += run;
        counts_[value] += run;
        return true;
    }

    bool putLiteral(uint16_t symbol) {
        const uint32_t position = symbol - 1U;
        if (position >= valueCount_ || length_ == capacity_) return false;
        const uint8_t value = list_.takePosition(position);
        entries_.set(length_++, value);
        ++counts_[value];
        return true;
    }

    vek::bzip2::MtfList list_;
    uint32_t valueCount_;
    vek::bzip2::BwtEntries entries_;
    uint32_t capacity_;
    uint32_t length_ = 0;
    uint32_t counts_[256] = {};
};

}  // namespace

VekStatus veksDecodeBlockGetSize_BZ2_8u(int32_t blockSize, int32_t* pSize) {
    if (vek::anyNull(pSize)) return vekStatusNullPointer;
    if (vek::outside(blockSize, 0, vek::bzip2::inverseBwtLimit - 1)) return vekStatusBadSize;
    *pSize = 4 * blockSize;
    return vekStatusOk;
}

VekStatus veksDecodeBlock_BZ2_16u8u(const uint16_t* pSrc, int32_t srcLen, uint8_t* pDst,
                                    int32_t* pDstLen, int32_t index, int32_t dictSize,
                                    const uint8_t* pInUse, uint8_t* pBuffer) {
    if (vek::anyNull(pSrc, pDst, pDstLen, pInUse, pBuffer)) return vekStatusNullPointer;
    if (srcLen < 1 || vek::outside(*pDstLen, 0, vek::bzip2::inverseBwtLimit - 1) || index < 0 ||
        index >= *pDstLen || vek::outside(dictSize, 0, 256)) {
        return vekStatusBadSize;
    }
    uint8_t values[256] = {};
    int32_t used = 0;
    for (unsigned value = 0; value < 256; ++value) {
        if (static_cast<int8_t>(pInUse[value]) > 0) values[used++] = static_cast<uint8_t>(value);
    }
    if (used != dictSize) return vekStatusOk;
    vek::bzip2::BwtEntries entries(pBuffer);
    BlockReader reader(values, static_cast<uint32_t>(used), entries,
                       static_cast<uint32_t>(*pDstLen));
    const bool sound = reader.read(pSrc, srcLen);
    *pDstLen = static_cast<int32_t>(reader.length());
    if (!sound || index >= *pDstLen) return vekStatusError;
    vek::bzip2::invertBwt(entries, reader.length(), reader.counts(), static_cast<uint32_t>(index),
                          pDst);
    return vekStatusOk;
}
