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
    /// Of a code for such a block. `longest` is the longest match of which the price is asked.
    explicit DeflatePrices(const BlockSymbols& symbols, uint32_t longest = maxMatch) {
        std::array<uint32_t, litLenSymbols> lits;
        setPrices(symbols.lit, litLenSymbols, lits.data());
        setPrices(symbols.dist, distSymbols, distance_.data());
        addExtraBits(lits, longest);
    }

    /// Of the fixed codes.
    static constexpr DeflatePrices fixed() {
        DeflatePrices prices{};
        std::array<uint32_t, litLenSymbols> lits{};
        for (uint32_t s = 0; s < litLenSymbols; ++s)
            lits[s] = uint32_t{fixedLitLength(s)} << kLogFraction;
        prices.distance_.fill(uint32_t{kFixedDistLength} << kLogFraction);
        prices.addExtraBits(lits, maxMatch);
        return prices;
    }

    uint32_t literal(uint8_t byte) const { return literal_[byte]; }
    uint32_t length(uint32_t length) const { return length_[length]; }
    uint32_t distance(uint32_t distance) const { return distance_[distanceSymbol(distance)]; }

 private:
    constexpr DeflatePrices() : literal_{}, length_{}, distance_{} {}

    /// Symbols that do not occur are taken for half as frequent as those that occur once.
    static void setPrices(const UsedSymbols& used, uint32_t count, uint32_t* prices) {
        uint32_t sum = 1;
        for (const SymbolCount& symbol : used) sum += symbol.count;
        const uint32_t all = fixedLog2(2 * sum);
        const auto price = [all](uint32_t n) {
            return std::clamp(all - fixedLog2(n), 1U << kLogFraction, 15U << kLogFraction);
        };
        std::fill_n(prices, count, price(1));
        for (const SymbolCount& symbol : used) prices[symbol.symbol] = price(2 * symbol.count);
    }

    constexpr void addExtraBits(const std::array<uint32_t, litLenSymbols>& lits, uint32_t longest) {
        std::copy_n(lits.begin(), literal_.size(), literal_.begin());
        for (uint32_t i = minMatch; i <= longest; ++i)
            length_[i] = lits[lengthSymbol(i)] + (lengthExtraBits(lengthSymbol(i)) << kLogFraction);
        for (uint32_t s = 0; s < distSymbols; ++s)
            distance_[s] += distanceExtraBits(s) << kLogFraction;
    }

    std::array<uint32_t, 256> literal_;
    std::array<uint32_t, maxMatch + 1> length_;
    std::array<uint32_t, distSymbols> distance_;
};

}  // namespace vekdc::codec
