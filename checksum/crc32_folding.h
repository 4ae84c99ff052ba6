// Folding a message for a CRC by carry-less multiplication.
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
// Bit order. A reflected accumulator holds x^127 in bit 0, an MSB-first one in bit 127 (its blocks
// are byte-reversed when loaded). Products of reflected halves with a 33-bit reflected constant
// come out 32 places too high, which the exponents of the constants make good.
#pragma once

#include <immintrin.h>

#include "bytes/words.h"
#include "checksum/crc_math.h"

namespace vek::inline VEK_LEVEL::checksum {

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

/// The order of zlib's CRC and of CRC-32C: least significant bit first.
template <uint32_t Polynomial>
struct Reflected {
    /// x^n mod P as a 33-bit constant.
    static constexpr uint64_t power(unsigned n) { return reflect(powerOfX(n, Polynomial), 33); }

    static constexpr FoldConstants foldConstants(unsigned bits) {
        return {power(bits + 32), power(bits - 32)};
    }
    static constexpr bool reversesBlocks = false;
    static __m128i toBlock(__m128i bytes) { return bytes; }
    static uint32_t toBytes(uint32_t reg) { return reg; }

    /// The 32-bit register of an accumulator: the accumulator times x^32, mod P.
    static uint32_t reduce(__m128i x) {
        constexpr uint64_t generator33 = (reflect(Polynomial, 32) << 1) | 1;
        // The quotient's lowest term cannot reach the upper half; without it the constant has 64
        // bits.
        constexpr uint64_t quotient = (reflect(barrettQuotient(Polynomial), 64) << 1) | 1;
        const __m128i k = pair(power(96), generator33);
        const __m128i v = _mm_xor_si128(_mm_clmulepi64_si128(x, k, 0x00), _mm_srli_si128(x, 8));
        const __m128i q = _mm_clmulepi64_si128(v, pair(quotient, 0), 0x00);
        const __m128i r = _mm_xor_si128(v, _mm_clmulepi64_si128(q, k, 0x10));
        return static_cast<uint32_t>(_mm_extract_epi32(r, 2));
    }
};

/// The order of bzip2's CRC: most significant bit first.
template <uint32_t Polynomial>
struct MsbFirst {
    static constexpr uint64_t power(unsigned n) { return powerOfX(n, Polynomial); }

    static constexpr FoldConstants foldConstants(unsigned bits) {
        return {power(bits), power(bits + 64)};
    }
    static constexpr bool reversesBlocks = true;
    static __m128i reversal() {
        return _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    }
    static __m128i toBlock(__m128i bytes) { return _mm_shuffle_epi8(bytes, reversal()); }
    static uint32_t toBytes(uint32_t reg) { return byteSwap(reg); }

    static uint32_t reduce(__m128i x) {
        const __m128i k = pair(Polynomial, power(96));
        const __m128i quotient = pair(barrettQuotient(Polynomial), 0);
        const __m128i lowHalf = _mm_slli_si128(_mm_move_epi64(x), 4);
        const __m128i v = _mm_xor_si128(_mm_clmulepi64_si128(x, k, 0x11), lowHalf);
        const __m128i top = _mm_srli_si128(v, 4);
        const __m128i q =
            _mm_xor_si128(top, _mm_srli_si128(_mm_clmulepi64_si128(top, quotient, 0x00), 8));
        const __m128i r = _mm_xor_si128(v, _mm_clmulepi64_si128(q, k, 0x00));
        return static_cast<uint32_t>(_mm_cvtsi128_si32(r));
    }
};

using ZlibOrder = Reflected<crc32Polynomial>;
using Bzip2Order = MsbFirst<crc32Polynomial>;
using CastagnoliOrder = Reflected<castagnoliPolynomial>;

static_assert(ZlibOrder::power(96) == 0x0CCAA009EU && ZlibOrder::power(160) == 0x1751997D0U);
static_assert(ZlibOrder::power(224) == 0x15A546366U && ZlibOrder::power(288) == 0x0F1DA05AAU);
static_assert(ZlibOrder::power(480) == 0x1C6E41596U && ZlibOrder::power(544) == 0x154442BD4U);
static_assert(Bzip2Order::power(64) == 0x490D678DU && Bzip2Order::power(96) == 0xF200AA66U);
static_assert(Bzip2Order::power(128) == 0xE8A45605U && Bzip2Order::power(192) == 0xC5B9CD4CU);
static_assert(Bzip2Order::power(256) == 0x75BE46B7U && Bzip2Order::power(320) == 0x569700E5U);
static_assert(Bzip2Order::power(512) == 0xE6228B11U && Bzip2Order::power(576) == 0x8833794CU);

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
constexpr struct ShiftControls {
    alignas(64) int8_t bytes[48];
} shiftControls = [] {
    ShiftControls controls{};
    for (int i = 0; i < 48; ++i) controls.bytes[i] = static_cast<int8_t>(i / 16 == 1 ? i - 16 : -1);
    return controls;
}();

/// Adds the last `count` (1..15) bytes before `end`, of a message of at least 16 bytes.
template <class Order>
inline __m128i foldTail(__m128i x, const uint8_t* end, size_t count) {
    const __m128i bytes = Order::toBlock(x);
    const __m128i toFront = loadBlock(shiftControls.bytes + 16 + count);
    const __m128i head = _mm_shuffle_epi8(bytes, loadBlock(shiftControls.bytes + count));
    const __m128i last16 =
        _mm_blendv_epi8(_mm_shuffle_epi8(bytes, toFront), loadBlock(end - 16), toFront);
    return fold<Order, 128>(Order::toBlock(head), Order::toBlock(last16));
}

// The functions below mark as unlikely what a message of 64 bytes does not need, loops included: so
// a short message runs straight through, and a long one does not feel the jump that a loop costs
// it.

/// Adds the bytes from `src` to `end`, the last ones of a message of at least 16 bytes.
template <class Order>
[[gnu::always_inline]] inline __m128i foldRest(__m128i x, const uint8_t* src, const uint8_t* end) {
    for (; end - src >= 16; src += 16)
        [[unlikely]] x = fold<Order, 128>(x, Order::toBlock(loadBlock(src)));
    if (src != end) [[unlikely]]
        x = foldTail<Order>(x, end, static_cast<size_t>(end - src));
    return x;
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
    return foldRest<Order>(x, src, end);
}

}  // namespace vek::inline VEK_LEVEL::checksum
