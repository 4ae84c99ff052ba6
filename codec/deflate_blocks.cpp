// Logarithms come from a table over the leading bits; units and blocks add and subtract the same
// errors, which are far below a header's size.
#include "codec/deflate_blocks.h"

#include <algorithm>
#include <cstring>

namespace vekdc::codec {
namespace {

/// n log2(n), in units, of small n.
constexpr auto kSelfInformation = [] {
    std::array<uint32_t, 256> information{};
    for (uint32_t n = 2; n < information.size(); ++n) information[n] = n * fixedLog2(n);
    return information;
}();

/// And of any.
uint64_t selfInformation(uint32_t n) {
    return n < kSelfInformation.size() ? kSelfInformation[n] : uint64_t{n} * fixedLog2(n);
}

/// What one alphabet's symbols take: their code, and what the header says of it.
template <class ExtraBits>
uint64_t alphabetBits(const UsedSymbols& used, uint32_t count, ExtraBits extraBits) {
    constexpr uint64_t headerBits = 3;  // A code length's code, in most headers.
    constexpr uint64_t gapBits = 7;     // That of a run of symbols that do not occur.
    uint64_t sum = 0;
    uint64_t units = 0;
    uint64_t bits = 0;
    uint32_t behind = 0;
    for (const auto [symbol, n] : used) {
        if (n == 0) continue;
        bits += headerBits + uint64_t{n} * extraBits(symbol) + (symbol != behind ? gapBits : 0);
        sum += n;
        units += selfInformation(n);
        behind = symbol + 1;
    }
    bits += behind != count ? gapBits : 0;
    return bits + ((selfInformation(static_cast<uint32_t>(sum)) - units) >> kLogFraction);
}

/// The symbols of distances up to 256, then those of each 128 more; none of 65536, which is 0.
constexpr auto kDistanceSymbols = [] {
    std::array<uint8_t, 256 + 512> symbols{};
    for (uint32_t i = 0; i < 256; ++i) symbols[i] = static_cast<uint8_t>(distanceSymbol(i + 1));
    for (uint32_t i = 0; i < 256; ++i)
        symbols[256 + i] = static_cast<uint8_t>(distanceSymbol((i << 7) + 1));
    symbols.back() = distSymbols;
    return symbols;
}();

uint32_t tabledDistanceSymbol(uint32_t distance) {
    const uint32_t before = (distance - 1) & 0xFFFF;
    return kDistanceSymbols[before < 256 ? before : 256 + (before >> 7)];
}

void addCounts(VekHuffEntry* to, const VekHuffEntry* more, uint32_t count) {
    for (uint32_t s = 0; s < count; ++s) addFrequency(to[s], frequency(more[s]));
}

/// Adds the other's counts.
void addCounts(DeflateTables& to, const DeflateTables& more) {
    addCounts(to.lit, more.lit, litLenSymbols);
    addCounts(to.dist, more.dist, distSymbols);
}

template <uint32_t Count>
bool allLiterals(const uint16_t* dists) {
    std::array<uint64_t, Count / 4> fours;
    std::memcpy(fours.data(), dists, sizeof(fours));
    uint64_t any = 0;
    for (const uint64_t four : fours) any |= four;
    return any == 0;
}

/// With fewer pairs than this, counters of their own take longer than those of the symbols.
constexpr uint32_t kFewPairs = 512;

uint32_t countFew(const DeflatePairs& pairs, uint32_t from, uint32_t to, DeflateTables& counts) {
    std::array<uint32_t, distSymbols + 1> dists{};
    uint32_t bytes = 0;
    for (uint32_t i = from; i < to; ++i) {
        const uint32_t distance = pairs.dists[i];
        const uint32_t length = pairs.lits[i] + minMatch;
        countSymbol(counts.lit[distance != 0 ? lengthSymbol(length) : pairs.lits[i]]);
        ++dists[tabledDistanceSymbol(distance)];
        bytes += distance != 0 ? length : 1;
    }
    for (uint32_t i = 0; i < distSymbols; ++i) addFrequency(counts.dist[i], dists[i]);
    return bytes;
}

}  // namespace

// In data that hardly compresses many pairs in a row are literals, which one look tells. Else no
// branch tells literals from matches, as it could not be predicted: lengths are counted one by one
// beside the literals, and a symbol behind the others stands for no distance.
uint32_t countPairs(const DeflatePairs& pairs, uint32_t from, uint32_t to, DeflateTables& counts) {
    constexpr uint32_t atOnce = 32;
    if (to - from < kFewPairs) return countFew(pairs, from, to, counts);
    std::array<std::array<uint32_t, 256>, 2> lits{};
    std::array<std::array<uint32_t, distSymbols + 1>, 4> dists{};  // One alone would be waited for.
    const auto countOne = [&](uint32_t i, uint32_t k) {
        const uint32_t distance = pairs.dists[i];
        ++lits[distance != 0][pairs.lits[i]];
        ++dists[k % 4][tabledDistanceSymbol(distance)];
    };
    for (; to - from >= atOnce; from += atOnce) {
        if (allLiterals<atOnce>(pairs.dists + from)) {
            for (uint32_t k = 0; k < atOnce; ++k) ++lits[0][pairs.lits[from + k]];
        } else {
            for (uint32_t k = 0; k < atOnce; ++k) countOne(from + k, k);
        }
    }
    for (; from < to; ++from) countOne(from, 0);
    uint32_t bytes = 0;
    for (uint32_t i = 0; i < 256; ++i) {
        bytes += lits[0][i] + lits[1][i] * (i + minMatch);
        addFrequency(counts.lit[i], lits[0][i]);
        addFrequency(counts.lit[lengthSymbol(i + minMatch)], lits[1][i]);
    }
    for (const auto& some : dists)
        for (uint32_t i = 0; i < distSymbols; ++i) addFrequency(counts.dist[i], some[i]);
    return bytes;
}

uint64_t estimatedBits(const BlockSymbols& symbols, uint32_t bytes) {
    constexpr uint64_t headerBits = 60;  // The counts of codes, and the code lengths' own code.
    constexpr uint64_t storedBits = 40;
    const uint64_t coded =
        headerBits +
        alphabetBits(symbols.lit, litLenSymbols,
                     [](uint32_t s) { return s < firstLengthSymbol ? 0 : lengthExtraBits(s); }) +
        alphabetBits(symbols.dist, distSymbols, distanceExtraBits);
    return std::min(coded, storedBits + 8 * uint64_t{bytes});
}

void DeflateBlocks::split(const DeflatePairs& pairs, uint32_t count, DeflateTables& counts,
                          uint32_t unit) {
    count_ = 0;
    bits_ = 0;
    DeflateTables block{};
    uint32_t end = count < 2 * unit ? count : unit;
    uint32_t bytes = countPairs(pairs, 0, end, block);
    if (end != count) {
        uint64_t bits = estimatedBits(BlockSymbols(block), bytes);
        while (end != count) {
            const uint32_t behind = count - end < unit + unit / 2 ? count : end + unit;
            DeflateTables next{};
            const uint32_t nextBytes = countPairs(pairs, end, behind, next);
            const uint64_t nextBits = estimatedBits(BlockSymbols(next), nextBytes);
            DeflateTables joined = block;
            addCounts(joined, next);
            const uint64_t joinedBits = estimatedBits(BlockSymbols(joined), bytes + nextBytes);
            if (bits + nextBits < joinedBits) {
                ends_[count_++] = end;
                addCounts(counts, block);
                bits_ += bits;
                block = next;
                bytes = nextBytes;
                bits = nextBits;
            } else {
                block = joined;
                bytes += nextBytes;
                bits = joinedBits;
            }
            end = behind;
        }
        bits_ += bits;
    }
    addCounts(counts, block);
    ends_[count_++] = count;
}

}  // namespace vekdc::codec
