// The readers of bits whose first one is the highest of its byte, as bzip2 and LZSS have them.
//
// MsbReader holds bits that it took from the source byte by byte: it stops at any byte, and goes on
// with bits that a caller kept. MsbCursor reads where the bits stand, with one unaligned load a
// step: no count of held bits goes from symbol to symbol.
#pragma once

#include <cstddef>
#include <cstdint>

#include "bytes/words.h"

namespace vek::inline VEK_LEVEL {

struct MsbReader {
    uint32_t bits;  ///< The next bit highest; zeros below those held.
    int32_t count;
    const uint8_t* src;
    const uint8_t* srcEnd;

    /// The most bits that can be asked of need(): one more byte still fits below fewer.
    static constexpr int32_t mostNeeded = 32 - 7;

    /// Goes on with the upper `held` bits of `kept`; what stands below them is not to be trusted.
    static MsbReader after(uint32_t kept, int32_t held, const uint8_t* src, const uint8_t* srcEnd) {
        return {held == 0 ? 0 : kept & (~UINT32_C(0) << (32 - held)), held, src, srcEnd};
    }

    ptrdiff_t left() const { return srcEnd - src; }

    /// Takes in bytes until `wanted` bits, at most mostNeeded, are held; false when the source ends
    /// before.
    bool need(int32_t wanted) {
        while (count < wanted) {
            if (src == srcEnd) return false;
            bits |= static_cast<uint32_t>(*src++) << (24 - count);
            count += 8;
        }
        return true;
    }

    /// The next `size` bits, at least 1.
    uint32_t peek(int size) const { return bits >> (32 - size); }

    void drop(int size) {
        bits <<= size;
        count -= size;
    }

    uint32_t take(int size) {
        const uint32_t value = peek(size);
        drop(size);
        return value;
    }
};

/// Reads at bit `bit` from `src` on; a word there must be readable.
struct MsbCursor {
    static constexpr int wordBits = 8 * sizeof(size_t);
    /// Bits that one word() gives at least.
    static constexpr int validBits = wordBits - 7;

    const uint8_t* src;
    size_t bit;

    /// The next bits, left-aligned.
    size_t word() const {
        const uint8_t* at = src + (bit >> 3);
        if constexpr (sizeof(size_t) == 8) {
            return byteSwap(load<uint64_t>(at)) << (bit & 7);
        } else {
            return byteSwap(load<uint32_t>(at)) << (bit & 7);
        }
    }
};

}  // namespace vek::inline VEK_LEVEL
