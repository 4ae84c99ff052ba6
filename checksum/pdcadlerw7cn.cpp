// Adler-32 of zlib (RFC 1950).
//
// A is 1 plus the sum of the bytes, B the sum of all values of A, both modulo 65521. Over a group
// of 32 bytes A grows by their sum and B by 32 times the old A plus the bytes weighted 32, 31, ...,
// 1: two instructions give 16 bytes' sum (psadbw) and their weighted sums (pmaddubsw). What A was
// before each group is summed up in a vector too, and multiplied by 32 only at the end of a chunk.
//
// The last 1 to 15 bytes are the end of the last 16, with those before masked away.

#include <smmintrin.h>

#include "checksum/checksum.h"
#include "vector/bytes.h"
#include "vekdc.h"

namespace {

constexpr uint32_t modulus = 65521;

/// Bytes between reductions. The fastest-growing lane sums A's growth: 16 * 255 a group in each of
/// two lanes, so half the groups' square times that.
constexpr size_t chunk = 32768;
constexpr uint64_t chunkGroups = chunk / 32;
static_assert(chunkGroups * chunkGroups / 2 * 16 * 255 <= UINT32_MAX);

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

/// 16-bit weighted sums of pairs; two of them add up within 16 bits.
inline __m128i weigh32(__m128i first, __m128i second) {
    const __m128i weights1 =
        _mm_setr_epi8(32, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17);
    const __m128i weights2 = _mm_setr_epi8(16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1);
    const __m128i pairs =
        _mm_add_epi16(_mm_maddubs_epi16(first, weights1), _mm_maddubs_epi16(second, weights2));
    return _mm_madd_epi16(pairs, _mm_set1_epi16(1));
}

/// Adds whole groups of 32 bytes, at most a chunk. The sums must be reduced, and are again.
inline Sums addGroups(Sums sums, const uint8_t* src, size_t len) {
    const __m128i zero = _mm_setzero_si128();
    __m128i growth = zero;        // of A
    __m128i growthBefore = zero;  // the sum of growth before each group
    __m128i weighted = zero;
    for (const uint8_t* const end = src + len; src != end; src += 32) {
        const __m128i first = loadBlock(src);
        const __m128i second = loadBlock(src + 16);
        growthBefore = _mm_add_epi32(growthBefore, growth);
        growth = _mm_add_epi32(growth, _mm_add_epi32(sumOfBytes(first), sumOfBytes(second)));
        weighted = _mm_add_epi32(weighted, weigh32(first, second));
    }
    const uint32_t b = sums.a * static_cast<uint32_t>(len) + sumOfLanes(shrink(weighted)) +
                       32 * sumOfLanes(shrink(growthBefore));
    return {(sums.a + sumOfLanes(growth)) % modulus, (sums.b + b) % modulus};
}

/// Adds 1 to 31 bytes that end a message of at least 32.
inline Sums addTail(Sums sums, const uint8_t* end, size_t count) {
    // Byte i counts when i >= 32 - count.
    const __m128i dropped = _mm_set1_epi8(static_cast<char>(31 - count));
    const __m128i index = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const __m128i index2 = _mm_add_epi8(index, _mm_set1_epi8(16));
    const __m128i first = _mm_and_si128(loadBlock(end - 32), _mm_cmpgt_epi8(index, dropped));
    const __m128i second = _mm_and_si128(loadBlock(end - 16), _mm_cmpgt_epi8(index2, dropped));
    const __m128i growth = _mm_add_epi32(sumOfBytes(first), sumOfBytes(second));
    const uint32_t b = sums.a * static_cast<uint32_t>(count) + sumOfLanes(weigh32(first, second));
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
    const size_t tail = len % 32;
    if (len >= 32) sums = addGroups(sums, src, len - tail);
    return tail == 0 ? sums : addTail(sums, src + len, tail);
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
        ownsAdler32_8u(src, len > 0 ? static_cast<size_t>(len) : 0, pSum);
    }
    return vekStatusOk;
}
