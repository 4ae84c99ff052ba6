// The length and distance codes of RFC 1951, as tables made from the rule that it gives.
//
// Length codes come in groups of four (from code 8 on) and distance codes in pairs (from code 4 on)
// of the same number of extra bits; each group's ranges are twice as wide as the ones before.
// Length 258 is the exception: it has a code of its own, although code 27 with extra value 31 could
// express it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vek::deflate {

constexpr int minMatch = 3;
constexpr int maxMatch = 258;
constexpr size_t litLenSymbols = 286;
constexpr size_t distSymbols = 30;
constexpr size_t lengthCodes = 29;
constexpr size_t firstLengthSymbol = 257;
constexpr size_t endOfBlock = 256;

/// Extra bits of each length code.
inline constexpr std::array<uint8_t, lengthCodes> litExtraTable = [] {
    std::array<uint8_t, lengthCodes> bits{};
    for (size_t code = 8; code < lengthCodes - 1; ++code)
        bits[code] = static_cast<uint8_t>(code / 4 - 1);
    return bits;
}();

/// Base length - 3 of each length code; 0 for code 28, which has no extra bits to add.
inline constexpr std::array<uint8_t, lengthCodes> litBaseTable = [] {
    std::array<uint8_t, lengthCodes> base{};
    unsigned next = 0;
    for (size_t code = 0; code < lengthCodes - 1; ++code) {
        base[code] = static_cast<uint8_t>(next);
        next += 1U << litExtraTable[code];
    }
    return base;
}();

/// Extra bits of each distance code.
inline constexpr std::array<uint8_t, distSymbols> distExtraTable = [] {
    std::array<uint8_t, distSymbols> bits{};
    for (size_t code = 4; code < distSymbols; ++code)
        bits[code] = static_cast<uint8_t>(code / 2 - 1);
    return bits;
}();

/// Base distance - 1 of each distance code.
inline constexpr std::array<uint16_t, distSymbols> distBaseTable = [] {
    std::array<uint16_t, distSymbols> base{};
    unsigned next = 0;
    for (size_t code = 0; code < distSymbols; ++code) {
        base[code] = static_cast<uint16_t>(next);
        next += 1U << distExtraTable[code];
    }
    return base;
}();

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

/// Code of a distance, given as distance - 1, in [0, 32768); of larger values the low bits count.
inline unsigned distanceCode(unsigned distanceMinus1) {
    const unsigned nearby = 256 + distanceMinus1;
    const unsigned far = 512 + ((distanceMinus1 >> 7) & 255);
    const unsigned isNear = 0U - static_cast<unsigned>(distanceMinus1 < 256);
    return litCodeTable[far ^ ((far ^ nearby) & isNear)];
}

static_assert(litBaseTable[27] == 224 && distBaseTable[29] == 24576 && litExtraTable[27] == 5 &&
              litExtraTable[28] == 0 && distExtraTable[29] == 13);
static_assert(litCodeTable[0] == 0 && litCodeTable[254] == 27 && litCodeTable[255] == 28 &&
              litCodeTable[511] == 15 && litCodeTable[514] == 16 && litCodeTable[767] == 29);

}  // namespace vek::deflate
