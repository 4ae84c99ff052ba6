// What RFC 1951 fixes, for the encoder and the decoder: the sizes of its alphabets, the limits of
// its codes, and the ranges of lengths and distances that the symbols stand for, as tables made
// from the rule of 3.2.5.
//
// Length codes come in groups of four (from code 8 on) and distance codes in pairs (from code 4 on)
// of the same number of extra bits; each group's ranges are twice as wide as the ones before.
// Length 258 is the exception: it has a code of its own, although code 27 with extra value 31 could
// express it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vek::inline VEK_LEVEL::deflate_format {

constexpr unsigned minMatch = 3;
constexpr unsigned maxMatch = 258;
constexpr unsigned maxDistance = 32768;

constexpr unsigned endOfBlock = 256;
constexpr unsigned firstLengthSymbol = endOfBlock + 1;
constexpr unsigned lengthCodes = 29;
constexpr unsigned litLenSymbols = firstLengthSymbol + lengthCodes;
constexpr unsigned distSymbols = 30;
static_assert(litLenSymbols == 286);

/// Both alphabets with the symbols that the fixed code has and no data may use.
constexpr unsigned allLitLenSymbols = 288;
constexpr unsigned allDistSymbols = 32;

/// The longest code of either alphabet, and the most extra bits behind it.
constexpr unsigned maxCodeLength = 15;
constexpr unsigned maxLengthExtra = 5;
constexpr unsigned maxDistExtra = 13;

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

static_assert(litBaseTable[27] == 224 && litExtraTable[27] == maxLengthExtra &&
              litExtraTable[28] == 0);
static_assert(distBaseTable[29] + (1U << distExtraTable[29]) == maxDistance &&
              distExtraTable[29] == maxDistExtra);

}  // namespace vek::inline VEK_LEVEL::deflate_format
