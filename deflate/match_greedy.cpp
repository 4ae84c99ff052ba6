// The greedy matcher of deflate's LZ77 stage (RFC 1951).
//
// It takes the longest match that its search finds at each position; inside a match longer than
// maxInsert it enters no positions, which is most of its speed. Where many positions in a row have
// no match, and chains are short, they are passed in batches.
#include <algorithm>
#include <array>
#include <cstdint>

#include "deflate/matcher.h"

namespace {

using namespace vek::deflate;
using vek::load;
using vek::matchLength;

/// Looks along the chain from `candidate` for a match at source offset `at`, of at most `limit`
/// bytes, and returns the longest.
///
/// maxChain candidates are looked at; once a match has goodLength bytes, reducedChain in all; one
/// of niceLength bytes ends the search.
[[gnu::always_inline]] inline Match search(const History& history, const HashChains& chains,
                                           const MatchParameters& params, uint32_t at,
                                           uint32_t limit, uint32_t candidate) {
    const uint8_t* const current = history.src + at;
    const uint32_t position = history.start + at;
    const uint32_t reach = history.reach(position);
    const uint32_t nice = std::min(params.niceLength, limit);
    uint32_t budget = params.maxChain;
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
                if (length >= params.goodLength) budget = params.reducedChain;
                tail = current + length + 1 - hashBytes;
                tailBytes = load<uint32_t>(tail);
            }
        }
        candidate = chains.next(candidate);
    }
    return found;
}

/// Misses in a row after which it pays to expect more of them.
constexpr uint32_t manyMisses = 32;

/// Matches greedily from offset `at` until `stop`, `length` or the room is reached. `ShortChain` is
/// params.maxChain if that is at most 4, or else 0.
template <uint32_t ShortChain>
uint32_t parseGreedy(const History& sharedHistory, const HashChains& sharedChains,
                     const MatchParameters& sharedParams, uint32_t at, uint32_t stop,
                     uint32_t length, PairWriter& sharedPairs) {
    const History history = sharedHistory;
    const HashChains chains = sharedChains;
    PairWriter pairs = sharedPairs;
    MatchParameters params = sharedParams;
    if (ShortChain != 0) {
        // A match of goodLength bytes leaves one place at the most: it ends the search.
        params.maxChain = ShortChain;
        params.niceLength = std::min(params.niceLength, params.goodLength);
        params.goodLength = maxMatch + 1;
    }
    const uint32_t hashable = length - hashBytes + 1;
    uint32_t misses = 0;
    while (at < stop && pairs.left() != 0) {
        const uint32_t candidate = chains.insert(hash4(history.src + at), history.start + at);
        const Match match = search(history, chains, params, at,
                                   std::min<uint32_t>(maxMatch, length - at), candidate);
        if (match.distance == 0) {
            pairs.literal(history.src[at]);
            ++at;
            if (++misses >= manyMisses && ShortChain != 0) {
                const uint32_t passed =
                    passMisses<ShortChain, false>(history, chains, at, stop, pairs);
                pairs.skip(passed);
                at += passed;
                misses = 0;
            }
            continue;
        }
        misses = 0;
        pairs.match(match.length, match.distance);
        if (match.length <= params.lengthLimit)
            insertRange(history, chains, at + 1, std::min(at + match.length, hashable));
        at += match.length;
    }
    sharedPairs = pairs;
    return at;
}

uint32_t parseSourceGreedily(const History& lead, const uint8_t* src, const HashChains& chains,
                             const MatchParameters& params, uint32_t length, PairWriter& pairs) {
    constexpr std::array parsers{parseGreedy<0>, parseGreedy<1>, parseGreedy<2>, parseGreedy<3>,
                                 parseGreedy<4>};
    const auto parser = parsers[params.maxChain < parsers.size() ? params.maxChain : 0];
    return parseSource(lead, src, chains, params, length, pairs,
                       [&](const History& history, uint32_t at, uint32_t stop, uint32_t end) {
                           return parser(history, chains, params, at, stop, end, pairs);
                       });
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
