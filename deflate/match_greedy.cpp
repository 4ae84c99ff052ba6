// The greedy matcher of deflate's LZ77 stage (RFC 1951).
//
// It takes the longest match that its search finds at each position; inside a match longer than
// maxInsert it enters no positions, which is most of its speed.
#include <algorithm>
#include <cstdint>

#include "deflate/matcher.h"

namespace {

using namespace vek::deflate;

/// Chains up to this long are looked at as a whole first.
constexpr uint32_t maxShortChain = 4;

/// Whether one of the first `Count` places from `candidate` on begins with the four bytes of
/// src[at]. A few more may be told to.
///
/// Nearly all candidates fail in data that hardly compresses, and whether one is in reach cannot be
/// predicted. So it is not asked where the chain ends: a place out of reach gives way to one at the
/// reach's end, which leads on to where the chain has already been; it can not be told wrongly that
/// there is no match. One branch is left.
template <bool Ring, uint32_t Count>
[[gnu::always_inline]] inline bool mayMatch(const History& history, const HashChains& chains,
                                            uint32_t at, uint32_t candidate) {
    const uint32_t last = history.start + at - 1;
    const uint32_t reach = history.reach<Ring>(last + 1);
    bool matches = false;
#pragma GCC unroll 4
    for (uint32_t k = 0; k < Count; ++k) {
        const uint32_t back = std::min(last - candidate, reach);
        matches |= history.endsAlike<Ring>(at, back, hashBytes);
        if (k + 1 < Count) candidate = chains.next(last - back);
    }
    return matches;
}

/// Matches greedily from offset `at` until `stop`, `length` or the room is reached. `ShortChain` is
/// params.maxChain if that is at most maxShortChain, or else 0.
///
/// Of a short chain the first candidate is asked for by itself, since in text it often matches.
template <bool Ring, uint32_t ShortChain>
uint32_t parseGreedy(const History& sharedHistory, const HashChains& sharedChains,
                     const MatchParameters& params, uint32_t at, uint32_t stop, uint32_t length,
                     PairWriter& sharedPairs) {
    const History history = sharedHistory;
    const HashChains chains = sharedChains;
    PairWriter pairs = sharedPairs;
    const uint32_t hashable = length - hashBytes + 1;
    while (at < stop && pairs.left() != 0) {
        const uint32_t candidate = enter(history, chains, at, hashable);
        const bool hopeless = ShortChain != 0 &&
                              !mayMatch<Ring, 1>(history, chains, at, candidate) &&
                              !mayMatch<Ring, ShortChain>(history, chains, at, candidate);
        Match match{0, 0};
        if (!hopeless) {
            match =
                search<Ring>(history, chains, params, at, std::min<uint32_t>(maxMatch, length - at),
                             candidate, {hashBytes - 1, 0}, params.maxChain);
        }
        if (match.distance == 0) {
            pairs.literal(history.src[at]);
            ++at;
            continue;
        }
        pairs.match(match.length, match.distance);
        if (match.length <= params.lengthLimit)
            enterRange(history, chains, at + 1, std::min(at + match.length, hashable), hashable);
        at += match.length;
    }
    sharedPairs = pairs;
    return at;
}

template <uint32_t ShortChain>
constexpr auto parseInBoth =
    parseSource<parseGreedy<true, ShortChain>, parseGreedy<false, ShortChain>>;

uint32_t parseSourceGreedily(const History& history, const HashChains& chains,
                             const MatchParameters& params, uint32_t length, PairWriter& pairs) {
    switch (params.maxChain) {
        case 1:
            return parseInBoth<1>(history, chains, params, length, pairs);
        case 2:
            return parseInBoth<2>(history, chains, params, length, pairs);
        case 3:
            return parseInBoth<3>(history, chains, params, length, pairs);
        case maxShortChain:
            return parseInBoth<4>(history, chains, params, length, pairs);
        default:
            return parseInBoth<0>(history, chains, params, length, pairs);
    }
}

}  // namespace

VekStatus veksDeflateLZ77Fast_8u(const uint8_t** ppSrc, int32_t* pSrcLen, int32_t* pSrcIdx,
                                 uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
                                 int32_t* pHashPrev, uint32_t hashSize, VekHuffEntry* pLitFreqTable,
                                 VekHuffEntry* pDistFreqTable, uint8_t* pLitDst, uint16_t* pDistDst,
                                 uint32_t* pDstLen, const int32_t* pParams, uint32_t /*flush*/) {
    const MatcherCall call{ppSrc,     pSrcLen,   pSrcIdx,  pWindow,       winSize,
                           pHashHead, pHashPrev, hashSize, pLitFreqTable, pDistFreqTable,
                           pLitDst,   pDistDst,  pDstLen,  pParams};
    return runMatcher(call, parseSourceGreedily);
}
