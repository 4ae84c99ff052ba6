// Running checksums over any length, and the checksum of two stretches from theirs.
//
// A CRC-32 is the remainder of the data, as a polynomial over GF(2), modulo P. Putting n bytes
// behind a stretch multiplies its remainder by x^(8n), so the CRC of A and B together is
// crc(A) * x^(8 |B|) + crc(B); the conditioning at both ends cancels out. x^(8n) mod P is made by
// squaring from 64 precomputed powers, so a combination costs some twenty 32-step products: nothing
// beside the block that was summed. Polynomials are kept reflected: x^0 is the top bit.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "codec/codec.h"

namespace vekdc::codec {

/// Product of two reflected polynomials modulo the CRC-32 polynomial.
constexpr uint32_t crc32Multiply(uint32_t a, uint32_t b) {
    uint32_t product = 0;
    for (uint32_t bit = 1U << 31; bit != 0; bit >>= 1) {
        if ((a & bit) != 0) product ^= b;
        b = (b >> 1) ^ ((b & 1) != 0 ? 0xEDB88320U : 0);
    }
    return product;
}

/// x^(8 * 2^k) for k = 0 .. 63.
constexpr std::array<uint32_t, 64> crc32BytePowers() {
    std::array<uint32_t, 64> powers{};
    uint32_t power = 1U << 23;  // x^8
    for (uint32_t& entry : powers) {
        entry = power;
        power = crc32Multiply(power, power);
    }
    return powers;
}

/// CRC-32 of A followed by B, from that of A, that of B, and B's length in bytes.
constexpr uint32_t crc32Combine(uint32_t crcA, uint32_t crcB, uint64_t lengthB) {
    constexpr auto powers = crc32BytePowers();
    for (unsigned k = 0; lengthB != 0; ++k, lengthB >>= 1)
        if ((lengthB & 1) != 0) crcA = crc32Multiply(powers[k], crcA);
    return crcA ^ crcB;
}

/// Likewise for Adler-32: A is the sum of the bytes plus 1, B the sum of all A's.
constexpr uint32_t adler32Combine(uint32_t sumA, uint32_t sumB, uint64_t lengthB) {
    constexpr uint32_t base = 65521;
    const auto n = static_cast<uint32_t>(lengthB % base);
    const uint32_t lowA = sumA & 0xFFFF;
    const uint32_t low = (lowA + (sumB & 0xFFFF) + base - 1) % base;
    const uint64_t high =
        static_cast<uint64_t>(n) * (lowA + base - 1) + (sumA >> 16) + (sumB >> 16);
    return low | static_cast<uint32_t>(high % base) << 16;
}

/// A checksum of any length of data: running value in, running value out.
struct Checksum {
    const char* name;
    uint32_t initial;
    uint32_t (*update)(uint32_t value, Bytes bytes);
    uint32_t (*finish)(uint32_t value);
    uint32_t (*combine)(uint32_t a, uint32_t b, uint64_t lengthB);  ///< Null where there is none.
};

extern const Checksum kCrc32;
extern const Checksum kCrc32c;
extern const Checksum kBzip2Crc;
extern const Checksum kAdler32;

/// By name (crc32, crc32c, bzip2, adler32); null when there is none.
const Checksum* checksumByName(std::string_view name);

}  // namespace vekdc::codec
