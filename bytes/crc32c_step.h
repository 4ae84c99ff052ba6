// One CRC-32C step of a 32-bit word: the match finders' hash, and the CRC's own building block.
//
// The variant assumes the processor's CRC instruction; the portable step is its definition (the
// reflected Castagnoli polynomial, bit by bit, no inversion) and serves tests and constant tables.
#pragma once

#include <nmmintrin.h>

#include <cstdint>

namespace vek::inline VEK_LEVEL {

constexpr uint32_t crc32cPolynomial = 0x82F63B78U;

inline uint32_t crc32cStep(uint32_t crc, uint32_t word) {
    return _mm_crc32_u32(crc, word);
}

constexpr uint32_t crc32cStepPortable(uint32_t crc, uint32_t word) {
    crc ^= word;
    for (int bit = 0; bit < 32; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? crc32cPolynomial : 0);
    return crc;
}

}  // namespace vek::inline VEK_LEVEL
