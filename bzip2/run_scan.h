// Where runs of four begin: what both directions of the run-length stage skip to.
//
// Most bytes belong to no run of four. Comparing sixteen bytes with their neighbours in one step
// clears fourteen at a time.
#pragma once

#include <emmintrin.h>

#include <cstdint>

namespace vek::inline VEK_LEVEL::bzip2 {

/// Bytes that clearOfRuns() clears at once, and the bytes it reads from `p` on.
constexpr int runScanStep = 14;

/// True when none of p[0..13] is the last of four equal bytes. Reads p[-3..13].
inline bool clearOfRuns(const uint8_t* p) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p - 2));
    const __m128i before = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p - 3));
    const auto equal = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, before)));
    return (equal & (equal >> 1) & (equal >> 2)) == 0;
}

}  // namespace vek::inline VEK_LEVEL::bzip2
