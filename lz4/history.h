// The history that an LZ4 encoder may refer to, and the comparing of strings with it.
//
// Encoders number positions along the stream: the block's first byte has the number `index`, and
// the bytes in front of it, 0 to index - 1, are the history. It lies in memory in front of the
// block (InPlace), or in a buffer of its own (SeparateDictionary), and is a template parameter of
// the encoding engines: they see entries of their tables and ask the history to compare.
#pragma once

#include <emmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "bytes/match_length.h"
#include "bytes/words.h"
#include "lz4/format.h"

namespace vek::inline VEK_LEVEL::lz4 {

/// Length of the common prefix of `a` and `b`, at most `limit`; the first `known` bytes are known
/// to agree, and at most `limit` many.
inline size_t getboundlong(const uint8_t* a, const uint8_t* b, size_t known, size_t limit) {
    return known + matchLength(a + known, b + known, limit - known);
}

/// The same for a string in a dictionary, whose first 8 bytes are known to agree: 8 also where the
/// limit is less.
inline size_t getboundlongdict(const uint8_t* a, const uint8_t* b, size_t limit) {
    constexpr size_t known = 8;
    return limit <= known ? known : getboundlong(a, b, known, limit);
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
        return getboundlong(p, base + c, known, static_cast<size_t>(limit - p));
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
        if (c >= blockLow) return getboundlong(p, block + (c - index), known, most);
        const size_t inDictionary = std::min<size_t>(dictionaryEnd - c, most);
        const size_t n = forwardInDictionary(p, dictionary + c, known, inDictionary);
        if (n != dictionaryEnd - c || dictionaryEnd != blockLow) return n;
        return n + matchLength(p + n, block, most - n);
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

 private:
    /// Most matches end within 8 bytes: these are compared at once.
    static size_t forwardInDictionary(const uint8_t* p, const uint8_t* q, size_t known,
                                      size_t limit) {
        if (known >= limit) return known;
        if (limit < 8) return getboundlong(p, q, known, limit);
        const uint64_t difference = load<uint64_t>(p) ^ load<uint64_t>(q);
        if (difference != 0) return lowestSetBit(difference) / 8;
        return getboundlongdict(p, q, limit);
    }
};

/// True when a dictionary is nothing but the history in place.
inline bool isInPlace(const uint8_t* source, int index, const uint8_t* dictionary, int length) {
    return index == length && dictionary + length == source;
}

}  // namespace vek::inline VEK_LEVEL::lz4
