// What surrounds an exported matcher: its arguments, the ring that holds the history, the positions
// that one call leaves to the next.
//
// Positions count from the start of the stream, and the caller keeps only the last `winSize` bytes,
// in a ring. The source of the running call is not copied there first. Its beginning is matched in
// a copy that has the ring's bytes in front, the oldest first, so that nothing has to ask where a
// candidate is; once a call has come a ring's length into its source, every candidate within reach
// is in the source itself.
//
// The tables are the caller's, and may hold anything. A candidate is used only if its distance is
// 1 .. winSize - 1 and its bytes are still there, which one unsigned comparison says; then its
// bytes are compared. So whatever the tables hold, the pairs give back the source; a chain that
// runs in a circle ends with the search's budget.
//
// A call's last three positions lack the bytes to be hashed. The next call enters them first, from
// the ring and its own source, if the tables name them: nothing else is history, since a caller may
// have emptied the tables in between. Inside a match or behind a dictionary they follow a position
// that was entered; literals are marked as their own predecessors in the chain table. When a call
// ended for want of room they had their bytes and were entered already.
//
// Every byte of the source is used: a match is cut at the source's end rather than held back for
// more.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "bytes/match_length.h"
#include "deflate/symbol_counts.h"
#include "frame/args.h"
#include "include/vekdc.h"
#include "matching/chains.h"
#include "matching/pairs.h"

namespace vek::inline VEK_LEVEL::deflate {

using matching::hash4;
using matching::hashBytes;
using matching::PositionChains;
using matching::SearchLimits;
using matching::Text;
using Pairs = matching::PairWriter<SymbolCounts>;

/// The empty table entry, farther back than any window reaches.
constexpr int32_t noPosition = -static_cast<int32_t>(maxDistance);

/// Whether the sizes of the window and the head table are within their bounds.
constexpr bool validSizes(uint32_t winSize, uint32_t hashSize) {
    return winSize >= 256 && winSize <= maxDistance && hashSize >= 256 && hashSize <= 65536;
}

/// Size of the ring within a window of `winSize` bytes: a power of two.
inline uint32_t ringSize(uint32_t winSize) {
    return std::bit_floor(winSize);
}

/// The four parameters. No chain is longer than the ring, unless it runs in a circle.
inline SearchLimits searchLimits(const int32_t* params, uint32_t ring) {
    const auto maxChain = static_cast<uint32_t>(params[0]);
    return {std::min(maxChain, ring), std::min(maxChain / 4, ring),
            static_cast<uint32_t>(params[1]), static_cast<uint32_t>(params[2]),
            static_cast<uint32_t>(params[3])};
}

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

inline VekStatus check(const MatcherCall& call) {
    if (anyNull(call.ppSrc, call.pSrcLen, call.pSrcIdx, call.pWindow, call.pHashHead,
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
inline void lower(int32_t* positions, size_t count, uint32_t shift) {
    std::transform(positions, positions + count, positions, [shift](int32_t position) {
        const int64_t lowered = int64_t{std::max(position, noPosition)} - shift;
        return static_cast<int32_t>(std::max<int64_t>(lowered, noPosition));
    });
}

/// Keeps positions below 2^31: moves `position` down to the ring's size if `left` bytes from there
/// come near the limit. The ring and the chain table, both indexed by masked position, turn with
/// it.
inline uint32_t rebase(const MatcherCall& call, uint32_t position, uint32_t left) {
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
inline uint32_t heldInRing(const MatcherCall& call, const uint8_t* src, uint32_t position,
                           uint32_t length) {
    const uint32_t ring = ringSize(call.winSize);
    const uint32_t at = position & (ring - 1);
    const uint32_t toEdge = std::min(ring - at, length);
    auto held = static_cast<uint32_t>(matchLength(src, call.pWindow + at, toEdge));
    if (held == toEdge)
        held += static_cast<uint32_t>(matchLength(src + held, call.pWindow, length - toEdge));
    return held;
}

/// How many of the `length` source bytes the caller placed in the ring before the call, from its
/// first byte on or the last ring's length of it; they overwrote what is a ring's length behind.
///
/// Bytes that are equal to the source may be the history's own, of data with a period; but then the
/// first of them was spoilt (see spoilNext()).
inline uint32_t placedInRing(const MatcherCall& call, const uint8_t* src, uint32_t start,
                             uint32_t length) {
    const uint32_t ring = ringSize(call.winSize);
    if (length > ring &&
        heldInRing(call, src + (length - ring), start + length - ring, ring) == ring)
        return ring;
    return heldInRing(call, src, start, std::min(length, ring));
}

/// Whether `position` is among the latest under `hash`; no later one than `start` is.
inline bool isEntered(const PositionChains& chains, uint32_t hash, uint32_t position,
                      uint32_t start) {
    uint32_t candidate = chains.latest(hash);
    for (uint32_t later = start; candidate < later && candidate > position;
         candidate = chains.next(candidate))
        later = candidate;
    return candidate == position;
}

/// Enters the positions before `text.start` that the call before could not hash and that can be
/// hashed now, where the tables name them.
inline void enterHeldBack(const Text& text, const PositionChains& chains) {
    bool named = false;
    for (uint32_t back = std::min(text.start - text.oldest, hashBytes); back != 0; --back) {
        if (text.length + back < hashBytes) return;
        const uint32_t hash = hash4(text.bytes - back);
        const uint32_t position = text.start - back;
        if (isEntered(chains, hash, position, text.start)) {
            named = true;
        } else if (named || chains.next(position) == position) {
            chains.insert(hash, position);
            named = true;
        }
    }
}

/// Marks the positions [from, to) as literals that a later call may enter.
inline void holdBack(const PositionChains& chains, uint32_t from, uint32_t to) {
    for (; from < to; ++from) chains.prev[from & chains.prevMask] = static_cast<int32_t>(from);
}

/// The history of a call, the oldest byte first, and the beginning of its source behind it.
class Lead {
 public:
    Lead(const MatcherCall& call, const uint8_t* src, uint32_t length, uint32_t start,
         uint32_t held) {
        const uint32_t ring = ringSize(call.winSize);
        const uint32_t at = (start - held) & (ring - 1);
        const uint32_t toEdge = std::min(held, ring - at);
        std::memcpy(&bytes_[maxDistance - held], call.pWindow + at, toEdge);
        std::memcpy(&bytes_[maxDistance - held + toEdge], call.pWindow, held - toEdge);
        std::memcpy(&bytes_[maxDistance], src, std::min(length, ring + overlap));
    }

    const uint8_t* src() const { return &bytes_[maxDistance]; }

    /// Bytes of the source behind a ring's length of it that matching may touch before it goes on
    /// in the source: what a match may be deferred, the match, what is compared at once.
    static constexpr uint32_t overlap = 3 * maxMatch;

 private:
    std::array<uint8_t, 2 * maxDistance + overlap> bytes_;
};

/// Stores the `length` bytes that a call consumed, from position `start` on, in the ring.
inline void fillRing(const MatcherCall& call, const uint8_t* src, uint32_t start, uint32_t length) {
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
inline void spoilNext(const MatcherCall& call, uint32_t position) {
    const auto window = reinterpret_cast<uintptr_t>(call.pWindow);
    const auto src = reinterpret_cast<uintptr_t>(*call.ppSrc);
    if (src - window >= call.winSize) {
        uint8_t& next = call.pWindow[position & (ringSize(call.winSize) - 1)];
        next = static_cast<uint8_t>(~next);
    }
}

/// Matches the `piece` bytes at `src`, whose beginning is in `lead` too: `parse(text, at)` matches
/// from offset `at` until the text's stop or the end of the room is reached, and returns where.
/// Returns the bytes consumed.
template <class Parse>
uint32_t matchPiece(Text lead, const uint8_t* src, const PositionChains& chains,
                    const SearchLimits& limits, Pairs& pairs, Parse parse) {
    const uint32_t length = lead.length;
    if (limits.maxChain == 0) return writeLiterals(src, 0, length, pairs);
    uint32_t hashable = 0;
    uint32_t at = 0;
    if (length >= hashBytes) {
        hashable = length - hashBytes + 1;
        const uint32_t ring = chains.prevMask + 1;
        lead.length = std::min(length, ring + Lead::overlap);
        lead.hashable = lead.length - hashBytes + 1;
        lead.stop = std::min(ring, hashable);
        at = parse(lead, at);
        if (at < hashable) {
            const Text rest{src,    lead.start, lead.oldest, lead.farthest,
                            length, hashable,   hashable};
            at = parse(rest, at);
        }
    }
    const uint32_t end = writeLiterals(src, at, length, pairs);
    holdBack(chains, lead.start + std::max(at, hashable), lead.start + end);
    return end;
}

/// Runs a matcher over the source: `match(lead, src, chains, limits, pairs)` matches a piece of it,
/// whose beginning is in `lead` too, and returns the bytes consumed.
template <class Match>
VekStatus runMatcher(const MatcherCall& call, Match match) {
    if (const VekStatus status = check(call); status != vekStatusOk) return status;
    const uint32_t ring = ringSize(call.winSize);
    const SearchLimits limits = searchLimits(call.pParams, ring);
    const PositionChains chains{call.pHashHead, call.pHashPrev, call.hashSize - 1, ring - 1};
    Pairs pairs{call.pLitDst,
                call.pDistDst,
                call.pLitDst + *call.pDstLen,
                {call.pLitFreqTable, call.pDistFreqTable}};
    const uint8_t* src = *call.ppSrc;
    auto left = static_cast<uint32_t>(*call.pSrcLen);
    auto position = static_cast<uint32_t>(*call.pSrcIdx);
    while (left != 0 && pairs.left() != 0) {
        position = rebase(call, position, left);
        const uint32_t piece = std::min(left, maxPiece);
        const uint32_t placed = placedInRing(call, src, position, left);
        const uint32_t held = std::min(position, ring - placed);
        const Lead lead(call, src, piece, position, held);
        const Text text{lead.src(), position, position - held, ring - 1, piece, 0, 0};
        enterHeldBack(text, chains);
        const uint32_t consumed = match(text, src, chains, limits, pairs);
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

}  // namespace vek::inline VEK_LEVEL::deflate
