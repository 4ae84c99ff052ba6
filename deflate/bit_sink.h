// A stream of bits on its way to memory, first bit lowest.
//
// The sink takes the caller's 32-bit buffer and gives one back with fewer than 8 bits in it. In
// between it works on a 64-bit word: whole bytes leave it with one 8-byte store, of which only the
// bytes that are complete count. The store may therefore touch up to 7 bytes behind the stream's
// end so far; who uses flushWide() knows that as many will follow. flushExact() stores complete
// bytes only.
#pragma once

#include <cstdint>

#include "deflate/huffman_codes.h"
#include "vector/bytes.h"

namespace vek::deflate {

class BitSink {
 public:
    /// Goes on behind the low `count` bits, at most 32, of `buffer`.
    BitSink(uint32_t buffer, uint32_t count, uint8_t* dst)
        : word_(buffer & ((uint64_t{1} << count) - 1)), count_(count), dst_(dst) {}

    /// Bits that may be put between two flushes: what a flush leaves is below 8.
    static constexpr uint32_t freeBits = 64 - 7;

    void put(CodedBits coded) {
        word_ |= static_cast<uint64_t>(coded.bits) << count_;
        count_ += coded.count;
    }

    void flushWide() {
        store(dst_, word_);
        dst_ += count_ >> 3;
        word_ >>= count_ & ~7U;
        count_ &= 7;
    }

    void flushExact() {
        for (; count_ >= 8; count_ -= 8, word_ >>= 8) *dst_++ = static_cast<uint8_t>(word_);
    }

    uint8_t* position() const { return dst_; }
    uint32_t buffer() const { return static_cast<uint32_t>(word_); }
    uint32_t count() const { return count_; }

 private:
    uint64_t word_;
    uint32_t count_;
    uint8_t* dst_;
};

}  // namespace vek::deflate
