// Adler-32 of zlib (RFC 1950) by the byte dot products of AVX-512.
//
// As in adler32.cpp, B grows over a block of 64 bytes by 64 times the A before it and by the bytes
// weighted 64, 63, ..., 1. One instruction multiplies 64 bytes by their weights and adds them up in
// fours, another with weights of 1 sums them. Several streams of blocks hide their latency: block m
// belongs to stream m mod `streams`, so that the A before it follows from the streams' sums.
//
// What makes the length no multiple of a group comes first, as a masked block: it needs nothing but
// other weights, and the one formula at the end holds for everything.

#include <immintrin.h>

#include "checksum/checksum.h"

// Inside the level's namespace, so that the check of instructions knows them by their names.
namespace vek::inline VEK_LEVEL::checksum {
namespace {

constexpr uint32_t modulus = 65521;
constexpr size_t block = 64;

/// 32-bit code has half the registers.
constexpr uint32_t streams = sizeof(void*) == 8 ? 4 : 2;
constexpr size_t group = streams * block;

/// Bytes between reductions. The lane that grows fastest is `streams` times the sum of the sums
/// before each group, four bytes a stream and lane.
constexpr size_t chunkGroups = 512;
constexpr size_t chunk = chunkGroups * group;
static_assert(uint64_t{streams} * streams * 4 * 255 * chunkGroups * chunkGroups / 2 +
                  uint64_t{streams} * chunkGroups * 4 * 255 * (streams + block) <
              UINT32_MAX);

/// Weights of a block's bytes, and zeros behind them: a block of n bytes takes its weights from
/// offset 64 - n.
struct Weights {
    alignas(64) int8_t values[2 * block];
};
constexpr Weights weights = [] {
    Weights w{};
    for (size_t i = 0; i < block; ++i) w.values[i] = static_cast<int8_t>(block - i);
    return w;
}();

/// Each lane modulo 65521, not fully reduced: at most 16 * 65535, since 65536 = 15.
inline __m512i shrink(__m512i v) {
    const __m512i high = _mm512_srli_epi32(v, 16);
    const __m512i low = _mm512_and_si512(v, _mm512_set1_epi32(0xFFFF));
    return _mm512_add_epi32(low, _mm512_sub_epi32(_mm512_slli_epi32(high, 4), high));
}

inline uint32_t sumOfLanes(__m512i v) {
    return static_cast<uint32_t>(_mm512_reduce_add_epi32(v));
}

struct Sums {
    uint32_t a;
    uint32_t b;
};

/// Adds at most a chunk and the bytes that make up no group. The sums must be reduced, and are
/// again.
inline Sums addChunk(Sums sums, const uint8_t* src, size_t len) {
    const __m512i ones = _mm512_set1_epi8(1);
    const __m512i falling = _mm512_load_si512(weights.values);

    const size_t odd = len % block;
    const __m512i first = _mm512_maskz_loadu_epi8((uint64_t{1} << odd) - 1, src);
    __m512i sum = _mm512_dpbusd_epi32(_mm512_setzero_si512(), first, ones);
    __m512i weighted = _mm512_dpbusd_epi32(_mm512_setzero_si512(), first,
                                           _mm512_loadu_si512(weights.values + block - odd));
    __m512i before = _mm512_setzero_si512();  // the sum of what stands before each block
    const uint8_t* const end = src + len;
    src += odd;
    for (; static_cast<size_t>(end - src) % group != 0; src += block) {
        const __m512i bytes = _mm512_loadu_si512(src);
        before = _mm512_add_epi32(before, sum);
        sum = _mm512_dpbusd_epi32(sum, bytes, ones);
        weighted = _mm512_dpbusd_epi32(weighted, bytes, falling);
    }

    if (src != end) {
        const auto blocks = static_cast<int>(static_cast<size_t>(end - src) / block);
        before = _mm512_add_epi32(before, _mm512_mullo_epi32(sum, _mm512_set1_epi32(blocks)));
        __m512i growth[streams] = {};
        __m512i growthWeighted[streams] = {};
        __m512i beforeGroups = _mm512_setzero_si512();
        for (; src != end; src += group) {
            __m512i all = growth[0];
            for (uint32_t i = 1; i < streams; ++i) all = _mm512_add_epi32(all, growth[i]);
            beforeGroups = _mm512_add_epi32(beforeGroups, all);
            for (uint32_t i = 0; i < streams; ++i) {
                const __m512i bytes = _mm512_loadu_si512(src + block * i);
                growth[i] = _mm512_dpbusd_epi32(growth[i], bytes, ones);
                growthWeighted[i] = _mm512_dpbusd_epi32(growthWeighted[i], bytes, falling);
            }
        }
        for (uint32_t i = 0; i < streams; ++i) {
            // Stream i stands before as many blocks of its own group.
            const __m512i following = _mm512_set1_epi32(static_cast<int>(streams - 1 - i));
            before = _mm512_add_epi32(before, _mm512_mullo_epi32(growth[i], following));
            before = _mm512_add_epi32(before, beforeGroups);
            sum = _mm512_add_epi32(sum, growth[i]);
            weighted = _mm512_add_epi32(weighted, growthWeighted[i]);
        }
    }

    const uint32_t grown = sumOfLanes(sum);
    const uint32_t behind = sumOfLanes(shrink(before)) % modulus;
    const uint32_t times = static_cast<uint32_t>(len % modulus);
    const uint32_t b = sums.a * times % modulus + sumOfLanes(shrink(weighted)) % modulus +
                       static_cast<uint32_t>(block) * behind;
    return {(sums.a + grown) % modulus, (sums.b + b) % modulus};
}

}  // namespace
}  // namespace vek::inline VEK_LEVEL::checksum

using namespace vek::checksum;

uint32_t ownsAdler32_avx512(const uint8_t* src, size_t len, uint32_t sum) {
    Sums sums = {(sum & 0xFFFF) % modulus, (sum >> 16) % modulus};
    while (len != 0) {
        size_t piece = len;
        // The first piece takes what makes up no group.
        if (piece > chunk) piece = len % group == 0 ? chunk : chunk - group + len % group;
        sums = addChunk(sums, src, piece);
        src += piece;
        len -= piece;
    }
    return sums.a | (sums.b << 16);
}
