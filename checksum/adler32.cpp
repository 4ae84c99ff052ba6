// Adler-32 of zlib (RFC 1950).
//
// A is 1 plus the sum of the bytes, B the sum of all values of A, both modulo 65521. Over a group
// of 64 bytes A grows by their sum and B by 64 times the old A plus the bytes weighted 64, 63, ...,
// 1: two instructions give 16 bytes' sum (psadbw) and their weighted sums (pmaddubsw). The weights
// are taken less 32, so that the weighted sums of a whole group add up within 16 bits; the 32 times
// the sum of all bytes that they lack, and what A was before each group, are made good at the end
// of a chunk. A group costs 18 vector instructions, half of them on the two units that multiply. In
// 32-bit code, with half the registers, groups of 32 bytes are faster.
//
// The last 1 to 32 bytes are the end of the last 32, with those before masked away.

#include <smmintrin.h>

#include "bytes/words.h"
#include "checksum/checksum.h"
#include "frame/features.h"

namespace {

constexpr uint32_t modulus = 65521;

constexpr uint32_t group = sizeof(void*) == 8 ? 64 : 32;

/// Bytes between reductions. The fastest-growing lane sums A's growth: half a group's bytes in each
/// of two lanes, so half the groups' square times that.
constexpr size_t chunk = 32768;
constexpr uint64_t chunkGroups = chunk / group;
static_assert(chunkGroups * chunkGroups / 2 * (group / 2) * 255 <= UINT32_MAX);

inline __m128i loadBlock(const void* p) {
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
}

inline __m128i sumOfBytes(__m128i bytes) {
    return _mm_sad_epu8(bytes, _mm_setzero_si128());
}

/// Sum of the four lanes.
inline uint32_t sumOfLanes(__m128i v) {
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, 0x4E));
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, 0xB1));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(v));
}

/// Each lane modulo 65521, not fully reduced: at most 16 * 65535, since 65536 = 15.
inline __m128i shrink(__m128i v) {
    const __m128i high = _mm_srli_epi32(v, 16);
    const __m128i low = _mm_blend_epi16(v, _mm_setzero_si128(), 0xAA);
    return _mm_add_epi32(low, _mm_sub_epi32(_mm_slli_epi32(high, 4), high));
}

struct Sums {
    uint32_t a;
    uint32_t b;
};

/// Sums of pairs, in 16 bits, of 16 bytes whose weights fall by one from `first` on.
inline __m128i weigh(__m128i bytes, int first) {
    const __m128i index = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    return _mm_maddubs_epi16(bytes, _mm_sub_epi8(_mm_set1_epi8(static_cast<char>(first)), index));
}

/// Sums of pairs, in 32 bits.
inline __m128i widen(__m128i pairs) {
    return _mm_madd_epi16(pairs, _mm_set1_epi16(1));
}

/// Adds whole groups, at most a chunk. The sums must be reduced, and are again.
inline Sums addGroups(Sums sums, const uint8_t* src, size_t len) {
    const __m128i zero = _mm_setzero_si128();
    __m128i growth = zero;        // of A
    __m128i growthBefore = zero;  // the sum of growth before each group
    __m128i weighted = zero;      // less half a group
    constexpr int half = group / 2;
    for (const uint8_t* const end = src + len; src != end; src += group) {
        growthBefore = _mm_add_epi32(growthBefore, growth);
        __m128i pairs = zero;
        const auto addBlock = [&](int at) {
            const __m128i block = loadBlock(src + at);
            growth = _mm_add_epi32(growth, sumOfBytes(block));
            pairs = _mm_add_epi16(pairs, weigh(block, half - at));
        };
        addBlock(0);
        addBlock(16);
        if constexpr (group == 64) {
            addBlock(32);
            addBlock(48);
        }
        weighted = _mm_add_epi32(weighted, widen(pairs));
    }
    const uint32_t grown = sumOfLanes(growth);
    const uint32_t b = sums.a * static_cast<uint32_t>(len) + sumOfLanes(weighted) + half * grown +
                       group * sumOfLanes(shrink(growthBefore));
    return {(sums.a + grown) % modulus, (sums.b + b) % modulus};
}

/// Adds the last 1 to 32 bytes in front of `end`, of a message of at least 32.
inline Sums addTail(Sums sums, const uint8_t* end, size_t count) {
    // Byte i counts when i >= 32 - count.
    const __m128i dropped = _mm_set1_epi8(static_cast<char>(31 - static_cast<int>(count)));
    const __m128i index = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const __m128i index2 = _mm_add_epi8(index, _mm_set1_epi8(16));
    const __m128i first = _mm_and_si128(loadBlock(end - 32), _mm_cmpgt_epi8(index, dropped));
    const __m128i second = _mm_and_si128(loadBlock(end - 16), _mm_cmpgt_epi8(index2, dropped));
    const __m128i growth = _mm_add_epi32(sumOfBytes(first), sumOfBytes(second));
    const __m128i weighted = widen(_mm_add_epi16(weigh(first, 32), weigh(second, 16)));
    const uint32_t b = sums.a * static_cast<uint32_t>(count) + sumOfLanes(weighted);
    return {(sums.a + sumOfLanes(growth)) % modulus, (sums.b + b) % modulus};
}

inline Sums addBytes(Sums sums, const uint8_t* src, size_t len) {
    for (; len != 0; ++src, --len) {
        sums.a += *src;
        sums.b += sums.a;
    }
    return {sums.a % modulus, sums.b % modulus};
}

inline Sums addMessage(Sums sums, const uint8_t* src, size_t len) {
    if (len < 32) return addBytes(sums, src, len);
    sums = {sums.a % modulus, sums.b % modulus};
    for (; len >= chunk; src += chunk, len -= chunk) sums = addGroups(sums, src, chunk);
    const uint8_t* const end = src + len;
    size_t tail = len % group;
    if (len >= group) sums = addGroups(sums, src, len - tail);
    if (tail > 32) {
        tail -= 32;
        sums = addTail(sums, end - tail, 32);
    }
    return tail == 0 ? sums : addTail(sums, end, tail);
}

}  // namespace

void ownsAdler32_8u(const uint8_t* src, size_t len, uint32_t* pSum) {
    const Sums sums = addMessage({*pSum & 0xFFFF, *pSum >> 16}, src, len);
    *pSum = sums.a | (sums.b << 16);
}

extern "C" VekStatus veksAdler32_8u(const uint8_t* src, int32_t len, uint32_t* pSum) {
    if (pSum == nullptr) return vekStatusNullPointer;
    if (src == nullptr) {
        *pSum = 1;
    } else {
        const size_t size = len > 0 ? static_cast<size_t>(len) : 0;
        if (size >= vek::checksum::wideSumFrom &&
            vek::hasAll(vek::features(), vek::checksum::wideSumFeatures)) {
            *pSum = ownsAdler32_avx512(src, size, *pSum);
        } else {
            ownsAdler32_8u(src, size, pSum);
        }
    }
    return vekStatusOk;
}
