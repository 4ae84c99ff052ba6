// Canonical codes, and the bits of whole pairs, from code lengths.
#pragma once

#include <cstdint>

#include "bits/lsb_writer.h"
#include "bytes/words.h"
#include "deflate/symbol_tables.h"
#include "include/vekdc.h"

namespace vek::inline VEK_LEVEL::deflate {

inline bool hasCode(VekHuffEntry entry) {
    return entry.length - 1U < maxCodeLength;
}

/// Fills `table[s].code` from `table[s].length` for `n` symbols (RFC 1951, 3.2.2): codes of one
/// length follow the order of their symbols, and are stored first bit lowest. Symbols of length 0
/// and of lengths beyond the format's get none.
inline void assignCodes(VekHuffEntry* table, size_t n) {
    uint32_t counts[maxCodeLength + 1] = {};
    uint32_t next[maxCodeLength + 1] = {};
    for (size_t s = 0; s < n; ++s)
        if (hasCode(table[s])) ++counts[table[s].length];
    for (unsigned length = 1; length <= maxCodeLength; ++length) {
        next[length] = (next[length - 1] + counts[length - 1]) << 1;
    }
    for (size_t s = 0; s < n; ++s) {
        if (!hasCode(table[s])) continue;
        const unsigned length = table[s].length;
        table[s].code = static_cast<uint16_t>(reverseBits(next[length]++, length));
    }
}

/// A symbol's code with the extra bits of a value behind it. Of a length that no code has, the low
/// four bits count.
inline CodedBits codeWithExtra(VekHuffEntry entry, uint32_t extra, uint32_t extraBits) {
    const uint32_t length = entry.length & maxCodeLength;
    return {entry.code | (extra << length), length + extraBits};
}

inline CodedBits literalBits(const VekHuffEntry* litTable, uint32_t byte) {
    return codeWithExtra(litTable[byte], 0, 0);
}

inline CodedBits lengthBits(const VekHuffEntry* litTable, uint32_t lengthMinus3) {
    const unsigned code = lengthCode(lengthMinus3);
    const uint32_t extra = litExtraTable[code] == 0 ? 0 : lengthMinus3 - litBaseTable[code];
    return codeWithExtra(litTable[firstLengthSymbol + code], extra, litExtraTable[code]);
}

inline CodedBits distanceBits(const VekHuffEntry* distTable, uint32_t distanceMinus1) {
    const unsigned code = distanceCode(distanceMinus1);
    return codeWithExtra(distTable[code], distanceMinus1 - distBaseTable[code],
                         distExtraTable[code]);
}

}  // namespace vek::inline VEK_LEVEL::deflate
