#include "codec/deflate_refine.h"

#include <algorithm>
#include <array>
#include <utility>

#include "bytes/words.h"
#include "codec/deflate_prices.h"

namespace vekdc::codec {
namespace {

using vek::load;

constexpr uint32_t kTableBits = 12;
/// Longer matches are always cheaper than literals.
constexpr uint32_t kLongestDoubted = 6;
/// Of three bytes at most.
constexpr uint32_t kFarthest = 8192;
/// Bytes before a block that are entered first.
constexpr uint32_t kBefore = 4096;

constexpr DeflatePrices kFixedPrices = DeflatePrices::fixed();

/// The bytes at p, of which four are read.
uint32_t threeBytes(const uint8_t* p) {
    return load<uint32_t>(p) & 0xFFFFFF;
}

class Refinement {
 public:
    Refinement(const DeflatePairs& pairs, Bytes bytes, const DeflatePrices& prices,
               uint32_t farthest, uint8_t* lits, uint16_t* dists)
        : pairs_(pairs),
          bytes_(bytes.data()),
          hashable_(static_cast<uint32_t>(bytes.size() - std::min<size_t>(bytes.size(), minMatch))),
          prices_(prices),
          farthest_(farthest),
          lits_(lits),
          dists_(dists) {}

    uint32_t run(uint32_t from, uint32_t to, uint32_t at) {
        enterRange(at - std::min(at, kBefore), at);
        for (uint32_t i = from; i < to;) {
            const uint32_t distance = pairs_.dists[i];
            const uint32_t length =
                distance != 0 ? pairs_.lits[i] + minMatch
                : to - i >= minMatch && pairs_.dists[i + 1] == 0 && pairs_.dists[i + 2] == 0
                    ? minMatch
                    : 1;
            ++i;
            const uint32_t before = enter(at);
            if (distance != 0) {
                if (length <= kLongestDoubted && lits_ + size_ + length <= pairs_.lits + i &&
                    price(length, distance) > literals(at, length)) {
                    for (uint32_t k = 0; k < length; ++k) put(bytes_[at + k], 0);
                } else {
                    put(length - minMatch, distance);
                }
            } else if (const uint32_t near = length == minMatch ? distanceTo(before, at) : 0;
                       near != 0 && price(minMatch, near) < literals(at, minMatch)) {
                put(0, near);
                i += minMatch - 1;
            } else {
                put(bytes_[at++], 0);
                continue;
            }
            const uint32_t behind = at + length;
            enterRange(at + 1, behind);
            at = behind;
        }
        return size_;
    }

 private:
    /// Enters a position, and returns the low half of the one of the same hash before it, both one
    /// higher. 0 stands for none.
    uint32_t enter(uint32_t at) {
        return at < hashable_ ? std::exchange(latest_[hash(at)], static_cast<uint16_t>(at + 1)) : 0;
    }

    void enterRange(uint32_t at, uint32_t to) {
        for (to = std::min(to, hashable_); at < to; ++at)
            latest_[hash(at)] = static_cast<uint16_t>(at + 1);
    }

    uint32_t hash(uint32_t at) const {
        return threeBytes(bytes_ + at) * 0x9E3779B1U >> (32 - kTableBits);
    }

    /// How far before the position that one is where the same three bytes stand, or 0.
    uint32_t distanceTo(uint32_t before, uint32_t at) const {
        const uint32_t distance = (at + 1 - before) & 0xFFFF;
        return before != 0 && distance != 0 && distance <= farthest_ &&
                       threeBytes(bytes_ + at - distance) == threeBytes(bytes_ + at)
                   ? distance
                   : 0;
    }

    uint32_t price(uint32_t length, uint32_t distance) const {
        return prices_.length(length) + prices_.distance(distance);
    }
    uint32_t literals(uint32_t at, uint32_t length) const {
        uint32_t sum = 0;
        for (uint32_t k = 0; k < length; ++k) sum += prices_.literal(bytes_[at + k]);
        return sum;
    }

    void put(uint32_t lit, uint32_t distance) {
        lits_[size_] = static_cast<uint8_t>(lit);
        dists_[size_++] = static_cast<uint16_t>(distance);
    }

    const DeflatePairs pairs_;
    const uint8_t* const bytes_;
    const uint32_t hashable_;  ///< Positions at which four bytes can be read.
    const DeflatePrices& prices_;
    const uint32_t farthest_;
    std::array<uint16_t, 1U << kTableBits> latest_{};
    uint8_t* const lits_;
    uint16_t* const dists_;
    uint32_t size_ = 0;
};

}  // namespace

uint32_t refinePairs(const DeflatePairs& pairs, uint32_t from, uint32_t to, Bytes bytes,
                     uint32_t at, uint32_t window, const DeflateTables& counts, uint8_t* lits,
                     uint16_t* dists) {
    const auto refine = [&](const DeflatePrices& prices) {
        return Refinement(pairs, bytes, prices, std::min(window, kFarthest), lits, dists)
            .run(from, to, at);
    };
    // In a short block it is the fixed code that counts.
    const BlockSymbols symbols(counts);
    const uint64_t own = estimatedBits(symbols, UINT32_MAX);
    const bool fixed = codedBits(symbols, kFixedCodes) < own + own / 16;
    if (fixed) return refine(kFixedPrices);
    // Matches of three bytes would be about as frequent as those of four.
    DeflateTables assumed = counts;
    assumed.lit[lengthSymbol(minMatch)] = counts.lit[lengthSymbol(minMatch + 1)];
    return refine(DeflatePrices(BlockSymbols(assumed), kLongestDoubted));
}

}  // namespace vekdc::codec
