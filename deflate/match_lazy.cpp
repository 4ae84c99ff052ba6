// The lazy matcher of deflate's LZ77 stage (RFC 1951).
//
// Before it takes a match it looks at the next position, and if there is a better one there makes
// the byte before it a literal. It enters every position. Long matches are looked for along the
// rarest chain known, and in data of many different bytes, such as programs, there are matches of
// three bytes too, which the chains do not know: without them programs come out a tenth larger.
#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>

#include "deflate/matcher.h"

namespace {

using namespace vek::deflate;
using vek::crc32cStep;
using vek::load;

/// A chain that leads to candidates: that of the four bytes `offset` behind a match's first.
struct Chain {
    uint32_t offset;
    uint32_t back;  ///< Its next candidate's distance less one.

    void preferFarther(Chain other) {
        if (other.back > back) *this = other;
    }
};

/// Looks for a match longer than `found` at source offset `at`, of at most `limit` bytes, and
/// returns the best. `budget` candidates are looked at; once a match has goodLength bytes,
/// reducedChain in all; one of niceLength bytes ends the search.
///
/// The chain is the rarest that it knows, `candidate` being the first place on the position's own.
/// A match longer than the one in hand is on the chain of each four bytes that it would hold: where
/// one of these chains leads on to a place farther back, what the others have before that need not
/// be looked at. Where a match begins may then be older than all that the tables name, as the
/// caller may have emptied them. So `oldest` is the oldest position that its own chain has led to,
/// the source's first at the least, and no match begins before it.
inline Match searchRarest(const History& history, const HashChains& chains,
                          const MatchParameters& params, uint32_t at, uint32_t limit,
                          uint32_t candidate, Match found, uint32_t budget, uint32_t& oldest) {
    constexpr uint32_t mostOffsets = 16;
    const uint8_t* const current = history.src + at;
    const uint32_t last = history.start + at - 1;
    const uint32_t reach = history.reach(last + 1);
    const uint32_t nice = std::min(params.niceLength, limit);
    const auto newest = [&](uint32_t offset) {
        return Chain{offset, last + offset - chains.latest(hash4(current + offset))};
    };
    Chain chain{0, last - candidate};
    if (found.length >= hashBytes) chain.preferFarther(newest(found.length - 3));
    for (uint32_t steps = 0; steps < budget && chain.back < reach; ++steps) {
        if (history.endsAlike(at, chain.back, found.length + 1)) {
            const uint32_t length = history.matchAt(at, chain.back, limit);
            if (chain.offset == 0) oldest = std::min(oldest, last - chain.back);
            if (length > found.length && last - chain.back >= oldest) {
                found = {length, chain.back + 1};
                if (length >= nice) break;
                if (length >= params.goodLength) budget = params.reducedChain;
                const uint32_t back = chain.back;
                const uint32_t offsets = std::min({length - hashBytes, back, mostOffsets});
                chain = newest(length - 3);
                for (uint32_t i = 0; i <= offsets; ++i)
                    chain.preferFarther({i, last + i - chains.next(last + i - back)});
                continue;
            }
        }
        chain.back = last + chain.offset - chains.next(last + chain.offset - chain.back);
    }
    return found;
}

/// Whether the source has so many different bytes, as programs have, that three literals cost more
/// than a match of three. Text has fewer, and its literals are cheap.
bool wantsShortMatches(const uint8_t* src, uint32_t length) {
    constexpr uint32_t samples = 1024;
    constexpr int manyValues = 128;
    std::array<uint8_t, 256> seen{};
    const uint32_t step = length / samples | 1;
    for (uint32_t i = 0; i < length; i += step) seen[src[i]] = 1;
    return std::accumulate(seen.begin(), seen.end(), 0) > manyValues;
}

/// The latest places of three bytes, for the matches that are too short for the chains.
///
/// They pay where they are near. The table is this call's own: it begins empty, an entry is the low
/// half of a source offset, and what it names is verified.
class ShortMatches {
 public:
    ShortMatches(const uint8_t* src, uint32_t length, uint32_t ringMask)
        : reach_(wantsShortMatches(src, length) ? std::min(maxReach, ringMask) : 0) {
        if (reach_ != 0) latest_.fill(0);
    }

    /// Enters src[at] and returns the distance to the same three bytes, or 0.
    uint32_t enter(const uint8_t* src, uint32_t at) {
        if (reach_ == 0) return 0;
        const uint32_t bytes = firstThree(src + at);
        uint16_t& slot = latest_[crc32cStep(0, bytes) % entries];
        const uint32_t distance = static_cast<uint16_t>(at - slot);
        slot = static_cast<uint16_t>(at);
        // Whether the distance is in reach cannot be predicted: one out of reach becomes 0.
        const uint32_t usable = 0U - static_cast<uint32_t>(distance - 1 < std::min(at, reach_));
        const uint32_t nearby = distance & usable;
        return firstThree(src + (at - nearby)) == bytes ? nearby : 0;
    }

 private:
    static constexpr uint32_t entries = 4096;
    static constexpr uint32_t maxReach = 1024;

    static uint32_t firstThree(const uint8_t* p) { return load<uint32_t>(p) << 8; }

    uint32_t reach_;
    std::array<uint16_t, entries> latest_;
};

/// How far ahead of its use an entry of the head table is fetched.
constexpr uint32_t headsAhead = 12;

/// Enters the position of source offset `at` and returns the one that it hides. Of the `hashable`
/// positions, one some way ahead is made ready.
inline uint32_t enter(const History& history, const HashChains& chains, uint32_t at,
                      uint32_t hashable) {
    chains.prefetch(hash4(history.src + std::min(at + headsAhead, hashable - 1)));
    return chains.insert(hash4(history.src + at), history.start + at);
}

/// Enters the positions of the source offsets [from, to); what is behind them is made ready.
inline void enterRange(const History& history, const HashChains& chains, uint32_t from, uint32_t to,
                       uint32_t hashable) {
    const uint32_t fetching = std::max(from, to - std::min(to, headsAhead));
    insertRange(history, chains, from, fetching);
    for (from = fetching; from < to; ++from) enter(history, chains, from, hashable);
}

/// Misses in a row after which it pays to expect more of them.
constexpr uint32_t manyMisses = 16;

/// Matches lazily from offset `at` until `stop`, `length` or the room is reached. `oldest` is that
/// of searchRarest().
uint32_t parseLazy(const History& sharedHistory, const HashChains& sharedChains,
                   const MatchParameters& params, uint32_t at, uint32_t stop, uint32_t length,
                   ShortMatches& shortMatches, uint32_t& oldest, PairWriter& sharedPairs) {
    const History history = sharedHistory;
    const HashChains chains = sharedChains;
    PairWriter pairs = sharedPairs;
    const uint32_t hashable = length - hashBytes + 1;
    uint32_t misses = 0;
    while (at < stop && pairs.left() != 0) {
        if (misses >= manyMisses) {
            const uint32_t passed = passMisses<3, true>(history, chains, at, stop, pairs);
            pairs.skip(passed);
            at += passed;
            misses = 0;
            continue;
        }
        uint32_t candidate = enter(history, chains, at, hashable);
        const uint32_t nearby = shortMatches.enter(history.src, at);
        Match match =
            searchRarest(history, chains, params, at, std::min<uint32_t>(maxMatch, length - at),
                         candidate, {hashBytes - 1, 0}, params.maxChain, oldest);
        if (match.distance == 0) match.distance = nearby;
        if (match.distance == 0) {
            pairs.literal(history.src[at]);
            ++at;
            ++misses;
            continue;
        }
        misses = 0;
        uint32_t entered = at + 1;
        while (match.length < params.lengthLimit && pairs.left() >= 2 && entered < hashable) {
            const uint32_t limit = std::min<uint32_t>(maxMatch, length - entered);
            candidate = enter(history, chains, entered, hashable);
            shortMatches.enter(history.src, entered);
            ++entered;
            if (match.length >= limit) break;
            const uint32_t budget =
                match.length >= params.goodLength ? params.reducedChain : params.maxChain;
            const Match next = searchRarest(history, chains, params, at + 1, limit, candidate,
                                            {match.length, 0}, budget, oldest);
            if (next.distance == 0) break;
            pairs.literal(history.src[at]);
            ++at;
            match = next;
        }
        pairs.match(match.length, match.distance);
        enterRange(history, chains, entered, std::min(at + match.length, hashable), hashable);
        at += match.length;
    }
    sharedPairs = pairs;
    return at;
}

uint32_t parseSourceLazily(const History& lead, const uint8_t* src, const HashChains& chains,
                           const MatchParameters& params, uint32_t length, PairWriter& pairs) {
    ShortMatches shortMatches(src, length, chains.ringMask);
    uint32_t oldest = lead.start;
    return parseSource(lead, src, chains, params, length, pairs,
                       [&](const History& history, uint32_t at, uint32_t stop, uint32_t end) {
                           return parseLazy(history, chains, params, at, stop, end, shortMatches,
                                            oldest, pairs);
                       });
}

}  // namespace

VekStatus veksDeflateLZ77Slow_8u(const uint8_t** ppSrc, int32_t* pSrcLen, int32_t* pSrcIdx,
                                 uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
                                 int32_t* pHashPrev, uint32_t hashSize, VekHuffEntry* pLitFreqTable,
                                 VekHuffEntry* pDistFreqTable, uint8_t* pLitDst, uint16_t* pDistDst,
                                 uint32_t* pDstLen, const int32_t* pParams, uint32_t /*flush*/) {
    const MatcherCall call{ppSrc,     pSrcLen,   pSrcIdx,  pWindow,       winSize,
                           pHashHead, pHashPrev, hashSize, pLitFreqTable, pDistFreqTable,
                           pLitDst,   pDistDst,  pDstLen,  pParams};
    return runMatcher(call, parseSourceLazily);
}
