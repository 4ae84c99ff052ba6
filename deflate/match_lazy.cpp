// The lazy matcher of deflate's LZ77 stage (RFC 1951).
//
// Before it takes a match it looks at the next position, and if there is a better one there makes
// the byte before it a literal. It enters every position.
#include <algorithm>
#include <cstdint>

#include "deflate/matcher.h"

namespace {

using namespace vek::deflate;

/// Matches lazily from offset `at` until `stop`, `length` or the room is reached.
template <bool Ring>
uint32_t parseLazy(const History& history, const HashChains& chains, const MatchParameters& params,
                   uint32_t at, uint32_t stop, uint32_t length, PairWriter& sharedPairs) {
    PairWriter pairs = sharedPairs;
    const uint32_t hashable = length - hashBytes + 1;
    while (at < stop && pairs.left() != 0) {
        uint32_t candidate = enter(history, chains, at, hashable);
        Match match =
            search<Ring>(history, chains, params, at, std::min<uint32_t>(maxMatch, length - at),
                         candidate, {hashBytes - 1, 0}, params.maxChain);
        if (match.distance == 0) {
            pairs.literal(history.src[at]);
            ++at;
            continue;
        }
        uint32_t entered = at + 1;
        while (match.length < params.lengthLimit && pairs.left() >= 2 && entered < hashable) {
            const uint32_t limit = std::min<uint32_t>(maxMatch, length - entered);
            candidate = enter(history, chains, entered, hashable);
            ++entered;
            if (match.length >= limit) break;
            const uint32_t budget =
                match.length >= params.goodLength ? params.reducedChain : params.maxChain;
            const Match next = search<Ring>(history, chains, params, at + 1, limit, candidate,
                                            {match.length, 0}, budget);
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

}  // namespace

VekStatus veksDeflateLZ77Slow_8u(const uint8_t** ppSrc, int32_t* pSrcLen, int32_t* pSrcIdx,
                                 uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
                                 int32_t* pHashPrev, uint32_t hashSize, VekHuffEntry* pLitFreqTable,
                                 VekHuffEntry* pDistFreqTable, uint8_t* pLitDst, uint16_t* pDistDst,
                                 uint32_t* pDstLen, const int32_t* pParams, uint32_t /*flush*/) {
    const MatcherCall call{ppSrc,     pSrcLen,   pSrcIdx,  pWindow,       winSize,
                           pHashHead, pHashPrev, hashSize, pLitFreqTable, pDistFreqTable,
                           pLitDst,   pDistDst,  pDstLen,  pParams};
    return runMatcher(call, parseSource<parseLazy<true>, parseLazy<false>>);
}
