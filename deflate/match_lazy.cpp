// The lazy matcher of deflate's LZ77 stage (RFC 1951), with chains of positions.
#include <algorithm>
#include <cstdint>

#include "deflate/matcher.h"
#include "matching/lazy.h"

namespace {

using namespace vek::deflate;
using vek::matching::NearMatches;

uint32_t matchLazily(const Text& lead, const uint8_t* src, const PositionChains& chains,
                     const SearchLimits& limits, Pairs& pairs) {
    // Those farther away cost more than they save.
    constexpr uint32_t near = 1024;
    NearMatches nearMatches(
        vek::matching::nearReach(src, lead.length, std::min(near, lead.farthest)));
    uint32_t oldest = lead.start;
    return matchPiece(lead, src, chains, limits, pairs, [&](const Text& text, uint32_t at) {
        return vek::matching::parseLazily(text, chains, limits, at, nearMatches, oldest, pairs);
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
    return runMatcher(call, matchLazily);
}
