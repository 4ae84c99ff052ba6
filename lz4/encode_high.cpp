// LZ4 high-compression encoder: hash chains and a look-ahead of two matches.
//
// Every position is put into a chain of the earlier ones with the same 4-byte hash, so a search
// sees up to 2^(level - 1) candidates and keeps the longest match. Before a match is written a
// second one is sought near its end, extended backwards: one that begins inside the first and is
// longer saves bytes, by replacing it or by sharing the stretch with it; and before those two are
// written, a third, since it may make the second needless. LZ4 codes every length and offset
// alike, so this greedy look-ahead comes within a percent of the best parse at a fraction of its
// work.
//
// Most of the time goes into candidates that turn out no longer than the best one, so a candidate
// is refused by the 4 bytes that would make it longer, before its first 4 are even compared. Where
// nothing is found for long, it goes into insertion and the first look at each position's chain,
// which therefore are one short loop.
#include <algorithm>

#include "bytes/crc32c_step.h"
#include "bytes/fill.h"
#include "frame/args.h"
#include "lz4/history.h"
#include "lz4/sequences.h"
#include "vekdc.h"

namespace vek::inline VEK_LEVEL::lz4 {

constexpr uint32_t hashEntries = 32768;
constexpr uint32_t chainEntries = 65536;
constexpr uint32_t farthest = 65534;  // The largest offset of this encoder.
constexpr size_t startMargin = 13;    // No match begins behind the block's end - 13.
constexpr int maxLevel = 9;

/// The caller's pair of tables, both of positions: the latest one with each hash, and for each of
/// the last 65536 positions, by its low 16 bits, the one before it with the same hash.
struct LZ4HCTables {
    uint8_t* hash;
    uint8_t* chain;

    uint32_t* heads() const { return reinterpret_cast<uint32_t*>(hash); }
    uint32_t* links() const { return reinterpret_cast<uint32_t*>(chain); }
};
static_assert(sizeof(LZ4HCTables) == 2 * sizeof(uint8_t*));
static_assert(chainEntries == uint32_t{UINT16_MAX} + 1);

namespace {

/// Candidates that a search looks at.
uint32_t candidatesOf(int level) {
    if (level < 0) level = 1;
    if (level == 0 || level > maxLevel) level = maxLevel;
    return 1U << (level - 1);
}

/// A match of the bytes [start, end()) with those `offset` back; a length of 0 says none.
struct Match {
    const uint8_t* start = nullptr;
    size_t length = 0;
    uint32_t offset = 0;

    const uint8_t* end() const { return start + length; }
    /// Moves the beginning to `p`, which lies inside.
    void beginAt(const uint8_t* p) {
        length -= static_cast<size_t>(p - start);
        start = p;
    }
};

template <class History>
class Chains {
 public:
    Chains(const LZ4HCTables& tables, const History& history, uint32_t candidates,
           const uint8_t* src, const uint8_t* srcEnd)
        : head_(tables.heads()),
          chain_(tables.links()),
          history_(history),
          candidates_(candidates),
          next_(src),
          matchEnd_(srcEnd - lastLiterals) {}

    /// Puts all positions in front of `p` into the chains.
    void insertUpTo(const uint8_t* p) {
        if (next_ >= p) return;
        uint32_t* const heads = head_;
        uint32_t* const chain = chain_;
        uint32_t position = history_.position(next_);
        for (const uint8_t* q = next_; q < p; ++q, ++position) {
            uint32_t& head = heads[hashOf(load<uint32_t>(q))];
            chain[position % chainEntries] = head;
            head = position;
        }
        next_ = p;
    }

    /// The next match from `p` on that begins at or in front of `last`: the longest that the first
    /// position with any has. A length of 0 says none.
    Match next(const uint8_t* p, const uint8_t* last) {
        uint32_t* const head = head_;
        uint32_t* const chain = chain_;
        const History history = history_;
        insertUpTo(p);
        uint32_t position = history_.position(p);
        for (; p <= last; ++p, ++position) {
            const uint32_t word = load<uint32_t>(p);
            uint32_t candidate = 0;
            if (p < next_) [[unlikely]] {  // Inserted already.
                candidate = chain[position % chainEntries];
            } else {
                uint32_t& latest = head[hashOf(word)];
                candidate = latest;
                chain[position % chainEntries] = candidate;
                latest = position;
                next_ = p + 1;
            }
            // Positions of an earlier call that did not get so far.
            while (candidate >= position && older(candidate, 0)) {
            }
            for (uint32_t left = candidates_; left != 0; --left) {
                if (candidate == 0 || position - candidate - 1 >= farthest) break;
                if (history.equal4(candidate, word))
                    return walk(p, p, minMatch - 1, candidate, left);
                const uint32_t before = candidate;
                candidate = chain[candidate % chainEntries];
                if (candidate >= before) break;
            }
        }
        return {};
    }

    /// The longest match longer than `best` that covers `p` and begins at or behind `low`. Where a
    /// match is sought beside a known one, the nearest quarter brings nearly all there is.
    Match longest(const uint8_t* p, const uint8_t* low, size_t best) {
        insertUpTo(p);
        const uint32_t position = history_.position(p);
        uint32_t candidate = head_[hashOf(load<uint32_t>(p))];
        // Positions of an earlier call, or of this one, which may go back.
        while (candidate >= position && older(candidate, 0)) {
        }
        return walk(p, low, best, candidate, (candidates_ + 3) / 4);
    }

 private:
    static uint32_t hashOf(uint32_t word) { return crc32cStep(0, word) % hashEntries; }

    /// The longest match that `candidate` and the `left` - 1 older ones behind it bring.
    Match walk(const uint8_t* p, const uint8_t* low, size_t best, uint32_t candidate,
               uint32_t left) const {
        Match found;
        const uint32_t position = history_.position(p);
        const uint32_t word = load<uint32_t>(p);
        const auto before = static_cast<size_t>(p - low);
        const auto most = static_cast<size_t>(matchEnd_ - low);
        uint32_t along = 0;
        for (; left != 0 && best < most; --left) {
            if (candidate == 0 || position - candidate - 1 >= farthest) break;
            const size_t decisive = std::max(best, before + 3) - before - 3;
            if (history_.maybeLonger(p, candidate, decisive) && history_.equal4(candidate, word)) {
                const size_t forward = history_.forward(p, candidate, minMatch, matchEnd_);
                const size_t backward = before == 0 ? 0 : history_.backward(p, candidate, low);
                if (forward + backward > best) {
                    best = forward + backward;
                    found = {p - backward, best, position - candidate};
                    if (best > before + 3)
                        along = sparsest(candidate, std::min({forward - minMatch, best - before - 3,
                                                              size_t{position - candidate} - 1}));
                }
            }
            if (!older(candidate, along)) break;
        }
        return found;
    }
    /// Steps to the next older candidate, by the chain of the bytes `along` behind it; false at the
    /// chain's end.
    bool older(uint32_t& candidate, uint32_t along) const {
        const uint32_t next = chain_[(candidate + along) % chainEntries];
        if (next - along >= candidate) return false;
        candidate = next - along;
        return true;
    }
    /// A longer match agrees with this one in the first `most` + 4 bytes, so its candidate is in
    /// the chain of each of their groups of 4. Returns the place of the group that occurs least:
    /// whose chain steps farthest back.
    uint32_t sparsest(uint32_t candidate, size_t most) const {
        uint32_t along = 0;
        uint32_t farthestBack = 0;
        for (uint32_t k = 0; k <= std::min<size_t>(most, groups - 1); ++k) {
            const uint32_t back = candidate + k - chain_[(candidate + k) % chainEntries];
            if (back > farthestBack) {
                farthestBack = back;
                along = k;
            }
        }
        return along;
    }
    static constexpr size_t groups = 16;  // Looked at by sparsest().

    uint32_t* head_;
    uint32_t* chain_;
    const History history_;
    uint32_t candidates_;
    const uint8_t* next_;
    const uint8_t* matchEnd_;
};

/// Writes sequences as long as there is room for whole ones, and the literals that end the block.
class Writer {
 public:
    Writer(const uint8_t* src, const uint8_t* srcEnd, uint8_t* dst, size_t room)
        : srcEnd_(srcEnd), outEnd_(dst + room), at_{src, dst}, closable_(at_) {}

    bool encodeSequence(const Match& match) {
        auto& [anchor, out] = at_;
        const auto count = static_cast<size_t>(match.start - anchor);
        const size_t need = tokenSize + extensionBytes(count) + count + offsetSize +
                            extensionBytes(match.length - minMatch);
        if (need > room()) return false;
        const bool readable = static_cast<size_t>(srcEnd_ - match.start) >= literalStep;
        out = need + literalStep <= room() && readable
                  ? writeSequence<true>(out, anchor, count, match.offset, match.length)
                  : writeSequence<false>(out, anchor, count, match.offset, match.length);
        anchor = match.end();
        const size_t closing =
            std::max(lastLiterals, lastMatchStart - std::min(match.length, lastMatchStart));
        if (tokenSize + closing <= room()) closable_ = at_;
        return true;
    }

    bool encode2Sequences(const Match& first, const Match& second) {
        return encodeSequence(first) && encodeSequence(second);
    }

    /// Writes the last literals, as many as fit; true when all did. Else the block ends where it
    /// can.
    bool finish() {
        size_t count = literalsThatFit(rest(), room());
        if (count != rest()) {
            at_ = closable_;
            count = literalsThatFit(rest(), room());
        }
        at_.out = writeLiterals<false>(at_.out, at_.anchor, count);
        at_.anchor += count;
        return rest() == 0;
    }

    const uint8_t* anchor() const { return at_.anchor; }
    uint8_t* out() const { return at_.out; }

 private:
    size_t rest() const { return static_cast<size_t>(srcEnd_ - at_.anchor); }
    size_t room() const { return static_cast<size_t>(outEnd_ - at_.out); }

    struct Position {
        const uint8_t* anchor;
        uint8_t* out;
    };
    const uint8_t* srcEnd_;
    uint8_t* outEnd_;
    Position at_;
    /// The last position behind which there is room for the literals that decoders want at a
    /// block's end. Where room runs out, the block ends there.
    Position closable_;
};

/// Moves the border of two overlapping matches, of which the second begins at least 3 bytes later:
/// the first keeps up to 18 bytes, which need no extension byte, and leaves the second 4 and a
/// start at or in front of `startEnd`. False when that leaves too little of the first.
bool share(const Match& first, Match& second, const uint8_t* startEnd) {
    const auto gap = static_cast<size_t>(second.start - first.start);
    const size_t keep = std::min({first.length, shortMatch, gap + second.length - minMatch,
                                  static_cast<size_t>(startEnd - first.start)});
    if (keep > gap) second.beginAt(first.start + keep);
    return std::max(keep, gap) >= minMatch;
}

/// Cuts the first of two matches where the second begins.
void cut(Match& first, const Match& second) {
    if (second.start < first.end()) first.length = static_cast<size_t>(second.start - first.start);
}

/// A match that begins inside `first` and is longer. Looks from 2 bytes in front of the first one's
/// end: what begins inside it and is longer covers them.
template <class History>
inline Match findInside(Chains<History>& chains, const Match& first, const uint8_t* startEnd) {
    const uint8_t* const at = first.end() - 2;
    return at <= startEnd ? chains.longest(at, first.start + 1, first.length) : Match{};
}

/// The look-ahead of the engine with its history in place.
Match findSecondMatch(Chains<InPlace>& chains, const Match& first, const uint8_t* startEnd) {
    return findInside(chains, first, startEnd);
}

/// The same where candidates in front of the block lie in a dictionary.
Match findSecondMatchDict(Chains<SeparateDictionary>& chains, const Match& first,
                          const uint8_t* startEnd) {
    return findInside(chains, first, startEnd);
}

/// Parses a block and writes its sequences; false when the room ran out. `findSecond` is the
/// history's findSecondMatch.
template <auto findSecond, class History>
bool writeSequences(Chains<History>& chains, Writer& writer, const uint8_t* startEnd) {
    constexpr ptrdiff_t close = 3;  // A match that begins less behind another one replaces it.

    const uint8_t* p = writer.anchor();
    while (p <= startEnd) {
        Match first = chains.next(p, startEnd);
        if (first.length == 0) break;
        Match earlier = first;  // What `first` was before a close match replaced it.
        Match second = findSecond(chains, first, startEnd);
        while (second.length != 0) {
            // What replaced the earlier match will be cut; then the earlier one serves as well.
            if (earlier.start < first.start && second.start < first.start + earlier.length)
                first = earlier;
            if (second.start - first.start < close) {
                first = second;
                second = findSecond(chains, first, startEnd);
                continue;
            }
            if (!share(first, second, startEnd)) {
                second.length = 0;
                break;
            }
            const Match third = findSecond(chains, second, startEnd);
            if (third.length == 0) break;
            if (third.start < first.end()) {
                second = third;
                earlier = first;
                continue;
            }
            if (third.start < first.end() + close) {
                // The second match would only fill the few bytes between the first and the third.
                if (second.start < first.end()) second.beginAt(std::min(first.end(), second.end()));
                earlier = second.length >= minMatch && second.start <= startEnd ? second : third;
                if (!writer.encodeSequence(first)) return false;
                first = third;
                second = findSecond(chains, first, startEnd);
                continue;
            }
            cut(first, second);
            if (!writer.encodeSequence(first)) return false;
            first = earlier = second;
            second = third;
        }
        if (second.length != 0) cut(first, second);
        if (second.length == 0 ? !writer.encodeSequence(first)
                               : !writer.encode2Sequences(first, second))
            return false;
        p = writer.anchor();
    }
    return true;
}

/// The arguments of both engines.
struct Call {
    const uint8_t* src;
    int index;
    int* srcLen;
    uint8_t* dst;
    int* dstLen;
    uint8_t* const* tables;
    uint32_t candidates;
};

template <auto findSecond, class History>
VekStatus encodeBlock(const Call& call, const History& history) {
    const uint8_t* const srcEnd = call.src + *call.srcLen;
    Writer writer(call.src, srcEnd, call.dst, static_cast<size_t>(*call.dstLen));
    bool room = true;
    if (static_cast<size_t>(*call.srcLen) >= startMargin) {
        Chains<History> chains({call.tables[0], call.tables[1]}, history, call.candidates, call.src,
                               srcEnd);
        room = writeSequences<findSecond>(chains, writer, srcEnd - startMargin);
        // The next block of a stream may refer to this one's end.
        chains.insertUpTo(srcEnd - minMatch + 1);
    }
    const bool whole = writer.finish();
    *call.srcLen = static_cast<int>(writer.anchor() - call.src);
    *call.dstLen = static_cast<int>(writer.out() - call.dst);
    if (whole) return vekStatusOk;
    return room ? vekStatusDestinationFull : vekStatusDestinationTooSmall;
}

VekStatus check(const Call& call) {
    if (anyNull(call.src, call.srcLen, call.dst, call.dstLen, call.tables) ||
        anyNull(call.tables[0], call.tables[1]))
        return vekStatusNullPointer;
    if (*call.srcLen < 1 || *call.dstLen < 1) return vekStatusBadSize;
    return call.index < 0 ? vekStatusBadArgument : vekStatusOk;
}

/// Encodes a block with the history in front of it.
VekStatus ownsEncodeLZ4HC_8u(const Call& call) {
    const VekStatus status = check(call);
    if (status != vekStatusOk) return status;
    return encodeBlock<findSecondMatch>(call, InPlace{call.src - call.index});
}

/// Encodes a block with its history in a dictionary.
VekStatus ownsEncodeLZ4HCDict_8u(const Call& call, const uint8_t* pDict, int dictLen) {
    const VekStatus status = check(call);
    if (status != vekStatusOk) return status;
    const SeparateDictionary history(call.src, static_cast<uint32_t>(call.index), pDict,
                                     static_cast<uint32_t>(dictLen));
    return encodeBlock<findSecondMatchDict>(call, history);
}

}  // namespace
}  // namespace vek::inline VEK_LEVEL::lz4

using namespace vek::lz4;

extern "C" {

VekStatus veksEncodeLZ4HCHashTableGetSize_8u(int* pHashTableSize, int* pPrevTableSize) {
    if (vek::anyNull(pHashTableSize, pPrevTableSize)) return vekStatusNullPointer;
    *pHashTableSize = hashEntries * sizeof(uint32_t);
    *pPrevTableSize = chainEntries * sizeof(uint32_t);
    return vekStatusOk;
}

VekStatus veksEncodeLZ4HCHashTableInit_8u(uint8_t** ppHashTables) {
    if (ppHashTables == nullptr || vek::anyNull(ppHashTables[0], ppHashTables[1]))
        return vekStatusNullPointer;
    ownsSet_8u(0, ppHashTables[0], hashEntries * sizeof(uint32_t));
    ownsSet_8u(0, ppHashTables[1], chainEntries * sizeof(uint32_t));
    return vekStatusOk;
}

VekStatus veksEncodeLZ4HC_8u(const uint8_t* pSrc, int srcIdx, int* pSrcLen, uint8_t* pDst,
                             int* pDstLen, uint8_t** ppHashTables, const uint8_t* pDict,
                             int dictLen, int level) {
    const Call call{pSrc, srcIdx, pSrcLen, pDst, pDstLen, ppHashTables, candidatesOf(level)};
    if (pDict == nullptr || dictLen == 0) return ownsEncodeLZ4HC_8u(call);
    if (dictLen < 0) return vekStatusBadSize;
    if (isInPlace(pSrc, srcIdx, pDict, dictLen)) return ownsEncodeLZ4HC_8u(call);
    return ownsEncodeLZ4HCDict_8u(call, pDict, dictLen);
}

VekStatus veksEncodeLZ4HCDictLimit_8u(const uint8_t* pSrc, int srcIdx, int* pSrcLen, uint8_t* pDst,
                                      int* pDstLen, uint8_t** ppHashTables, const uint8_t* pDict,
                                      int dictLen, int level, int /*dictLimit*/) {
    // Both limit modes refer to no dictionary byte at a position that the block itself has.
    const Call call{pSrc, srcIdx, pSrcLen, pDst, pDstLen, ppHashTables, candidatesOf(level)};
    if (pDict == nullptr || dictLen == 0) return ownsEncodeLZ4HC_8u(call);
    if (dictLen < 0) return vekStatusBadSize;
    return ownsEncodeLZ4HCDict_8u(call, pDict, dictLen);
}

}  // extern "C"
