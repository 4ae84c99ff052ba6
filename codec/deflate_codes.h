// The codes of a deflate block (RFC 1951): the fixed ones, and those made for a block's own
// symbols.
//
// A block's code is made for the symbols that occur in it and for no others, and its header stops
// behind the last of them: in a block of a few hundred bytes the header is a good part of all, and
// codes given to symbols that never come lengthen those of the ones that do. Sizes in bits are
// exact before anything is written, so that the cheapest form of a block can be chosen.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "bits/deflate_symbols.h"
#include "vekdc.h"

namespace vekdc::codec {

using namespace vek::deflate_format;

/// The two alphabets' codes, or while a block is gathered how often each symbol occurs.
struct DeflateTables {
    VekHuffEntry lit[litLenSymbols];
    VekHuffEntry dist[distSymbols];
};

extern const DeflateTables kFixedCodes;

/// Lengths of the fixed codes.
constexpr uint8_t fixedLitLength(uint32_t symbol) {
    return symbol < 144 ? 8 : symbol < 256 ? 9 : symbol < 280 ? 7 : 8;
}
constexpr uint8_t kFixedDistLength = 5;

constexpr uint32_t lengthExtraBits(uint32_t symbol) {
    return litExtraTable[symbol - firstLengthSymbol];
}
constexpr uint32_t distanceExtraBits(uint32_t symbol) {
    return distExtraTable[symbol];
}

constexpr auto kSymbolOfLength = [] {
    std::array<uint16_t, maxMatch + 1> symbols{};
    uint16_t code = 0;
    for (uint32_t length = minMatch; length < maxMatch; ++length) {
        if (code + 2U < lengthCodes && litBaseTable[code + 1U] == length - minMatch) ++code;
        symbols[length] = static_cast<uint16_t>(firstLengthSymbol + code);
    }
    symbols[maxMatch] = litLenSymbols - 1;
    return symbols;
}();

/// The symbols of a match's length and distance.
constexpr uint32_t lengthSymbol(uint32_t length) {
    return kSymbolOfLength[length];
}
constexpr uint32_t distanceSymbol(uint32_t distance) {
    const uint32_t before = distance - 1;
    if (before < 4) return before;
    const auto log = static_cast<uint32_t>(std::bit_width(before)) - 1;
    return 2 * log + ((before >> (log - 1)) & 1);
}

/// How often a symbol was counted.
inline uint32_t frequency(const VekHuffEntry& entry) {
    uint32_t value;
    std::memcpy(&value, &entry, sizeof(value));
    return value;
}
inline void addFrequency(VekHuffEntry& entry, uint32_t more) {
    const uint32_t value = frequency(entry) + more;
    std::memcpy(&entry, &value, sizeof(value));
}
/// Counts a symbol once more.
inline void countSymbol(VekHuffEntry& entry) {
    addFrequency(entry, 1);
}

struct SymbolCount {
    uint32_t symbol;
    uint32_t count;
};

/// The symbols of an alphabet that occur, in their order. In a small block they are few of many,
/// and what is done for each symbol is done for them alone.
///
/// Where fewer than two occur the first others stand here too, with a count of 0: a code of a
/// single symbol would waste a bit string, and some decoders refuse it.
class UsedSymbols {
 public:
    UsedSymbols(const VekHuffEntry* counts, uint32_t count);

    const SymbolCount* begin() const { return used_.data(); }
    const SymbolCount* end() const { return used_.data() + size_; }
    uint32_t size() const { return size_; }
    uint32_t last() const { return used_[size_ - 1].symbol; }

 private:
    std::array<SymbolCount, litLenSymbols> used_;
    uint32_t size_ = 0;
};

/// Those of a block.
struct BlockSymbols {
    explicit BlockSymbols(const DeflateTables& counts)
        : lit(counts.lit, litLenSymbols), dist(counts.dist, distSymbols) {}

    UsedSymbols lit;
    UsedSymbols dist;
};

/// Bits that a block's pairs and its end take with the given codes.
uint64_t codedBits(const BlockSymbols& symbols, const DeflateTables& codes);

/// Whether literals look like text: no control characters but those that texts have, and a
/// printable one, or a line's end.
bool literalsAreText(const DeflateTables& counts);

/// The code of one block, and what its header says of it. The counts must hold an end of block.
class DynamicCode {
 public:
    explicit DynamicCode(const BlockSymbols& symbols);

    /// What the block takes: header, pairs and end.
    uint64_t bits() const { return bits_; }
    /// Symbols that do not occur have entries without a meaning.
    DeflateTables codes(const BlockSymbols& symbols) const;

    /// Calls put(bits, count), count at most 16, for each part of the header.
    template <class Put>
    void putHeader(bool last, Put&& put) const {
        put((last ? 1U : 0U) | 2U << 1, 3);
        put(litCount_ - 257, 5);
        put(distCount_ - 1, 5);
        put(lengthCodeCount_ - 4, 4);
        for (uint32_t i = 0; i < lengthCodeCount_; ++i) put(runLengths_[kOrder[i]], 3);
        const auto runCodes = this->runCodes();
        for (uint32_t i = 0; i < runCount_; ++i) {
            const Run run = runs_[i];
            put(runCodes[run.symbol].code, runCodes[run.symbol].length);
            if (run.symbol >= 16) put(run.extra, runExtraBits(run.symbol));
        }
    }

 private:
    static constexpr uint32_t kLengthSymbols = 19;
    static constexpr std::array<uint8_t, kLengthSymbols> kOrder = {
        16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
    static constexpr uint32_t runExtraBits(uint32_t symbol) {
        constexpr std::array<uint8_t, 3> bits = {2, 3, 7};
        return symbol < 16 ? 0 : bits[symbol - 16];
    }

    /// A code length, or (16: of the length before, 17 and 18: of zeros) a run of them.
    struct Run {
        uint8_t symbol;
        uint8_t extra;
    };

    void addRuns(const BlockSymbols& symbols);
    void addRun(uint32_t length, uint32_t run);
    std::array<VekHuffEntry, kLengthSymbols> runCodes() const;

    uint32_t litCount_;
    uint32_t distCount_;
    std::array<uint8_t, litLenSymbols + distSymbols> lengths_;  ///< Those of distances behind.
    std::array<Run, litLenSymbols + distSymbols> runs_;
    uint32_t runCount_ = 0;
    std::array<uint8_t, kLengthSymbols> runLengths_;
    uint32_t lengthCodeCount_ = kLengthSymbols;
    uint64_t bits_ = 0;
};

}  // namespace vekdc::codec
