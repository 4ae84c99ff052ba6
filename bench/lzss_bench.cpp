// LZSS, both ways. The format has no other library: a plain coder with a 64-bit bit buffer, no
// streaming and no margins to mind, is what we are held against.

#include <algorithm>
#include <cstring>

#include "bench.h"
#include "vekdc.h"

namespace {

using Bytes = std::vector<uint8_t>;

// As large as the record of either variant, and aligned for its pointers.
alignas(16) uint8_t state[327744 + 64];

size_t encode(const Bytes& data, Bytes* out) {
    const uint8_t* src = data.data();
    auto left = static_cast<int32_t>(data.size());
    uint8_t* dst = out->data();
    auto room = static_cast<int32_t>(out->size());
    veksEncodeLZSSInit_8u(state);
    veksEncodeLZSS_8u(&src, &left, &dst, &room, state);
    veksEncodeLZSSFlush_8u(&dst, &room, state);
    return static_cast<size_t>(dst - out->data());
}

size_t decode(const Bytes& bits, Bytes* out) {
    const uint8_t* src = bits.data();
    auto left = static_cast<int32_t>(bits.size());
    uint8_t* dst = out->data();
    auto room = static_cast<int32_t>(out->size());
    veksDecodeLZSSInit_8u(state);
    veksDecodeLZSS_8u(&src, &left, &dst, &room, state);
    return static_cast<size_t>(dst - out->data());
}

uint32_t plainChain[32768];
uint32_t plainHead[32768];

/// The whole input in one call: chains of 16 candidates, tokens through a 64-bit buffer.
size_t plainEncode(const Bytes& data, Bytes* out) {
    std::fill(std::begin(plainHead), std::end(plainHead), 0xFFFF8000U);
    const uint8_t* const src = data.data();
    const auto size = static_cast<uint32_t>(data.size());
    uint8_t* to = out->data();
    uint64_t buffer = 0;
    int held = 0;
    const auto put = [&](uint64_t token, int bits) {
        held += bits;
        buffer |= token << (64 - held);
        for (; held >= 32; held -= 32, buffer <<= 32, to += 4) {
            const uint32_t word = __builtin_bswap32(static_cast<uint32_t>(buffer >> 32));
            std::memcpy(to, &word, 4);
        }
    };
    const auto insert = [&](uint32_t p) {
        uint32_t three = 0;
        std::memcpy(&three, src + p, 3);
        uint32_t& head = plainHead[three * 0x9E3779B1U >> 17];
        plainChain[p & 32767] = head;
        head = p;
        return plainChain[p & 32767];
    };
    uint32_t p = 0;
    while (p + 2 < size) {
        uint32_t candidate = insert(p);
        const uint32_t limit = std::min(size - 2 - p, 258U);
        uint32_t best = 2;
        uint32_t distance = 0;
        for (int k = 0; k < 16 && p - candidate < 32768 && best < limit; ++k) {
            if (src[candidate + best] == src[p + best]) {
                uint32_t n = 0;
                while (n < limit && src[candidate + n] == src[p + n]) ++n;
                if (n > best) {
                    best = n;
                    distance = p - candidate;
                }
            }
            candidate = plainChain[candidate & 32767];
        }
        if (best < 3) {
            put(0x100U | src[p++], 9);
            continue;
        }
        put(distance << 8 | (best - 3), 24);
        for (uint32_t i = 1; i < best; ++i) insert(p + i);
        p += best;
    }
    while (p < size) put(0x100U | src[p++], 9);
    for (; held > 0; held -= 8, buffer <<= 8) *to++ = static_cast<uint8_t>(buffer >> 56);
    return static_cast<size_t>(to - out->data());
}

/// Trusts its input; stops when `out` is full.
size_t plainDecode(const Bytes& bits, Bytes* out) {
    const uint8_t* from = bits.data();
    const uint8_t* const fromEnd = from + bits.size();
    uint8_t* to = out->data();
    uint8_t* const end = to + out->size();
    uint64_t buffer = 0;
    int held = 0;
    while (to < end) {
        if (held < 32) {
            uint32_t word = 0;
            std::memcpy(&word, from, std::min<size_t>(4, static_cast<size_t>(fromEnd - from)));
            from += std::min<ptrdiff_t>(4, fromEnd - from);
            buffer |= uint64_t{__builtin_bswap32(word)} << (32 - held);
            held += 32;
        }
        const auto token = static_cast<uint32_t>(buffer >> 40);
        if ((token >> 23) != 0) {
            *to++ = static_cast<uint8_t>(token >> 15);
            buffer <<= 9;
            held -= 9;
            continue;
        }
        buffer <<= 24;
        held -= 24;
        const uint32_t distance = token >> 8;
        const uint32_t length = (token & 0xFF) + 3;
        if (distance >= length) {
            std::memcpy(to, to - distance, length);
        } else {
            for (uint32_t i = 0; i < length; ++i) to[i] = (to - distance)[i];
        }
        to += length;
    }
    return static_cast<size_t>(to - out->data());
}

}  // namespace

void registerBenchmarks() {
    for (const auto& file : vekbench::files()) {
        const Bytes& data = file.bytes;
        auto* const out = new Bytes(vekLZSSEncodeBound(static_cast<int32_t>(data.size())));
        auto* const back = new Bytes(data.size());
        auto* const bits = new Bytes(*out);
        bits->resize(encode(data, bits));
        if (decode(*bits, back) != data.size() || *back != data)
            vekbench::fail("round trip of " + file.name);
        vekbench::add("lzss-encode", file.name, "vekdc", data.size(),
                      [=, &data] { return encode(data, out); });
        vekbench::add("lzss-decode", file.name, "vekdc", data.size(),
                      [=] { return decode(*bits, back); });
        const size_t plainSize = plainEncode(data, out);
        Bytes plainBits(out->begin(), out->begin() + static_cast<ptrdiff_t>(plainSize));
        if (decode(plainBits, back) != data.size() || *back != data ||
            plainDecode(*bits, back) != data.size() || *back != data)
            vekbench::fail("the plain coder disagrees on " + file.name);
        vekbench::add("lzss-encode", file.name, "plain64", data.size(),
                      [=, &data] { return plainEncode(data, out); });
        vekbench::add("lzss-decode", file.name, "plain64", data.size(),
                      [=] { return plainDecode(*bits, back); });
    }
    vekbench::goal("lzss-encode", "plain64", sizeof(void*) == 8 ? 2.9 : 2.4, 1.0);
    vekbench::goal("lzss-decode", "plain64", 2.8);
}
