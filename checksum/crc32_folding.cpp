// CRC-32 of zlib and of bzip2: the exports, and the path by carry-less multiplication.
//
// Folding (Gopal et al., "Fast CRC Computation for Generic Polynomials Using PCLMULQDQ", 2009): a
// 128-bit block of the message equals, modulo the generator, the product of its two halves with two
// constants, added to the block that stands some distance behind it. Several accumulators hide the
// multiplier's latency. At the end one accumulator is reduced to 32 bits by one more fold and
// Barrett's method: three multiplications and no table.
//
// The last 1 to 15 bytes are no case of their own: accumulator and tail together are split anew
// into a short block and the 16 bytes at the very end. Loads are unaligned and never leave the
// buffer.
//
// Long messages are first shortened by XOR (crc_sparse.h), short ones go through the tables.
//
// Bit order. A reflected accumulator holds x^127 in bit 0, an MSB-first one in bit 127 (its blocks
// are byte-reversed when loaded). Products of reflected halves with a 33-bit reflected constant
// come out 32 places too high, which the exponents of the constants make good.

#include <wmmintrin.h>

#include "bytes/words.h"
#include "checksum/checksum.h"
#include "checksum/crc_sparse.h"
#include "frame/args.h"
#include "vekcore.h"

namespace {

using vek::checksum::crc32Polynomial;
using vek::checksum::powerOfX;
using vek::checksum::reflect;

/// Multipliers of an accumulator's two halves.
struct FoldConstants {
    uint64_t low;
    uint64_t high;
};

inline __m128i loadBlock(const void* p) {
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
}

inline __m128i pair(uint64_t low, uint64_t high) {
    return _mm_set_epi64x(static_cast<int64_t>(high), static_cast<int64_t>(low));
}

/// x^n mod P as a 33-bit reflected constant.
constexpr uint64_t reflectedPower(unsigned n) {
    return reflect(powerOfX(n, crc32Polynomial), 33);
}
static_assert(reflectedPower(96) == 0x0CCAA009EU && reflectedPower(160) == 0x1751997D0U);
static_assert(reflectedPower(224) == 0x15A546366U && reflectedPower(288) == 0x0F1DA05AAU);
static_assert(reflectedPower(480) == 0x1C6E41596U && reflectedPower(544) == 0x154442BD4U);

constexpr uint64_t power(unsigned n) {
    return powerOfX(n, crc32Polynomial);
}
static_assert(power(64) == 0x490D678DU && power(96) == 0xF200AA66U);
static_assert(power(128) == 0xE8A45605U && power(192) == 0xC5B9CD4CU);
static_assert(power(256) == 0x75BE46B7U && power(320) == 0x569700E5U);
static_assert(power(512) == 0xE6228B11U && power(576) == 0x8833794CU);

/// The order of zlib's CRC: least significant bit first.
struct Reflected {
    static constexpr FoldConstants foldConstants(unsigned bits) {
        return {reflectedPower(bits + 32), reflectedPower(bits - 32)};
    }
    static __m128i toBlock(__m128i bytes) { return bytes; }
    static uint32_t toBytes(uint32_t reg) { return reg; }
    static constexpr auto tables = ownsCRC32_8u;

    /// The 32-bit register of an accumulator: the accumulator times x^32, mod P.
    static uint32_t reduce(__m128i x) {
        constexpr uint64_t generator33 = (reflect(crc32Polynomial, 32) << 1) | 1;
        // The quotient's lowest term cannot reach the upper half; without it the constant has 64
        // bits.
        constexpr uint64_t quotient =
            (reflect(vek::checksum::barrettQuotient(crc32Polynomial), 64) << 1) | 1;
        const __m128i k = pair(reflectedPower(96), generator33);
        const __m128i v = _mm_xor_si128(_mm_clmulepi64_si128(x, k, 0x00), _mm_srli_si128(x, 8));
        const __m128i q = _mm_clmulepi64_si128(v, pair(quotient, 0), 0x00);
        const __m128i r = _mm_xor_si128(v, _mm_clmulepi64_si128(q, k, 0x10));
        return static_cast<uint32_t>(_mm_extract_epi32(r, 2));
    }
};

/// The order of bzip2's CRC: most significant bit first.
struct MsbFirst {
    static constexpr FoldConstants foldConstants(unsigned bits) {
        return {power(bits), power(bits + 64)};
    }
    static __m128i toBlock(__m128i bytes) {
        return _mm_shuffle_epi8(bytes,
                                _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
    }
    static uint32_t toBytes(uint32_t reg) { return vek::byteSwap(reg); }
    static constexpr auto tables = ownsCRC32_BZ2_8u;

    static uint32_t reduce(__m128i x) {
        const __m128i k = pair(crc32Polynomial, power(96));
        const __m128i quotient = pair(vek::checksum::barrettQuotient(crc32Polynomial), 0);
        const __m128i lowHalf = _mm_slli_si128(_mm_move_epi64(x), 4);
        const __m128i v = _mm_xor_si128(_mm_clmulepi64_si128(x, k, 0x11), lowHalf);
        const __m128i top = _mm_srli_si128(v, 4);
        const __m128i q =
            _mm_xor_si128(top, _mm_srli_si128(_mm_clmulepi64_si128(top, quotient, 0x00), 8));
        const __m128i r = _mm_xor_si128(v, _mm_clmulepi64_si128(q, k, 0x00));
        return static_cast<uint32_t>(_mm_cvtsi128_si32(r));
    }
};

/// The block that stands Bits behind, with `x` added to it.
template <class Order, unsigned Bits>
inline __m128i fold(__m128i x, __m128i behind) {
    constexpr FoldConstants constants = Order::foldConstants(Bits);
    const __m128i k = pair(constants.low, constants.high);
    return _mm_xor_si128(_mm_xor_si128(_mm_clmulepi64_si128(x, k, 0x00), behind),
                         _mm_clmulepi64_si128(x, k, 0x11));
}

/// Four neighbouring blocks: 64 bytes.
struct Blocks4 {
    __m128i a, b, c, d;
};

template <class Order>
inline Blocks4 loadBlocks4(const uint8_t* p) {
    return {Order::toBlock(loadBlock(p)), Order::toBlock(loadBlock(p + 16)),
            Order::toBlock(loadBlock(p + 32)), Order::toBlock(loadBlock(p + 48))};
}

template <class Order, unsigned Bits>
inline Blocks4 foldBlocks4(const Blocks4& x, const Blocks4& behind) {
    return {fold<Order, Bits>(x.a, behind.a), fold<Order, Bits>(x.b, behind.b),
            fold<Order, Bits>(x.c, behind.c), fold<Order, Bits>(x.d, behind.d)};
}

/// Shuffle controls: 16 bytes from offset 16 + n move a block n bytes to the front, and from offset
/// n its first n bytes to the end; what is not covered becomes zero.
alignas(64) constexpr int8_t shiftControls[48] = {
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 0,  1,  2,  3,  4,  5,  6,  7,
    8,  9,  10, 11, 12, 13, 14, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1};

/// Adds the last `count` (1..15) bytes before `end`, of a message of at least 16 bytes.
template <class Order>
inline __m128i foldTail(__m128i x, const uint8_t* end, size_t count) {
    const __m128i bytes = Order::toBlock(x);
    const __m128i toFront = loadBlock(shiftControls + 16 + count);
    const __m128i head = _mm_shuffle_epi8(bytes, loadBlock(shiftControls + count));
    const __m128i last16 =
        _mm_blendv_epi8(_mm_shuffle_epi8(bytes, toFront), loadBlock(end - 16), toFront);
    return fold<Order, 128>(Order::toBlock(head), Order::toBlock(last16));
}

/// The accumulator after a message of at least 16 bytes.
template <class Order>
[[gnu::always_inline]] inline __m128i foldMessage(uint32_t reg, const uint8_t* src, size_t len) {
    const uint8_t* const end = src + len;
    const __m128i start = Order::toBlock(_mm_cvtsi32_si128(static_cast<int>(Order::toBytes(reg))));
    __m128i x;
    if (len < 64) [[unlikely]] {
        x = _mm_xor_si128(start, Order::toBlock(loadBlock(src)));
        src += 16;
    } else {
        Blocks4 acc = loadBlocks4<Order>(src);
        acc.a = _mm_xor_si128(acc.a, start);
        src += 64;
        for (; end - src >= 64; src += 64) [[unlikely]] {
                acc = foldBlocks4<Order, 512>(acc, loadBlocks4<Order>(src));
            }
        // The three folds do not wait for one another.
        x = _mm_xor_si128(fold<Order, 384>(acc.a, acc.d),
                          fold<Order, 256>(acc.b, fold<Order, 128>(acc.c, _mm_setzero_si128())));
    }
    for (; end - src >= 16; src += 16)
        [[unlikely]] x = fold<Order, 128>(x, Order::toBlock(loadBlock(src)));
    if (src != end) [[unlikely]]
        x = foldTail<Order>(x, end, static_cast<size_t>(end - src));
    return x;
}

/// The path of short messages, out of line like that of long ones: the function that folds then
/// calls nothing and needs no stack frame, which 64-byte messages would feel.
template <class Order>
[[gnu::noinline]] uint32_t byTables(const uint8_t* src, size_t len, uint32_t crc) {
    Order::tables(src, len, &crc);
    return crc;
}

template <class Order>
[[gnu::always_inline]] inline uint32_t foldOrTables(const uint8_t* src, size_t len, uint32_t crc) {
    if (len < 16) [[unlikely]]
        return byTables<Order>(src, len, crc);
    return ~Order::reduce(foldMessage<Order>(~crc, src, len));
}

template <class Order>
[[gnu::noinline]] uint32_t shortenAndFold(const uint8_t* src, size_t len, uint32_t crc) {
    return ~vek::checksum::shortenThen<vek::checksum::crc32Multiple>(
        Order::toBytes(~crc), src, len, [](uint32_t reg, const uint8_t* piece, size_t size) {
            return ~foldOrTables<Order>(piece, size, ~reg);
        });
}

/// From here on shortening pays: a round of XOR takes a third of the time of folding it, but the
/// ring, which has the length of a round, is still to be folded.
constexpr size_t shortenFrom = 2 * vek::checksum::crc32Multiple.ringBytes();

/// The running value after a message. Inlined into the exports: at 64 bytes a further call shows.
template <class Order>
[[gnu::always_inline]] inline uint32_t update(const uint8_t* src, size_t len, uint32_t crc) {
    if (len >= shortenFrom) [[unlikely]]
        return shortenAndFold<Order>(src, len, crc);
    return foldOrTables<Order>(src, len, crc);
}

[[gnu::always_inline]] inline uint32_t owns_zlib_reduction_crc_proc(const uint8_t* src, size_t len,
                                                                    uint32_t crc) {
    return update<Reflected>(src, len, crc);
}

[[gnu::always_inline]] inline uint32_t owns_bzip2_reduction_crc_proc(const uint8_t* src, size_t len,
                                                                     uint32_t crc) {
    return update<MsbFirst>(src, len, crc);
}

}  // namespace

extern "C" VekStatus veksCRC32_8u(const uint8_t* src, int32_t len, uint32_t* pCRC) {
    if (vek::anyNull(src, pCRC)) return vekStatusNullPointer;
    if (len < 1) return vekStatusBadSize;
    const auto size = static_cast<size_t>(len);
    if (ownGetFeature(VEK_FEATURE_CLMUL) != 0) {
        *pCRC = owns_zlib_reduction_crc_proc(src, size, *pCRC);
    } else {
        ownsCRC32_8u(src, size, pCRC);
    }
    return vekStatusOk;
}

extern "C" VekStatus veksCRC32_BZ2_8u(const uint8_t* src, int32_t len, uint32_t* pCRC) {
    if (vek::anyNull(src, pCRC)) return vekStatusNullPointer;
    if (len < 1) return vekStatusBadSize;
    const auto size = static_cast<size_t>(len);
    if (ownGetFeature(VEK_FEATURE_CLMUL) != 0) {
        *pCRC = owns_bzip2_reduction_crc_proc(src, size, *pCRC);
    } else {
        ownsCRC32_BZ2_8u(src, size, pCRC);
    }
    return vekStatusOk;
}
