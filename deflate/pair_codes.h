// The bits of every literal, length and distance, made ready for a block.
//
// A pair's two halves are one table entry each, code and extra bits together; only a distance above
// 256 needs its extra bits added. Entry 0 of the distances is empty, so that a literal, whose
// distance is 0, takes the same path as a match: whether the next pair is one or the other cannot
// be predicted, and a branch on it would cost more than the empty entry.
#pragma once

#include <cstdint>

#include "deflate/huffman_codes.h"

namespace vek::deflate {

struct PairCodes {
    static constexpr uint32_t shortDistances = 256;

    CodedBits symbols[512];                   // literals by byte, then lengths by length - 3
    CodedBits distances[shortDistances + 1];  // by distance
    const VekHuffEntry* distTable;

    PairCodes(const VekHuffEntry* litTable, const VekHuffEntry* distEntries)
        : distTable(distEntries) {
        for (uint32_t i = 0; i < 256; ++i) {
            symbols[i] = literalBits(litTable, i);
            symbols[256 + i] = lengthBits(litTable, i);
        }
        distances[0] = {0, 0};
        for (uint32_t d = 1; d <= shortDistances; ++d)
            distances[d] = distanceBits(distTable, d - 1);
    }

    CodedBits distance(uint32_t value) const {
        return value <= shortDistances ? distances[value] : distanceBits(distTable, value - 1);
    }
};

/// Most bits that one half of a pair takes.
constexpr uint32_t maxSymbolBits = maxCodeLength + 5;
constexpr uint32_t maxDistanceBits = maxCodeLength + 13;

}  // namespace vek::deflate
