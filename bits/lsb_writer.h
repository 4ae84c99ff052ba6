// The writer of bits whose first one is the lowest of its byte, as deflate and ZFP have them.
//
// Bits gather in a 64-bit word, and leave it a few puts later: how many bits may be put between two
// flushes is stated below, for the users to assert. Whole bytes leave the word with one 8-byte
// store, of which only the bytes that are complete count. The store may therefore touch up to 7
// bytes behind the stream's end so far; who uses flushWide() knows that as many will follow. The
// other flushes store complete bytes only.
//
// On 32-bit x86 the word lives in a vector register, which shifts 64 bits at once; in two general
// registers each shift would be half a dozen instructions. The count stays in a general register:
// what the word waits for from one put to the next is then two ors and a shift, whatever the way
// from one kind of register to the other takes.
#pragma once

#include <emmintrin.h>

#include <cstdint>

#include "bytes/words.h"

namespace vek::inline VEK_LEVEL {

#ifdef __x86_64__

/// 64 bits that are added to from above and taken from below.
class BitWord {
 public:
    void add(uint32_t bits, uint32_t at) { word_ |= static_cast<uint64_t>(bits) << at; }
    void drop(uint32_t count) { word_ >>= count; }
    uint32_t low() const { return static_cast<uint32_t>(word_); }
    void storeAll(uint8_t* dst) const { store(dst, word_); }

 private:
    uint64_t word_ = 0;
};

#else

class BitWord {
 public:
    void add(uint32_t bits, uint32_t at) {
        word_ = _mm_or_si128(word_, _mm_sll_epi64(vectorOf(bits), vectorOf(at)));
    }
    void drop(uint32_t count) { word_ = _mm_srl_epi64(word_, vectorOf(count)); }
    uint32_t low() const { return static_cast<uint32_t>(_mm_cvtsi128_si32(word_)); }
    /// In one store: GCC takes _mm_storel_epi64 apart into two 32-bit halves here.
    void storeAll(uint8_t* dst) const {
        _mm_storel_pi(reinterpret_cast<__m64*>(dst), _mm_castsi128_ps(word_));
    }

 private:
    static __m128i vectorOf(uint32_t value) { return _mm_cvtsi32_si128(static_cast<int>(value)); }

    __m128i word_ = _mm_setzero_si128();
};

#endif

/// Bits to put, first bit lowest, and their number; those above are 0.
struct CodedBits {
    uint32_t bits;
    uint32_t count;
};

class LsbWriter {
 public:
    /// Goes on behind the low `count` bits, at most 32, of `buffer`.
    LsbWriter(uint32_t buffer, uint32_t count, uint8_t* dst) : count_(count), dst_(dst) {
        word_.add(count < 32 ? buffer & ((1U << count) - 1) : buffer, 0);
    }

    /// Bits that may be put after flushWide() or flushExact(), which leave fewer than 8.
    static constexpr uint32_t freeBits = 64 - 7;
    /// Bits that may be put after flushWords(), which leaves fewer than 32.
    static constexpr uint32_t freeBesideWord = 64 - 31;

    void put(CodedBits coded) {
        word_.add(coded.bits, count_);
        count_ += coded.count;
    }

    void flushWide() {
        word_.storeAll(dst_);
        dst_ += count_ >> 3;
        word_.drop(count_ & ~7U);
        count_ &= 7;
    }

    void flushWords() {
        if (count_ < 32) return;
        store(dst_, word_.low());
        dst_ += 4;
        word_.drop(32);
        count_ -= 32;
    }

    void flushExact() {
        flushWords();
        for (; count_ >= 8; count_ -= 8, word_.drop(8)) *dst_++ = static_cast<uint8_t>(word_.low());
    }

    uint8_t* position() const { return dst_; }
    uint32_t buffer() const { return word_.low(); }
    uint32_t count() const { return count_; }
    /// Bits from `start` on, those held included.
    uint32_t bitsSince(const uint8_t* start) const {
        return static_cast<uint32_t>(dst_ - start) * 8 + count_;
    }

 private:
    BitWord word_;
    uint32_t count_;
    uint8_t* dst_;
};

}  // namespace vek::inline VEK_LEVEL
