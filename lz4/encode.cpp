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

/// Positions under the hash of their bytes.
template <class EntryType, uint32_t Count>
struct Slots {
    using Entry = EntryType;
    static constexpr uint32_t count = Count;
    Entry entries[count];
};

/// The caller's table. The shorter a block, the smaller the part that serves it and is cleared.
struct LZ4HashTable {
    union {
        Slots<uint32_t, 4096> wide;
        Slots<uint16_t, 8192> narrow;
        Slots<uint16_t, 1024> small;
    };
};
static_assert(sizeof(LZ4HashTable) == 16384);

/// What of a table is in use.
enum class Entries { Small, Narrow, Wide };

namespace {

constexpr int mostSmall = 1024;      // The longest blocks with few entries,
constexpr int mostNarrow = 65536;    // and with 16-bit entries.
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

/// The hash of the 5 bytes at p, below Count.
template <uint32_t Count>
inline uint32_t hashAt(const uint8_t* p) {
    return crc32cStep(p[4], load<uint32_t>(p)) & (Count - 1);
}

/// A match that was found: its position and what compare() tells of it, asked for at once: its
/// length is what the next search waits for.
struct Hit {
    uint32_t candidate;
    uint32_t agreed;
};

/// The hash table over a block and its history.
template <class Slots, class History>
struct Matcher {
    using Entry = typename Slots::Entry;
    Entry* entries;
    const History history;
    const uint8_t* end;  ///< Where the search ends.

    static uint32_t hashAt(const uint8_t* p) { return lz4::hashAt<Slots::count>(p); }
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
    static constexpr unsigned shift = sizeof(typename M::Entry) == 2 ? 4 : 6;

    /// Puts three positions under their hashes; their candidates wait to be tested.
    [[gnu::always_inline]] void exchangeThree(const uint8_t* p) {
        const uint32_t h0 = M::hashAt(p);
        const uint32_t h1 = M::hashAt(p + 1);
        const uint32_t h2 = M::hashAt(p + 2);
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

/// Probes four positions a pass, from the start `acceleration` apart. Where a sequence ends the
/// next match is likely near: the two positions there are probed first, and one in front is
/// inserted. It costs little and saves a fifteenth of the output.
template <class M>
class AcceleratedSearch {
 public:
    AcceleratedSearch(const M& matcher, uint32_t acceleration)
        : matcher_(matcher), acceleration_(acceleration) {}

    [[gnu::always_inline]] bool next(const uint8_t*& p, Hit& hit) {
        for (const uint8_t* const far = p + 2; p != far; ++p) {
            if (p >= matcher_.end) return false;
            if (matcher_.probe(p, hit)) return true;
        }
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
    void written(const uint8_t* p, size_t /*literals*/, bool /*lookedUp*/) {
        matcher_.exchange(p - 2, M::hashAt(p - 2));
    }

 private:
    static constexpr int passesPerStep = 16;

    [[gnu::always_inline]] bool probeFour(const uint8_t*& p, uint32_t step, Hit& hit) {
        const uint8_t* const at[4] = {p, p + step, p + 2 * size_t{step}, p + 3 * size_t{step}};
        const uint32_t hash[4] = {M::hashAt(at[0]), M::hashAt(at[1]), M::hashAt(at[2]),
                                  M::hashAt(at[3])};
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
template <bool CheckRoom, template <class> class Search, class Slots, class History>
Encoded encodeBlock(const uint8_t* src, size_t srcLen, uint8_t* out, uint8_t* outEnd, Slots& slots,
                    const History& history, uint32_t acceleration) {
    using M = Matcher<Slots, History>;
    const uint8_t* anchor = src;
    const uint8_t* const srcEnd = src + srcLen;
    Encoded before{nullptr, nullptr};  // In front of the last sequence, where room was short.
    size_t lastMatch = lastMatchStart;
    if (srcLen > static_cast<size_t>(searchEnd)) {
        const uint8_t* const matchEnd = srcEnd - lastLiterals;
        M matcher{slots.entries, history, srcEnd - searchEnd};
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
template <template <class> class Search = PlainSearch, class Slots, class History>
VekStatus encode(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen, Slots& slots,
                 const History& history, uint32_t acceleration = 1) {
    const Encoded encoded = encodeBlock<false, Search>(pSrc, static_cast<size_t>(srcLen), pDst,
                                                       nullptr, slots, history, acceleration);
    *pDstLen = static_cast<int>(encoded.out - pDst);
    return vekStatusOk;
}

/// Encodes what fits, and writes back how much was read and written.
template <class Slots, class History>
VekStatus encodeSafe(const uint8_t* pSrc, int* pSrcLen, uint8_t* pDst, int* pDstLen, Slots& slots,
                     const History& history) {
    const int srcLen = *pSrcLen;
    const auto length = static_cast<size_t>(srcLen);
    if (static_cast<size_t>(*pDstLen) >= vekLZ4EncodeBound(length))
        return encode(pSrc, srcLen, pDst, pDstLen, slots, history);
    const Encoded encoded =
        encodeBlock<true, PlainSearch>(pSrc, length, pDst, pDst + *pDstLen, slots, history, 1);
    *pSrcLen = static_cast<int>(encoded.in - pSrc);
    *pDstLen = static_cast<int>(encoded.out - pDst);
    return *pSrcLen == srcLen ? vekStatusOk : vekStatusDestinationFull;
}

Entries entriesFor(int srcLen) {
    if (srcLen <= mostSmall) return Entries::Small;
    return srcLen <= mostNarrow ? Entries::Narrow : Entries::Wide;
}

LZ4HashTable& tableAt(uint8_t* pHashTable) {
    return *reinterpret_cast<LZ4HashTable*>(pHashTable);
}

/// Calls `use` with the part of a table that is in use.
template <class Use>
auto withSlots(LZ4HashTable& table, Entries entries, const Use& use) {
    if (entries == Entries::Wide) return use(table.wide);
    return entries == Entries::Narrow ? use(table.narrow) : use(table.small);
}

/// Clears that part.
VekStatus clear(uint8_t* pHashTable, Entries entries) {
    if (pHashTable == nullptr) return vekStatusNullPointer;
    withSlots(tableAt(pHashTable), entries, [](auto& slots) {
        ownsSet_8u(0, reinterpret_cast<uint8_t*>(&slots), sizeof(slots));
    });
    return vekStatusOk;
}

}  // namespace

/// Encodes a block whose history is the `index` bytes in front of it and what of these the table
/// holds. There is room.
VekStatus ownsEncodeLZ4_8u(const uint8_t* pSrc, int index, int srcLen, uint8_t* pDst, int* pDstLen,
                           LZ4HashTable& table, Entries entries) {
    const InPlace history{pSrc - index};
    return withSlots(table, entries, [&](auto& slots) {
        return encode(pSrc, srcLen, pDst, pDstLen, slots, history);
    });
}

/// The same, as much of the block as fits.
VekStatus ownsEncodeLZ4Safe_8u(const uint8_t* pSrc, int index, int* pSrcLen, uint8_t* pDst,
                               int* pDstLen, LZ4HashTable& table, Entries entries) {
    const InPlace history{pSrc - index};
    return withSlots(table, entries, [&](auto& slots) {
        return encodeSafe(pSrc, pSrcLen, pDst, pDstLen, slots, history);
    });
}

namespace {

/// Brings the table to the block: empty at the start of a stream, else without positions that the
/// block itself will fill.
VekStatus prepare(uint8_t* pHashTable, int index) {
    if (index <= 0) return clear(pHashTable, Entries::Wide);
    if (pHashTable == nullptr) return vekStatusNullPointer;
    const auto most = static_cast<uint32_t>(index) - 1;
    for (uint32_t& entry : tableAt(pHashTable).wide.entries) entry = std::min(entry, most);
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
    ownsSet_8u(0, pHashTable,
               srcLen < mostNarrow ? sizeof(LZ4HashTable) / 2 : sizeof(LZ4HashTable));
    return vekStatusOk;
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
    const auto step = static_cast<uint32_t>(acceleration);
    const InPlace history{pSrc};
    return withSlots(tableAt(pHashTable), entriesFor(srcLen), [&](auto& slots) {
        return encode<AcceleratedSearch>(pSrc, srcLen, pDst, pDstLen, slots, history, step);
    });
}

VekStatus veksEncodeLZ4LoadDict_8u(uint8_t* pHashTable, const uint8_t* pDict, int dictLen) {
    if (vek::anyNull(pHashTable, pDict)) return vekStatusNullPointer;
    if (dictLen < 1) return vekStatusBadSize;
    auto& slots = tableAt(pHashTable).wide;
    constexpr int loadMargin = 8;
    constexpr int loadStep = 3;
    for (int i = 0; dictLen - i > loadMargin; i += loadStep)
        slots.entries[hashAt<slots.count>(pDict + i)] = static_cast<uint32_t>(i);
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
