// LZ4 block encoders over one small hash table: plain, with checked room, accelerated, and with
// history in place or in a dictionary.
//
// Greedy: the first candidate that agrees in 4 bytes is taken, extended both ways, written. A
// table entry is the last position whose 5 bytes had that hash, so every probe costs one CRC
// instruction and one load, and the table of 4096 entries stays in the first-level cache. Where
// nothing matches the step between probes grows, so incompressible data passes quickly; right
// behind a sequence with few literals every position is probed, three at a time, since there the
// next match is near.
//
// What limits it is one guess a sequence that must fail, at the end of a search, and behind it the
// way from the match's length to the candidates of the next search. So the length is found at once,
// the next three positions are looked up with it, and the sequence is written while they come.
//
// One engine, encodeBlock(), instantiated by entry width (16 bits suffice for blocks below 64 KiB
// and halve the table), by room checking, by search and by history. Safe encoding is the
// unchecked one where the room holds the worst case. Else it writes like it while the end is far,
// and sequence by sequence with exact bounds near its end, where it closes the block with the
// literals that fit.
#include <algorithm>

#include "bytes/crc32c_step.h"
#include "bytes/fill.h"
#include "frame/args.h"
#include "lz4/history.h"
#include "lz4/sequences.h"
#include "vekdc.h"

namespace vek::inline VEK_LEVEL::lz4 {

constexpr uint32_t tableEntries = 4096;

/// The caller's table: positions under the hash of their bytes. Short blocks use 16-bit entries,
/// and so the first half of the memory.
struct LZ4HashTable {
    union {
        uint32_t wide[tableEntries];
        uint16_t narrow[tableEntries];
    };
};
static_assert(sizeof(LZ4HashTable) == 16384);

/// The width of the entries that a table holds.
enum class Entries { Narrow, Wide };

namespace {

constexpr int wideFrom = 65536;      // Blocks of this length need 32-bit entries.
constexpr ptrdiff_t searchEnd = 28;  // No match begins in the last so many bytes of a block.
constexpr size_t shortRun = 64;  // A sequence with fewer literals is followed by a dense search.
constexpr int densePasses = 16;  // Of three positions each.
constexpr ptrdiff_t roomMargin = 8;  // Kept free for the block's last sequence.
// What a sequence may take beside its literals, and beside a byte for each 128 of both lengths,
// which covers their extensions (a byte for each 255 begun) without a division: token, offset, the
// two bytes that have begun, and what a wide copy writes too many. Rounded up.
constexpr size_t spareRoom = 32;
static_assert(spareRoom >= tokenSize + offsetSize + 2 + literalStep);
// Literals are copied in wide steps, and 16 bytes of each match compared at once: both read in
// front of the block's end, since no match begins later.
static_assert(searchEnd >= static_cast<ptrdiff_t>(literalStep));
static_assert(searchEnd >= 16 + static_cast<ptrdiff_t>(lastLiterals));

/// The hash of the 5 bytes at p.
inline uint32_t hashAt(const uint8_t* p) {
    return crc32cStep(p[4], load<uint32_t>(p)) & (tableEntries - 1);
}

/// A match that was found: its position and what compare() tells of it, asked for at once: its
/// length is what the next search waits for.
struct Hit {
    uint32_t candidate;
    uint32_t agreed;
};

/// The hash table over a block and its history.
template <class Entry, class History>
struct Matcher {
    Entry* entries;
    const History history;
    const uint8_t* end;  ///< Where the search ends.

    /// Puts p under its hash and returns the candidate that stood there.
    uint32_t exchange(const uint8_t* p, uint32_t hash) {
        const uint32_t candidate = entries[hash];
        entries[hash] = static_cast<Entry>(history.position(p));
        return candidate;
    }
    /// True when a candidate agrees in 4 bytes and lies near enough; only then `hit` is set.
    bool matches(const uint8_t* p, uint32_t candidate, Hit& hit) const {
        if (!history.equal4(candidate, load<uint32_t>(p)) ||
            (sizeof(Entry) == 4 && history.position(p) - candidate > maxOffset))
            return false;
        hit = {candidate, history.compare(p, candidate)};
        return true;
    }
    bool probe(const uint8_t* p, Hit& hit) { return matches(p, exchange(p, hashAt(p)), hit); }
};

/// Probes every position at first and ever fewer while nothing matches.
template <class M>
class PlainSearch {
 public:
    PlainSearch(const M& matcher, uint32_t /*acceleration*/) : matcher_(matcher) {}

    /// Begins the dense search at `p`, the end of a sequence, before the sequence is written: its
    /// loads go on meanwhile. Only for a sequence that a dense search follows.
    [[gnu::always_inline]] void lookUp(const uint8_t* p) {
        if (matcher_.end - p >= 3) exchangeThree(p);
    }
    /// Tells that it was written, with so many literals.
    [[gnu::always_inline]] void written(const uint8_t* p, size_t literals, bool lookedUp) {
        dense_ = literals < shortRun;
        counter_ = 2U << shift;
        if (dense_ && !lookedUp) lookUp(p);
    }

    /// Moves `p` to the next match; false when there is none in front of the search's end.
    [[gnu::always_inline]] bool next(const uint8_t*& p, Hit& hit) {
        if (dense_) {
            if (matcher_.end - p < 3) return last(p, hit);
            for (int pass = 1;; ++pass) {
                if (matcher_.matches(p, first_, hit)) return true;
                if (matcher_.matches(p + 1, second_, hit)) return p += 1, true;
                if (matcher_.matches(p + 2, third_, hit)) return p += 2, true;
                p += 3;
                if (pass == densePasses) break;
                if (matcher_.end - p < 3) return last(p, hit);
                exchangeThree(p);
            }
        }
        if (p >= matcher_.end) return false;
        for (;;) {
            if (matcher_.probe(p, hit)) return true;
            const uint32_t step = counter_++ >> shift;
            if (step >= static_cast<size_t>(matcher_.end - p)) return false;
            p += step;
        }
    }

 private:
    static constexpr unsigned shift = sizeof(*M::entries) == 2 ? 4 : 6;

    /// Puts three positions under their hashes; their candidates wait to be tested.
    [[gnu::always_inline]] void exchangeThree(const uint8_t* p) {
        const uint32_t h0 = hashAt(p);
        const uint32_t h1 = hashAt(p + 1);
        const uint32_t h2 = hashAt(p + 2);
        first_ = matcher_.exchange(p, h0);
        second_ = matcher_.exchange(p + 1, h1);
        third_ = matcher_.exchange(p + 2, h2);
    }
    bool last(const uint8_t*& p, Hit& hit) {
        for (; p < matcher_.end; ++p)
            if (matcher_.probe(p, hit)) return true;
        return false;
    }

    M matcher_;
    uint32_t counter_ = 1U << shift;
    bool dense_ = false;
    uint32_t first_ = 0;  // Candidates of the pass under way.
    uint32_t second_ = 0;
    uint32_t third_ = 0;
};

/// Probes four positions a pass, from the start `acceleration` apart.
template <class M>
class AcceleratedSearch {
 public:
    AcceleratedSearch(const M& matcher, uint32_t acceleration)
        : matcher_(matcher), acceleration_(acceleration) {}

    [[gnu::always_inline]] bool next(const uint8_t*& p, Hit& hit) {
        for (uint32_t step = acceleration_;; ++step) {
            for (int pass = 0; pass < passesPerStep; ++pass) {
                if (p >= matcher_.end) return false;
                const auto left = static_cast<size_t>(matcher_.end - p);
                if ((left - 1) / 3 < step) return last(p, step, hit);
                if (probeFour(p, step, hit)) return true;
                if (left <= uint64_t{4} * step) return false;
                p += size_t{4} * step;
            }
        }
    }
    void lookUp(const uint8_t* /*p*/) {}
    void written(const uint8_t* /*p*/, size_t /*literals*/, bool /*lookedUp*/) {}

 private:
    static constexpr int passesPerStep = 16;

    [[gnu::always_inline]] bool probeFour(const uint8_t*& p, uint32_t step, Hit& hit) {
        const uint8_t* const at[4] = {p, p + step, p + 2 * size_t{step}, p + 3 * size_t{step}};
        const uint32_t hash[4] = {hashAt(at[0]), hashAt(at[1]), hashAt(at[2]), hashAt(at[3])};
        for (int i = 0; i < 4; ++i) {
            if (matcher_.matches(at[i], matcher_.exchange(at[i], hash[i]), hit))
                return p = at[i], true;
        }
        return false;
    }
    bool last(const uint8_t*& p, uint32_t step, Hit& hit) {
        for (;; p += step) {
            if (matcher_.probe(p, hit)) return true;
            if (static_cast<size_t>(matcher_.end - p) <= step) return false;
        }
    }

    M matcher_;
    uint32_t acceleration_;
};

/// Where an encoding stopped.
struct Encoded {
    const uint8_t* in;
    uint8_t* out;
};

/// A sequence to write: literals, then a match.
struct Sequence {
    const uint8_t* literals;
    size_t count;
    uint32_t offset;
    size_t match;
};

/// Writes a sequence near the end of the room, where its match may be cut. Returns its end, or null
/// when the sequence must be given up; then nothing of it counts.
uint8_t* writeSequenceChecked(uint8_t* out, uint8_t* outEnd, Sequence& s) {
    const ptrdiff_t room = outEnd - out - roomMargin;
    if (room < 0 || 1 + s.count + s.count / 255 > static_cast<size_t>(room)) return nullptr;
    uint8_t* const token = out;
    out = writeLiterals<false>(out, s.literals, s.count);
    store(out, static_cast<uint16_t>(s.offset));
    out += 2;
    const ptrdiff_t extension = outEnd - out - roomMargin;
    if (extension <= -2) return nullptr;
    const size_t most =
        minMatch + nibbleFull - 1 + 255 * static_cast<size_t>(std::max<ptrdiff_t>(extension, 0));
    s.match = std::min(s.match, most);
    return writeMatchLength(token, out, s.match);
}

/// Encodes a block, or with CheckRoom as much of it as fits in front of `outEnd`.
template <bool CheckRoom, template <class> class Search, class Entry, class History>
Encoded encodeBlock(const uint8_t* src, size_t srcLen, uint8_t* out, uint8_t* outEnd,
                    Entry* entries, const History& history, uint32_t acceleration) {
    using M = Matcher<Entry, History>;
    const uint8_t* anchor = src;
    const uint8_t* const srcEnd = src + srcLen;
    Encoded before{nullptr, nullptr};  // In front of the last sequence, where room was short.
    size_t lastMatch = lastMatchStart;
    if (srcLen > static_cast<size_t>(searchEnd)) {
        const uint8_t* const matchEnd = srcEnd - lastLiterals;
        M matcher{entries, history, srcEnd - searchEnd};
        Search<M> search(matcher, acceleration);
        const uint8_t* p = src + 1;
        Hit hit{};
        while (search.next(p, hit)) {
            const size_t forward = history.extend(p, hit.candidate, hit.agreed, matchEnd);
            const auto pending = static_cast<size_t>(p - anchor);
            bool wide = true;
            if constexpr (CheckRoom)
                wide = pending + (pending + forward) / 128 + spareRoom <=
                       static_cast<size_t>(outEnd - out);
            const bool early = wide && pending < shortRun;
            if (early) search.lookUp(p + forward);
            const size_t back = history.backward(p, hit.candidate, anchor);
            Sequence s{anchor, pending - back, history.position(p) - hit.candidate, forward + back};
            if (wide) {
                out = writeSequence<true>(out, s.literals, s.count, s.offset, s.match);
            } else {
                uint8_t* const behind = writeSequenceChecked(out, outEnd, s);
                if (behind == nullptr) break;
                before = {anchor, out};
                out = behind;
            }
            if constexpr (CheckRoom) lastMatch = s.match;
            anchor = s.literals + s.count + s.match;
            p = anchor;
            search.written(p, s.count, early);
        }
    }
    auto rest = static_cast<size_t>(srcEnd - anchor);
    if constexpr (CheckRoom) {
        const auto fit = [&] {
            return literalsThatFit(static_cast<size_t>(srcEnd - anchor),
                                   static_cast<size_t>(outEnd - out));
        };
        rest = fit();
        // A short match with few literals behind it: other decoders would refuse the block's end.
        if (lastMatch + rest < lastMatchStart && before.out != nullptr) {
            anchor = before.in;
            out = before.out;
            rest = fit();
        }
    }
    return {anchor + rest, writeLiterals<false>(out, anchor, rest)};
}

/// Encodes a block for which there is room, and writes back how much was written.
template <template <class> class Search = PlainSearch, class Entry, class History>
VekStatus encode(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen, Entry* entries,
                 const History& history, uint32_t acceleration = 1) {
    const Encoded encoded = encodeBlock<false, Search>(pSrc, static_cast<size_t>(srcLen), pDst,
                                                       nullptr, entries, history, acceleration);
    *pDstLen = static_cast<int>(encoded.out - pDst);
    return vekStatusOk;
}

/// Encodes what fits, and writes back how much was read and written.
template <class Entry, class History>
VekStatus encodeSafe(const uint8_t* pSrc, int* pSrcLen, uint8_t* pDst, int* pDstLen, Entry* entries,
                     const History& history) {
    const int srcLen = *pSrcLen;
    const auto length = static_cast<size_t>(srcLen);
    if (static_cast<size_t>(*pDstLen) >= vekLZ4EncodeBound(length))
        return encode(pSrc, srcLen, pDst, pDstLen, entries, history);
    const Encoded encoded =
        encodeBlock<true, PlainSearch>(pSrc, length, pDst, pDst + *pDstLen, entries, history, 1);
    *pSrcLen = static_cast<int>(encoded.in - pSrc);
    *pDstLen = static_cast<int>(encoded.out - pDst);
    return *pSrcLen == srcLen ? vekStatusOk : vekStatusDestinationFull;
}

Entries entriesFor(int srcLen) {
    return srcLen >= wideFrom ? Entries::Wide : Entries::Narrow;
}

LZ4HashTable& tableAt(uint8_t* pHashTable) {
    return *reinterpret_cast<LZ4HashTable*>(pHashTable);
}

/// Clears as many entries as there are of that width.
VekStatus clear(uint8_t* pHashTable, Entries entries) {
    if (pHashTable == nullptr) return vekStatusNullPointer;
    ownsSet_8u(
        0, pHashTable,
        entries == Entries::Wide ? sizeof(LZ4HashTable::wide) : sizeof(LZ4HashTable::narrow));
    return vekStatusOk;
}

}  // namespace

/// Encodes a block whose history is the `index` bytes in front of it and what of these the table
/// holds. There is room.
VekStatus ownsEncodeLZ4_8u(const uint8_t* pSrc, int index, int srcLen, uint8_t* pDst, int* pDstLen,
                           LZ4HashTable& table, Entries entries) {
    const InPlace history{pSrc - index};
    return entries == Entries::Narrow ? encode(pSrc, srcLen, pDst, pDstLen, table.narrow, history)
                                      : encode(pSrc, srcLen, pDst, pDstLen, table.wide, history);
}

/// The same, as much of the block as fits.
VekStatus ownsEncodeLZ4Safe_8u(const uint8_t* pSrc, int index, int* pSrcLen, uint8_t* pDst,
                               int* pDstLen, LZ4HashTable& table, Entries entries) {
    const InPlace history{pSrc - index};
    return entries == Entries::Narrow
               ? encodeSafe(pSrc, pSrcLen, pDst, pDstLen, table.narrow, history)
               : encodeSafe(pSrc, pSrcLen, pDst, pDstLen, table.wide, history);
}

namespace {

/// Brings the table to the block: empty at the start of a stream, else without positions that the
/// block itself will fill.
VekStatus prepare(uint8_t* pHashTable, int index) {
    if (index <= 0) return clear(pHashTable, Entries::Wide);
    if (pHashTable == nullptr) return vekStatusNullPointer;
    const auto most = static_cast<uint32_t>(index) - 1;
    for (uint32_t& entry : tableAt(pHashTable).wide) entry = std::min(entry, most);
    return vekStatusOk;
}

VekStatus checkSizes(const int* pSrcLen, const int* pRoom) {
    return *pSrcLen < 1 || (pRoom != nullptr && *pRoom < 1) ? vekStatusBadSize : vekStatusOk;
}

/// The dictionary encoders: CheckRoom tells Safe from plain, whose source length is by value.
template <bool CheckRoom>
VekStatus encodeDictionary(const uint8_t* pSrc, int index, int* pSrcLen, uint8_t* pDst,
                           int* pDstLen, uint8_t* pHashTable, const uint8_t* pDict, int dictLen) {
    const VekStatus prepared = prepare(pHashTable, index);
    if (prepared != vekStatusOk) return prepared;
    const bool none = pDict == nullptr || dictLen == 0;
    if (!none && dictLen < 0) return vekStatusBadSize;
    if (anyNull(pSrc, pSrcLen, pDst, pDstLen)) return vekStatusNullPointer;
    const VekStatus sizes = checkSizes(pSrcLen, CheckRoom ? pDstLen : nullptr);
    if (sizes != vekStatusOk) return sizes;
    LZ4HashTable& table = tableAt(pHashTable);
    if (none || isInPlace(pSrc, index, pDict, dictLen)) {
        index = std::max(index, 0);
        if (CheckRoom)
            return ownsEncodeLZ4Safe_8u(pSrc, index, pSrcLen, pDst, pDstLen, table, Entries::Wide);
        return ownsEncodeLZ4_8u(pSrc, index, *pSrcLen, pDst, pDstLen, table, Entries::Wide);
    }
    if (index < 0) return vekStatusBadArgument;
    const SeparateDictionary history(pSrc, static_cast<uint32_t>(index), pDict,
                                     static_cast<uint32_t>(dictLen));
    if (CheckRoom) return encodeSafe(pSrc, pSrcLen, pDst, pDstLen, table.wide, history);
    return encode(pSrc, *pSrcLen, pDst, pDstLen, table.wide, history);
}

}  // namespace
}  // namespace vek::inline VEK_LEVEL::lz4

using namespace vek::lz4;

extern "C" {

VekStatus veksEncodeLZ4HashTableGetSize_8u(int* pSize) {
    if (pSize == nullptr) return vekStatusNullPointer;
    *pSize = sizeof(LZ4HashTable);
    return vekStatusOk;
}

VekStatus veksEncodeLZ4HashTableInit_8u(uint8_t* pHashTable, int srcLen) {
    if (pHashTable == nullptr) return vekStatusNullPointer;
    if (srcLen < 1) return vekStatusBadSize;
    return clear(pHashTable, entriesFor(srcLen));
}

VekStatus veksEncodeLZ4DictHashTableInit_8u(uint8_t* pHashTable, int srcLen) {
    if (pHashTable == nullptr) return vekStatusNullPointer;
    if (srcLen < 1) return vekStatusBadSize;
    return clear(pHashTable, Entries::Wide);
}

VekStatus veksEncodeLZ4_8u(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen,
                           uint8_t* pHashTable) {
    const VekStatus cleared = clear(pHashTable, entriesFor(srcLen));
    if (cleared != vekStatusOk) return cleared;
    if (vek::anyNull(pSrc, pDst, pDstLen)) return vekStatusNullPointer;
    if (srcLen < 1) return vekStatusBadSize;
    return ownsEncodeLZ4_8u(pSrc, 0, srcLen, pDst, pDstLen, tableAt(pHashTable),
                            entriesFor(srcLen));
}

VekStatus veksEncodeLZ4Safe_8u(const uint8_t* pSrc, int* pSrcLen, uint8_t* pDst, int* pDstLen,
                               uint8_t* pHashTable) {
    const Entries entries = pSrcLen != nullptr ? entriesFor(*pSrcLen) : Entries::Narrow;
    const VekStatus cleared = clear(pHashTable, entries);
    if (cleared != vekStatusOk) return cleared;
    if (vek::anyNull(pSrc, pSrcLen, pDst, pDstLen)) return vekStatusNullPointer;
    const VekStatus sizes = checkSizes(pSrcLen, pDstLen);
    if (sizes != vekStatusOk) return sizes;
    return ownsEncodeLZ4Safe_8u(pSrc, 0, pSrcLen, pDst, pDstLen, tableAt(pHashTable), entries);
}

VekStatus veksEncodeLZ4Fast_8u(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen,
                               uint8_t* pHashTable, int acceleration) {
    if (acceleration == 1) return veksEncodeLZ4_8u(pSrc, srcLen, pDst, pDstLen, pHashTable);
    if (vek::anyNull(pSrc, pDst, pDstLen, pHashTable)) return vekStatusNullPointer;
    if (srcLen < 1) return vekStatusBadSize;
    if (acceleration < 1) return vekStatusOutOfRange;
    clear(pHashTable, entriesFor(srcLen));
    LZ4HashTable& table = tableAt(pHashTable);
    const auto step = static_cast<uint32_t>(acceleration);
    const InPlace history{pSrc};
    if (entriesFor(srcLen) == Entries::Narrow)
        return encode<AcceleratedSearch>(pSrc, srcLen, pDst, pDstLen, table.narrow, history, step);
    return encode<AcceleratedSearch>(pSrc, srcLen, pDst, pDstLen, table.wide, history, step);
}

VekStatus veksEncodeLZ4LoadDict_8u(uint8_t* pHashTable, const uint8_t* pDict, int dictLen) {
    if (vek::anyNull(pHashTable, pDict)) return vekStatusNullPointer;
    if (dictLen < 1) return vekStatusBadSize;
    uint32_t* const entries = tableAt(pHashTable).wide;
    constexpr int loadMargin = 8;
    constexpr int loadStep = 3;
    for (int i = 0; dictLen - i > loadMargin; i += loadStep)
        entries[hashAt(pDict + i)] = static_cast<uint32_t>(i);
    return vekStatusOk;
}

VekStatus veksEncodeLZ4Dict_8u(const uint8_t* pSrc, int srcIdx, int srcLen, uint8_t* pDst,
                               int* pDstLen, uint8_t* pHashTable, const uint8_t* pDict,
                               int dictLen) {
    return encodeDictionary<false>(pSrc, srcIdx, &srcLen, pDst, pDstLen, pHashTable, pDict,
                                   dictLen);
}

VekStatus veksEncodeLZ4DictSafe_8u(const uint8_t* pSrc, int srcIdx, int* pSrcLen, uint8_t* pDst,
                                   int* pDstLen, uint8_t* pHashTable, const uint8_t* pDict,
                                   int dictLen) {
    return encodeDictionary<true>(pSrc, srcIdx, pSrcLen, pDst, pDstLen, pHashTable, pDict, dictLen);
}

}  // extern "C"
