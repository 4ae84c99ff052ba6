// Lazy matching: before a match is taken the next position is looked at, and if there is a better
// one there the byte before it becomes a literal.
//
// Every position is entered. Long matches are looked for along the rarest chain known, those of
// three bytes in a table of their own.
#pragma once

#include <algorithm>
#include <cstdint>

#include "bytes/match_length.h"
#include "matching/misses.h"
#include "matching/near_matches.h"

namespace vek::inline VEK_LEVEL::matching {

/// Looks for a match longer than `found` at offset `at`, of at most `limit` bytes, and returns the
/// best. `budget` candidates are looked at.
///
/// The chain is the rarest that it knows, `candidate` being the first place on the position's own.
/// A match longer than the one in hand is on the chain of each four bytes that it would hold: where
/// one of these chains leads on to a place farther back, what the others have before that need not
/// be looked at.
///
/// In tables that a caller may have emptied, where a match begins may then be older than all that
/// they name. So `oldest` is the oldest position that its own chain has led to, the text's first at
/// the least, and no match begins before it.
template <class Chains>
inline Match searchRarest(const Text& text, const Chains& chains, const SearchLimits& limits,
                          uint32_t at, uint32_t limit, uint32_t candidate, Match found,
                          uint32_t budget, uint32_t& oldest) {
    const uint8_t* const current = text.bytes + at;
    const uint32_t last = text.start + at - 1;
    const uint32_t reach = text.reach(last + 1);
    const uint32_t nice = std::min(limits.niceLength, limit);
    const auto newest = [&](uint32_t offset) {
        return Chain{offset, last + offset - chains.latest(hash4(current + offset))};
    };
    Chain chain{0, last - candidate};
    if (found.length >= hashBytes) chain.preferFarther(newest(found.length - 3));
    for (uint32_t steps = 0; steps < budget && chain.back < reach; ++steps) {
        // Where a longer match ends.
        const uint8_t* const tail = current + found.length + 1 - hashBytes;
        if (load<uint32_t>(tail - 1 - chain.back) == load<uint32_t>(tail)) {
            const auto length =
                static_cast<uint32_t>(matchLength(current, current - 1 - chain.back, limit));
            if (!Chains::owned && chain.offset == 0) oldest = std::min(oldest, last - chain.back);
            if (length > found.length && (Chains::owned || last - chain.back >= oldest)) {
                found = {length, chain.back + 1};
                if (length >= nice) break;
                if (length >= limits.goodLength) budget = limits.reducedChain;
                const uint32_t known = std::min(length - hashBytes, chain.back) + 1;
                const Chain own = chains.farthest(last, chain.back, known);
                chain = newest(length - 3);
                chain.preferFarther(own);
                continue;
            }
        }
        chain.back = last + chain.offset - chains.next(last + chain.offset - chain.back);
    }
    return found;
}

/// Matches from offset `at` until the text's stop or the end of the room is reached, and returns
/// where. `oldest` is that of searchRarest().
template <class Chains, class Counts>
uint32_t parseLazily(const Text& sharedText, const Chains& sharedChains, const SearchLimits& limits,
                     uint32_t at, NearMatches& nearMatches, uint32_t& oldest,
                     PairWriter<Counts>& sharedPairs) {
    // Misses in a row after which it pays to expect more of them.
    constexpr uint32_t manyMisses = 16;
    const Text text = sharedText;
    const Chains chains = sharedChains;
    PairWriter<Counts> pairs = sharedPairs;
    uint32_t misses = 0;
    while (at < text.stop && pairs.left() != 0) {
        if (misses >= manyMisses) {
            const uint32_t passed = passMisses<3, true>(text, chains, at, pairs);
            pairs.skip(passed);
            at += passed;
            misses = 0;
            continue;
        }
        uint32_t candidate = enter(text, chains, at);
        const uint32_t nearby = nearMatches.enter(text.bytes, at);
        Match match = searchRarest(text, chains, limits, at, text.limit(at), candidate,
                                   {hashBytes - 1, 0}, limits.maxChain, oldest);
        if (match.distance == 0) match.distance = nearby;
        if (match.distance == 0) {
            pairs.literal(text.bytes[at]);
            ++at;
            ++misses;
            continue;
        }
        misses = 0;
        uint32_t entered = at + 1;
        while (match.length < limits.lengthLimit && pairs.left() >= 2 && entered < text.hashable) {
            const uint32_t limit = text.limit(entered);
            candidate = enter(text, chains, entered);
            nearMatches.enter(text.bytes, entered);
            ++entered;
            if (match.length >= limit) break;
            const uint32_t budget =
                match.length >= limits.goodLength ? limits.reducedChain : limits.maxChain;
            const Match next = searchRarest(text, chains, limits, at + 1, limit, candidate,
                                            {match.length, 0}, budget, oldest);
            if (next.distance == 0) break;
            pairs.literal(text.bytes[at]);
            ++at;
            match = next;
        }
        pairs.match(match.length, match.distance);
        enterRange(text, chains, entered, std::min(at + match.length, text.hashable));
        at += match.length;
    }
    sharedPairs = pairs;
    return at;
}

}  // namespace vek::inline VEK_LEVEL::matching
