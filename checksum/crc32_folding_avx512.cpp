// The three CRCs by carry-less multiplication of 64 bytes at a time (AVX-512, VPCLMULQDQ).
//
// Four accumulators of four blocks each take 256 bytes a round, which hides the multiplier's
// latency: a round is bound by its eight multiplications, 32 bytes a cycle, and no shortening by
// XOR is worth its ring any more. The four become one, its four blocks one block, and the rest of
// the message is folded as in crc32_folding.h.

#include "checksum/checksum.h"
#include "checksum/crc32_folding.h"

// Inside the level's namespace, so that the check of instructions knows them by their names.
namespace vek::inline VEK_LEVEL::checksum {
namespace {

inline __m512i xor3(__m512i a, __m512i b, __m512i c) {
    return _mm512_ternarylogic_epi64(a, b, c, 0x96);
}

template <class Order>
inline __m512i loadWide(const uint8_t* p) {
    const __m512i bytes = _mm512_loadu_si512(p);
    if constexpr (Order::reversesBlocks) {
        return _mm512_shuffle_epi8(bytes, _mm512_broadcast_i32x4(Order::reversal()));
    } else {
        return bytes;
    }
}

/// The four blocks that stand Bits behind, with `x` added to them.
template <class Order, unsigned Bits>
inline __m512i foldWide(__m512i x, __m512i behind) {
    constexpr FoldConstants constants = Order::foldConstants(Bits);
    const __m512i k = _mm512_broadcast_i32x4(pair(constants.low, constants.high));
    return xor3(_mm512_clmulepi64_epi128(x, k, 0x00), _mm512_clmulepi64_epi128(x, k, 0x11), behind);
}

/// The last of four blocks, with the three before it added.
template <class Order>
inline __m128i joinBlocks(__m512i x) {
    constexpr FoldConstants k0 = Order::foldConstants(384);
    constexpr FoldConstants k1 = Order::foldConstants(256);
    constexpr FoldConstants k2 = Order::foldConstants(128);
    const auto word = [](uint64_t value) { return static_cast<int64_t>(value); };
    const __m512i k = _mm512_setr_epi64(word(k0.low), word(k0.high), word(k1.low), word(k1.high),
                                        word(k2.low), word(k2.high), 0, 0);
    const __m512i last = _mm512_maskz_mov_epi64(0xC0, x);
    const __m512i sum =
        xor3(_mm512_clmulepi64_epi128(x, k, 0x00), _mm512_clmulepi64_epi128(x, k, 0x11), last);
    const __m256i half =
        _mm256_xor_si256(_mm512_castsi512_si256(sum), _mm512_extracti64x4_epi64(sum, 1));
    return _mm_xor_si128(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
}

/// The register after a message of at least wideFoldFrom bytes.
template <class Order>
inline uint32_t foldWideMessage(uint32_t reg, const uint8_t* src, size_t len) {
    const uint8_t* const end = src + len;
    const __m128i start = Order::toBlock(_mm_cvtsi32_si128(static_cast<int>(Order::toBytes(reg))));
    __m512i a = _mm512_xor_si512(loadWide<Order>(src), _mm512_zextsi128_si512(start));
    __m512i b = loadWide<Order>(src + 64);
    __m512i c = loadWide<Order>(src + 128);
    __m512i d = loadWide<Order>(src + 192);
    src += 256;
    for (; end - src >= 256; src += 256) {
        a = foldWide<Order, 2048>(a, loadWide<Order>(src));
        b = foldWide<Order, 2048>(b, loadWide<Order>(src + 64));
        c = foldWide<Order, 2048>(c, loadWide<Order>(src + 128));
        d = foldWide<Order, 2048>(d, loadWide<Order>(src + 192));
    }
    // The first two steps do not wait for one another.
    __m512i x = foldWide<Order, 1024>(foldWide<Order, 512>(a, b), foldWide<Order, 512>(c, d));
    for (; end - src >= 64; src += 64) x = foldWide<Order, 512>(x, loadWide<Order>(src));
    return Order::reduce(foldRest<Order>(joinBlocks<Order>(x), src, end));
}

}  // namespace
}  // namespace vek::inline VEK_LEVEL::checksum

using namespace vek::checksum;

uint32_t ownsCRC32_avx512(const uint8_t* src, size_t len, uint32_t crc) {
    return ~foldWideMessage<ZlibOrder>(~crc, src, len);
}

uint32_t ownsCRC32_BZ2_avx512(const uint8_t* src, size_t len, uint32_t crc) {
    return ~foldWideMessage<Bzip2Order>(~crc, src, len);
}

uint32_t ownsCRC32C_avx512(const uint8_t* src, size_t len, uint32_t crc) {
    return foldWideMessage<CastagnoliOrder>(crc, src, len);
}
