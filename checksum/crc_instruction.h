// The CRC-32C instruction over a stretch of bytes: one dependent chain.
//
// The instruction takes 3 cycles and can start every cycle, so a single chain runs at a third of
// what the processor can do. A word is 8 bytes on x86-64, 4 on 32-bit x86.
#pragma once

#include <nmmintrin.h>

#include <cstddef>
#include <cstdint>

#include "bytes/words.h"

namespace vek::inline VEK_LEVEL::checksum {

using Word = size_t;

inline uint32_t stepWord(uint32_t crc, Word word) {
#ifdef __x86_64__
    return static_cast<uint32_t>(_mm_crc32_u64(crc, word));
#else
    return _mm_crc32_u32(crc, word);
#endif
}

/// Feeds 8 bytes that are in a register.
inline uint32_t step64(uint32_t crc, uint64_t value) {
#ifdef __x86_64__
    return stepWord(crc, value);
#else
    return stepWord(stepWord(crc, static_cast<uint32_t>(value)),
                    static_cast<uint32_t>(value >> 32));
#endif
}

/// Feeds any number of bytes. Four words a round: in short messages the loop's own instructions
/// show.
inline uint32_t stepChain(uint32_t crc, const uint8_t* src, size_t len) {
    for (; len >= 4 * sizeof(Word); src += 4 * sizeof(Word), len -= 4 * sizeof(Word)) {
        crc = stepWord(crc, load<Word>(src));
        crc = stepWord(crc, load<Word>(src + sizeof(Word)));
        crc = stepWord(crc, load<Word>(src + 2 * sizeof(Word)));
        crc = stepWord(crc, load<Word>(src + 3 * sizeof(Word)));
    }
    for (; len >= sizeof(Word); src += sizeof(Word), len -= sizeof(Word)) {
        crc = stepWord(crc, load<Word>(src));
    }
    if constexpr (sizeof(Word) == 8) {
        if ((len & 4) != 0) {
            crc = _mm_crc32_u32(crc, load<uint32_t>(src));
            src += 4;
        }
    }
    if ((len & 2) != 0) {
        crc = _mm_crc32_u16(crc, load<uint16_t>(src));
        src += 2;
    }
    return (len & 1) != 0 ? _mm_crc32_u8(crc, *src) : crc;
}

}  // namespace vek::inline VEK_LEVEL::checksum
