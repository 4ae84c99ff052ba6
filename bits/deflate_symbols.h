// The ranges of lengths and distances that the symbols of RFC 1951, 3.2.5 stand for, as tables made
// from the rule that it gives.
//
// Length codes come in groups of four (from code 8 on) and distance codes in pairs (from code 4 on)
// of the same number of extra bits; each group's ranges are twice as wide as the ones before.
// Length 258 is the exception: it has a code of its own, although code 27 with extra value 31 could
// express it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vek::inline VEK_LEVEL::deflate {

constexpr size_t distSymbols = 30;
constexpr size_t lengthCodes = 29;

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

static_assert(litBaseTable[27] == 224 && distBaseTable[29] == 24576 && litExtraTable[27] == 5 &&
              litExtraTable[28] == 0 && distExtraTable[29] == 13);

}  // namespace vek::inline VEK_LEVEL::deflate
