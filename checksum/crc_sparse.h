// Shortening a long message for a CRC by XOR alone.
//
// The CRC of a message is its remainder modulo the generator P, so any multiple of P may be added
// to the message. Over GF(2), P(x)^N = P(x^N) for every power of two N: a multiple of P with few
// terms, x^d + x^c + ... + 1, stays a multiple when x is replaced by y = x^256. Read as a string of
// 32-byte blocks (powers of y), the message can therefore drop its first block, if that block is
// added to the few blocks that stand d - c, ..., d places behind it. Only the last d blocks remain
// for the multiplying kernels, with one wide load and XOR for each term instead of multiplications.
// (The idea with other multiples: Russell, "Chorba: A novel CRC32 implementation", 2024.)
//
// Whether bits within a byte are reflected makes no difference: the first block of the message
// holds the highest powers in both orders.
//
// The blocks that were added to live in a ring of d blocks on the stack. A block has no influence
// on the next one, only on one far behind it, so the loop is bound by its loads: about 10 bytes a
// cycle where multiplying takes 4. It pays from a few ring lengths on.
#pragma once

#include <immintrin.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "bytes/words.h"
#include "checksum/crc_math.h"

namespace vek::inline VEK_LEVEL::checksum {

constexpr size_t sparseBlock = 32;

/// A multiple of a generator: its exponents in falling order; the last is 0.
template <size_t Terms>
struct SparseMultiple {
    std::array<unsigned, Terms> exponents;

    constexpr unsigned degree() const { return exponents[0]; }
    constexpr size_t ringBytes() const { return degree() * sparseBlock; }

    constexpr bool isMultipleOf(uint32_t generator) const {
        uint32_t sum = 0;
        for (const unsigned exponent : exponents) sum ^= powerOfX(exponent, generator);
        return sum == 0;
    }
};

/// Of all five-term multiples the one of the lowest degree. scripts/find-sparse-multiples finds
/// both.
constexpr SparseMultiple<5> crc32Multiple = {{300, 155, 117, 89, 0}};
static_assert(crc32Multiple.isMultipleOf(crc32Polynomial));

/// The same for the Castagnoli polynomial, which divides only sums of an even number of terms.
constexpr SparseMultiple<6> castagnoliMultiple = {{209, 144, 54, 39, 14, 0}};
static_assert(castagnoliMultiple.isMultipleOf(castagnoliPolynomial));

/// Adds to ring blocks [first, last) the message's blocks and those that the middle terms lead to.
///
/// Passed terms (the first `Passed` of the middle ones) lead to a block of this same round, which
/// stands before the current one; the others to a block of the round before, which the ring still
/// holds behind it. In the last round the blocks of this round stay where they are, so passed terms
/// add nothing.
template <const auto& Multiple, size_t Passed, bool LastRound, size_t... Term>
inline void addStretch(uint8_t* ring, const uint8_t* src, size_t first, size_t last,
                       std::index_sequence<Term...> /*middle terms*/) {
    const auto at = [](const uint8_t* p) {
        return _mm256_loadu_ps(reinterpret_cast<const float*>(p));
    };
    for (size_t i = first * sparseBlock; i < last * sparseBlock; i += sparseBlock) {
        uint8_t* here = ring + i;
        __m256 sum = _mm256_xor_ps(at(here), at(src + i));
        const auto addTerm = [&]<size_t T>() {
            constexpr size_t forward = Multiple.exponents[T + 1] * sparseBlock;
            if constexpr (T >= Passed) {
                sum = _mm256_xor_ps(sum, at(here + forward));
            } else if constexpr (!LastRound) {
                sum = _mm256_xor_ps(sum, at(here + forward - Multiple.ringBytes()));
            }
        };
        (addTerm.template operator()<Term>(), ...);
        _mm256_storeu_ps(reinterpret_cast<float*>(here), sum);
    }
}

/// One round: a ring length of the message, in stretches between which one term more is passed.
template <const auto& Multiple, bool LastRound, size_t Passed = 0>
inline void addRound(uint8_t* ring, const uint8_t* src) {
    constexpr size_t middleTerms = Multiple.exponents.size() - 2;
    constexpr size_t first = Multiple.degree() - Multiple.exponents[Passed];
    constexpr size_t last = Multiple.degree() - Multiple.exponents[Passed + 1];
    addStretch<Multiple, Passed, LastRound>(ring, src, first, last,
                                            std::make_index_sequence<middleTerms>());
    if constexpr (Passed < middleTerms) addRound<Multiple, LastRound, Passed + 1>(ring, src);
}

/// Shortens the first rounds * ringBytes() bytes of a message to the ringBytes() bytes in `ring`,
/// which have the same remainder. The ring is prepared by the caller: zeros, with the register's
/// bytes at its front. rounds is at least 1.
template <const auto& Multiple>
inline void shorten(uint8_t* ring, const uint8_t* src, size_t rounds) {
    for (; rounds > 1; --rounds, src += Multiple.ringBytes()) {
        addRound<Multiple, false>(ring, src);
    }
    addRound<Multiple, true>(ring, src);
}

/// The CRC of a long message: shortened first, then the ring and the bytes behind through `finish`
/// (register, source, length), which returns the new register. The register's bytes stand in
/// message order. Callers keep this out of the way of short messages: the ring needs a stack frame.
template <const auto& Multiple, class Finish>
inline uint32_t shortenThen(uint32_t registerBytes, const uint8_t* src, size_t len, Finish finish) {
    alignas(sparseBlock) uint8_t ring[Multiple.ringBytes()] = {};
    store(ring, registerBytes);
    const size_t rounds = len / Multiple.ringBytes();
    shorten<Multiple>(ring, src, rounds);
    const size_t done = rounds * Multiple.ringBytes();
    const uint32_t crc = finish(0U, static_cast<const uint8_t*>(ring), Multiple.ringBytes());
    return done == len ? crc : finish(crc, src + done, len - done);
}

}  // namespace vek::inline VEK_LEVEL::checksum
