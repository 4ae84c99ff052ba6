// Decoding tables of deflate's Huffman codes (RFC 1951, 3.2).
//
// Code lengths become tables by one counting sort into canonical order (by length, then by symbol).
// The first level is indexed by the code's bits as they arrive, so a code of n bits belongs at
// every index with the same low n bits: the codes of n bits are written once into a table of 2^n
// entries, and the table is then repeated behind itself for the next length. The next code of a
// length, with its bits reversed, is the last one plus 1 carried from the top bit down. Codes
// longer than the first level have sub-tables in canonical order, which the sorted codes fill front
// to back. The cost is one write a symbol plus the copying, so a table costs less than the clearing
// of its memory would with byte stores; blocks are 20 KB or so, and their tables must not be felt.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "bits/deflate_symbols.h"
#include "bytes/words.h"
#include "frame/args.h"
#include "inflate/table_layout.h"

namespace {

using namespace vek::inflate;

/// Entries of the literal/length symbols without the code length: value << 8 | kind. Symbol 256 has
/// a kind of the layout's own, and so have 286 and 287, which mean nothing.
constexpr std::array<uint16_t, allLitLenSymbols> litEntries(uint8_t endKind, uint8_t invalidKind) {
    std::array<uint16_t, allLitLenSymbols> table{};
    for (size_t i = 0; i < endOfBlock; ++i) table[i] = static_cast<uint16_t>(i << 8);
    table[endOfBlock] = endKind;
    for (size_t i = 0; i < lengthCodes; ++i) {
        table[firstLengthSymbol + i] =
            static_cast<uint16_t>(litBaseTable[i] << 8 | 0x80 | litExtraTable[i] << 4);
    }
    table[litLenSymbols - 1] = 0xFF80;
    for (size_t i = litLenSymbols; i < allLitLenSymbols; ++i) table[i] = invalidKind;
    return table;
}
constexpr auto singleLitEntries = litEntries(singleEndKind, 0);
constexpr auto twoLevelLitEntries = litEntries(twoLevelEndKind, twoLevelInvalidKind);
static_assert(singleLitEntries[257] == 0x0080 && singleLitEntries[265] == 0x0890 &&
              singleLitEntries[284] == 0xE0D0 && singleLitEntries[285] == 0xFF80 &&
              singleLitEntries[286] == 0 && twoLevelLitEntries[287] == twoLevelInvalidKind);

struct DistanceEntry {
    uint16_t kind;  ///< Number of extra bits << 4.
    uint16_t base;
};

constexpr std::array<DistanceEntry, allDistSymbols> DistExtr = [] {
    std::array<DistanceEntry, allDistSymbols> table{};
    for (size_t i = 0; i < distSymbols; ++i) {
        table[i] = {static_cast<uint16_t>(distExtraTable[i] << 4),
                    static_cast<uint16_t>(distBaseTable[i] + 1)};
    }
    table[30].kind = 0xE0;
    table[31].kind = 0xF0;
    return table;
}();
static_assert(DistExtr[4].kind == 0x10 && DistExtr[4].base == 5 && DistExtr[29].kind == 0xD0 &&
              DistExtr[29].base == 24577);

constexpr void put16(uint8_t* at, uint32_t index, uint32_t value) {
    at[2 * index] = static_cast<uint8_t>(value);
    at[2 * index + 1] = static_cast<uint8_t>(value >> 8);
}

// The four tables: entries are written by symbol or, for links, by value, and repeated.

struct SingleLit {
    uint8_t* entries;

    void set(uint32_t index, unsigned symbol, unsigned len) const {
        put16(entries, index, singleLitEntries[symbol] + len);
    }
    void repeat(uint32_t size) const { std::memcpy(entries + 2 * size, entries, 2 * size); }
};

struct TwoLevelLit {
    uint8_t* values;
    uint8_t* kinds;

    constexpr void set(uint32_t index, unsigned symbol, unsigned len) const {
        const unsigned entry = twoLevelLitEntries[symbol];
        values[index] = static_cast<uint8_t>(entry >> 8);
        kinds[index] = static_cast<uint8_t>(entry + len);
    }
    void link(uint32_t index, uint32_t subTable, unsigned longest) const {
        values[index] = static_cast<uint8_t>(subTable / 2);
        kinds[index] = static_cast<uint8_t>(longest);
    }
    void repeat(uint32_t size) const {
        std::memcpy(values + size, values, size);
        std::memcpy(kinds + size, kinds, size);
    }
};

struct Distances {
    uint8_t* bases;
    uint8_t* kinds;

    constexpr void set(uint32_t index, unsigned symbol, unsigned len) const {
        put16(bases, index, DistExtr[symbol].base);
        kinds[index] = static_cast<uint8_t>(DistExtr[symbol].kind + len);
    }
    void link(uint32_t index, uint32_t subTable, unsigned longest) const {
        put16(bases, index, subTable);
        kinds[index] = static_cast<uint8_t>(longest);
    }
    void repeat(uint32_t size) const {
        std::memcpy(bases + 2 * size, bases, 2 * size);
        std::memcpy(kinds + size, kinds, size);
    }
};

/// A code in canonical order.
struct Code {
    uint16_t count[maxCodeLength + 1] = {};
    uint16_t symbols[allLitLenSymbols];
    unsigned longest = 0;

    /// Sorts; false when a length is above 15.
    bool sort(const uint16_t* lens, uint32_t nSymbols) {
        unsigned all = 0;
        for (uint32_t i = 0; i < nSymbols; ++i) {
            all |= lens[i];
            ++count[lens[i] & maxCodeLength];
        }
        if (all > maxCodeLength) return false;
        count[0] = 0;
        // The unused symbols get places too, behind all others: no branch a symbol, and no more
        // than nSymbols places in all.
        uint16_t next[maxCodeLength + 2] = {};
        for (unsigned len = 1; len <= maxCodeLength; ++len) {
            if (count[len] != 0) longest = len;
            next[len + 1] = static_cast<uint16_t>(next[len] + count[len]);
        }
        next[0] = next[maxCodeLength + 1];
        for (uint32_t i = 0; i < nSymbols; ++i) {
            symbols[next[lens[i]]++] = static_cast<uint16_t>(i);
        }
        return true;
    }

    /// Kraft's sum: what is left of 2^longest bit strings; negative when over-subscribed.
    int32_t unused() const {
        int32_t left = 1;
        for (unsigned len = 1; len <= longest && left >= 0; ++len) left = 2 * left - count[len];
        return left;
    }

    bool isSingle() const { return longest == 1 && count[1] == 1; }

    /// Makes the thirty distances of the fixed code complete by the two that do not exist, so that
    /// these have a length like all others; false for another code.
    bool completeFixedDistances() {
        if (longest != 5 || count[5] != distSymbols) return false;
        for (uint16_t symbol = distSymbols; symbol < allDistSymbols; ++symbol)
            symbols[count[5]++] = symbol;
        return true;
    }
};

/// Writes the codes of up to `bits` bits into a table of 2^bits entries; returns how many.
template <class Table>
unsigned fillFirstLevel(const Table& table, const Code& code, unsigned bits) {
    unsigned position = 0;
    uint32_t reversed = 0;
    for (unsigned len = 1; len <= bits; ++len) {
        if (len > 1) table.repeat(1U << (len - 1));
        for (unsigned n = code.count[len]; n != 0; --n) {
            table.set(reversed, code.symbols[position++], len);
            const uint32_t zeros = ~reversed & ((1U << len) - 1);
            if (zeros == 0) break;
            const uint32_t carry = 1U << vek::highestSetBit(zeros);
            reversed = (reversed & (carry - 1)) | carry;
        }
    }
    return position;
}

/// Length of the longest code below a first-level entry whose first code is the `index`-th of
/// length `len`: the codes that follow in canonical order fill the entry.
unsigned longestBelow(const Code& code, unsigned len, unsigned index) {
    int32_t room = 1 << (len - rootBits);
    int32_t codes = code.count[len] - static_cast<int32_t>(index);
    while (room > codes && len < code.longest) {
        room = 2 * (room - codes);
        codes = code.count[++len];
    }
    return len;
}

/// Writes a table of two levels, the second of `capacity` entries; false when it does not fit there
/// (complete codes in canonical order stay far below).
template <class Table>
bool fillTwoLevels(const Table& table, const Code& code, uint32_t capacity) {
    unsigned position = fillFirstLevel(table, code, rootBits);
    uint32_t next = 0;      // Behind the sub-tables so far.
    uint32_t at = 0;        // Place of the next code in the second level.
    unsigned subBits = 0;   // Of the current sub-table.
    uint32_t codeword = 0;  // Of the first code of the current length.
    for (unsigned len = 1; len <= code.longest; ++len) {
        codeword = (codeword + code.count[len - 1]) << 1;
        if (len <= rootBits) continue;
        for (unsigned i = 0; i < code.count[len]; ++i) {
            if (at == next) {
                const unsigned longest = longestBelow(code, len, i);
                const uint32_t prefix = (codeword + i) >> (len - rootBits);
                table.link(vek::reverseBits(prefix, rootBits), next, longest);
                subBits = longest - rootBits;
                next += 1U << subBits;
                if (next > capacity) return false;
            }
            const uint32_t run = 1U << (subBits + rootBits - len);
            for (uint32_t k = 0; k < run; ++k) {
                table.set(rootSize + at++, code.symbols[position], len);
            }
            ++position;
        }
    }
    return true;
}

constexpr unsigned fixedLitLen(unsigned symbol) {
    return symbol < 144 ? 8 : symbol < 256 ? 9 : symbol < 280 ? 7 : 8;
}

constexpr auto makeFixedTables() {
    std::array<uint8_t, twoLevelSize> area{};
    const TwoLevelLit lits{&area[litValueAt], &area[litKindAt]};
    const Distances dists{&area[distBaseAt], &area[distKindAt]};
    uint32_t codeword = 0;
    for (unsigned len = 7; len <= 9; ++len, codeword <<= 1) {
        for (unsigned symbol = 0; symbol < allLitLenSymbols; ++symbol) {
            if (fixedLitLen(symbol) != len) continue;
            const uint32_t first = vek::reverseBits(codeword++, len);
            for (uint32_t i = first; i < rootSize; i += 1U << len) lits.set(i, symbol, len);
        }
    }
    for (unsigned symbol = 0; symbol < allDistSymbols; ++symbol) {
        for (uint32_t i = vek::reverseBits(symbol, 5); i < rootSize; i += 1U << 5) {
            dists.set(i, symbol, 5);
        }
    }
    return area;
}

}  // namespace

extern "C" {

constexpr std::array<uint8_t, twoLevelSize> fixedCodeTables = makeFixedTables();
static_assert(fixedCodeTables[litKindAt] == 0x67 && fixedCodeTables[distKindAt] == 0x05 &&
              fixedCodeTables[distBaseAt] == 1 && fixedCodeTables[distKindAt + 1] == 0x75 &&
              fixedCodeTables[distBaseAt + 3] == 1);

VekStatus veksInflateBuildHuffTable(const uint16_t* codeLens, uint32_t nLitCodeLens,
                                    uint32_t nDistCodeLens, VekInflateState* state) {
    if (vek::anyNull(codeLens, state)) return vekStatusNullPointer;
    if (nLitCodeLens > allLitLenSymbols || nDistCodeLens > distSymbols) return vekStatusBadSize;
    if (nLitCodeLens <= endOfBlock || codeLens[endOfBlock] == 0) return vekStatusSourceDataError;

    Code lit;
    Code dist;
    if (!lit.sort(codeLens, nLitCodeLens) || !dist.sort(codeLens + nLitCodeLens, nDistCodeLens)) {
        return vekStatusSourceDataError;
    }
    if (lit.unused() != 0 && !lit.isSingle()) return vekStatusSourceDataError;
    if (dist.longest != 0 && dist.unused() != 0 && !dist.isSingle() &&
        !dist.completeFixedDistances()) {
        return vekStatusSourceDataError;
    }

    uint8_t* area = state->tables;
    std::memset(area, 0, VEK_INFLATE_TABLES_SIZE);
    if (lit.longest <= maxLitBits && dist.longest <= maxDistBits) {
        uint8_t* distKinds = area + (2U << lit.longest);
        fillFirstLevel(SingleLit{area}, lit, lit.longest);
        fillFirstLevel(Distances{distKinds + distBaseOffset, distKinds}, dist, dist.longest);
        state->litBits = lit.longest;
        state->distBits = dist.longest;
        state->tableKind = singleLevelTables;
    } else {
        if (!fillTwoLevels(TwoLevelLit{area + litValueAt, area + litKindAt}, lit, litSubSize) ||
            !fillTwoLevels(Distances{area + distBaseAt, area + distKindAt}, dist, distSubSize)) {
            return vekStatusSourceDataError;
        }
        state->tableKind = twoLevelTables;
    }
    return vekStatusOk;
}
}
