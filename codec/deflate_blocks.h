// Where one deflate block is to end and the next to begin.
//
// A block's code fits its own symbols, so that two blocks are smaller than one where what they hold
// differs by more than a header. The pairs are looked at in units. A unit joins the block before it
// unless both apart are smaller; what they take is estimated by their symbols' entropy, which is
// within a hundredth of what codes reach and takes a fraction of the time that making them does.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "codec/deflate_codes.h"

namespace vekdc::codec {

/// Literals, with a distance of 0, and matches, as the library's coder takes them.
struct DeflatePairs {
    const uint8_t* lits;
    const uint16_t* dists;
};

/// Logarithms are in units of 1 / 2^kLogFraction of a bit.
constexpr uint32_t kLogFraction = 8;
constexpr uint32_t kLogBits = 8;

/// log2(1 + i / 2^kLogBits) in units, by repeated squaring.
inline constexpr auto kLogs = [] {
    std::array<uint16_t, 1U << kLogBits> logs{};
    for (uint32_t i = 0; i < logs.size(); ++i) {
        uint64_t x = ((uint64_t{1} << kLogBits) + i) << (30 - kLogBits);  // 1 is 1 << 30
        uint32_t log = 0;
        for (uint32_t bit = 0; bit < kLogFraction; ++bit) {
            x = x * x >> 30;
            log = 2 * log + static_cast<uint32_t>(x >> 31);
            x >>= x >> 31;
        }
        logs[i] = static_cast<uint16_t>(log);
    }
    return logs;
}();

/// log2(n) in units, that of 0 being taken for that of 1; too small by less than one of them.
constexpr uint32_t fixedLog2(uint32_t n) {
    n = std::max(n, 1U);
    const auto log = static_cast<uint32_t>(std::bit_width(n)) - 1;
    const uint32_t leading = log >= kLogBits ? n >> (log - kLogBits) : n << (kLogBits - log);
    return (log << kLogFraction) + kLogs[leading - (1U << kLogBits)];
}

/// Counts the symbols of the pairs [from, to) and returns how many bytes they stand for.
uint32_t countPairs(const DeflatePairs& pairs, uint32_t from, uint32_t to, DeflateTables& counts);

/// Bits, about, that a block of such counts takes in its cheapest form, `bytes` bytes being coded.
uint64_t estimatedBits(const BlockSymbols& symbols, uint32_t bytes);

/// A run of pairs that becomes one block or more.
class DeflateBlocks {
 public:
    static constexpr uint32_t kUnit = 2048;
    static constexpr uint32_t kFineUnit = 512;  ///< Takes four times as long.
    static constexpr uint32_t kMostPairs = 256 << 10;
    static constexpr uint32_t kMost = kMostPairs / kFineUnit;

    /// Adds the symbols of all pairs to `counts`.
    void split(const DeflatePairs& pairs, uint32_t count, DeflateTables& counts,
               uint32_t unit = kUnit);
    /// All pairs in one block.
    void join(uint32_t count) {
        ends_[0] = count;
        count_ = 1;
    }

    uint32_t count() const { return count_; }
    /// What several blocks take, about.
    uint64_t bits() const { return bits_; }
    /// Behind the block's last pair.
    uint32_t end(uint32_t block) const { return ends_[block]; }

 private:
    std::array<uint32_t, kMost> ends_{};
    uint32_t count_ = 0;
    uint64_t bits_ = 0;
};

}  // namespace vekdc::codec
