// The writing of LZ4 sequences, for all encoders.
//
// Where the caller knows of room behind a sequence, literals are copied in wide steps and a
// sequence without extensions, as most are, takes three stores; else to the byte.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "bytes/wide_copy.h"
#include "bytes/words.h"
#include "lz4/format.h"

namespace vek::inline VEK_LEVEL::lz4 {

/// Writes the extension of a length whose nibble is full; `rest` is the length - 15.
inline uint8_t* writelen(uint8_t* out, size_t rest) {
    for (; rest >= 8 * 255U; rest -= 8 * 255U, out += 8) store(out, ~uint64_t{0});
    for (; rest >= 255; rest -= 255) *out++ = 255;
    *out++ = static_cast<uint8_t>(rest);
    return out;
}

/// The step in which literals are copied. At most so many bytes are read from the end of the
/// literals on, and written behind it.
constexpr size_t literalStep = 16;

/// Writes token, literal extension and literals; returns the position behind them. `Wide` copies in
/// steps of literalStep. The token's match nibble stays 0.
template <bool Wide>
inline uint8_t* writeLiterals(uint8_t* out, const uint8_t* literals, size_t count) {
    uint8_t* const token = out++;
    *token = static_cast<uint8_t>(std::min(count, nibbleFull) << 4);
    if (count >= nibbleFull) out = writelen(out, count - nibbleFull);
    if constexpr (Wide) {
        copyWide<literalStep>(out, literals, count);
    } else {
        std::memcpy(out, literals, count);
    }
    return out + count;
}

/// Writes the length `match` - 4 into the token and behind the offset; returns the sequence's end.
inline uint8_t* writeMatchLength(uint8_t* token, uint8_t* out, size_t match) {
    const size_t value = match - minMatch;
    if (value < nibbleFull) {
        *token = static_cast<uint8_t>(*token | value);
        return out;
    }
    *token |= nibbleFull;
    return writelen(out, value - nibbleFull);
}

/// Writes a whole sequence, for which there is room.
template <bool Wide>
inline uint8_t* writeSequence(uint8_t* out, const uint8_t* literals, size_t count, uint32_t offset,
                              size_t match) {
    if (Wide && count <= shortLiterals && match <= shortMatch) [[likely]] {
        *out = static_cast<uint8_t>(count << 4 | (match - minMatch));
        copy16(out + tokenSize, literals);
        store(out + tokenSize + count, static_cast<uint16_t>(offset));
        return out + tokenSize + count + offsetSize;
    }
    uint8_t* const token = out;
    out = writeLiterals<Wide>(out, literals, count);
    store(out, static_cast<uint16_t>(offset));
    return writeMatchLength(token, out + offsetSize, match);
}

/// The most literals that fit with their token into `room` bytes; 0 also when not even that fits.
inline size_t literalsThatFit(size_t available, size_t room) {
    if (room == 0) return 0;
    size_t count = std::min(available, room - tokenSize);
    while (tokenSize + extensionBytes(count) + count > room) --count;
    return count;
}

}  // namespace vek::inline VEK_LEVEL::lz4
