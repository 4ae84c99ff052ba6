// Copies of matches: byte strings that repeat what stands a distance back in the same buffer.
//
// A match whose distance is shorter than its length overlaps itself, and repeats its first
// `distance` bytes. The copies here write the bytes asked for and no others; wide_copy.h has those
// for a decoder's kernel, which knows of room behind the match.
#pragma once

#include <emmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "bytes/words.h"

namespace vek::inline VEK_LEVEL {

/// Copies 8 or 16 bytes between any addresses; all are read before any is written.
inline void copy8(uint8_t* dst, const uint8_t* src) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst),
                     _mm_loadl_epi64(reinterpret_cast<const __m128i*>(src)));
}
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

/// Copies `count` bytes, none when it is negative, in the order of their addresses, with the result
/// of a copy byte by byte wherever the two strings lie: where the destination begins inside the
/// source, the bytes in front of it repeat.
inline void D_COPY_SLOW(const uint8_t* src, uint8_t* dst, ptrdiff_t count) {
    if (count <= 0 || src == dst) return;
    const auto length = static_cast<size_t>(count);
    // Below the source, the distance wraps round to a large one.
    const size_t distance = reinterpret_cast<uintptr_t>(dst) - reinterpret_cast<uintptr_t>(src);
    if (distance < length)
        copyOverlap(dst, distance, length);
    else
        std::memmove(dst, src, length);
}

}  // namespace vek::inline VEK_LEVEL
