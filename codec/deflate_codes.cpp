// Code lengths come from Huffman's construction over the symbols sorted by frequency, with two
// queues: the sorted symbols, and the merged nodes, which arise in order of weight. Where a code is
// longer than the format allows, which is rare, package-merge finds the best one that is not.
#include "codec/deflate_codes.h"

#include <algorithm>
#include <bitset>
#include <numeric>
#include <utility>

namespace vekdc::codec {
namespace {

constexpr uint32_t kMaxCodeLength = 15;
constexpr uint32_t kMaxLengthCodeLength = 7;

constexpr uint16_t reversed(uint32_t code, uint32_t length) {
    code = (code & 0x5555) << 1 | (code >> 1 & 0x5555);
    code = (code & 0x3333) << 2 | (code >> 2 & 0x3333);
    code = (code & 0x0F0F) << 4 | (code >> 4 & 0x0F0F);
    code = (code & 0x00FF) << 8 | code >> 8;
    return static_cast<uint16_t>(code >> (16 - length));
}

/// Every symbol of an alphabet.
template <uint32_t Count>
constexpr auto kAllSymbols = [] {
    std::array<SymbolCount, Count> symbols{};
    for (uint32_t s = 0; s < Count; ++s) symbols[s].symbol = s;
    return symbols;
}();

/// Numbers the codes of those symbols that have a length (RFC 1951, 3.2.2), their first bits
/// lowest.
template <class Symbols>
constexpr void numberCodes(VekHuffEntry* codes, const uint8_t* lengths, const Symbols& symbols) {
    std::array<uint32_t, kMaxCodeLength + 2> next{};
    for (const SymbolCount& symbol : symbols) ++next[lengths[symbol.symbol] + 1U];
    next[1] = 0;
    for (uint32_t length = 1; length < next.size(); ++length)
        next[length] = (next[length] + next[length - 1]) << 1;
    for (const SymbolCount& symbol : symbols) {
        const uint8_t length = lengths[symbol.symbol];
        if (length != 0) codes[symbol.symbol] = {reversed(next[length]++, length), length};
    }
}

/// The fixed code (RFC 1951, 3.2.6).
constexpr DeflateTables makeFixedCodes() {
    DeflateTables codes{};
    std::array<uint8_t, allLitLenSymbols> lengths{};
    for (uint32_t s = 0; s < allLitLenSymbols; ++s) lengths[s] = fixedLitLength(s);
    std::array<VekHuffEntry, allLitLenSymbols> all{};
    numberCodes(all.data(), lengths.data(), kAllSymbols<allLitLenSymbols>);
    for (uint32_t s = 0; s < litLenSymbols; ++s) codes.lit[s] = all[s];
    for (uint32_t s = 0; s < distSymbols; ++s)
        codes.dist[s] = {reversed(s, kFixedDistLength), kFixedDistLength};
    return codes;
}

/// Sorts the symbols by frequency. Small frequencies, which most have, are sorted by counting them.
void sortByCount(const UsedSymbols& used, SymbolCount* sorted) {
    constexpr uint32_t large = 31;  // All of these are in one place.
    std::array<uint32_t, large + 2> places{};
    for (const SymbolCount& symbol : used) ++places[std::min(symbol.count, large) + 1];
    std::partial_sum(places.begin(), places.end(), places.begin());
    SymbolCount* const firstLarge = sorted + places[large];
    for (const SymbolCount& symbol : used) sorted[places[std::min(symbol.count, large)]++] = symbol;
    std::sort(firstLarge, sorted + used.size(), [](const SymbolCount& a, const SymbolCount& b) {
        return a.count != b.count ? a.count < b.count : a.symbol < b.symbol;
    });
}

/// Lengths of an optimal code for sorted leaves, at least two; returns the greatest.
uint32_t buildLengths(const SymbolCount* leaves, uint32_t count, uint8_t* lengths) {
    // Of merged nodes, in order of weight; the last one is the root. Behind the leaves and the
    // nodes that are there stands one that is never taken.
    constexpr uint32_t none = UINT32_MAX;
    std::array<uint32_t, litLenSymbols + 1> leafWeight;
    std::array<uint32_t, litLenSymbols> weight;
    std::array<uint16_t, litLenSymbols> leafParent;
    std::array<uint16_t, litLenSymbols> parent;
    for (uint32_t i = 0; i < count; ++i) leafWeight[i] = leaves[i].count;
    leafWeight[count] = none;
    const uint32_t root = count - 2;
    uint32_t leaf = 0;
    uint32_t merged = 0;
    for (uint32_t node = 0; node <= root; ++node) {
        weight[node] = none;
        uint32_t sum = 0;
        for (int child = 0; child < 2; ++child) {
            const bool takeLeaf = leafWeight[leaf] <= weight[merged];
            sum += std::min(leafWeight[leaf], weight[merged]);
            (takeLeaf ? leafParent[leaf] : parent[merged]) = static_cast<uint16_t>(node);
            leaf += takeLeaf ? 1 : 0;
            merged += takeLeaf ? 0 : 1;
        }
        weight[node] = sum;
    }
    std::array<uint8_t, litLenSymbols> depth;
    depth[root] = 0;
    for (uint32_t node = root; node-- != 0;)
        depth[node] = static_cast<uint8_t>(depth[parent[node]] + 1);
    for (uint32_t i = 0; i < count; ++i)
        lengths[leaves[i].symbol] = static_cast<uint8_t>(depth[leafParent[i]] + 1);
    return lengths[leaves[0].symbol];  // The lightest leaf is deepest.
}

/// Lengths of an optimal code of at most `limit` bits for sorted leaves: `limit` rounds of pairing
/// the leaves with the pairs of the round before, of which the cheapest 2 * count - 2 are taken. A
/// leaf's length is in how many rounds it is among those.
void limitLengths(const SymbolCount* leaves, uint32_t count, uint32_t limit, uint8_t* lengths) {
    constexpr uint32_t mostNodes = 2 * litLenSymbols;
    std::array<std::bitset<mostNodes>, kMaxCodeLength> isLeaf;
    std::array<uint32_t, mostNodes> before;
    std::array<uint32_t, mostNodes> weight;
    uint32_t size = 0;
    for (uint32_t round = 0; round < limit; ++round) {
        const uint32_t packages = size / 2;
        for (uint32_t i = 0; i < packages; ++i) before[i] = weight[2 * i] + weight[2 * i + 1];
        uint32_t leaf = 0;
        uint32_t package = 0;
        for (size = 0; size < count + packages; ++size) {
            isLeaf[round][size] =
                package == packages || (leaf < count && leaves[leaf].count <= before[package]);
            weight[size] = isLeaf[round][size] ? leaves[leaf++].count : before[package++];
        }
    }
    for (uint32_t i = 0; i < count; ++i) lengths[leaves[i].symbol] = 0;
    uint32_t taken = 2 * count - 2;
    for (uint32_t round = limit; round-- != 0;) {
        uint32_t used = 0;
        for (uint32_t i = 0; i < taken; ++i) used += isLeaf[round][i] ? 1 : 0;
        for (uint32_t i = 0; i < used; ++i) ++lengths[leaves[i].symbol];
        taken = 2 * (taken - used);
    }
}

/// Code lengths up to `limit` for the used ones of `count` symbols.
void codeLengths(const UsedSymbols& used, uint32_t count, uint32_t limit, uint8_t* lengths) {
    std::fill_n(lengths, count, uint8_t{0});
    std::array<SymbolCount, litLenSymbols> leaves;
    sortByCount(used, leaves.data());
    if (buildLengths(leaves.data(), used.size(), lengths) > limit)
        limitLengths(leaves.data(), used.size(), limit, lengths);
}

constexpr uint32_t litExtraBits(uint32_t symbol) {
    return symbol <= endOfBlock ? 0 : lengthExtraBits(symbol);
}

/// Bits that the symbols take; `bits(symbol)` of each.
template <class Bits>
uint64_t sumBits(const UsedSymbols& used, Bits bits) {
    uint64_t sum = 0;
    for (const SymbolCount& symbol : used) sum += uint64_t{symbol.count} * bits(symbol.symbol);
    return sum;
}

}  // namespace

constexpr DeflateTables kFixedCodes = makeFixedCodes();

bool literalsAreText(const DeflateTables& counts) {
    constexpr uint32_t notInTexts = 0xF3FFC07F;  // 0 to 6, 14 to 25, 28 to 31
    const auto occurs = [&](uint32_t symbol) { return frequency(counts.lit[symbol]) != 0; };
    for (uint32_t symbol = 0; symbol < 32; ++symbol)
        if ((notInTexts >> symbol & 1) != 0 && occurs(symbol)) return false;
    if (occurs('\t') || occurs('\n') || occurs('\r')) return true;
    for (uint32_t symbol = 32; symbol < endOfBlock; ++symbol)
        if (occurs(symbol)) return true;
    return false;
}

UsedSymbols::UsedSymbols(const VekHuffEntry* counts, uint32_t count) {
    SymbolCount* next = used_.data();
    for (uint32_t s = 0; s < count; ++s) {
        const uint32_t n = frequency(counts[s]);
        *next = {s, n};
        next += n != 0 ? 1 : 0;
    }
    size_ = static_cast<uint32_t>(next - used_.data());
    if (size_ == 0) used_[size_++] = {0, 0};
    if (size_ == 1) {
        used_[size_++] = {used_[0].symbol == 0 ? 1U : 0U, 0};
        if (last() == 0) std::swap(used_[0], used_[1]);
    }
}

uint64_t codedBits(const BlockSymbols& symbols, const DeflateTables& codes) {
    return sumBits(symbols.lit, [&](uint32_t s) { return codes.lit[s].length + litExtraBits(s); }) +
           sumBits(symbols.dist,
                   [&](uint32_t s) { return codes.dist[s].length + distanceExtraBits(s); });
}

DynamicCode::DynamicCode(const BlockSymbols& symbols)
    : litCount_(std::max(symbols.lit.last(), endOfBlock) + 1), distCount_(symbols.dist.last() + 1) {
    uint8_t* const distLengths = lengths_.data() + litCount_;
    codeLengths(symbols.lit, litCount_, kMaxCodeLength, lengths_.data());
    codeLengths(symbols.dist, distCount_, kMaxCodeLength, distLengths);
    addRuns(symbols);

    std::array<VekHuffEntry, kLengthSymbols> runCounts{};
    for (uint32_t i = 0; i < runCount_; ++i) countSymbol(runCounts[runs_[i].symbol]);
    const UsedSymbols runs(runCounts.data(), kLengthSymbols);
    codeLengths(runs, kLengthSymbols, kMaxLengthCodeLength, runLengths_.data());
    while (lengthCodeCount_ > 4 && runLengths_[kOrder[lengthCodeCount_ - 1]] == 0)
        --lengthCodeCount_;
    constexpr uint32_t beforeRuns = 3 + 5 + 5 + 4;
    bits_ =
        beforeRuns + 3 * lengthCodeCount_ +
        sumBits(runs, [&](uint32_t s) { return runLengths_[s] + runExtraBits(s); }) +
        sumBits(symbols.lit, [&](uint32_t s) { return lengths_[s] + litExtraBits(s); }) +
        sumBits(symbols.dist, [&](uint32_t s) { return distLengths[s] + distanceExtraBits(s); });
}

DeflateTables DynamicCode::codes(const BlockSymbols& symbols) const {
    DeflateTables codes{};
    // The library codes large blocks faster by tables that have something for every symbol; of
    // those that do not occur it does not matter what.
    std::fill_n(codes.lit, litLenSymbols, VekHuffEntry{0, 1});
    numberCodes(codes.lit, lengths_.data(), symbols.lit);
    numberCodes(codes.dist, lengths_.data() + litCount_, symbols.dist);
    return codes;
}

auto DynamicCode::runCodes() const -> std::array<VekHuffEntry, kLengthSymbols> {
    std::array<VekHuffEntry, kLengthSymbols> codes{};
    numberCodes(codes.data(), runLengths_.data(), kAllSymbols<kLengthSymbols>);
    return codes;
}

/// Makes runs of the lengths, across both alphabets.
void DynamicCode::addRuns(const BlockSymbols& symbols) {
    uint32_t behind = 0;  // What comes before it is in runs, or in the one under way.
    uint32_t length = 0;
    uint32_t run = 0;
    const auto go = [&](uint32_t at) {
        if (at != behind || lengths_[at] != length) {
            addRun(length, run);
            if (at != behind) addRun(0, at - behind);
            length = lengths_[at];
            run = 0;
        }
        ++run;
        behind = at + 1;
    };
    for (const SymbolCount& symbol : symbols.lit) go(symbol.symbol);
    for (const SymbolCount& symbol : symbols.dist) go(litCount_ + symbol.symbol);
    addRun(length, run);
}

void DynamicCode::addRun(uint32_t length, uint32_t run) {
    const auto add = [&](uint32_t symbol, uint32_t extra) {
        runs_[runCount_++] = {static_cast<uint8_t>(symbol), static_cast<uint8_t>(extra)};
    };
    if (length != 0) {
        add(length, 0);
        --run;
    }
    while (run >= 3) {
        const uint32_t taken = std::min(run, length != 0 ? 6U : 138U);
        if (length != 0) {
            add(16, taken - 3);
        } else if (taken < 11) {
            add(17, taken - 3);
        } else {
            add(18, taken - 11);
        }
        run -= taken;
    }
    for (; run != 0; --run) add(length, 0);
}

}  // namespace vekdc::codec
