// The text in which deflate's matches are looked for, and the hash under which it is entered.
#pragma once

#include <algorithm>
#include <cstdint>

#include "bits/deflate_symbols.h"
#include "bytes/crc32c_step.h"
#include "bytes/words.h"

namespace vek::inline VEK_LEVEL::matching {

using deflate_format::maxMatch;
using deflate_format::minMatch;

/// Bytes that the hash covers, and the shortest match that the chains know.
constexpr uint32_t hashBytes = 4;

inline uint32_t hash4(const uint8_t* p) {
    return crc32cStep(0, load<uint32_t>(p));
}

struct Match {
    uint32_t length;
    uint32_t distance;
};

/// How a search goes about it.
struct SearchLimits {
    uint32_t maxChain;      ///< Places that are looked at,
    uint32_t reducedChain;  ///< or this many in all once a match has, or began with, goodLength.
    uint32_t goodLength;
    uint32_t niceLength;   ///< A match of this length ends the search.
    uint32_t lengthLimit;  ///< Greedy: no position inside a longer match is entered. Lazy: behind
                           ///< one of this length no better one is sought.
};

/// The bytes to be matched, those of before right in front of them.
struct Text {
    const uint8_t* bytes;
    uint32_t start;     ///< Position of bytes[0].
    uint32_t oldest;    ///< Position of the oldest byte of history.
    uint32_t farthest;  ///< Longest distance of a match.
    uint32_t length;    ///< Bytes that are there,
    uint32_t hashable;  ///< that may be entered,
    uint32_t stop;      ///< and before which matches begin.

    /// Distances from `position` below or at this are within reach.
    uint32_t reach(uint32_t position) const { return std::min(farthest, position - oldest); }

    /// The longest match at offset `at`.
    uint32_t limit(uint32_t at) const { return std::min<uint32_t>(maxMatch, length - at); }
};

}  // namespace vek::inline VEK_LEVEL::matching
