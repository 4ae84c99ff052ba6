// The length and distance codes of RFC 1951 as an encoder looks them up: from the length or the
// distance.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "bits/deflate_symbols.h"

namespace vek::inline VEK_LEVEL::deflate {

using namespace deflate_format;

/// [0, 256): length code of length - 3. [256, 512): distance code of distance - 1, for distances
/// up to 256. [512, 768): distance code of (distance - 1) >> 7, for longer ones; its first two
/// entries are not used.
inline constexpr std::array<uint8_t, 768> litCodeTable = [] {
    std::array<uint8_t, 768> table{};
    uint8_t code = 0;
    for (size_t i = 0; i < 255; ++i) {
        if (code + 1U < lengthCodes - 1 && litBaseTable[code + 1U] == i) ++code;
        table[i] = code;
    }
    table[255] = lengthCodes - 1;
    code = 0;
    for (size_t i = 0; i < 256; ++i) {
        if (distBaseTable[code + 1U] == i) ++code;
        table[256 + i] = code;
    }
    for (size_t i = 2; i < 256; ++i) {
        if (code + 1U < distSymbols && distBaseTable[code + 1U] == i << 7) ++code;
        table[512 + i] = code;
    }
    return table;
}();

/// Code of a length, given as length - 3.
inline unsigned lengthCode(unsigned lengthMinus3) {
    return litCodeTable[lengthMinus3];
}

/// Code of a distance, given as distance - 1, below maxDistance; of larger values the low bits
/// count.
inline unsigned distanceCode(unsigned distanceMinus1) {
    const unsigned nearby = 256 + distanceMinus1;
    const unsigned far = 512 + ((distanceMinus1 >> 7) & 255);
    const unsigned isNear = 0U - static_cast<unsigned>(distanceMinus1 < 256);
    return litCodeTable[far ^ ((far ^ nearby) & isNear)];
}

static_assert(litCodeTable[0] == 0 && litCodeTable[254] == 27 && litCodeTable[255] == 28 &&
              litCodeTable[511] == 15 && litCodeTable[514] == 16 && litCodeTable[767] == 29);

}  // namespace vek::inline VEK_LEVEL::deflate
