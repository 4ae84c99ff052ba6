// Bit planes of 64 bytes, and back.
//
// Sixty-four bytes are eight 8 x 8 bit matrices. Transposing each, and then the 8 x 8 matrix of
// bytes that they form, turns the bytes into eight words of 64 bits, word k holding bit k of every
// byte; the two steps in the other order go back. Both work on the 64 bytes in four registers:
// about 90 instructions for eight planes, where collecting bit by bit takes 512.
#pragma once

#include <tmmintrin.h>

#include <cstdint>

#include "zfp/coefficient_order.h"

namespace vek::inline VEK_LEVEL::zfp {

struct Bytes64 {
    __m128i part[4];
};

inline Bytes64 loadBytes64(const uint8_t* p) {
    Bytes64 b;
    for (int i = 0; i < 4; ++i)
        b.part[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p) + i);
    return b;
}

inline void storeBytes64(uint8_t* p, const Bytes64& b) {
    for (int i = 0; i < 4; ++i) _mm_storeu_si128(reinterpret_cast<__m128i*>(p) + i, b.part[i]);
}

/// Swaps in every 64-bit lane the bits that `mask` holds with those `Shift` places above.
template <int Shift>
inline __m128i swapBits(__m128i v, __m128i mask) {
    const __m128i t = _mm_and_si128(_mm_xor_si128(v, _mm_srli_epi64(v, Shift)), mask);
    return _mm_xor_si128(v, _mm_xor_si128(t, _mm_slli_epi64(t, Shift)));
}

/// Transposes each 8-byte group as a matrix of 8 x 8 bits.
inline void transposeBits(Bytes64& b) {
    for (__m128i& v : b.part) {
        v = swapBits<7>(v, _mm_set1_epi64x(0x00AA00AA00AA00AA));
        v = swapBits<14>(v, _mm_set1_epi64x(0x0000CCCC0000CCCC));
        v = swapBits<28>(v, _mm_set1_epi64x(0x00000000F0F0F0F0));
    }
}

/// Transposes the 64 bytes as a matrix of 8 x 8 bytes: three perfect shuffles.
inline void transposeBytes(Bytes64& b) {
    for (int round = 0; round < 3; ++round) {
        const Bytes64 a = b;
        b.part[0] = _mm_unpacklo_epi8(a.part[0], a.part[2]);
        b.part[1] = _mm_unpackhi_epi8(a.part[0], a.part[2]);
        b.part[2] = _mm_unpacklo_epi8(a.part[1], a.part[3]);
        b.part[3] = _mm_unpackhi_epi8(a.part[1], a.part[3]);
    }
}

/// Byte i of the result is byte order[i] of `b`, where `shuffles` came from that order.
template <const ByteShuffles& Shuffles>
inline Bytes64 permuteBytes(const Bytes64& b) {
    Bytes64 result;
    for (int d = 0; d < 4; ++d) {
        result.part[d] = _mm_setzero_si128();
        for (int s = 0; s < 4; ++s) {
            if (!Shuffles.used[d][s]) continue;
            const auto* mask = reinterpret_cast<const __m128i*>(Shuffles.mask[d][s]);
            result.part[d] =
                _mm_or_si128(result.part[d], _mm_shuffle_epi8(b.part[s], _mm_load_si128(mask)));
        }
    }
    return result;
}

}  // namespace vek::inline VEK_LEVEL::zfp
