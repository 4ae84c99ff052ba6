// The writer of bits whose first one is the highest of its byte, as bzip2 and LZSS have them.
//
// Bits gather at the top of a word, and leave it as whole bytes. How many may be put between two
// flushes is stated below, for the users to assert. The wide flushes store a whole word and let
// only its complete bytes count, so that many bytes of room must be left; drain() stores complete
// bytes alone, while there is room, and what does not fit stays in the word.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "bytes/words.h"

namespace vek::inline VEK_LEVEL {

/// `Word` is what the bits gather in: size_t where that is enough, since it is one register;
/// uint64_t where more bits must await room.
template <class Word>
struct MsbWriter {
    static constexpr int wordBits = 8 * sizeof(Word);
    /// Bits that may be put after a flush with room, which leaves fewer than 8.
    static constexpr int freeBits = wordBits - 7;
    /// Bits that putFlushed() takes at once.
    static constexpr int freeBitsOf32 = 32 - 7;

    Word bits;  ///< Zeros below those held.
    int count;
    uint8_t* out;
    uint8_t* end;

    size_t room() const { return static_cast<size_t>(end - out); }

    /// Appends `size` bits, at least 1; as many must be free.
    void put(uint32_t value, int size) {
        const auto shift = static_cast<unsigned>(wordBits - count - size);
        bits |= static_cast<Word>(value) << shift % wordBits;  // as the instruction does
        count += size;
    }

    /// Stores the whole bytes held; the room must hold a word.
    void flushWide() {
        using Unsigned = std::conditional_t<sizeof(Word) == 8, uint64_t, uint32_t>;
        store(out, byteSwap(static_cast<Unsigned>(bits)));
        out += count >> 3;
        bits <<= count & ~7;
        count &= 7;
    }

    /// put() and flushWide() in the upper 32 bits alone, which on 32-bit x86 are one register:
    /// fewer than 8 bits are held, and there is room for 4 bytes.
    void putFlushed(uint32_t value, int size) {
        const auto high =
            static_cast<uint32_t>(bits >> (wordBits - 32)) | value << (32 - size - count);
        store(out, byteSwap(high));
        const int total = count + size;
        out += total >> 3;
        bits = static_cast<Word>(high << (total & 24)) << (wordBits - 32);
        count = total & 7;
    }

    /// Stores whole bytes while there is room; false when there is no more of it.
    bool drain() {
        while (count >= 8 && out != end) {
            *out++ = static_cast<uint8_t>(bits >> (wordBits - 8));
            bits <<= 8;
            count -= 8;
        }
        return out != end;
    }
};

}  // namespace vek::inline VEK_LEVEL
