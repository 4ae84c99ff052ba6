// What the LZ4 units share: the format's numbers, the writing of sequences, and the history that an
// encoder may refer to.
//
// A block is a row of sequences: a token (literal count in the high nibble, match length - 4 in the
// low one; a nibble of 15 is followed by bytes to add, up to and including the first that is not
// 255), the literals, a 16-bit offset, the match length's further bytes. The last sequence ends
// after its literals.
//
// Encoders number positions along the stream: the block's first byte has the number `index`, and
// the bytes in front of it, 0 to index - 1, are the history. It lies in memory in front of the
// block (InPlace), or in a buffer of its own (SeparateDictionary), and is a template parameter of
// the encoding engines: they see entries of their tables and ask the history to compare.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "bytes/copy.h"
#include "bytes/match_length.h"
#include "bytes/words.h"

namespace vek::inline VEK_LEVEL::lz4 {

constexpr size_t minMatch = 4;
constexpr size_t lastLiterals = 5;  // A match ends at least this far in front of the block's end.
constexpr size_t lastMatchStart = 12;  // The last match begins at least so far from it.
constexpr size_t nibbleFull = 15;      // A nibble with this value is extended by bytes.
constexpr uint32_t maxOffset = 65535;

/// Bytes that extend a nibble of a value: none below 15, then one for every 255 begun.
constexpr size_t extensionBytes(size_t value) {
    return value < nibbleFull ? 0 : (value - nibbleFull) / 255 + 1;
}

/// Writes the extension of a length whose nibble is full; `rest` is the length - 15.
inline uint8_t* writelen(uint8_t* out, size_t rest) {
    for (; rest >= 8 * 255U; rest -= 8 * 255U, out += 8) store(out, ~uint64_t{0});
    for (; rest >= 255; rest -= 255) *out++ = 255;
    *out++ = static_cast<uint8_t>(rest);
    return out;
}

/// A copy may write up to this many bytes behind a sequence's literals and, as they lie in front of
/// the next 28 (the fast encoders) or 13 bytes of the block, read as many behind them.
constexpr size_t wideCopy = 16;

/// Writes token, literal extension and literals; returns the position behind them. `Wide` copies
/// 16 bytes a step and so up to 15 too many. The token's match nibble stays 0.
template <bool Wide>
inline uint8_t* writeLiterals(uint8_t* out, const uint8_t* literals, size_t count) {
    uint8_t* const token = out++;
    *token = static_cast<uint8_t>(std::min(count, nibbleFull) << 4);
    if (count >= nibbleFull) out = writelen(out, count - nibbleFull);
    if constexpr (Wide) {
        copy16(out, literals);
        for (size_t done = wideCopy; done < count; done += wideCopy)
            copy16(out + done, literals + done);
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
    if (Wide && count < nibbleFull && match < nibbleFull + minMatch) [[likely]] {
        *out = static_cast<uint8_t>(count << 4 | (match - minMatch));
        copy16(out + 1, literals);
        store(out + 1 + count, static_cast<uint16_t>(offset));
        return out + 3 + count;
    }
    uint8_t* const token = out;
    out = writeLiterals<Wide>(out, literals, count);
    store(out, static_cast<uint16_t>(offset));
    return writeMatchLength(token, out + 2, match);
}

/// The most literals that fit with their token into `room` bytes; 0 also when not even that fits.
inline size_t literalsThatFit(size_t available, size_t room) {
    if (room == 0) return 0;
    size_t count = std::min(available, room - 1);
    while (1 + extensionBytes(count) + count > room) --count;
    return count;
}

/// Number of equal bytes, at most `limit`, in front of `a` and of `b`.
inline size_t commonSuffix(const uint8_t* a, const uint8_t* b, size_t limit) {
    size_t n = 0;
    while (n < limit && *(a - n - 1) == *(b - n - 1)) ++n;
    return n;
}

/// History that lies in memory right in front of the block: one string, from `base` on.
struct InPlace {
    const uint8_t* base;  ///< Position 0.

    uint32_t position(const uint8_t* p) const { return static_cast<uint32_t>(p - base); }

    /// True when the 4 bytes at position `c`, which lies in front of `p`, are `word`.
    bool equal4(uint32_t c, uint32_t word) const { return load<uint32_t>(base + c) == word; }

    /// Length of the match of `p` with position `c`, `known` bytes of which are equal, at most up
    /// to `limit`.
    size_t forward(const uint8_t* p, uint32_t c, size_t known, const uint8_t* limit) const {
        return known +
               matchLength(p + known, base + c + known, static_cast<size_t>(limit - p) - known);
    }

    /// Bit k tells whether byte k, of 16, at `p` and at position `c`, which lies in front, agree.
    uint32_t compare(const uint8_t* p, uint32_t c) const {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(base + c));
        return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, y)));
    }
    /// Length of the match whose beginning compare() has seen, at most up to `limit`, which lies
    /// behind that.
    size_t extend(const uint8_t* p, uint32_t c, uint32_t agreed, const uint8_t* limit) const {
        return agreed != 0xFFFF ? lowestSetBit(~agreed) : forward(p, c, 16, limit);
    }

    /// False when `p` and position `c` differ in the 4 bytes at distance `at`.
    bool maybeLonger(const uint8_t* p, uint32_t c, size_t at) const {
        return load<uint32_t>(base + c + at) == load<uint32_t>(p + at);
    }

    /// Equal bytes in front of `p` and of position `c`, at most down to `low`.
    size_t backward(const uint8_t* p, uint32_t c, const uint8_t* low) const {
        const size_t most = std::min(static_cast<size_t>(p - low), size_t{c});
        // Up to 3 bytes without a loop whose end nobody could foresee.
        if (c >= 4) [[likely]] {
            const uint32_t difference = load<uint32_t>(p - 4) ^ load<uint32_t>(base + c - 4);
            if (difference != 0) [[likely]]
                return std::min<size_t>((31 - highestSetBit(difference)) / 8, most);
        }
        return commonSuffix(p, base + c, most);
    }
};

/// History in a buffer of its own. A decoder reads every position below the dictionary's length
/// from the dictionary and all others from its output, so positions are used only where both sides
/// see the same bytes: in the dictionary below `dictionaryEnd`, in the block from `blockLow` on.
/// A match runs from the one into the other only when they meet.
struct SeparateDictionary {
    const uint8_t* block;
    uint32_t index;
    const uint8_t* dictionary;
    uint32_t dictionaryEnd;  ///< min(index, length)
    uint32_t blockLow;       ///< max(index, length)

    SeparateDictionary(const uint8_t* source, uint32_t sourceIndex, const uint8_t* bytes,
                       uint32_t length)
        : block(source),
          index(sourceIndex),
          dictionary(bytes),
          dictionaryEnd(std::min(sourceIndex, length)),
          blockLow(std::max(sourceIndex, length)) {}

    uint32_t position(const uint8_t* p) const { return static_cast<uint32_t>(p - block) + index; }

    bool equal4(uint32_t c, uint32_t word) const {
        if (c >= blockLow) return load<uint32_t>(block + (c - index)) == word;
        return c < dictionaryEnd && dictionaryEnd - c >= minMatch &&
               load<uint32_t>(dictionary + c) == word;
    }

    size_t forward(const uint8_t* p, uint32_t c, size_t known, const uint8_t* limit) const {
        const auto most = static_cast<size_t>(limit - p);
        if (c >= blockLow)
            return known + matchLength(p + known, block + (c - index) + known, most - known);
        const size_t inDictionary = std::min<size_t>(dictionaryEnd - c, most);
        size_t n = known;
        if (n < inDictionary) n += matchLength(p + n, dictionary + c + n, inDictionary - n);
        if (n == dictionaryEnd - c && dictionaryEnd == blockLow)
            n += matchLength(p + n, block, most - n);
        return n;
    }

    /// Tells no more of a match than that there is one.
    static uint32_t compare(const uint8_t* /*p*/, uint32_t /*c*/) { return 0xF; }
    size_t extend(const uint8_t* p, uint32_t c, uint32_t /*agreed*/, const uint8_t* limit) const {
        return forward(p, c, minMatch, limit);
    }

    bool maybeLonger(const uint8_t* p, uint32_t c, size_t at) const {
        return c < blockLow || load<uint32_t>(block + (c - index) + at) == load<uint32_t>(p + at);
    }

    size_t backward(const uint8_t* p, uint32_t c, const uint8_t* low) const {
        const bool inBlock = c >= blockLow;
        const uint8_t* const q = inBlock ? block + (c - index) : dictionary + c;
        const size_t most =
            std::min<size_t>(static_cast<size_t>(p - low), inBlock ? c - blockLow : c);
        return commonSuffix(p, q, most);
    }
};

/// True when a dictionary is nothing but the history in place.
inline bool isInPlace(const uint8_t* source, int index, const uint8_t* dictionary, int length) {
    return index == length && dictionary + length == source;
}

}  // namespace vek::inline VEK_LEVEL::lz4
