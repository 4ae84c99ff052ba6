// The inflate decoder for two-level tables: lookups through sub-tables, and the packed first level
// that the kernel works on when a call has enough to do.
#include <smmintrin.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "deflate/pdcinflate.h"
#include "deflate/pdcinflatefast.h"
#include "deflate/pdcinflatesteps.h"
#include "vector/bytes.h"

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
    static uint32_t kind(Look entry) { return entry.kind; }
    uint32_t value(Look entry) const { return tables_[litValueAt + entry.index]; }
    uint32_t putLiterals(uint8_t* dst, Look entry) const {
        *dst = static_cast<uint8_t>(value(entry));
        return 1;
    }
    static uint32_t putLeading(uint8_t*, Look) { return 0; }
    static bool isShortLiteral(Look entry) { return entry.kind <= rootBits; }
    static bool isLiteral(Look entry) { return entry.kind <= maxCodeLen; }
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
    static bool isLongDistance(Entry entry) { return entry.codeLen() > rootBits; }
    static uint32_t takeDistance(Entry entry, Word& bits, uint32_t& count) {
        return takeEntry(entry.codeLen(), entry.distanceExtra(), entry.value, bits, count);
    }

 private:
    static bool isLink(uint32_t kind) { return (kind & 15) > rootBits; }
    static uint32_t subIndex(uint32_t bits, uint32_t link) {
        return static_cast<uint32_t>(tablofinv[(bits >> rootBits) & 31]) >>
               (maxCodeLen - (link & 15));
    }
    uint32_t base(size_t index) const {
        return vek::load<uint16_t>(tables_ + distBaseAt + 2 * index);
    }

    const uint8_t* tables_;
};

/// The first level once more, for literals/lengths with one bit more, and with one 32-bit word an
/// entry that holds what the kernel would have to work out: byte 0 the bits to take in all, byte 1
/// the code length, then the value (byte 2 or both). Byte 3 of literals/lengths tells what the
/// entry is. Making it takes as long as decoding some 200 bytes, so it is for calls with more than
/// that to do.
constexpr ptrdiff_t packedSource = 600;
constexpr ptrdiff_t packedRoom = 1500;
constexpr unsigned packedDistBits = 8;
constexpr size_t packedDistSize = 1U << packedDistBits;
struct PackedLevel {
    uint32_t lits[2 * rootSize];
    uint32_t dists[packedDistSize];
};

constexpr uint32_t packedOther = 0x80;         ///< Not only literals.
constexpr uint32_t packedStop = 0x40;          ///< With packedOther: no length either.
constexpr uint32_t packedLongDistance = 0x80;  ///< A link: no total of bits goes this high.
constexpr uint32_t packedLiterals = 13;        ///< From here on 2 bits: the number of literals.

/// An entry found through a sub-table.
constexpr uint32_t packLit(uint32_t kind, uint32_t value) {
    const uint32_t len = kind & 15;
    const uint32_t extra = kind >= 0x80 ? (kind >> 4) & 7 : 0;
    const uint32_t flags = kind >= 0x80        ? packedOther
                           : kind > maxCodeLen ? packedOther | packedStop
                                               : 1U << packedLiterals;
    return (len + extra) | len << 8 | value << 16 | flags;
}

/// Fills the packed level, 16 entries at a time; links to codes of 11 bits are replaced by these.
void pack(PackedLevel& packed, const uint8_t* tables) {
    const __m128i low = _mm_set1_epi8(15);
    const auto loadAt = [&](size_t at) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(tables + at));
    };
    const auto storeAt = [](uint32_t* at, __m128i words) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(at), words);
    };
    for (size_t i = 0; i < rootSize; i += 16) {
        const __m128i kinds = loadAt(litKindAt + i);
        const __m128i values = loadAt(litValueAt + i);
        const __m128i len = _mm_and_si128(kinds, low);
        const __m128i isLength = _mm_cmplt_epi8(kinds, _mm_setzero_si128());
        const __m128i extra =
            _mm_and_si128(_mm_and_si128(_mm_srli_epi16(kinds, 4), isLength), _mm_set1_epi8(7));
        const __m128i other = _mm_cmpgt_epi8(kinds, _mm_set1_epi8(rootBits));
        const __m128i isLiteral =
            _mm_cmpeq_epi8(_mm_or_si128(isLength, other), _mm_setzero_si128());
        const __m128i total = _mm_or_si128(
            _mm_add_epi8(len, extra),
            _mm_or_si128(
                _mm_and_si128(isLength, _mm_set1_epi8(static_cast<char>(packedOther))),
                _mm_and_si128(other, _mm_set1_epi8(static_cast<char>(packedOther | packedStop)))));
        const __m128i lenLiterals =
            _mm_or_si128(len, _mm_and_si128(isLiteral, _mm_set1_epi8(1 << (packedLiterals - 8))));
        const __m128i bits0 = _mm_unpacklo_epi8(total, lenLiterals);
        const __m128i bits8 = _mm_unpackhi_epi8(total, lenLiterals);
        const __m128i value0 = _mm_unpacklo_epi8(values, _mm_setzero_si128());
        const __m128i value8 = _mm_unpackhi_epi8(values, _mm_setzero_si128());
        for (uint32_t* at : {packed.lits + i, packed.lits + rootSize + i}) {
            storeAt(at, _mm_unpacklo_epi16(bits0, value0));
            storeAt(at + 4, _mm_unpackhi_epi16(bits0, value0));
            storeAt(at + 8, _mm_unpacklo_epi16(bits8, value8));
            storeAt(at + 12, _mm_unpackhi_epi16(bits8, value8));
        }
        auto links =
            static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpgt_epi8(len, _mm_set1_epi8(rootBits))));
        for (; links != 0; links &= links - 1) {
            const size_t link = i + vek::lowestSetBit(links);
            const uint32_t longest = tables[litKindAt + link] & 15U;
            const size_t sub = rootSize + 2U * tables[litValueAt + link];
            for (uint32_t half = 0; half < 2; ++half) {
                const size_t at = sub + (half << (longest - rootBits - 1));
                const uint32_t kind = tables[litKindAt + at];
                if ((kind & 15) != rootBits + 1) continue;
                packed.lits[half * rootSize + link] = packLit(kind, tables[litValueAt + at]);
            }
        }
    }
    for (size_t i = 0; i < packedDistSize; i += 16) {
        const __m128i kinds = loadAt(distKindAt + i);
        const __m128i len = _mm_and_si128(kinds, low);
        const __m128i extra = _mm_and_si128(_mm_srli_epi16(kinds, 4), low);
        const __m128i isLong = _mm_and_si128(_mm_cmpgt_epi8(len, _mm_set1_epi8(packedDistBits)),
                                             _mm_set1_epi8(static_cast<char>(packedLongDistance)));
        const __m128i total = _mm_or_si128(_mm_add_epi8(len, extra), isLong);
        const __m128i bits0 = _mm_unpacklo_epi8(total, len);
        const __m128i bits8 = _mm_unpackhi_epi8(total, len);
        const __m128i base0 = loadAt(distBaseAt + 2 * i);
        const __m128i base8 = loadAt(distBaseAt + 2 * i + 16);
        storeAt(packed.dists + i, _mm_unpacklo_epi16(bits0, base0));
        storeAt(packed.dists + i + 4, _mm_unpackhi_epi16(bits0, base0));
        storeAt(packed.dists + i + 8, _mm_unpacklo_epi16(bits8, base8));
        storeAt(packed.dists + i + 12, _mm_unpackhi_epi16(bits8, base8));
    }
}

/// Joins literals of up to pairBits bits with what follows, where both are within a lookup: with
/// another literal, or with a length.
constexpr unsigned pairBits = 7;
constexpr ptrdiff_t pairSource = 3000;  ///< Makes it worth the while, with pairRoom.
constexpr ptrdiff_t pairRoom = 12000;
void pair(PackedLevel& packed, const uint8_t* tables) {
    const uint8_t* const kinds = tables + litKindAt;
    const uint8_t* const values = tables + litValueAt;
    const __m128i zero = _mm_setzero_si128();
    for (uint32_t first = 0; first < 1U << pairBits; ++first) {
        const uint32_t len = kinds[first];
        // Only the first of a code's entries: the bits above it are those that follow.
        if (len == 0 || len > pairBits || first >> len != 0) continue;
        const uint32_t alone = packed.lits[first];
        const __m128i literal = _mm_set1_epi8(static_cast<char>(values[first]));
        const __m128i firstLen = _mm_set1_epi8(static_cast<char>(len));
        const __m128i room = _mm_set1_epi8(static_cast<char>(rootBits + 1 - len));
        uint32_t* at = packed.lits + first;
        for (uint32_t i = 0; i < 2 * rootSize >> len; i += 16) {
            const __m128i kind = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kinds + i));
            const __m128i value = _mm_loadu_si128(reinterpret_cast<const __m128i*>(values + i));
            const __m128i isLength = _mm_cmplt_epi8(kind, zero);
            const __m128i len2 = _mm_and_si128(kind, _mm_set1_epi8(15));
            const __m128i tooLong = _mm_cmpgt_epi8(len2, room);
            const __m128i other = _mm_cmpgt_epi8(kind, _mm_set1_epi8(maxCodeLen));
            const __m128i extra =
                _mm_and_si128(_mm_and_si128(_mm_srli_epi16(kind, 4), isLength), _mm_set1_epi8(7));
            const __m128i bothLen = _mm_add_epi8(firstLen, len2);
            const __m128i total = _mm_or_si128(
                _mm_add_epi8(bothLen, extra),
                _mm_and_si128(isLength, _mm_set1_epi8(static_cast<char>(packedOther))));
            const __m128i lenLiterals = _mm_or_si128(
                bothLen, _mm_blendv_epi8(_mm_set1_epi8(2 << (packedLiterals - 8)),
                                         _mm_set1_epi8(1 << (packedLiterals - 8)), isLength));
            // A literal comes before its second, but above a length.
            const __m128i low = _mm_blendv_epi8(literal, value, isLength);
            const __m128i high = _mm_blendv_epi8(value, literal, isLength);
            const __m128i single = _mm_or_si128(tooLong, other);
            const __m128i lone = _mm_set1_epi32(static_cast<int>(alone));
            alignas(16) uint32_t entries[16];
            const auto put = [&](uint32_t* to, __m128i half0, __m128i half1, __m128i mask) {
                const __m128i w0 = _mm_unpacklo_epi16(half0, half1);
                const __m128i w1 = _mm_unpackhi_epi16(half0, half1);
                _mm_store_si128(reinterpret_cast<__m128i*>(to),
                                _mm_blendv_epi8(w0, lone, _mm_unpacklo_epi16(mask, mask)));
                _mm_store_si128(reinterpret_cast<__m128i*>(to + 4),
                                _mm_blendv_epi8(w1, lone, _mm_unpackhi_epi16(mask, mask)));
            };
            put(entries, _mm_unpacklo_epi8(total, lenLiterals), _mm_unpacklo_epi8(low, high),
                _mm_unpacklo_epi8(single, single));
            put(entries + 8, _mm_unpackhi_epi8(total, lenLiterals), _mm_unpackhi_epi8(low, high),
                _mm_unpackhi_epi8(single, single));
            for (const uint32_t entry : entries) {
                *at = entry;
                at += size_t{1} << len;
            }
        }
    }
}

/// How many of a lookup's 2048 entries pair() would join.
unsigned countPairs(const uint8_t* tables) {
    const uint8_t* const kinds = tables + litKindAt;
    // Of n bits' entries those whose code is within them, and goes on a literal.
    unsigned within[rootBits + 1] = {};
    for (unsigned bits = rootBits + 1 - pairBits; bits <= rootBits; ++bits) {
        const __m128i longest = _mm_set1_epi8(static_cast<char>(bits));
        for (uint32_t i = 0; i < 1U << bits; i += 16) {
            const __m128i kind = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kinds + i));
            const __m128i low = _mm_and_si128(kind, _mm_set1_epi8(static_cast<char>(0x8F)));
            const __m128i length = _mm_and_si128(low, _mm_set1_epi8(15));
            const __m128i not15 = _mm_cmpgt_epi8(length, longest);
            const __m128i other = _mm_cmpgt_epi8(kind, _mm_set1_epi8(maxCodeLen));
            within[bits] += 16U - static_cast<unsigned>(_mm_popcnt_u32(static_cast<uint32_t>(
                                      _mm_movemask_epi8(_mm_or_si128(not15, other)))));
        }
    }
    unsigned sum = 0;
    for (uint32_t first = 0; first < 1U << pairBits; ++first) {
        const uint32_t len = kinds[first];
        if (len != 0 && len <= pairBits && first >> len == 0) sum += within[rootBits + 1 - len];
    }
    return sum;
}
constexpr unsigned enoughPairs = 200;

/// The tables as the kernel sees them through a packed first level, which stands in its frame.
template <bool pairs>
class Packed {
 public:
    Packed(const TwoLevel& plain, const uint8_t* tables) : tables_(plain) {
        pack(level_, tables);
        if constexpr (pairs) pair(level_, tables);
    }

    uint32_t look(Word bits) const { return level_.lits[bits & (2 * rootSize - 1)]; }
    static uint32_t kind(uint32_t entry) { return entry; }
    static uint32_t value(uint32_t entry) { return (entry >> 16) & 0xFF; }
    static uint32_t literals(uint32_t entry) { return (entry >> packedLiterals) & 3; }
    static uint32_t putLiterals(uint8_t* dst, uint32_t entry) {
        if constexpr (pairs) {
            vek::store<uint16_t>(dst, static_cast<uint16_t>(entry >> 16));
            return literals(entry);
        } else {
            *dst = static_cast<uint8_t>(entry >> 16);
            return 1;
        }
    }
    static uint32_t putLeading(uint8_t* dst, uint32_t entry) {
        if constexpr (!pairs) return 0;
        *dst = static_cast<uint8_t>(entry >> 24);
        return literals(entry);
    }
    static bool isShortLiteral(uint32_t entry) { return (entry & packedOther) == 0; }
    static bool isLiteral(uint32_t entry) { return (entry & packedOther) == 0; }
    static bool isLength(uint32_t entry) { return (entry & packedStop) == 0; }
    static bool isLink(uint32_t) { return true; }
    [[gnu::noinline]] uint32_t follow(uint32_t, Word bits) const {
        const Entry entry = tables_.lit(static_cast<uint32_t>(bits));
        return packLit(entry.kind, entry.value);
    }
    static uint32_t takeLength(uint32_t entry, Word& bits, uint32_t& count) {
        return value(entry) + minMatch + takeBits(entry, bits, count);
    }
    uint32_t lookDistance(Word bits) const { return level_.dists[bits & (packedDistSize - 1)]; }
    static bool isLongDistance(uint32_t entry) { return (entry & packedLongDistance) != 0; }
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
        if (run.dstEnd - run.dst >= pairRoom && run.srcEnd - run.src >= pairSource &&
            countPairs(tables) >= enoughPairs) {
            runFast<Packed<true>>(run, plain, tables);
        } else if (run.srcEnd - run.src >= packedSource && run.dstEnd - run.dst >= packedRoom) {
            runFast<Packed<false>>(run, plain, tables);
        } else {
            runFast<TwoLevel>(run, plain);
        }
    });
}
