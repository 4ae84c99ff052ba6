// Polynomials over GF(2) at compile time: what the constants of the CRC kernels are made of.
//
// A polynomial of degree below 32 is a word whose bit i is the coefficient of x^i ("MSB-first").
// Reflected CRCs hold the same polynomial with the bits in reverse order. A generator of degree 32
// is given without its leading term.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "bytes/words.h"

namespace vek::inline VEK_LEVEL::checksum {

constexpr uint32_t crc32Polynomial = 0x04C11DB7U;
constexpr uint32_t castagnoliPolynomial = 0x1EDC6F41U;

/// x * a mod the generator.
constexpr uint32_t timesX(uint32_t a, uint32_t generator) {
    return (a << 1) ^ ((a >> 31) != 0 ? generator : 0);
}

/// x^n mod the generator.
constexpr uint32_t powerOfX(unsigned n, uint32_t generator) {
    uint32_t a = 1;
    for (; n != 0; --n) a = timesX(a, generator);
    return a;
}

/// The low `bits` bits of `a` in reverse order; bits is 1..64.
constexpr uint64_t reflect(uint64_t a, unsigned bits) {
    uint64_t reversed = 0;
    for (unsigned i = 0; i < bits; ++i) reversed |= ((a >> i) & 1) << (bits - 1 - i);
    return reversed;
}

/// The low 64 bits of floor(x^96 / generator), a polynomial of degree 64: Barrett's constant for
/// reducing 96 bits to 32.
constexpr uint64_t barrettQuotient(uint32_t generator) {
    // Long division of x^96: the remainder starts as the generator's own lower terms, once the
    // leading quotient bit is taken out.
    uint64_t quotient = 0;
    uint32_t remainder = generator;
    for (int i = 0; i < 64; ++i) {
        quotient = (quotient << 1) | (remainder >> 31);
        remainder = timesX(remainder, generator);
    }
    return quotient;
}

/// Slicing tables for registers that shift right: entry b of sub-table k is what byte b followed by
/// k zero bytes contributes.
template <size_t Slices>
using Tables = std::array<std::array<uint32_t, 256>, Slices>;

/// From the byte table, the tables of bytes with more and more zero bytes behind them.
template <size_t Slices>
constexpr Tables<Slices> slice(const std::array<uint32_t, 256>& bytes) {
    Tables<Slices> tables = {};
    tables[0] = bytes;
    for (size_t k = 1; k < Slices; ++k) {
        for (size_t b = 0; b < 256; ++b) {
            const uint32_t r = tables[k - 1][b];
            tables[k][b] = (r >> 8) ^ bytes[r & 0xFF];
        }
    }
    return tables;
}

/// Byte table of an MSB-first CRC.
constexpr std::array<uint32_t, 256> byteTable(uint32_t generator) {
    std::array<uint32_t, 256> table = {};
    for (uint32_t b = 0; b < 256; ++b) {
        uint32_t r = b << 24;
        for (int bit = 0; bit < 8; ++bit) r = timesX(r, generator);
        table[b] = r;
    }
    return table;
}

/// Byte table of a reflected CRC.
constexpr std::array<uint32_t, 256> reflectedByteTable(uint32_t generator) {
    const auto forward = byteTable(generator);
    std::array<uint32_t, 256> table = {};
    for (uint32_t b = 0; b < 256; ++b) {
        table[b] = reverseBits(forward[reverseBits(b, 8)], 32);
    }
    return table;
}

/// Byte table of an MSB-first CRC whose register is kept byte-swapped, so that it shifts right.
constexpr std::array<uint32_t, 256> swappedByteTable(uint32_t generator) {
    auto table = byteTable(generator);
    for (auto& entry : table) entry = byteSwap(entry);
    return table;
}

template <size_t Slices, size_t... Byte>
inline uint32_t sliceStep(const Tables<Slices>& tables, uint32_t x, uint32_t y,
                          std::index_sequence<Byte...> /*bytes*/) {
    return (tables[Slices - 1 - Byte][((Byte < 4 ? x : y) >> (Byte % 4 * 8)) & 0xFF] ^ ...);
}

/// Feeds `len` bytes to a register that shifts right: 8 or 4 bytes a step, with as many tables.
template <size_t Slices>
inline uint32_t sliceBytes(const Tables<Slices>& tables, uint32_t r, const uint8_t* src,
                           size_t len) {
    static_assert(Slices == 4 || Slices == 8);
    for (; len >= Slices; src += Slices, len -= Slices) {
        const uint32_t x = r ^ load<uint32_t>(src);
        const uint32_t y = Slices == 8 ? load<uint32_t>(src + 4) : 0;
        r = sliceStep(tables, x, y, std::make_index_sequence<Slices>());
    }
    for (; len != 0; ++src, --len) r = (r >> 8) ^ tables[0][(r ^ *src) & 0xFF];
    return r;
}

}  // namespace vek::inline VEK_LEVEL::checksum
