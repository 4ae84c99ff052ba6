// The encoder's vector kernels: the largest magnitude, and the forward transform down to byte
// planes.
//
// A row of four floats is one register. Lines along x lie inside a register, so each 4 x 4 plane is
// transposed around the step along x; y and z need no moves. The coefficients leave as four planes
// of bytes, since what follows (reordering, then bit planes) is done on the bytes of one
// significance at a time, and at low rates only on the highest.

#include <smmintrin.h>

#include <cstring>

#include "zfp/lifting.h"
#include "zfp/state.h"

namespace {

using namespace vek::zfp;

/// Forward lifting on one line of four, in each of four lanes:
///           ( 4  4  4  4) (x)
///    1/16 * ( 5  1 -1 -5) (y)
///           (-4  4  4 -4) (z)
///           (-2  6 -6  2) (w)
inline void liftForward(__m128i& x, __m128i& y, __m128i& z, __m128i& w) {
    x = _mm_srai_epi32(_mm_add_epi32(x, w), 1);
    w = _mm_sub_epi32(w, x);
    z = _mm_srai_epi32(_mm_add_epi32(z, y), 1);
    y = _mm_sub_epi32(y, z);
    x = _mm_srai_epi32(_mm_add_epi32(x, z), 1);
    z = _mm_sub_epi32(z, x);
    w = _mm_srai_epi32(_mm_add_epi32(w, y), 1);
    y = _mm_sub_epi32(y, w);
    w = _mm_add_epi32(w, _mm_srai_epi32(y, 1));
    y = _mm_sub_epi32(y, _mm_srai_epi32(w, 1));
}

inline __m128i toNegabinary(__m128i v) {
    const __m128i mask = _mm_set1_epi32(static_cast<int>(0xAAAAAAAAU));
    return _mm_xor_si128(_mm_add_epi32(v, mask), mask);
}

/// Parts the bytes of 16 words by significance.
inline void splitBytes(const __m128i* words, uint8_t* bytePlanes) {
    const __m128i bySignificance =
        _mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    __m128i v[4];
    for (int i = 0; i < 4; ++i) v[i] = _mm_shuffle_epi8(words[i], bySignificance);
    transposeWords(v);
    for (int k = 0; k < 4; ++k)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(bytePlanes + 64 * k), v[k]);
}

}  // namespace

uint32_t ownsZfpMaxMagnitude_32f(const float* src, ptrdiff_t step, ptrdiff_t planeStep) {
    __m128i largest = _mm_setzero_si128();
    const __m128i magnitude = _mm_set1_epi32(0x7FFFFFFF);
    for (int z = 0; z < 4; ++z) {
        for (int y = 0; y < 4; ++y) {
            const __m128i row = _mm_loadu_si128(rowAt<const __m128i>(src, step, planeStep, y, z));
            largest = _mm_max_epi32(largest, _mm_and_si128(row, magnitude));
        }
    }
    largest = _mm_max_epi32(largest, _mm_shuffle_epi32(largest, _MM_SHUFFLE(1, 0, 3, 2)));
    largest = _mm_max_epi32(largest, _mm_shuffle_epi32(largest, _MM_SHUFFLE(2, 3, 0, 1)));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(largest));
}

void ownsZfpForward_32f(const float* src, ptrdiff_t step, ptrdiff_t planeStep, float scale,
                        uint8_t* bytePlanes) {
    __m128i v[16];
    const __m128 factor = _mm_set1_ps(scale);
    for (int z = 0; z < 4; ++z) {
        __m128i* plane = v + 4 * z;
        for (int y = 0; y < 4; ++y) {
            const float* row = rowAt<const float>(src, step, planeStep, y, z);
            plane[y] = _mm_cvttps_epi32(_mm_mul_ps(_mm_loadu_ps(row), factor));
        }
        transposeWords(plane);
        liftForward(plane[0], plane[1], plane[2], plane[3]);
        transposeWords(plane);
        liftForward(plane[0], plane[1], plane[2], plane[3]);
    }
    for (int y = 0; y < 4; ++y) liftForward(v[y], v[4 + y], v[8 + y], v[12 + y]);
    for (__m128i& row : v) row = toNegabinary(row);
    for (int z = 0; z < 4; ++z) splitBytes(v + 4 * z, bytePlanes + 16 * z);
}
