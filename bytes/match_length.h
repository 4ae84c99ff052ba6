// Length of the common prefix of two byte strings.
//
// Sixteen bytes a comparison, then a bit scan of the comparison mask; the last fewer-than-16 bytes
// go by words and bytes, so nothing at or behind `a + limit` and `b + limit` is ever read.
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "bytes/words.h"

namespace vek::inline VEK_LEVEL {

/// Number of leading bytes, at most `limit`, that `a` and `b` have in common. The strings may
/// overlap.
inline size_t matchLength(const uint8_t* a, const uint8_t* b, size_t limit) {
    size_t n = 0;
    for (; limit - n >= 16; n += 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + n));
        const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + n));
        const auto equal = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, y)));
        if (equal != 0xFFFFU) return n + lowestSetBit(~equal);
    }
    for (; limit - n >= 4; n += 4) {
        const uint32_t difference = load<uint32_t>(a + n) ^ load<uint32_t>(b + n);
        if (difference != 0) return n + lowestSetBit(difference) / 8;
    }
    while (n < limit && a[n] == b[n]) ++n;
    return n;
}

/// The same where the first `known` bytes are known to be in common.
inline uint32_t matchLength(const uint8_t* a, const uint8_t* b, uint32_t known, uint32_t limit) {
    return known + static_cast<uint32_t>(matchLength(a + known, b + known, limit - known));
}

}  // namespace vek::inline VEK_LEVEL
