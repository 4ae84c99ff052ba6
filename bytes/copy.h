// Copies of matches: byte strings that repeat what stands a distance back in the same buffer.
//
// A match whose distance is shorter than its length overlaps itself, and repeats its first
// `distance` bytes. The copy here writes the bytes asked for and no others; a decoder's kernel,
// which has room behind the match, makes its own wider copies of copy16.
#pragma once

#include <emmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "bytes/words.h"

namespace vek::inline VEK_LEVEL {

/// Copies 16 bytes between any addresses; all are read before any is written.
inline void copy16(uint8_t* dst, const uint8_t* src) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst),
                     _mm_loadu_si128(reinterpret_cast<const __m128i*>(src)));
}

/// Writes dst[i] = dst[i - distance] for i in [0, length), in that order. distance is at least 1.
inline void copyOverlap(uint8_t* dst, size_t distance, size_t length) {
    const uint8_t* src = dst - distance;
    if (distance >= length) {
        std::memcpy(dst, src, length);
    } else if (distance == 1) {
        std::memset(dst, *src, length);
    } else {
        while (length != 0) {
            // What was copied lengthens the repeated string: the piece that can be copied doubles.
            const size_t piece = std::min(static_cast<size_t>(dst - src), length);
            std::memcpy(dst, src, piece);
            dst += piece;
            length -= piece;
        }
    }
}

}  // namespace vek::inline VEK_LEVEL
