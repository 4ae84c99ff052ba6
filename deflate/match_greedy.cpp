// The greedy matcher of deflate's LZ77 stage (RFC 1951).
//
// It takes the longest match that its search finds at each position; inside a match longer than
// maxInsert it enters no positions, which is most of its speed.
#include <algorithm>
#include <cstdint>

#include "deflate/matcher.h"

namespace {

using namespace vek::deflate;
using vek::crc32cStep;
using vek::load;
using vek::matchLength;

/// Matches greedily from offset `at` until `stop`, `length` or the room is reached.
template <bool Ring>
uint32_t parseGreedy(const History& history, const HashChains& chains,
                     const MatchParameters& params, uint32_t at, uint32_t stop, uint32_t length,
                     PairWriter& sharedPairs) {
    PairWriter pairs = sharedPairs;
    while (at < stop && pairs.left() != 0) {
        const uint8_t* const current = history.src + at;
        const uint32_t limit = std::min<uint32_t>(maxMatch, length - at);
        const uint32_t candidate = chains.insert(hash4(current), history.start + at);
        chains.prefetch(hash4(history.src + std::min(at + 1, length - hashBytes)));
        const Match match = search<Ring>(history, chains, params, at, limit, candidate,
                                         {hashBytes - 1, 0}, params.maxChain);
        if (match.distance == 0) {
            pairs.literal(*current);
            ++at;
            continue;
        }
        pairs.match(match.length, match.distance);
        if (match.length <= params.lengthLimit) {
            const uint32_t hashable = length - hashBytes + 1;
            enterRange(history, chains, at + 1, std::min(at + match.length, hashable));
        }
        at += match.length;
    }
    sharedPairs = pairs;
    return at;
}

/// What parseGreedy finds with chains of one.
///
/// There is one candidate a position, and two questions: is it in reach, does it begin with the
/// same four bytes? In most data neither answer can be predicted, so they share one branch: a
/// candidate out of reach gives way to the position itself, and the mask that did it then spoils
/// the comparison.
template <bool Ring>
uint32_t parseSingle(const History& sharedHistory, const HashChains& sharedChains,
                     const MatchParameters& params, uint32_t at, uint32_t stop, uint32_t length,
                     PairWriter& sharedPairs) {
    const History history = sharedHistory;
    const HashChains chains = sharedChains;
    PairWriter pairs = sharedPairs;
    const uint32_t longestEntered = params.lengthLimit;
    const uint32_t hashable = length - hashBytes + 1;
    while (at < stop && pairs.left() != 0) {
        const uint8_t* const current = history.src + at;
        const uint32_t position = history.start + at;
        const auto word = load<uint32_t>(current);
        const uint32_t distance = position - chains.insert(crc32cStep(0, word), position);
        const uint32_t reach = history.reach<Ring>(position);
        const uint32_t usable = 0U - static_cast<uint32_t>(distance - 1 < reach);
        const uint32_t back = distance & usable;
        const bool inRing = Ring && back > at;
        const uint32_t limit = std::min<uint32_t>(maxMatch, length - at);
        const uint8_t* const bytes =
            inRing ? history.inOnePiece(at, back, hashBytes) : current - back;
        const bool matches = Ring && bytes == nullptr
                                 ? history.matchInRing(at, back, hashBytes) == hashBytes
                                 : ((load<uint32_t>(bytes) ^ word) | ~usable) == 0;
        if (!matches) {
            pairs.literal(static_cast<uint8_t>(word));
            ++at;
            continue;
        }
        const uint32_t found =
            inRing ? history.matchInRing(at, back, limit)
                   : hashBytes + static_cast<uint32_t>(matchLength(
                                     current + hashBytes, bytes + hashBytes, limit - hashBytes));
        pairs.match(found, distance);
        if (found <= longestEntered)
            enterRange(history, chains, at + 1, std::min(at + found, hashable));
        at += found;
    }
    sharedPairs = pairs;
    return at;
}

uint32_t parseSourceGreedily(const History& history, const HashChains& chains,
                             const MatchParameters& params, uint32_t length, PairWriter& pairs) {
    const auto parse = params.maxChain == 1 ? parseSource<parseSingle<true>, parseSingle<false>>
                                            : parseSource<parseGreedy<true>, parseGreedy<false>>;
    return parse(history, chains, params, length, pairs);
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
