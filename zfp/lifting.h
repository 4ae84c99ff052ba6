// What the two transforms share: finding a block's rows, and turning a plane of 4 x 4 words.
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

namespace vek::inline VEK_LEVEL::zfp {

/// Row y of plane z; the steps are in bytes, of either sign, and need not be multiples of 4.
template <class T, class Float>
inline T* rowAt(Float* block, ptrdiff_t step, ptrdiff_t planeStep, int y, int z) {
    const auto offset = static_cast<uintptr_t>(z) * static_cast<uintptr_t>(planeStep) +
                        static_cast<uintptr_t>(y) * static_cast<uintptr_t>(step);
    return reinterpret_cast<T*>(reinterpret_cast<uintptr_t>(block) + offset);
}

/// Transposes four registers of four 32-bit words.
inline void transposeWords(__m128i* v) {
    const __m128i a = _mm_unpacklo_epi32(v[0], v[1]);
    const __m128i b = _mm_unpackhi_epi32(v[0], v[1]);
    const __m128i c = _mm_unpacklo_epi32(v[2], v[3]);
    const __m128i d = _mm_unpackhi_epi32(v[2], v[3]);
    v[0] = _mm_unpacklo_epi64(a, c);
    v[1] = _mm_unpackhi_epi64(a, c);
    v[2] = _mm_unpacklo_epi64(b, d);
    v[3] = _mm_unpackhi_epi64(b, d);
}

}  // namespace vek::inline VEK_LEVEL::zfp
