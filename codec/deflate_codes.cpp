// Code lengths come from Huffman's construction over the symbols sorted by frequency, with two
// queues: the sorted symbols, and the merged nodes, which arise in order of weight. Where a code is
// longer than the format allows, which is rare, package-merge finds the best one that is not.
#include "codec/deflate_codes.h"

#include <algorithm>
#include <bitset>

namespace vekdc::codec {
namespace {

constexpr uint32_t kMaxCodeLength = 15;
constexpr uint32_t kMaxLengthCodeLength = 7;

constexpr uint16_t reversed(uint32_t code, uint32_t length) {
    uint32_t result = 0;
    for (uint32_t i = 0; i < length; ++i) result |= ((code >> i) & 1) << (length - 1 - i);
    return static_cast<uint16_t>(result);
}

/// Numbers the codes of given lengths (RFC 1951, 3.2.2), their first bits lowest.
constexpr void numberCodes(VekHuffEntry* codes, const uint8_t* lengths, uint32_t count) {
    std::array<uint32_t, kMaxCodeLength + 2> next{};
    for (uint32_t s = 0; s < count; ++s)
        if (lengths[s] != 0) ++next[lengths[s] + 1U];
    for (uint32_t length = 1; length < next.size(); ++length)
        next[length] = (next[length] + next[length - 1]) << 1;
    for (uint32_t s = 0; s < count; ++s)
        codes[s] = {lengths[s] == 0 ? uint16_t{0} : reversed(next[lengths[s]]++, lengths[s]),
                    lengths[s]};
}

/// The fixed code (RFC 1951, 3.2.6).
constexpr DeflateTables makeFixedCodes() {
    DeflateTables codes{};
    std::array<uint8_t, kFixedLits> lengths{};
    for (uint32_t s = 0; s < kFixedLits; ++s) lengths[s] = fixedLitLength(s);
    std::array<VekHuffEntry, kFixedLits> all{};
    numberCodes(all.data(), lengths.data(), all.size());
    for (uint32_t s = 0; s < kLitSymbols; ++s) codes.lit[s] = all[s];
    for (uint32_t s = 0; s < kDistSymbols; ++s)
        codes.dist[s] = {reversed(s, kFixedDistLength), kFixedDistLength};
    return codes;
}

struct Leaf {
    uint32_t weight;
    uint32_t symbol;
};

/// Lengths of an optimal code for sorted leaves, at least two; returns the greatest.
uint32_t buildLengths(const Leaf* leaves, uint32_t count, uint8_t* lengths) {
    // Nodes 0 .. count - 1 are the leaves, the others are merged; the last one is the root.
    std::array<uint32_t, 2 * kLitSymbols> weight;
    std::array<uint16_t, 2 * kLitSymbols> parent;
    for (uint32_t i = 0; i < count; ++i) weight[i] = leaves[i].weight;
    const uint32_t root = 2 * count - 2;
    uint32_t leaf = 0;
    uint32_t merged = count;
    for (uint32_t node = count; node <= root; ++node) {
        weight[node] = 0;
        for (int child = 0; child < 2; ++child) {
            const bool takeLeaf =
                leaf < count && (merged == node || weight[leaf] <= weight[merged]);
            const uint32_t taken = takeLeaf ? leaf++ : merged++;
            weight[node] += weight[taken];
            parent[taken] = static_cast<uint16_t>(node);
        }
    }
    std::array<uint8_t, 2 * kLitSymbols> depth;
    depth[root] = 0;
    for (uint32_t node = root; node-- != 0;)
        depth[node] = static_cast<uint8_t>(depth[parent[node]] + 1);
    for (uint32_t i = 0; i < count; ++i) lengths[leaves[i].symbol] = depth[i];
    return depth[0];  // The lightest leaf is deepest.
}

/// Lengths of an optimal code of at most `limit` bits for sorted leaves: `limit` rounds of pairing
/// the leaves with the pairs of the round before, of which the cheapest 2 * count - 2 are taken. A
/// leaf's length is in how many rounds it is among those.
void limitLengths(const Leaf* leaves, uint32_t count, uint32_t limit, uint8_t* lengths) {
    constexpr uint32_t mostNodes = 2 * kLitSymbols;
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
                package == packages || (leaf < count && leaves[leaf].weight <= before[package]);
            weight[size] = isLeaf[round][size] ? leaves[leaf++].weight : before[package++];
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

/// Code lengths up to `limit` for the symbols that occur. A code of a single symbol would waste a
/// bit string and some decoders refuse it, so that at least two symbols get one.
void codeLengths(const VekHuffEntry* counts, uint32_t count, uint32_t limit, uint8_t* lengths) {
    std::fill_n(lengths, count, uint8_t{0});
    std::array<Leaf, kLitSymbols> leaves;
    uint32_t used = 0;
    for (uint32_t s = 0; s < count; ++s)
        if (frequency(counts[s]) != 0) leaves[used++] = {frequency(counts[s]), s};
    for (uint32_t s = 0; used < 2; ++s)
        if (frequency(counts[s]) == 0) leaves[used++] = {1, s};
    std::sort(leaves.begin(), leaves.begin() + used, [](const Leaf& a, const Leaf& b) {
        return a.weight != b.weight ? a.weight < b.weight : a.symbol < b.symbol;
    });
    if (buildLengths(leaves.data(), used, lengths) > limit)
        limitLengths(leaves.data(), used, limit, lengths);
}

/// Behind the last symbol that has a code, at least `least`.
uint32_t usedCount(const uint8_t* lengths, uint32_t count, uint32_t least) {
    while (count > least && lengths[count - 1] == 0) --count;
    return count;
}

}  // namespace

constexpr DeflateTables kFixedCodes = makeFixedCodes();

bool literalsAreText(const DeflateTables& counts) {
    constexpr uint32_t notInTexts = 0xF3FFC07F;  // 0 to 6, 14 to 25, 28 to 31
    const auto occurs = [&](uint32_t symbol) { return frequency(counts.lit[symbol]) != 0; };
    for (uint32_t symbol = 0; symbol < 32; ++symbol)
        if ((notInTexts >> symbol & 1) != 0 && occurs(symbol)) return false;
    if (occurs('\t') || occurs('\n') || occurs('\r')) return true;
    for (uint32_t symbol = 32; symbol < kEndOfBlock; ++symbol)
        if (occurs(symbol)) return true;
    return false;
}

uint64_t codedBits(const DeflateTables& counts, const DeflateTables& codes) {
    uint64_t bits = 0;
    for (uint32_t s = 0; s < kLitSymbols; ++s) {
        const uint32_t extra = s < 257 ? 0 : lengthExtraBits(s);
        bits += uint64_t{frequency(counts.lit[s])} * (codes.lit[s].length + extra);
    }
    for (uint32_t s = 0; s < kDistSymbols; ++s)
        bits += uint64_t{frequency(counts.dist[s])} * (codes.dist[s].length + distanceExtraBits(s));
    return bits;
}

DynamicCode::DynamicCode(const DeflateTables& counts) {
    std::array<uint8_t, kLitSymbols + kDistSymbols> lengths;
    codeLengths(counts.lit, kLitSymbols, kMaxCodeLength, lengths.data());
    litCount_ = usedCount(lengths.data(), kLitSymbols, 257);
    numberCodes(codes_.lit, lengths.data(), kLitSymbols);
    // The two alphabets' lengths stand side by side, and runs go across.
    uint8_t* const distLengths = lengths.data() + litCount_;
    codeLengths(counts.dist, kDistSymbols, kMaxCodeLength, distLengths);
    distCount_ = usedCount(distLengths, kDistSymbols, 1);
    numberCodes(codes_.dist, distLengths, kDistSymbols);
    // The library codes large blocks faster by tables that have something for every symbol; of
    // those that do not occur it does not matter what.
    for (VekHuffEntry& entry : codes_.lit)
        if (entry.length == 0) entry = {0, 1};
    addRuns(lengths.data(), litCount_ + distCount_);

    std::array<VekHuffEntry, kLengthSymbols> runCounts{};
    for (uint32_t i = 0; i < runCount_; ++i) countSymbol(runCounts[runs_[i].symbol]);
    std::array<uint8_t, kLengthSymbols> runLengths;
    codeLengths(runCounts.data(), kLengthSymbols, kMaxLengthCodeLength, runLengths.data());
    numberCodes(lengthCodes_.data(), runLengths.data(), kLengthSymbols);
    lengthCodeCount_ = kLengthSymbols;
    while (lengthCodeCount_ > 4 && runLengths[kOrder[lengthCodeCount_ - 1]] == 0)
        --lengthCodeCount_;
    putHeader(false, [&](uint32_t, uint32_t count) { headerBits_ += count; });
}

void DynamicCode::addRuns(const uint8_t* lengths, uint32_t count) {
    const auto add = [&](uint32_t symbol, uint32_t extra) {
        runs_[runCount_++] = {static_cast<uint8_t>(symbol), static_cast<uint8_t>(extra)};
    };
    for (uint32_t i = 0; i < count;) {
        const uint8_t length = lengths[i];
        uint32_t run = 1;
        while (i + run < count && lengths[i + run] == length) ++run;
        i += run;
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
}

}  // namespace vekdc::codec
