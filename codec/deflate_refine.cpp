#include "codec/deflate_refine.h"

#include <algorithm>

#include "codec/deflate_prices.h"
#include "matching/near_matches.h"

namespace vekdc::codec {
namespace {

/// Longer matches are always cheaper than literals.
constexpr uint32_t kLongestDoubted = 6;
/// Of three bytes at most.
constexpr uint32_t kFarthest = 8192;
/// Bytes before a block that are entered first.
constexpr uint32_t kBefore = 4096;

constexpr DeflatePrices kFixedPrices = DeflatePrices::fixed();

class Refinement {
 public:
    Refinement(const DeflatePairs& pairs, Bytes bytes, const DeflatePrices& prices,
               uint32_t farthest, uint8_t* lits, uint16_t* dists)
        : pairs_(pairs),
          bytes_(bytes.data()),
          hashable_(static_cast<uint32_t>(bytes.size() - std::min<size_t>(bytes.size(), minMatch))),
          prices_(prices),
          near_(farthest),
          lits_(lits),
          dists_(dists) {}

    uint32_t run(uint32_t from, uint32_t to, uint32_t at, DeflateTables& counts) {
        enterRange(at - std::min(at, kBefore), at);
        for (uint32_t i = from; i < to;) {
            const uint16_t latest = at < hashable_ ? near_.exchange(bytes_, at) : 0;
            uint32_t distance = pairs_.dists[i];
            uint32_t length = minMatch;
            if (distance != 0) {
                length = pairs_.lits[i] + minMatch;
                ++i;
                if (length <= kLongestDoubted && lits_ + size_ + length <= pairs_.lits + i &&
                    price(length, distance) > literals(at, length)) {
                    for (uint32_t k = 0; k < length; ++k) putLiteral(bytes_[at + k], counts);
                    distance = 0;
                }
            } else if (const uint32_t near = distanceTo(at, latest, i, to);
                       near != 0 && price(minMatch, near) < literals(at, minMatch)) {
                distance = near;
                i += minMatch;
            } else {
                putLiteral(bytes_[at++], counts);
                ++i;
                continue;
            }
            if (distance != 0) putMatch(length, distance, counts);
            enterRange(at + 1, at + length);
            at += length;
        }
        return size_;
    }

 private:
    void enterRange(uint32_t at, uint32_t to) {
        near_.enterRange(bytes_, at, std::min(to, hashable_));
    }

    /// How far before `at` the same three bytes are, if the pair i, a literal, and the two behind
    /// it stand for them, or 0.
    uint32_t distanceTo(uint32_t at, uint16_t latest, uint32_t i, uint32_t to) const {
        const bool literals = at < hashable_ && to - i >= minMatch && pairs_.dists[i + 1] == 0 &&
                              pairs_.dists[i + 2] == 0;
        return literals ? near_.distanceTo(bytes_, at, latest) : 0;
    }

    uint32_t price(uint32_t length, uint32_t distance) const {
        return prices_.length(length) + prices_.distance(distance);
    }
    uint32_t literals(uint32_t at, uint32_t length) const {
        uint32_t sum = 0;
        for (uint32_t k = 0; k < length; ++k) sum += prices_.literal(bytes_[at + k]);
        return sum;
    }

    void putLiteral(uint8_t byte, DeflateTables& counts) {
        put(byte, 0);
        countSymbol(counts.lit[byte]);
    }
    void putMatch(uint32_t length, uint32_t distance, DeflateTables& counts) {
        put(length - minMatch, distance);
        countSymbol(counts.lit[lengthSymbol(length)]);
        countSymbol(counts.dist[distanceSymbol(distance)]);
    }
    void put(uint32_t lit, uint32_t distance) {
        lits_[size_] = static_cast<uint8_t>(lit);
        dists_[size_++] = static_cast<uint16_t>(distance);
    }

    const DeflatePairs pairs_;
    const uint8_t* const bytes_;
    const uint32_t hashable_;  ///< Positions at which four bytes can be read.
    const DeflatePrices& prices_;
    vek::matching::NearMatches near_;
    uint8_t* const lits_;
    uint16_t* const dists_;
    uint32_t size_ = 0;
};

}  // namespace

uint32_t refinePairs(const DeflatePairs& pairs, uint32_t from, uint32_t to, Bytes bytes,
                     uint32_t at, uint32_t window, DeflateTables& counts, uint8_t* lits,
                     uint16_t* dists) {
    DeflateTables refined{};
    const auto refine = [&](const DeflatePrices& prices) {
        return Refinement(pairs, bytes, prices, std::min(window, kFarthest), lits, dists)
            .run(from, to, at, refined);
    };
    // In a short block it is the fixed code that counts.
    const BlockSymbols symbols(counts);
    const uint64_t own = estimatedBits(symbols, UINT32_MAX);
    const bool fixed = codedBits(symbols, kFixedCodes) < own + own / 16;
    // Of a code of its own matches of three bytes would be about as frequent as those of four.
    // Where these are few, as in tables of offsets, one for some literals is expected: as rare as
    // what does not occur, all of them would be too dear.
    constexpr uint32_t literalsToMatch = 16;
    uint32_t literals = 0;
    for (uint32_t byte = 0; byte <= UINT8_MAX; ++byte) literals += frequency(counts.lit[byte]);
    VekHuffEntry& shortest = counts.lit[lengthSymbol(minMatch)];
    const uint32_t expected =
        std::max(frequency(counts.lit[lengthSymbol(minMatch + 1)]), literals / literalsToMatch);
    shortest = {};
    addFrequency(shortest, expected);
    const uint32_t count =
        refine(fixed ? kFixedPrices : DeflatePrices(BlockSymbols(counts), kLongestDoubted));
    counts = refined;
    return count;
}

}  // namespace vekdc::codec
