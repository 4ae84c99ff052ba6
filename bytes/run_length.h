// Length of a run of one byte value.
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "bytes/words.h"

namespace vek::inline VEK_LEVEL {

/// Number of leading bytes of `p`, at most `limit`, that equal `value`.
inline size_t runLength(const uint8_t* p, uint8_t value, size_t limit) {
    const __m128i wanted = _mm_set1_epi8(static_cast<char>(value));
    size_t n = 0;
    for (; limit - n >= 16; n += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + n));
        const auto equal = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, wanted)));
        if (equal != 0xFFFFU) return n + lowestSetBit(~equal);
    }
    while (n < limit && p[n] == value) ++n;
    return n;
}

}  // namespace vek::inline VEK_LEVEL
