// The readers of bits whose first one is the lowest of its byte, as deflate and ZFP have them.
//
// LsbReader holds bits that were taken from the source byte by byte: reading stops at any byte, and
// goes on with bits that a caller kept. The record is the same type for every instruction set, so
// that it may be given to the kernel of another; what is done with it is compiled for each.
// LsbCursor reads where the bits stand, and asks for readable bytes behind them instead of looking
// for the end. (Inflate's kernel has a third way, a register of the machine's width refilled by one
// load, whose parts have to be variables of its loop.)
#pragma once

#include <cstdint>

#include "bytes/words.h"

namespace vek {

struct LsbReader {
    const uint8_t* src;
    const uint8_t* srcEnd;
    uint32_t bits;  ///< Bits above nBits are 0.
    uint32_t nBits;
};

}  // namespace vek

namespace vek::inline VEK_LEVEL {

/// The most bits that can be asked of fill(): one more byte still fits above fewer.
constexpr uint32_t mostFilled = 32 - 7;

/// Adds source bytes until `count` bits, at most mostFilled, are held or the source is used up.
inline void fill(LsbReader& in, uint32_t count) {
    while (in.nBits < count && in.src != in.srcEnd) {
        in.bits |= static_cast<uint32_t>(*in.src++) << in.nBits;
        in.nBits += 8;
    }
}

/// Takes `count` bits, fewer than 32, that are held.
inline uint32_t take(LsbReader& in, uint32_t count) {
    const uint32_t taken = in.bits & ((1U << count) - 1);
    in.bits >>= count;
    in.nBits -= count;
    return taken;
}

/// Reads bits from memory; up to 8 bytes from the position's byte on must be readable.
class LsbCursor {
 public:
    LsbCursor(const uint8_t* base, unsigned position) : base_(base), position_(position) {}

    /// Bits that one peek() gives, and the most that take() takes.
    static constexpr unsigned peekBits = 32;

    /// The next 32 bits.
    uint32_t peek() const {
        return static_cast<uint32_t>(load<uint64_t>(base_ + position_ / 8) >> position_ % 8);
    }

    void skip(unsigned count) { position_ += count; }

    /// Takes `count` bits, at most 32.
    uint32_t take(unsigned count) {
        const uint32_t bits = peek();
        position_ += count;
        return count < 32 ? bits & ((1U << count) - 1) : bits;
    }

    unsigned position() const { return position_; }

 private:
    const uint8_t* base_;
    unsigned position_;
};

}  // namespace vek::inline VEK_LEVEL
