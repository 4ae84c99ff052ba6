// Deflate's two matchers (the LZ77 stage of RFC 1951).
//
// The greedy one takes the longest match that its search finds at each position; inside a match
// longer than maxInsert it enters no positions, which is most of its speed. The lazy one looks at
// the next position before it takes a match, and if there is a better one there makes the byte
// before it a literal; it enters every position. Both use every byte of the source that they are
// given: a match is cut at the source's end rather than held back for more.
//
// A call's last three positions lack the bytes to be hashed. The next call enters them first, from
// the ring and its own source, if the tables name them: nothing else is history, since a caller may
// have emptied the tables in between. Inside a match or behind a dictionary they follow a position
// that was entered; literals are marked as their own predecessors in the chain table. When a call
// ended for want of room they had their bytes and were entered already.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "deflate/hash_chains.h"
#include "frame/args.h"
#include "include/vekdc.h"

namespace {

using namespace vek::deflate;
using vek::crc32cStep;
using vek::load;
using vek::matchLength;

/// No larger piece of the source is matched between two looks at whether to rebase, so that
/// positions stay below 2^31 whatever the source's length.
constexpr uint32_t maxPiece = 1U << 30;

/// The arguments of a matcher.
struct MatcherCall {
    const uint8_t** ppSrc;
    int32_t* pSrcLen;
    int32_t* pSrcIdx;
    uint8_t* pWindow;
    uint32_t winSize;
    int32_t* pHashHead;
    int32_t* pHashPrev;
    uint32_t hashSize;
    VekHuffEntry* pLitFreqTable;
    VekHuffEntry* pDistFreqTable;
    uint8_t* pLitDst;
    uint16_t* pDistDst;
    uint32_t* pDstLen;
    const int32_t* pParams;
};

VekStatus check(const MatcherCall& call) {
    if (vek::anyNull(call.ppSrc, call.pSrcLen, call.pSrcIdx, call.pWindow, call.pHashHead,
                     call.pHashPrev, call.pLitFreqTable, call.pDistFreqTable, call.pLitDst,
                     call.pDistDst, call.pDstLen, call.pParams) ||
        *call.ppSrc == nullptr) {
        return vekStatusNullPointer;
    }
    if (!validSizes(call.winSize, call.hashSize) || *call.pSrcLen < 0 || *call.pSrcIdx < 0)
        return vekStatusBadSize;
    const int32_t maxChain = call.pParams[0];
    const bool tooSmall =
        std::any_of(call.pParams + 1, call.pParams + 4, [](int32_t value) { return value < 4; });
    if (maxChain < 0 || (maxChain > 0 && tooSmall)) return vekStatusBadArgument;
    return vekStatusOk;
}

/// Lowers every position by `shift`; those out of reach settle at noPosition.
void lower(int32_t* positions, size_t count, uint32_t shift) {
    std::transform(positions, positions + count, positions, [shift](int32_t position) {
        const int64_t lowered = int64_t{std::max(position, noPosition)} - shift;
        return static_cast<int32_t>(std::max<int64_t>(lowered, noPosition));
    });
}

/// Keeps positions below 2^31: moves `position` down to the ring's size if `left` bytes from there
/// come near the limit. The ring and the chain table, both indexed by masked position, turn with
/// it.
uint32_t rebase(const MatcherCall& call, uint32_t position, uint32_t left) {
    const uint32_t ring = ringSize(call.winSize);
    if (uint64_t{ring} + position + 2 * uint64_t{left} < 0x7FFFFFFF || position <= ring)
        return position;
    const uint32_t shift = position - ring;
    const uint32_t turn = shift & (ring - 1);
    std::rotate(call.pWindow, call.pWindow + turn, call.pWindow + ring);
    std::rotate(call.pHashPrev, call.pHashPrev + turn, call.pHashPrev + ring);
    lower(call.pHashPrev, ring, shift);
    lower(call.pHashHead, call.hashSize, shift);
    return ring;
}

/// How many of the `length` source bytes at `src`, at most a ring's, the ring holds from `position`
/// on.
uint32_t heldInRing(const MatcherCall& call, const uint8_t* src, uint32_t position,
                    uint32_t length) {
    const uint32_t ring = ringSize(call.winSize);
    const uint32_t at = position & (ring - 1);
    const uint32_t toEdge = std::min(ring - at, length);
    auto held = static_cast<uint32_t>(vek::matchLength(src, call.pWindow + at, toEdge));
    if (held == toEdge)
        held += static_cast<uint32_t>(vek::matchLength(src + held, call.pWindow, length - toEdge));
    return held;
}

/// How many of the `length` source bytes the caller placed in the ring before the call, from its
/// first byte on or the last ring's length of it; they overwrote what is a ring's length behind.
///
/// Bytes that are equal to the source may be the history's own, of data with a period; but then the
/// first of them was spoilt (see spoilNext()).
uint32_t placedInRing(const MatcherCall& call, const uint8_t* src, uint32_t start,
                      uint32_t length) {
    const uint32_t ring = ringSize(call.winSize);
    if (length > ring &&
        heldInRing(call, src + (length - ring), start + length - ring, ring) == ring)
        return ring;
    return heldInRing(call, src, start, std::min(length, ring));
}

/// Whether `position` is among the latest under `hash`; no later one than `start` is.
bool isEntered(const HashChains& chains, uint32_t hash, uint32_t position, uint32_t start) {
    auto candidate = static_cast<uint32_t>(chains.head[hash & chains.hashMask]);
    for (uint32_t later = start; candidate < later && candidate > position;
         candidate = chains.next(candidate))
        later = candidate;
    return candidate == position;
}

/// Enters the positions before `history.start` that the call before could not hash and that can be
/// hashed now, with `available` more bytes, where the tables name them.
void enterHeldBack(const History& history, const HashChains& chains, uint32_t available) {
    bool named = false;
    for (uint32_t back = std::min(history.start - history.oldest, hashBytes); back != 0; --back) {
        if (available + back < hashBytes) return;
        std::array<uint8_t, hashBytes> bytes{};
        for (uint32_t i = 0; i < hashBytes; ++i) {
            bytes[i] = i < back ? history.window[(history.start - back + i) & history.ringMask]
                                : history.src[i - back];
        }
        const uint32_t hash = hash4(bytes.data());
        const uint32_t position = history.start - back;
        if (isEntered(chains, hash, position, history.start)) {
            named = true;
        } else if (named || chains.next(position) == position) {
            chains.insert(hash, position);
            named = true;
        }
    }
}

/// Marks the positions of the source offsets [from, to) as literals that a later call may enter.
void holdBack(const History& history, const HashChains& chains, uint32_t from, uint32_t to) {
    for (uint32_t i = from; i < to; ++i) {
        const uint32_t position = history.start + i;
        chains.prev[position & history.ringMask] = static_cast<int32_t>(position);
    }
}

/// Stores the `length` bytes that a call consumed, from position `start` on, in the ring.
void fillRing(const MatcherCall& call, const uint8_t* src, uint32_t start, uint32_t length) {
    const uint32_t ring = ringSize(call.winSize);
    const uint32_t kept = std::min(length, ring);
    const uint8_t* from = src + (length - kept);
    const uint32_t at = (start + length - kept) & (ring - 1);
    const uint32_t toEdge = std::min(kept, ring - at);
    std::memmove(call.pWindow + at, from, toEdge);
    std::memmove(call.pWindow, from + toEdge, kept - toEdge);
}

/// Changes the byte in the ring that stands where the source of the next call may be placed, from
/// `position` on: so data that repeats what is a ring's length back is not taken for placed there.
/// No match reaches that far. In a window that holds the source, the byte may be the next source's.
void spoilNext(const MatcherCall& call, uint32_t position) {
    const auto window = reinterpret_cast<uintptr_t>(call.pWindow);
    const auto src = reinterpret_cast<uintptr_t>(*call.ppSrc);
    if (src - window >= call.winSize) {
        uint8_t& next = call.pWindow[position & (ringSize(call.winSize) - 1)];
        next = static_cast<uint8_t>(~next);
    }
}

/// Runs a matcher over the source: `parse(history, chains, params, length, pairs)` matches the
/// source until `length` bytes or the room for pairs is used up and returns the bytes consumed.
template <class Parse>
VekStatus runMatcher(const MatcherCall& call, Parse parse) {
    if (const VekStatus status = check(call); status != vekStatusOk) return status;
    const MatchParameters params(call.pParams, ringSize(call.winSize));
    const HashChains chains{call.pHashHead, call.pHashPrev, call.hashSize - 1,
                            ringSize(call.winSize) - 1};
    PairWriter pairs{call.pLitDst,
                     call.pDistDst,
                     {call.pLitFreqTable, call.pDistFreqTable},
                     call.pLitDst + *call.pDstLen};
    const uint8_t* src = *call.ppSrc;
    auto left = static_cast<uint32_t>(*call.pSrcLen);
    auto position = static_cast<uint32_t>(*call.pSrcIdx);
    while (left != 0 && pairs.left() != 0) {
        position = rebase(call, position, left);
        const uint32_t piece = std::min(left, maxPiece);
        const uint32_t placed = placedInRing(call, src, position, left);
        const uint32_t kept = chains.ringMask + 1 - placed;
        const History history{src, call.pWindow, position, position > kept ? position - kept : 0,
                              chains.ringMask};
        enterHeldBack(history, chains, piece);
        const uint32_t consumed = parse(history, chains, params, piece, pairs);
        fillRing(call, src, position, consumed);
        if (consumed >= placed) spoilNext(call, position + consumed);
        src += consumed;
        left -= consumed;
        position += consumed;
    }
    *call.ppSrc = src;
    *call.pSrcLen = static_cast<int32_t>(left);
    *call.pSrcIdx = static_cast<int32_t>(position);
    *call.pDstLen = pairs.left();
    return vekStatusOk;
}

/// Makes literals of the source from offset `at` on, as far as `length` and the room go.
uint32_t writeLiterals(const uint8_t* src, uint32_t at, uint32_t length, PairWriter& pairs) {
    for (; at < length && pairs.left() != 0; ++at) pairs.literal(src[at]);
    return at;
}

/// Enters the positions of the source offsets [from, to).
void enterRange(const History& history, const HashChains& chains, uint32_t from, uint32_t to) {
    for (uint32_t i = from; i < to; ++i) chains.insert(hash4(history.src + i), history.start + i);
}

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

/// Matches lazily from offset `at` until `stop`, `length` or the room is reached.
template <bool Ring>
uint32_t parseLazy(const History& history, const HashChains& chains, const MatchParameters& params,
                   uint32_t at, uint32_t stop, uint32_t length, PairWriter& sharedPairs) {
    PairWriter pairs = sharedPairs;
    const uint32_t hashable = length - hashBytes + 1;
    while (at < stop && pairs.left() != 0) {
        uint32_t candidate = chains.insert(hash4(history.src + at), history.start + at);
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
            candidate = chains.insert(hash4(history.src + entered), history.start + entered);
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
        enterRange(history, chains, entered, std::min(at + match.length, hashable));
        at += match.length;
    }
    sharedPairs = pairs;
    return at;
}

/// Matches a source with `WithRing` while the ring is in reach, with `InSource` from there on.
template <auto WithRing, auto InSource>
uint32_t parseSource(const History& history, const HashChains& chains,
                     const MatchParameters& params, uint32_t length, PairWriter& pairs) {
    if (params.maxChain == 0) return writeLiterals(history.src, 0, length, pairs);
    uint32_t hashable = 0;
    uint32_t at = 0;
    if (length >= hashBytes) {
        hashable = length - hashBytes + 1;
        const uint32_t ringReach = std::min(chains.ringMask, hashable);
        at = WithRing(history, chains, params, at, ringReach, length, pairs);
        at = InSource(history, chains, params, at, hashable, length, pairs);
    }
    const uint32_t end = writeLiterals(history.src, at, length, pairs);
    holdBack(history, chains, std::max(at, hashable), end);
    return end;
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
