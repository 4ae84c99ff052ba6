// Makes the packed tables, a vector of kinds and one of values at a time: the entries' bytes are
// made in such vectors, and put together at the end.
#pragma once

#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "bytes/words.h"
#include "inflate/packed_tables.h"

namespace vek::inline VEK_LEVEL::inflate {

using namespace packed;

constexpr unsigned pairBits = 7;  // the longest literals that are tried for pairs

// Which bytes of an entry the fields stand in, as they are put together below.
static_assert(Neither::at < 8 && CodeLen::at == 8 && Literals::at / 8 == 1 && Other::at / 8 == 1);

// The widest vector of the level, and operations named without its width.
#if defined(__AVX2__)
#define VEK_VECTOR(operation) _mm256_##operation
using Vector = __m256i;
#else
#define VEK_VECTOR(operation) _mm_##operation
using Vector = __m128i;
#endif
constexpr uint32_t lanes = sizeof(Vector);

inline Vector bytesOf(unsigned value) {
    return VEK_VECTOR(set1_epi8)(static_cast<char>(value));
}

/// Bytes in such an order that Entries' two interleavings, which go by halves of 16 bytes, end in
/// the order of the addresses.
inline Vector loadBytes(const uint8_t* at) {
    const auto bytes = vek::load<Vector>(at);
#if defined(__AVX2__)
    return _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7));
#else
    return bytes;
#endif
}

/// Likewise, of words for the second interleaving.
inline Vector loadWords(const uint8_t* at) {
    const auto words = vek::load<Vector>(at);
#if defined(__AVX2__)
    return _mm256_permute4x64_epi64(words, 0xD8);
#else
    return words;
#endif
}

/// What kind bytes of literals/lengths say.
struct Kinds {
    Vector len, isLength, extra;

    explicit Kinds(Vector kinds)
        : len(kinds & bytesOf(15)),
          isLength(VEK_VECTOR(cmpgt_epi8)(Vector{}, kinds)),
          extra(VEK_VECTOR(srli_epi16)(kinds, 4) & isLength & bytesOf(7)) {}
};

/// As many entries as a vector has bytes.
struct Entries {
    static constexpr unsigned parts = 4;
    Vector at[parts];

    /// Of bytes 0 and 1, and the upper halves of the first and the last entries.
    Entries(Vector byte0, Vector byte1, Vector upper0, Vector upper2) {
        const Vector lower0 = VEK_VECTOR(unpacklo_epi8)(byte0, byte1);
        const Vector lower2 = VEK_VECTOR(unpackhi_epi8)(byte0, byte1);
        at[0] = VEK_VECTOR(unpacklo_epi16)(lower0, upper0);
        at[1] = VEK_VECTOR(unpackhi_epi16)(lower0, upper0);
        at[2] = VEK_VECTOR(unpacklo_epi16)(lower2, upper2);
        at[3] = VEK_VECTOR(unpackhi_epi16)(lower2, upper2);
    }
    /// Of all four bytes.
    Entries(Vector byte0, Vector byte1, Vector byte2, Vector byte3, int)
        : Entries(byte0, byte1, VEK_VECTOR(unpacklo_epi8)(byte2, byte3),
                  VEK_VECTOR(unpackhi_epi8)(byte2, byte3)) {}

    void store(uint32_t* to) const {
        for (unsigned i = 0; i < parts; ++i) vek::store(to + i * lanes / parts, at[i]);
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
    const Vector root = bytesOf(rootBits);
    const uint8_t* const litKinds = tables + litKindAt;
    const uint8_t* const litValues = tables + litValueAt;
    for (size_t i = 0; i < rootSize; i += lanes) {
        const Vector kind = loadBytes(litKinds + i);
        const Kinds is(kind);
        const Vector stop = VEK_VECTOR(cmpgt_epi8)(kind, root);
        const Vector what = VEK_VECTOR(blendv_epi8)(bytesOf(Literals::inByte(1)),
                                                    bytesOf(Other::inByte(1)), is.isLength | stop);
        const Entries entries(
            VEK_VECTOR(add_epi8)(is.len, is.extra) | (stop & bytesOf(Neither::mask)), is.len | what,
            loadBytes(litValues + i), Vector{}, 0);
        entries.store(level.lits + i);
        entries.store(level.lits + rootSize + i);
    }
    for (size_t i = 0; i < rootSize; i += lanes) {
        // Codes of one bit more than the first level has.
        const Vector len = vek::load<Vector>(litKinds + i) & bytesOf(15);
        auto links =
            static_cast<uint32_t>(VEK_VECTOR(movemask_epi8)(VEK_VECTOR(cmpgt_epi8)(len, root)));
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
    for (size_t i = 0; i < rootSize / 4; i += lanes) {
        const Vector kind = loadBytes(tables + distKindAt + i);
        const Vector len = kind & bytesOf(15);
        const Vector extra = VEK_VECTOR(srli_epi16)(kind, 4) & bytesOf(15);
        const Vector isOther = (VEK_VECTOR(cmpgt_epi8)(len, bytesOf(packedDistBits)) |
                                VEK_VECTOR(cmpgt_epi8)(extra, bytesOf(maxDistExtra))) &
                               bytesOf(Other::inByte(1));
        const uint8_t* const bases = tables + distBaseAt + 2 * i;
        Entries(VEK_VECTOR(add_epi8)(len, extra), len | isOther, loadWords(bases),
                loadWords(bases + lanes))
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
            const auto kind = vek::load<__m128i>(kinds + i);
            const __m128i len = kind & _mm_set1_epi8(15);
            const __m128i alone = _mm_cmpgt_epi8(len, _mm_set1_epi8(static_cast<char>(bits))) |
                                  _mm_cmpgt_epi8(kind, _mm_set1_epi8(maxCodeLength));
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
        const Vector literal = bytesOf(values[first]);
        const Vector single = VEK_VECTOR(set1_epi32)(static_cast<int>(level.lits[first]));
        const uint32_t count = 1U << (packedBits - len);
        uint32_t* at = level.lits + first;
        for (uint32_t i = 0; i < count; i += lanes) {
            const Vector kind = loadBytes(kinds + i);
            const Vector value = loadBytes(values + i);
            const Kinds is(kind);
            const Vector bothLen = VEK_VECTOR(add_epi8)(is.len, bytesOf(len));
            const Vector literals =
                VEK_VECTOR(blendv_epi8)(bytesOf(Literals::inByte(2)),
                                        bytesOf(Literals::inByte(1) | Other::inByte(1)), kind);
            Entries joined(VEK_VECTOR(add_epi8)(bothLen, is.extra), bothLen | literals,
                           VEK_VECTOR(blendv_epi8)(literal, value, kind),
                           VEK_VECTOR(blendv_epi8)(value, literal, kind), 0);
            const Vector alone = VEK_VECTOR(cmpgt_epi8)(is.len, bytesOf(packedBits - len)) |
                                 VEK_VECTOR(cmpgt_epi8)(kind, bytesOf(maxCodeLength));
            const Entries isAlone(alone, alone, alone, alone, 0);
            for (unsigned part = 0; part < Entries::parts; ++part) {
                joined.at[part] =
                    VEK_VECTOR(blendv_epi8)(joined.at[part], single, isAlone.at[part]);
            }
            uint32_t entries[lanes];
            joined.store(entries);
            // A longer literal is followed by fewer than a vector has.
            for (uint32_t k = 0; k < std::min(lanes, count); ++k, at += size_t{1} << len)
                *at = entries[k];
        }
    });
}

#undef VEK_VECTOR

}  // namespace vek::inline VEK_LEVEL::inflate
