// A reader of what stands in front of a deflate block's data (RFC 1951), from a whole stream in
// memory.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vektest {

/// A position in a stream: whole bytes, and the bits taken from the bytes before.
struct BitSource {
    const uint8_t* src;
    const uint8_t* end;
    uint32_t code = 0, nBits = 0;

    bool has(uint32_t count) {
        if (nBits < count && end - src >= 4) {
            // Of the last byte only the bits that fit; it is read once more.
            uint32_t word = 0;
            std::memcpy(&word, src, 4);
            code |= word << nBits;
            src += (31 - nBits) / 8;
            nBits |= 24;
        }
        for (; nBits < count && src != end; nBits += 8)
            code |= static_cast<uint32_t>(*src++) << nBits;
        return nBits >= count;
    }
    /// The next `count` bits, at most 16; 0s and `failed` behind the end.
    uint32_t take(uint32_t count) {
        if (!has(count)) {
            failed = true;
            return 0;
        }
        const uint32_t bits = code & ((1U << count) - 1);
        code >>= count;
        nBits -= count;
        return bits;
    }
    bool failed = false;
};

/// Reads the code lengths of a dynamic block and gives them to `build(lens, nLit, nDist)`; false
/// when they are corrupt or that says so.
template <class Build>
bool readCodeLengths(BitSource& source, Build build) {
    BitSource in = source;  // In registers.
    constexpr std::array<uint8_t, 19> order = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                               11, 4,  12, 3, 13, 2, 14, 1, 15};
    const uint32_t nLit = in.take(5) + 257, nDist = in.take(5) + 1;
    const uint32_t nCodes = in.take(4) + 4;
    if (nLit > 286 || nDist > 30) return false;
    std::array<uint8_t, 19> codeLens{};
    for (uint32_t i = 0; i < nCodes; ++i) codeLens[order[i]] = static_cast<uint8_t>(in.take(3));
    // The symbol that any 7 bits begin with the code of, and above it the code's length.
    std::array<uint16_t, 128> lookup{};
    uint32_t code = 0;  // The next one's bits reversed, and so in the order of the stream.
    uint32_t used = 0;
    for (uint32_t len = 1; len < 8; ++len)
        for (uint32_t symbol = 0; symbol < order.size(); ++symbol) {
            if (codeLens[symbol] != len) continue;
            used += 128U >> len;
            if (used > 128) return false;
            for (uint32_t i = code; i < 128; i += 1U << len)
                lookup[i] = static_cast<uint16_t>(len << 8 | symbol);
            uint32_t carry = 1U << (len - 1);
            for (; (code & carry) != 0; carry >>= 1) code ^= carry;
            code |= carry;
        }
    if (used != 128) return false;

    std::array<uint16_t, 286 + 30> lens{};
    for (uint32_t i = 0; i < nLit + nDist && !in.failed;) {
        in.has(7);
        const uint32_t entry = lookup[in.code & 127];
        in.take(entry >> 8);
        const uint32_t symbol = entry & 255;
        uint32_t repeat = 1;
        uint16_t value = 0;
        if (symbol < 16) {
            value = static_cast<uint16_t>(symbol);
        } else if (symbol == 16) {
            if (i == 0) return false;
            value = lens[i - 1];
            repeat = 3 + in.take(2);
        } else {
            repeat = symbol == 17 ? 3 + in.take(3) : 11 + in.take(7);
        }
        if (repeat > nLit + nDist - i) return false;
        std::fill_n(lens.begin() + i, repeat, value);
        i += repeat;
    }
    source = in;
    return !in.failed && build(lens.data(), nLit, nDist);
}

}  // namespace vektest
