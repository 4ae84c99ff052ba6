// The bits of every literal, length and distance, made ready for a block.
//
// A pair's two halves are one table entry each, code and extra bits together; only a distance above
// 256 has extra bits left to add, under a mask that is 0 in the entries of all others. Entry 0 of
// the distances is empty, so that a literal, whose distance is 0, takes the same path as a match,
// and a near distance the same as a far one: which of them comes next cannot be predicted, and a
// branch on it would cost more than the empty entry. The slots are laid out so that the smaller of
// a distance and its far slot is the one to take.
#pragma once

#include <algorithm>
#include <cstdint>

#include "deflate/canonical_codes.h"

namespace vek::inline VEK_LEVEL::deflate {

/// Bits of a distance, but for the low bits of distance - 1 that `extraMask` leaves to be added.
struct DistanceCode {
    uint32_t bits;
    uint16_t extraMask;
    uint8_t codeLength;
    uint8_t count;
};

class PairCodes {
 public:
    PairCodes(const VekHuffEntry* litTable, const VekHuffEntry* distTable) {
        for (uint32_t i = 0; i < 256; ++i) {
            symbols_[i] = lengthBits(litTable, i);
            symbols_[firstLiteral + i] = literalBits(litTable, i);
        }
        distances_[0] = {0, 0, 0, 0};
        for (uint32_t d = 1; d <= shortDistances; ++d) {
            const CodedBits coded = distanceBits(distTable, d - 1);
            distances_[d] = {coded.bits, 0, 0, static_cast<uint8_t>(coded.count)};
        }
        for (uint32_t i = shortDistances >> longShift; i < longSlots; ++i) {
            const unsigned code = distanceCode(i << longShift);
            const CodedBits coded = codeWithExtra(distTable[code], 0, distExtraTable[code]);
            distances_[firstLong + i] = {coded.bits,
                                         static_cast<uint16_t>((1U << distExtraTable[code]) - 1),
                                         static_cast<uint8_t>(coded.count - distExtraTable[code]),
                                         static_cast<uint8_t>(coded.count)};
        }
    }

    CodedBits literal(uint32_t byte) const { return symbols_[firstLiteral + byte]; }
    CodedBits length(uint32_t lengthMinus3) const { return symbols_[lengthMinus3]; }
    /// A literal, or the length of a match, whose distance is not 0.
    CodedBits symbol(uint32_t value, uint32_t distance) const {
        return symbols_[value + (((distance - 1) >> 16) & firstLiteral)];
    }

    CodedBits distance(uint32_t value) const {
        const uint32_t farSlot = firstLong + (((value - 1) >> longShift) & (longSlots - 1));
        const DistanceCode& entry = distances_[std::min(value, farSlot)];
        return {entry.bits | (((value - 1) & entry.extraMask) << entry.codeLength), entry.count};
    }

 private:
    static constexpr uint32_t shortDistances = 256;
    static constexpr uint32_t longShift = 7;  // every longer distance's code is that of its slot
    static constexpr uint32_t longSlots = 256;
    static constexpr uint32_t firstLong = shortDistances - 1;  // the first two slots are short

    static constexpr uint32_t firstLiteral = 256;
    CodedBits symbols_[2 * firstLiteral];  // lengths by length - 3, then literals by byte
    DistanceCode distances_[firstLong + longSlots];
};

/// Most bits that one half of a pair takes.
constexpr uint32_t maxSymbolBits = maxCodeLength + maxLengthExtra;
constexpr uint32_t maxDistanceBits = maxCodeLength + maxDistExtra;

}  // namespace vek::inline VEK_LEVEL::deflate
