// What a block's symbols cost, about, from how often they occur.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "codec/deflate_blocks.h"
#include "codec/deflate_codes.h"

namespace vekdc::codec {

/// In units of 1 / 2^kLogFraction of a bit.
class DeflatePrices {
 public:
    /// Of a code for such counts, or, `coded`, of given codes.
    explicit DeflatePrices(const DeflateTables& tables, bool coded = false) {
        const auto setPrices = coded ? pricesByCode : pricesByCount;
        std::array<uint32_t, kLitSymbols> symbols;
        setPrices(tables.lit, kLitSymbols, symbols.data());
        std::copy_n(symbols.begin(), literal_.size(), literal_.begin());
        for (uint32_t i = kMinMatch; i <= kMaxMatch; ++i)
            length_[i] =
                symbols[lengthSymbol(i)] + (lengthExtraBits(lengthSymbol(i)) << kLogFraction);
        setPrices(tables.dist, kDistSymbols, distance_.data());
        for (uint32_t s = 0; s < kDistSymbols; ++s)
            distance_[s] += distanceExtraBits(s) << kLogFraction;
    }

    uint32_t literal(uint8_t byte) const { return literal_[byte]; }
    uint32_t length(uint32_t length) const { return length_[length]; }
    uint32_t distance(uint32_t distance) const { return distance_[distanceSymbol(distance)]; }

 private:
    /// Symbols that do not occur are taken for half as frequent as those that occur once.
    static void pricesByCount(const VekHuffEntry* counts, uint32_t count, uint32_t* prices) {
        uint32_t sum = 1;
        for (uint32_t s = 0; s < count; ++s) sum += frequency(counts[s]);
        const uint32_t all = fixedLog2(2 * sum);
        for (uint32_t s = 0; s < count; ++s) {
            const uint32_t price = all - fixedLog2(std::max(2 * frequency(counts[s]), 1U));
            prices[s] = std::clamp(price, 1U << kLogFraction, 15U << kLogFraction);
        }
    }

    static void pricesByCode(const VekHuffEntry* codes, uint32_t count, uint32_t* prices) {
        for (uint32_t s = 0; s < count; ++s) prices[s] = uint32_t{codes[s].length} << kLogFraction;
    }

    std::array<uint32_t, 256> literal_;
    std::array<uint32_t, kMaxMatch + 1> length_;
    std::array<uint32_t, kDistSymbols> distance_;
};

}  // namespace vekdc::codec
