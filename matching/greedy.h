// Greedy matching: the longest match that the search finds is taken at each position.
//
// Inside a match longer than the limit no positions are entered, which is most of the speed. Many
// positions in a row without a match are passed in batches.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "bytes/match_length.h"
#include "matching/misses.h"

namespace vek::inline VEK_LEVEL::matching {

/// Looks along the chain from `candidate` for a match at offset `at`, and returns the longest, the
/// nearest of equals.
template <class Chains>
[[gnu::always_inline]] inline Match searchChain(const Text& text, const Chains& chains,
                                                const SearchLimits& limits, uint32_t at,
                                                uint32_t candidate) {
    const uint8_t* const current = text.bytes + at;
    const uint32_t position = text.start + at;
    const uint32_t reach = text.reach(position);
    const uint32_t limit = text.limit(at);
    const uint32_t nice = std::min(limits.niceLength, limit);
    uint32_t budget = limits.maxChain;
    Match found{hashBytes - 1, 0};
    // The last four bytes of a match that is longer.
    const uint8_t* tail = current;
    auto tailBytes = load<uint32_t>(tail);
    for (uint32_t steps = 0; steps < budget; ++steps) {
        const uint32_t distance = position - candidate;
        if (distance - 1 >= reach) break;
        if (load<uint32_t>(tail - distance) == tailBytes) {
            const auto length =
                static_cast<uint32_t>(matchLength(current, current - distance, limit));
            if (length > found.length) {
                found = {length, distance};
                if (length >= nice) break;
                if (length >= limits.goodLength) budget = limits.reducedChain;
                tail = current + length + 1 - hashBytes;
                tailBytes = load<uint32_t>(tail);
            }
        }
        candidate = chains.next(candidate);
    }
    return found;
}

/// Matches from offset `at` until the text's stop or the end of the room is reached, and returns
/// where. `ShortChain` is limits.maxChain if that is at most 4, or else 0.
template <uint32_t ShortChain, class Chains, class Counts>
uint32_t parseGreedy(const Text& sharedText, const Chains& sharedChains, SearchLimits limits,
                     uint32_t at, PairWriter<Counts>& sharedPairs) {
    // Misses in a row after which it pays to expect more of them.
    constexpr uint32_t manyMisses = 32;
    const Text text = sharedText;
    const Chains chains = sharedChains;
    PairWriter<Counts> pairs = sharedPairs;
    if (ShortChain != 0) {
        // A match of goodLength bytes leaves one place at the most: it ends the search.
        limits.maxChain = ShortChain;
        limits.niceLength = std::min(limits.niceLength, limits.goodLength);
        limits.goodLength = maxMatch + 1;
    }
    uint32_t misses = 0;
    while (at < text.stop && pairs.left() != 0) {
        const uint32_t candidate = chains.insert(hash4(text.bytes + at), text.start + at);
        const Match match = searchChain(text, chains, limits, at, candidate);
        if (match.distance == 0) {
            pairs.literal(text.bytes[at]);
            ++at;
            if (++misses >= manyMisses) {
                constexpr bool whole = ShortChain == 0;
                const uint32_t passed =
                    passMisses<(whole ? 3 : ShortChain), whole>(text, chains, at, pairs);
                pairs.skip(passed);
                at += passed;
                misses = 0;
            }
            continue;
        }
        misses = 0;
        pairs.match(match.length, match.distance);
        if (match.length <= limits.lengthLimit)
            insertRange(text, chains, at + 1, std::min(at + match.length, text.hashable));
        at += match.length;
    }
    sharedPairs = pairs;
    return at;
}

/// The same for any length of chain but 0.
template <class Chains, class Counts>
uint32_t parseGreedily(const Text& text, const Chains& chains, const SearchLimits& limits,
                       uint32_t at, PairWriter<Counts>& pairs) {
    constexpr std::array parsers{parseGreedy<0, Chains, Counts>, parseGreedy<1, Chains, Counts>,
                                 parseGreedy<2, Chains, Counts>, parseGreedy<3, Chains, Counts>,
                                 parseGreedy<4, Chains, Counts>};
    const auto parser = parsers[limits.maxChain < parsers.size() ? limits.maxChain : 0];
    return parser(text, chains, limits, at, pairs);
}

}  // namespace vek::inline VEK_LEVEL::matching
