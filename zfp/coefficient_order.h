// The order in which a block's coefficients are coded, and what the kernels derive from it.
#pragma once

#include <array>
#include <cstdint>

#include "frame/variant.h"

#define runCodeTable VEK_INTERNAL(runCodeTable)

namespace vek::inline VEK_LEVEL::zfp {

/// Entry i is the block index 16z + 4y + x of the i-th coefficient, by increasing sequency.
constexpr std::array<uint8_t, 64> permTable = {
    0,  1,  4,  16, 20, 17, 5,  2,  8,  32, 21, 6,  18, 24, 9,  33, 36, 3,  12, 48, 22, 25,
    37, 40, 34, 10, 7,  19, 28, 13, 49, 52, 41, 38, 26, 23, 29, 53, 11, 35, 44, 14, 50, 56,
    42, 27, 39, 45, 30, 54, 57, 60, 51, 15, 43, 46, 58, 61, 55, 31, 62, 59, 47, 63};

/// The inverse: for each block index, its place in the coded order.
constexpr std::array<uint8_t, 64> permTableDecode = [] {
    std::array<uint8_t, 64> inverse{};
    for (unsigned i = 0; i < 64; ++i) inverse[permTable[i]] = static_cast<uint8_t>(i);
    return inverse;
}();

/// A permutation of 64 bytes as byte shuffles of 16: register d of the result is the OR, over the
/// sources s, of source s shuffled by mask[d][s]; a negative index gives zero.
struct ByteShuffles {
    alignas(16) int8_t mask[4][4][16];
    bool used[4][4];
};

constexpr ByteShuffles byteShuffles(const std::array<uint8_t, 64>& order) {
    ByteShuffles shuffles{};
    for (unsigned d = 0; d < 4; ++d) {
        for (unsigned s = 0; s < 4; ++s) {
            for (unsigned i = 0; i < 16; ++i) {
                const unsigned from = order[16 * d + i];
                const bool here = from / 16 == s;
                shuffles.mask[d][s][i] = here ? static_cast<int8_t>(from % 16) : int8_t{-1};
                shuffles.used[d][s] = shuffles.used[d][s] || here;
            }
        }
    }
    return shuffles;
}

struct RunCodes {
    uint32_t entry[2][256];
};

}  // namespace vek::inline VEK_LEVEL::zfp

/// Group tests and bits of eight coefficients not yet significant, by what stood before them (1: a
/// coefficient that became significant, or the start, so that a group test comes first) and by
/// their bits: the code, first bit lowest, below its length << 16.
extern "C" const vek::zfp::RunCodes runCodeTable;
