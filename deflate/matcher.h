// What surrounds a matcher: its arguments, the ring that holds the history, the positions that one
// call leaves to the next.
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
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "bytes/match_length.h"
#include "deflate/hash_chains.h"
#include "frame/args.h"
#include "include/vekdc.h"

namespace vek::inline VEK_LEVEL::deflate {

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
inline bool isEntered(const HashChains& chains, uint32_t hash, uint32_t position, uint32_t start) {
    auto candidate = static_cast<uint32_t>(chains.head[hash & chains.hashMask]);
    for (uint32_t later = start; candidate < later && candidate > position;
         candidate = chains.next(candidate))
        later = candidate;
    return candidate == position;
}

/// Enters the positions before `history.start` that the call before could not hash and that can be
/// hashed now, with `available` more bytes, where the tables name them.
inline void enterHeldBack(const History& history, const HashChains& chains, uint32_t available) {
    bool named = false;
    for (uint32_t back = std::min(history.start - history.oldest, hashBytes); back != 0; --back) {
        if (available + back < hashBytes) return;
        const uint32_t hash = hash4(history.src - back);
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
inline void holdBack(const History& history, const HashChains& chains, uint32_t from, uint32_t to) {
    for (uint32_t i = from; i < to; ++i) {
        const uint32_t position = history.start + i;
        chains.prev[position & history.ringMask] = static_cast<int32_t>(position);
    }
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

/// Runs a matcher over the source: `parse(lead, src, chains, params, length, pairs)` matches the
/// source, whose beginning is in `lead` too, until `length` bytes or the room for pairs is used up
/// and returns the bytes consumed.
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
        const uint32_t held = std::min(position, kept);
        const Lead lead(call, src, piece, position, held);
        const History history{lead.src(), position, position - held, chains.ringMask};
        enterHeldBack(history, chains, piece);
        const uint32_t consumed = parse(history, src, chains, params, piece, pairs);
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
inline uint32_t writeLiterals(const uint8_t* src, uint32_t at, uint32_t length, PairWriter& pairs) {
    const uint32_t count = std::min(length - at, pairs.left());
    pairs.literals(src + at, count);
    return at + count;
}

/// Enters the positions of the source offsets [from, to).
inline void insertRange(const History& history, const HashChains& chains, uint32_t from,
                        uint32_t to) {
    for (; from < to; ++from) chains.insert(hash4(history.src + from), history.start + from);
}

/// Positions that passMisses() takes at once.
constexpr uint32_t missBatch = 32;

/// How many of the `missBatch` positions from source offset `at` on, which it enters, have no match
/// of four bytes among the first `Places` places of their chains and, with `Whole`, no more places.
///
/// Whether a place is in reach cannot be predicted, and in data that hardly compresses most are
/// not. So all positions are entered first, and those whose place is in reach go to a list, without
/// a branch; the list is gone through for each further place, and shortens soon. Places whose slots
/// the entries of the same batch may have taken count as matches: the caller looks again.
template <uint32_t Places, bool Whole>
[[gnu::always_inline]] inline uint32_t enterMisses(const History& history, const HashChains& chains,
                                                   uint32_t at) {
    struct Place {
        uint32_t i;
        uint32_t back;
    };
    std::array<Place, missBatch> places;
    std::array<int32_t, missBatch> older;
    const uint8_t* const src = history.src + at;
    const uint32_t position = history.start + at;
    uint32_t inReach = 0;
    const auto listIfInReach = [&](uint32_t i, uint32_t candidate) {
        const uint32_t back = position + i - 1 - candidate;
        places[inReach] = {i, back};
        inReach += static_cast<uint32_t>(back < history.reach(position + i));
    };
    for (uint32_t i = 0; i < missBatch; ++i) {
        older[i] = static_cast<int32_t>(chains.next(position + i));
        listIfInReach(i, chains.insert(hash4(src + i), position + i));
    }
    uint32_t misses = missBatch;
    for (uint32_t k = 0; k < Places; ++k) {
        const uint32_t listed = std::exchange(inReach, 0);
        for (uint32_t n = 0; n < listed; ++n) {
            const auto [i, back] = places[n];
            const uint8_t* const current = src + i;
            const bool matches = load<uint32_t>(current) == load<uint32_t>(current - 1 - back);
            misses = matches || back > chains.ringMask - missBatch ? std::min(misses, i) : misses;
            if (Whole || k + 1 < Places) listIfInReach(i, chains.next(position + i - 1 - back));
        }
    }
    if (inReach != 0) misses = std::min(misses, places[0].i);
    for (uint32_t i = missBatch; i-- > misses;)
        chains.remove(hash4(src + i), position + i, older[i]);
    return misses;
}

/// Makes literals of the source from offset `at` on and enters them, as far as `stop`, the room and
/// enterMisses() go. Returns how many; `pairs`, which the caller keeps in registers, is not moved.
template <uint32_t Places, bool Whole>
[[gnu::noinline]] uint32_t passMisses(History history, HashChains chains, uint32_t at,
                                      uint32_t stop, PairWriter pairs) {
    const uint32_t from = at;
    stop = std::min(stop, at + pairs.left());
    while (stop - at >= missBatch) {
        const uint32_t misses = enterMisses<Places, Whole>(history, chains, at);
        at += misses;
        if (misses < missBatch) break;
    }
    pairs.literals(history.src + from, at - from);
    return at - from;
}

/// Matches a source: `parse(history, at, stop, length)` matches the first `length` bytes of what is
/// in `history` from offset `at` until `stop`, `length` or the room is reached, and returns where.
template <class Parse>
uint32_t parseSource(const History& lead, const uint8_t* src, const HashChains& chains,
                     const MatchParameters& params, uint32_t length, PairWriter& pairs,
                     Parse parse) {
    if (params.maxChain == 0) return writeLiterals(src, 0, length, pairs);
    uint32_t hashable = 0;
    uint32_t at = 0;
    if (length >= hashBytes) {
        hashable = length - hashBytes + 1;
        const uint32_t ring = chains.ringMask + 1;
        at = parse(lead, at, std::min(ring, hashable), std::min(length, ring + Lead::overlap));
        if (at < hashable) {
            History history = lead;
            history.src = src;
            at = parse(history, at, hashable, length);
        }
    }
    const uint32_t end = writeLiterals(src, at, length, pairs);
    holdBack(lead, chains, std::max(at, hashable), end);
    return end;
}

}  // namespace vek::inline VEK_LEVEL::deflate
