// The move-to-front list: 256 values in order of last use, with vector instructions.
//
// After a block sort nearly every value asked for stands among the first sixteen. Those live in one
// register: finding a value there is one comparison and a bit scan, and moving position k to the
// front is one byte shuffle by a constant rotation, so that decoding a position waits only one
// cycle for the position before it. Deeper positions go through the list in memory, sixteen bytes a
// step.
#pragma once

#include <tmmintrin.h>

#include <array>
#include <cstdint>

#include "bytes/words.h"

namespace vek::inline VEK_LEVEL::bzip2 {

/// Shuffles of sixteen bytes; entry p moves byte p to the front and those before it up by one.
using Shuffle = std::array<uint8_t, 16>;

constexpr std::array<Shuffle, 16> makeRotations() {
    std::array<Shuffle, 16> all{};
    for (unsigned position = 0; position < 16; ++position) {
        for (unsigned i = 0; i < 16; ++i) {
            const unsigned from = i == 0 ? position : i <= position ? i - 1 : i;
            all[position][i] = static_cast<uint8_t>(from);
        }
    }
    return all;
}

inline constexpr std::array<Shuffle, 16> rotations = makeRotations();

class MtfList {
 public:
    /// Starts from the list at `values`, the value used last first.
    explicit MtfList(const uint8_t* values) {
        std::memcpy(list_, values, sizeof(list_));
        front_ = loadBlock(0);
    }

    /// Starts from the identity.
    MtfList() {
        for (unsigned i = 0; i < 256; ++i) list_[i] = static_cast<uint8_t>(i);
        front_ = loadBlock(0);
    }

    /// Writes the whole list to `values`.
    void save(uint8_t* values) {
        storeBlock(0, front_);
        std::memcpy(values, list_, sizeof(list_));
    }

    /// The value at the front.
    uint8_t first() const { return static_cast<uint8_t>(_mm_cvtsi128_si32(front_)); }

    /// Moves the value at `position` to the front and returns it.
    uint8_t takePosition(unsigned position) {
        if (position < 16) {
            front_ = _mm_shuffle_epi8(front_, rotation(position));
        } else {
            takeDeep(position, list_[position]);
        }
        return first();
    }

    /// Moves `value` to the front and returns the position where it stood.
    unsigned takeValue(uint8_t value) {
        const auto found = matches(front_, value);
        if (found != 0) {
            const unsigned position = lowestSetBit(found);
            front_ = _mm_shuffle_epi8(front_, rotation(position));
            return position;
        }
        unsigned block = 1;
        uint32_t mask = matches(loadBlock(block), value);
        while (mask == 0 && block < 15) mask = matches(loadBlock(++block), value);
        // A list that is no permutation may lack the value: its last position stands in for it.
        if (block == 15) mask |= 0x8000;
        const unsigned position = 16 * block + lowestSetBit(mask);
        takeDeep(position, value);
        return position;
    }

 private:
    __m128i loadBlock(unsigned block) const {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(list_ + 16 * block));
    }

    void storeBlock(unsigned block, __m128i values) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(list_ + 16 * block), values);
    }

    static uint32_t matches(__m128i values, uint8_t value) {
        const __m128i equal = _mm_cmpeq_epi8(values, _mm_set1_epi8(static_cast<char>(value)));
        return static_cast<uint32_t>(_mm_movemask_epi8(equal));
    }

    /// Shuffle that moves `position`, below 16, to the front of sixteen bytes.
    static __m128i rotation(unsigned position) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(rotations[position].data()));
    }

    /// Moves `value`, which stands at `position` of 16 and more, to the front: every block in front
    /// of its own passes its last byte on to the next, and in its own block the bytes up to it move
    /// up.
    void takeDeep(unsigned position, uint8_t value) {
        const unsigned last = position / 16;
        __m128i before = front_;
        front_ = _mm_alignr_epi8(before, _mm_set1_epi8(static_cast<char>(value)), 15);
        for (unsigned block = 1; block < last; ++block) {
            const __m128i current = loadBlock(block);
            storeBlock(block, _mm_alignr_epi8(current, before, 15));
            before = current;
        }
        const __m128i current = loadBlock(last);
        const __m128i rotated = _mm_shuffle_epi8(current, rotation(position % 16));
        // The rotation put `value` in front, where the byte from the block before belongs.
        const __m128i carried = _mm_srli_si128(before, 15);
        const __m128i behindFirst = _mm_slli_si128(_mm_srli_si128(rotated, 1), 1);
        storeBlock(last, _mm_or_si128(behindFirst, carried));
    }

    uint8_t list_[256];  // its first sixteen bytes stand in front_
    __m128i front_;
};

}  // namespace vek::inline VEK_LEVEL::bzip2
