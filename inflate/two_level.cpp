// The inflate decoder for two-level tables: lookups through sub-tables, and the packed first level
// that the kernel works on when a call has enough to do.
//
// What decoding costs is a chain of lookups and the branches between literals and matches that
// cannot be foreseen. Where many literals have short codes, one lookup can do two of them, or one
// and the length behind it: fewer links of the chain, and fewer branches. The tables for that are
// made anew by each call, since the caller's record has no room for them.
#include <smmintrin.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "bytes/words.h"
#include "inflate/fast_loop.h"
#include "inflate/resumable.h"
#include "inflate/table_layout.h"

namespace {

using namespace vek::inflate;

/// Reversals of 5 bits, and masks of n bits.
constexpr std::array<uint8_t, 32> tablofinv = [] {
    std::array<uint8_t, 32> table{};
    for (unsigned i = 0; i < table.size(); ++i) {
        table[i] = static_cast<uint8_t>(vek::reverseBits(i, 5));
    }
    return table;
}();

class TwoLevel {
 public:
    explicit TwoLevel(const uint8_t* tables) : tables_(tables) {}

    Entry lit(uint32_t bits) const {
        uint32_t index = bits & (rootSize - 1);
        if (isLink(tables_[litKindAt + index])) {
            index = rootSize + 2U * tables_[litValueAt + index] +
                    subIndex(bits, tables_[litKindAt + index]);
        }
        return {tables_[litKindAt + index], tables_[litValueAt + index]};
    }
    Entry dist(uint32_t bits) const {
        uint32_t index = bits & (rootSize - 1);
        if (isLink(tables_[distKindAt + index])) {
            index = rootSize + base(index) + subIndex(bits, tables_[distKindAt + index]);
        }
        return {tables_[distKindAt + index], base(index)};
    }
    static bool isEnd(uint32_t kind) { return (kind & 0xF0) == twoLevelEndKind; }

    // For the fast kernel: the first level's entry, whose value is loaded only when it is needed.
    struct Look {
        uint32_t kind;
        size_t index;
    };
    Look look(Word bits) const {
        const size_t index = bits & (rootSize - 1);
        return {tables_[litKindAt + index], index};
    }
    static uint32_t taken(Look entry) { return entry.kind; }
    uint32_t putLiterals(uint8_t* dst, Look entry) const {
        *dst = static_cast<uint8_t>(value(entry));
        return 1;
    }
    static uint32_t putLeading(uint8_t*, Look) { return 0; }
    static bool isShortLiteral(Look entry) { return entry.kind <= rootBits; }
    static bool isLiteral(Look entry) { return entry.kind <= maxCodeLength; }
    static bool isLength(Look entry) { return entry.kind >= 0x80; }
    static bool isLink(Look entry) { return isLink(entry.kind) && isLiteral(entry); }
    Look follow(Look entry, Word bits) const {
        const size_t index =
            rootSize + 2 * value(entry) + subIndex(static_cast<uint32_t>(bits), entry.kind);
        return {tables_[litKindAt + index], index};
    }
    uint32_t takeLength(Look entry, Word& bits, uint32_t& count) const {
        return takeEntry(entry.kind & 15, (entry.kind >> 4) & 7, value(entry) + minMatch, bits,
                         count);
    }
    Entry lookDistance(Word bits) const {
        const size_t index = bits & (rootSize - 1);
        return {tables_[distKindAt + index], base(index)};
    }
    static bool isOtherDistance(Entry entry) {
        return entry.codeLen() > rootBits || !entry.isDistance();
    }
    static uint32_t takeDistance(Entry entry, Word& bits, uint32_t& count) {
        return takeEntry(entry.codeLen(), entry.distanceExtra(), entry.value, bits, count);
    }

 private:
    static bool isLink(uint32_t kind) { return (kind & 15) > rootBits; }
    static uint32_t subIndex(uint32_t bits, uint32_t link) {
        return static_cast<uint32_t>(tablofinv[(bits >> rootBits) & 31]) >>
               (maxCodeLength - (link & 15));
    }
    uint32_t value(Look entry) const { return tables_[litValueAt + entry.index]; }
    uint32_t base(size_t index) const {
        return vek::load<uint16_t>(tables_ + distBaseAt + 2 * index);
    }

    const uint8_t* tables_;
};

/// The first levels once more, with one 32-bit word an entry that holds what the kernel would have
/// to work out; literals/lengths with one bit more, distances with two less, so that all stays in
/// the nearest cache.
///
/// Byte 0 holds the bits to take in all, and flags; byte 1 the code length, which the extra bits
/// follow, and in its bits 5 and 6 the number of literals; the upper half the value. In tables with
/// pairs an entry may hold the literal in front, too: of two literals byte 2 is the first, of a
/// literal and a length byte 3 is the literal.
struct PackedLevel {
    uint32_t lits[2 * rootSize];
    uint32_t dists[rootSize / 4];
};
constexpr unsigned packedBits = rootBits + 1;
constexpr unsigned packedDistBits = rootBits - 2;
constexpr uint32_t packedOther = 0x80;          ///< Not only literals.
constexpr uint32_t packedStop = 0x40;           ///< No length either: a link, the end, no code.
constexpr uint32_t packedOtherDistance = 0x80;  ///< A longer code, or no distance.
constexpr unsigned packedLiterals = 13;         ///< Where the number of literals stands.

/// Packing takes as long as decoding some 200 bytes, so it is for calls with more than that to do.
/// Pairs take twice that more, and gain up to a fifth where much of the text is in short codes.
constexpr ptrdiff_t packedSource = 600;
constexpr ptrdiff_t packedRoom = 1500;
constexpr ptrdiff_t pairSource = 3000;
constexpr ptrdiff_t pairRoom = 12000;
constexpr unsigned enoughPairs = 200;  ///< Of 2048 entries.
constexpr unsigned pairBits = 7;       ///< The longest literals that are tried.

__m128i bytesOf(unsigned value) {
    return _mm_set1_epi8(static_cast<char>(value));
}
__m128i loadAt(const uint8_t* at) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
}

/// What the kind bytes of 16 literals/lengths say.
struct Kinds {
    __m128i len, isLength, extra;

    explicit Kinds(__m128i kinds)
        : len(_mm_and_si128(kinds, bytesOf(15))),
          isLength(_mm_cmplt_epi8(kinds, _mm_setzero_si128())),
          extra(_mm_and_si128(_mm_and_si128(_mm_srli_epi16(kinds, 4), isLength), bytesOf(7))) {}
};

/// Sixteen entries.
struct Entries {
    __m128i at0, at4, at8, at12;

    /// Of bytes 0 and 1, and the upper halves of the first and the last eight.
    Entries(__m128i byte0, __m128i byte1, __m128i upper0, __m128i upper8) {
        const __m128i lower0 = _mm_unpacklo_epi8(byte0, byte1);
        const __m128i lower8 = _mm_unpackhi_epi8(byte0, byte1);
        at0 = _mm_unpacklo_epi16(lower0, upper0);
        at4 = _mm_unpackhi_epi16(lower0, upper0);
        at8 = _mm_unpacklo_epi16(lower8, upper8);
        at12 = _mm_unpackhi_epi16(lower8, upper8);
    }

    void store(uint32_t* to) const {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), at0);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 4), at4);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 8), at8);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 12), at12);
    }
};

/// The entry of a single literal, length or other symbol.
constexpr uint32_t packOne(uint32_t kind, uint32_t value) {
    const uint32_t len = kind & 15;
    const uint32_t extra = kind >= 0x80 ? (kind >> 4) & 7 : 0;
    const uint32_t flags = kind >= 0x80           ? packedOther
                           : kind > maxCodeLength ? packedOther | packedStop
                                                  : 1U << packedLiterals;
    return (len + extra) | len << 8 | value << 16 | flags;
}

/// Fills the packed level; links to codes of one bit more are replaced by these.
void pack(PackedLevel& packed, const uint8_t* tables) {
    const __m128i root = bytesOf(rootBits);
    const uint8_t* const litKinds = tables + litKindAt;
    const uint8_t* const litValues = tables + litValueAt;
    for (size_t i = 0; i < rootSize; i += 16) {
        const __m128i kind = loadAt(litKinds + i);
        const Kinds is(kind);
        const __m128i stop = _mm_cmpgt_epi8(kind, root);
        const __m128i flags = _mm_or_si128(_mm_and_si128(is.isLength, bytesOf(packedOther)),
                                           _mm_and_si128(stop, bytesOf(packedOther | packedStop)));
        const __m128i literals =
            _mm_andnot_si128(_mm_or_si128(is.isLength, stop), bytesOf(1U << (packedLiterals - 8)));
        const __m128i values = loadAt(litValues + i);
        const Entries entries(_mm_or_si128(_mm_add_epi8(is.len, is.extra), flags),
                              _mm_or_si128(is.len, literals),
                              _mm_unpacklo_epi8(values, _mm_setzero_si128()),
                              _mm_unpackhi_epi8(values, _mm_setzero_si128()));
        entries.store(packed.lits + i);
        entries.store(packed.lits + rootSize + i);
        auto links = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpgt_epi8(is.len, root)));
        for (; links != 0; links &= links - 1) {
            const size_t link = i + vek::lowestSetBit(links);
            const unsigned longest = litKinds[link] & 15U;
            for (unsigned bit = 0; bit < 2; ++bit) {
                const size_t at = rootSize + 2U * litValues[link] + (bit << (longest - packedBits));
                if ((litKinds[at] & 15) != packedBits) continue;
                packed.lits[bit * rootSize + link] = packOne(litKinds[at], litValues[at]);
            }
        }
    }
    for (size_t i = 0; i < rootSize / 4; i += 16) {
        const __m128i kind = loadAt(tables + distKindAt + i);
        const __m128i len = _mm_and_si128(kind, bytesOf(15));
        const __m128i extra = _mm_and_si128(_mm_srli_epi16(kind, 4), bytesOf(15));
        const __m128i isOther =
            _mm_and_si128(_mm_or_si128(_mm_cmpgt_epi8(len, bytesOf(packedDistBits)),
                                       _mm_cmpgt_epi8(extra, bytesOf(maxDistExtra))),
                          bytesOf(packedOtherDistance));
        const uint8_t* const bases = tables + distBaseAt + 2 * i;
        Entries(_mm_or_si128(_mm_add_epi8(len, extra), isOther), len, loadAt(bases),
                loadAt(bases + 16))
            .store(packed.dists + i);
    }
}

/// Calls `take(index, length of its code)` for the first entry of each literal of up to pairBits
/// bits; the index bits above the code are those that follow it.
template <class Take>
void eachShortLiteral(const uint8_t* kinds, Take take) {
    for (uint32_t first = 0; first < 1U << pairBits; ++first) {
        const uint32_t len = kinds[first];
        if (len != 0 && len <= pairBits && first >> len == 0) take(first, len);
    }
}

/// How many entries pair() would join.
unsigned countPairs(const uint8_t* tables) {
    const uint8_t* const kinds = tables + litKindAt;
    unsigned within[packedBits];  // Of the entries of n bits those with codes of n at most.
    for (unsigned bits = packedBits - pairBits; bits < packedBits; ++bits) {
        within[bits] = 0;
        for (uint32_t i = 0; i < 1U << bits; i += 16) {
            const __m128i kind = loadAt(kinds + i);
            const __m128i alone = _mm_or_si128(_mm_cmpgt_epi8(Kinds(kind).len, bytesOf(bits)),
                                               _mm_cmpgt_epi8(kind, bytesOf(maxCodeLength)));
            const auto mask = static_cast<unsigned>(_mm_movemask_epi8(alone));
            within[bits] += 16 - static_cast<unsigned>(_mm_popcnt_u32(mask));
        }
    }
    unsigned sum = 0;
    eachShortLiteral(kinds, [&](uint32_t, uint32_t len) { sum += within[packedBits - len]; });
    return sum;
}

/// Joins literals with what follows them, where both are within a lookup: with another literal, or
/// with a length.
void pair(PackedLevel& packed, const uint8_t* tables) {
    const uint8_t* const kinds = tables + litKindAt;
    const uint8_t* const values = tables + litValueAt;
    eachShortLiteral(kinds, [&](uint32_t first, uint32_t len) {
        const __m128i literal = bytesOf(values[first]);
        const __m128i single = _mm_set1_epi32(static_cast<int>(packed.lits[first]));
        uint32_t* at = packed.lits + first;
        for (uint32_t i = 0; i < 1U << (packedBits - len); i += 16) {
            const __m128i kind = loadAt(kinds + i);
            const __m128i value = loadAt(values + i);
            const Kinds is(kind);
            const __m128i bothLen = _mm_add_epi8(is.len, bytesOf(len));
            const __m128i total = _mm_or_si128(_mm_add_epi8(bothLen, is.extra),
                                               _mm_and_si128(is.isLength, bytesOf(packedOther)));
            const __m128i literals = _mm_blendv_epi8(bytesOf(2U << (packedLiterals - 8)),
                                                     bytesOf(1U << (packedLiterals - 8)), kind);
            const __m128i byte2 = _mm_blendv_epi8(literal, value, kind);
            const __m128i byte3 = _mm_blendv_epi8(value, literal, kind);
            Entries joined(total, _mm_or_si128(bothLen, literals), _mm_unpacklo_epi8(byte2, byte3),
                           _mm_unpackhi_epi8(byte2, byte3));
            const __m128i alone = _mm_or_si128(_mm_cmpgt_epi8(is.len, bytesOf(packedBits - len)),
                                               _mm_cmpgt_epi8(kind, bytesOf(maxCodeLength)));
            const __m128i alone0 = _mm_unpacklo_epi8(alone, alone);
            const __m128i alone8 = _mm_unpackhi_epi8(alone, alone);
            const Entries isAlone(alone, alone, alone0, alone8);
            joined.at0 = _mm_blendv_epi8(joined.at0, single, isAlone.at0);
            joined.at4 = _mm_blendv_epi8(joined.at4, single, isAlone.at4);
            joined.at8 = _mm_blendv_epi8(joined.at8, single, isAlone.at8);
            joined.at12 = _mm_blendv_epi8(joined.at12, single, isAlone.at12);
            uint32_t entries[16];
            joined.store(entries);
            for (const uint32_t entry : entries) {
                *at = entry;
                at += size_t{1} << len;
            }
        }
    });
}

/// The tables as the kernel sees them through a packed level, which stands in its frame.
template <bool pairs>
class Packed {
 public:
    Packed(const TwoLevel& plain, const uint8_t* tables) : tables_(plain) {
        pack(level_, tables);
        if constexpr (pairs) pair(level_, tables);
    }

    uint32_t look(Word bits) const { return level_.lits[bits % (2 * rootSize)]; }
    static uint32_t taken(uint32_t entry) { return entry; }
    static uint32_t putLiterals(uint8_t* dst, uint32_t entry) {
        if constexpr (pairs) {
            vek::store<uint16_t>(dst, static_cast<uint16_t>(entry >> 16));
            return (entry >> packedLiterals) & 3;
        } else {
            *dst = static_cast<uint8_t>(entry >> 16);
            return 1;
        }
    }
    static uint32_t putLeading(uint8_t* dst, uint32_t entry) {
        if constexpr (!pairs) return 0;
        *dst = static_cast<uint8_t>(entry >> 24);
        return (entry >> packedLiterals) & 3;
    }
    static bool isShortLiteral(uint32_t entry) { return (entry & packedOther) == 0; }
    static bool isLiteral(uint32_t entry) { return isShortLiteral(entry); }
    static bool isLength(uint32_t entry) { return (entry & packedStop) == 0; }
    static bool isLink(uint32_t) { return true; }
    [[gnu::noinline]] uint32_t follow(uint32_t, Word bits) const {
        const Entry entry = tables_.lit(static_cast<uint32_t>(bits));
        return packOne(entry.kind, entry.value);
    }
    static uint32_t takeLength(uint32_t entry, Word& bits, uint32_t& count) {
        return ((entry >> 16) & 0xFF) + minMatch + takeBits(entry, bits, count);
    }
    uint32_t lookDistance(Word bits) const { return level_.dists[bits % (rootSize / 4)]; }
    static bool isOtherDistance(uint32_t entry) { return (entry & packedOtherDistance) != 0; }
    static uint32_t takeDistance(uint32_t entry, Word& bits, uint32_t& count) {
        return (entry >> 16) + takeBits(entry, bits, count);
    }
    Entry dist(uint32_t bits) const { return tables_.dist(bits); }

 private:
    /// Takes an entry's code and extra bits, which are returned.
    static uint32_t takeBits(uint32_t entry, Word& bits, uint32_t& count) {
        const Word before = bits;
        bits >>= entry % wordBits;
        count -= entry;
        const auto taken = static_cast<uint32_t>(before ^ (bits << entry % wordBits));
        return taken >> ((entry >> 8) % 32);
    }

    PackedLevel level_;
    const TwoLevel& tables_;
};

}  // namespace

extern "C" Stop ownsInflateLong_8u(Run& run, const uint8_t* tables) {
    const TwoLevel plain(tables);
    return runSteps(run, plain, [&] {
        const ptrdiff_t source = run.srcEnd - run.src;
        const ptrdiff_t room = run.dstEnd - run.dst;
        if (source >= pairSource && room >= pairRoom && countPairs(tables) >= enoughPairs) {
            runFast<Packed<true>>(run, plain, tables);
        } else if (source >= packedSource && room >= packedRoom) {
            runFast<Packed<false>>(run, plain, tables);
        } else {
            runFast<TwoLevel>(run, plain);
        }
    });
}
