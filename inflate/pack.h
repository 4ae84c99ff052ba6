// Makes the packed tables, sixteen entries at a time: their bytes are made in registers of kinds
// and values, and put together at the end.
#pragma once

#include <smmintrin.h>

#include <cstddef>
#include <cstdint>

#include "bytes/words.h"
#include "inflate/packed_tables.h"

namespace vek::inline VEK_LEVEL::inflate {

using namespace packed;

constexpr unsigned pairBits = 7;  // the longest literals that are tried for pairs

// Which bytes of an entry the fields stand in, as they are put together below.
static_assert(Neither::at < 8 && CodeLen::at == 8 && Literals::at / 8 == 1 && Other::at / 8 == 1);

inline __m128i bytesOf(unsigned value) {
    return _mm_set1_epi8(static_cast<char>(value));
}
inline __m128i loadAt(const uint8_t* at) {
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

/// Calls `take(index, length of its code)` for the first entry of each literal of up to pairBits
/// bits; the index bits above the code are those that follow it.
template <class Take>
void eachShortLiteral(const uint8_t* kinds, Take take) {
    for (uint32_t first = 0; first < 1U << pairBits; ++first) {
        const uint32_t len = kinds[first];
        if (len != 0 && len <= pairBits && first >> len == 0) take(first, len);
    }
}

/// Fills the packed level from two-level tables; links to codes of one bit more are replaced by
/// these.
inline void pack(PackedLevel& level, const uint8_t* tables) {
    const __m128i root = bytesOf(rootBits);
    const uint8_t* const litKinds = tables + litKindAt;
    const uint8_t* const litValues = tables + litValueAt;
    for (size_t i = 0; i < rootSize; i += 16) {
        const __m128i kind = loadAt(litKinds + i);
        const Kinds is(kind);
        const __m128i stop = _mm_cmpgt_epi8(kind, root);
        const __m128i neither = _mm_and_si128(stop, bytesOf(Neither::mask));
        const __m128i what =
            _mm_blendv_epi8(bytesOf(Literals::inByte(1)), bytesOf(Other::inByte(1)),
                            _mm_or_si128(is.isLength, stop));
        const __m128i values = loadAt(litValues + i);
        const Entries entries(_mm_or_si128(_mm_add_epi8(is.len, is.extra), neither),
                              _mm_or_si128(is.len, what),
                              _mm_unpacklo_epi8(values, _mm_setzero_si128()),
                              _mm_unpackhi_epi8(values, _mm_setzero_si128()));
        entries.store(level.lits + i);
        entries.store(level.lits + rootSize + i);
        auto links = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpgt_epi8(is.len, root)));
        for (; links != 0; links &= links - 1) {
            const size_t link = i + lowestSetBit(links);
            const unsigned longest = litKinds[link] & 15U;
            for (unsigned bit = 0; bit < 2; ++bit) {
                const size_t at = rootSize + 2U * litValues[link] + (bit << (longest - packedBits));
                if ((litKinds[at] & 15) != packedBits) continue;
                level.lits[bit * rootSize + link] = packOne(litKinds[at], litValues[at]);
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
                          bytesOf(Other::inByte(1)));
        const uint8_t* const bases = tables + distBaseAt + 2 * i;
        Entries(_mm_add_epi8(len, extra), _mm_or_si128(len, isOther), loadAt(bases),
                loadAt(bases + 16))
            .store(level.dists + i);
    }
}

/// How many of the 2048 entries pair() would join.
inline unsigned countPairs(const uint8_t* tables) {
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
inline void pair(PackedLevel& level, const uint8_t* tables) {
    const uint8_t* const kinds = tables + litKindAt;
    const uint8_t* const values = tables + litValueAt;
    eachShortLiteral(kinds, [&](uint32_t first, uint32_t len) {
        const __m128i literal = bytesOf(values[first]);
        const __m128i single = _mm_set1_epi32(static_cast<int>(level.lits[first]));
        uint32_t* at = level.lits + first;
        for (uint32_t i = 0; i < 1U << (packedBits - len); i += 16) {
            const __m128i kind = loadAt(kinds + i);
            const __m128i value = loadAt(values + i);
            const Kinds is(kind);
            const __m128i bothLen = _mm_add_epi8(is.len, bytesOf(len));
            const __m128i total = _mm_add_epi8(bothLen, is.extra);
            const __m128i literals =
                _mm_blendv_epi8(bytesOf(Literals::inByte(2)),
                                bytesOf(Literals::inByte(1) | Other::inByte(1)), kind);
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

}  // namespace vek::inline VEK_LEVEL::inflate
