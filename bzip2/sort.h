// The parts of the forward block sort, between its units.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/variant.h"

#define owns_BWT_IT_sort VEK_INTERNAL(owns_BWT_IT_sort)
#define owns_BWT_sfx_fwd_asm VEK_INTERNAL(owns_BWT_sfx_fwd_asm)

namespace vek::inline VEK_LEVEL::bzip2 {

constexpr int32_t noBudget = -1;

/// How often the block repeats its shortest root: every rotation then has so many equals. A period
/// that divides the length is found by taking prime factors from it one by one.
inline uint32_t repeats(const uint8_t* block, uint32_t length) {
    uint32_t root = length;
    uint32_t times = 1;
    const auto shorten = [&](uint32_t prime) {
        while (root % prime == 0 &&
               std::memcmp(block, block + root / prime, length - root / prime) == 0) {
            root /= prime;
            times *= prime;
        }
    };
    uint32_t left = length;
    for (uint32_t prime = 2; prime <= left / prime; ++prime) {
        if (left % prime != 0) continue;
        shorten(prime);
        while (left % prime == 0) left /= prime;
    }
    if (left > 1) shorten(left);
    return times;
}

}  // namespace vek::inline VEK_LEVEL::bzip2

extern "C" {

/// Sorts `count` entries, positions in a block of `length` bytes that stands twice at `text` with
/// 16 bytes behind, by their rotations, of which the first `depth` bytes are equal. `budget` is the
/// number of bytes that may yet be found equal, or noBudget. Returns what is left of it; when that
/// fell below 0 the entries are left in disorder.
int32_t owns_BWT_IT_sort(const uint8_t* text, uint32_t length, uint32_t* entries, uint32_t count,
                         uint32_t depth, int32_t budget);

/// Writes the last column and the first row of those equal to the block, for any block of 1 byte
/// and more, in near-linear time. `work` has `room` bytes, at least 18 * length + 80 or
/// twoStageSize(length): the more, the faster.
void owns_BWT_sfx_fwd_asm(const uint8_t* block, uint32_t length, uint8_t* column, int32_t* index,
                          uint8_t* work, size_t room);
}
