// Matches at a distance below 16: a short string, repeated.
//
// A byte shuffle spreads the string over whole registers, which are stored as often as the match is
// long, each time as many whole strings further on as a store holds. No branch depends on the
// distance. Stores run over up to Width - 1 bytes behind the match, so these are for decoders'
// kernels, which have room there.
#pragma once

#include <tmmintrin.h>

#include <cstddef>
#include <cstdint>

namespace vek::inline VEK_LEVEL {

/// For each distance the shuffle that repeats a register's first bytes over Width bytes, and the
/// longest whole number of repetitions in these.
template <size_t Width>
struct RepeatTables {
    alignas(16) uint8_t order[16][Width];
    uint8_t step[16];
};
template <size_t Width>
constexpr RepeatTables<Width> repeatTables = [] {
    RepeatTables<Width> tables{};
    for (size_t distance = 1; distance < 16; ++distance) {
        for (size_t i = 0; i < Width; ++i)
            tables.order[distance][i] = static_cast<uint8_t>(i % distance);
        tables.step[distance] = static_cast<uint8_t>(Width - Width % distance);
    }
    return tables;
}();

/// Writes Width bytes that repeat `distance` (1..15) bytes of `string`.
template <size_t Width>
inline void storeRepeated(uint8_t* dst, __m128i string, size_t distance) {
    static_assert(Width == 16 || Width == 32);
    const auto* order = reinterpret_cast<const __m128i*>(repeatTables<Width>.order[distance]);
    auto* to = reinterpret_cast<__m128i*>(dst);
    _mm_storeu_si128(to, _mm_shuffle_epi8(string, _mm_load_si128(order)));
    if constexpr (Width == 32) {
        _mm_storeu_si128(to + 1, _mm_shuffle_epi8(string, _mm_load_si128(order + 1)));
    }
}

/// Writes `length` bytes that repeat the `distance` (1..15) in front of `dst`, and up to Width - 1
/// more.
template <size_t Width>
inline void copyRepeated(uint8_t* dst, size_t distance, size_t length) {
    const __m128i string = _mm_loadu_si128(reinterpret_cast<const __m128i*>(dst - distance));
    const size_t step = repeatTables<Width>.step[distance];
    uint8_t* const end = dst + length;
    do {
        storeRepeated<Width>(dst, string, distance);
        dst += step;
    } while (dst < end);
}

}  // namespace vek::inline VEK_LEVEL
