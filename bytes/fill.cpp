// Fills of bytes and 32-bit words; see fill.h.

#include "bytes/fill.h"

#include <emmintrin.h>

#include <cstring>

#include "bytes/words.h"
#include "vekcore.h"

namespace {

constexpr size_t streamingThreshold = 0x200000;

bool exceedsCache(size_t bytes) {
    int32_t cacheSize = 0;
    return bytes > streamingThreshold && vekGetMaxCacheSizeB(&cacheSize) == vekStatusOk &&
           bytes > static_cast<size_t>(cacheSize);
}

/// Fills `bytes` bytes with the repeated 4-byte pattern, past the caches. The pattern starts at
/// `dst`.
void streamPattern(uint32_t pattern, uint8_t* dst, size_t bytes) {
    const size_t head = (0 - reinterpret_cast<uintptr_t>(dst)) & 15;
    for (size_t i = 0; i < head; ++i) dst[i] = static_cast<uint8_t>(pattern >> (8 * (i & 3)));
    // The bytes behind the head go on with the pattern where it was left.
    const unsigned turn = 8 * (head & 3);
    const uint32_t turned = turn == 0 ? pattern : (pattern >> turn) | (pattern << (32 - turn));
    const __m128i wide = _mm_set1_epi32(static_cast<int32_t>(turned));
    size_t i = head;
    for (; bytes - i >= 16; i += 16) _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i), wide);
    _mm_sfence();
    for (; i < bytes; ++i) dst[i] = static_cast<uint8_t>(turned >> (8 * ((i - head) & 3)));
}

}  // namespace

void ownsSet_8u(uint8_t value, uint8_t* dst, size_t length) {
    if (exceedsCache(length)) {
        streamPattern(value * 0x01010101U, dst, length);
    } else {
        std::memset(dst, value, length);
    }
}

void ownsSet_32s(int32_t value, int32_t* dst, size_t length) {
    auto* bytes = reinterpret_cast<uint8_t*>(dst);
    if (exceedsCache(length * sizeof(int32_t))) {
        streamPattern(static_cast<uint32_t>(value), bytes, length * sizeof(int32_t));
        return;
    }
    const __m128i wide = _mm_set1_epi32(value);
    size_t i = 0;
    for (; length - i >= 4; i += 4) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes + i * sizeof(int32_t)), wide);
    }
    for (; i < length; ++i) vek::store(bytes + i * sizeof(int32_t), value);
}
