// The greedy matcher of deflate's LZ77 stage (RFC 1951).
//
// It takes the longest match that its search finds at each position; inside a match longer than
// maxInsert it enters no positions, which is most of its speed. Where many positions in a row have
// no match, and chains are short, a whole chain costs one branch.
#include <algorithm>
#include <cstdint>

#include "deflate/matcher.h"

namespace {

using namespace vek::deflate;

/// Matches greedily from offset `at` until `stop`, `length` or the room is reached. `ShortChain` is
/// params.maxChain if that is at most 4, or else 0.
template <bool Ring, uint32_t ShortChain>
uint32_t parseGreedy(const History& sharedHistory, const HashChains& sharedChains,
                     const MatchParameters& params, uint32_t at, uint32_t stop, uint32_t length,
                     PairWriter& sharedPairs) {
    const History history = sharedHistory;
    const HashChains chains = sharedChains;
    PairWriter pairs = sharedPairs;
    const uint32_t hashable = length - hashBytes + 1;
    uint32_t misses = 0;
    while (at < stop && pairs.left() != 0) {
        if (ShortChain != 0 && misses >= manyMisses) {
            at = passMisses(history, chains, at, stop, pairs, [](const auto&... place) {
                return !glance<Ring, std::max(ShortChain, 1U)>(place...).matches;
            });
            misses = 0;
            continue;
        }
        const uint32_t candidate = enter(history, chains, at, hashable);
        const Match match =
            search<Ring>(history, chains, params, at, std::min<uint32_t>(maxMatch, length - at),
                         candidate, {hashBytes - 1, 0}, params.maxChain);
        if (match.distance == 0) {
            pairs.literal(history.src[at]);
            ++at;
            ++misses;
            continue;
        }
        misses = 0;
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
        case 4:
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
