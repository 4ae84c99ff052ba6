// What the two matchers share: the match state, the search along a hash chain, the pairs written.
//
// Every position is entered under the hash of the four bytes that begin there; the head table holds
// the latest position of each hash, the chain table leads from each position to the one before it
// with the same hash. A search follows the chain from the nearest position to farther ones and
// keeps the longest match, the nearest of equals.
//
// Positions count from the start of the stream, and the caller keeps only the last `winSize` bytes,
// in a ring. The source of the running call is not copied there first. Its beginning is matched in
// a copy that has the ring's bytes in front, the oldest first, so that nothing has to ask where a
// candidate is; once a call has come a ring's length into its source, every candidate within reach
// is in the source itself.
//
// The tables are the caller's, and may hold anything. A candidate is used only if its distance is
// 1 .. winSize - 1 and its bytes are still there, which one unsigned comparison says; then its
// bytes are compared. So whatever the tables hold, the pairs give back the source; a chain that
// runs in a circle ends with the search's budget.
#pragma once

#include <xmmintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "bytes/crc32c_step.h"
#include "bytes/match_length.h"
#include "bytes/words.h"
#include "deflate/symbol_counts.h"
#include "deflate/symbol_tables.h"
#include "include/vekdc.h"

namespace vek::inline VEK_LEVEL::deflate {

/// Bytes that the hash covers, and the shortest match.
constexpr uint32_t hashBytes = 4;

/// The empty table entry, farther back than any window reaches.
constexpr int32_t noPosition = -static_cast<int32_t>(maxDistance);

/// Whether the sizes of the window and the head table are within their bounds.
constexpr bool validSizes(uint32_t winSize, uint32_t hashSize) {
    return winSize >= 256 && winSize <= maxDistance && hashSize >= 256 && hashSize <= 65536;
}

inline uint32_t hash4(const uint8_t* p) {
    return crc32cStep(0, load<uint32_t>(p));
}

/// Size of the ring within a window of `winSize` bytes: a power of two.
inline uint32_t ringSize(uint32_t winSize) {
    return std::bit_floor(winSize);
}

/// The four parameters, as both matchers read them.
struct MatchParameters {
    /// No chain is longer than the ring, unless it runs in a circle.
    MatchParameters(const int32_t* values, uint32_t ring)
        : maxChain(std::min(static_cast<uint32_t>(values[0]), ring)),
          reducedChain(std::min(static_cast<uint32_t>(values[0]) / 4, ring)),
          goodLength(static_cast<uint32_t>(values[1])),
          niceLength(static_cast<uint32_t>(values[2])),
          lengthLimit(static_cast<uint32_t>(values[3])) {}

    uint32_t maxChain;
    uint32_t reducedChain;  ///< Of a search that has, or began with, goodLength bytes.
    uint32_t goodLength;
    uint32_t niceLength;
    uint32_t lengthLimit;  ///< maxInsert of the greedy matcher, maxLazy of the lazy one.
};

/// The head and chain tables.
struct HashChains {
    int32_t* head;
    int32_t* prev;
    uint32_t hashMask;
    uint32_t ringMask;

    /// Enters `position` under `hash` and returns the position that it hides.
    uint32_t insert(uint32_t hash, uint32_t position) const {
        int32_t& latest = head[hash & hashMask];
        const int32_t before = latest;
        prev[position & ringMask] = before;
        latest = static_cast<int32_t>(position);
        return static_cast<uint32_t>(before);
    }

    /// The latest position under `hash`.
    uint32_t latest(uint32_t hash) const { return static_cast<uint32_t>(head[hash & hashMask]); }

    /// Takes back the insertion of `position`, the latest one, whose slot held `older`.
    void remove(uint32_t hash, uint32_t position, int32_t older) const {
        int32_t& slot = prev[position & ringMask];
        head[hash & hashMask] = slot;
        slot = older;
    }

    /// Fetches the entry of `hash` ahead of its use.
    void prefetch(uint32_t hash) const {
        _mm_prefetch(reinterpret_cast<const char*>(head + (hash & hashMask)), _MM_HINT_T0);
    }

    uint32_t next(uint32_t position) const {
        return static_cast<uint32_t>(prev[position & ringMask]);
    }
};

/// The pairs written by a call, and their frequencies.
struct PairWriter {
    uint8_t* lit;
    uint16_t* dist;
    SymbolCounts counts;
    const uint8_t* litEnd;  ///< Behind the room for pairs.

    uint32_t left() const { return static_cast<uint32_t>(litEnd - lit); }

    void literal(uint8_t byte) {
        put(byte, 0);
        counts.literal(byte);
    }

    void literals(const uint8_t* bytes, uint32_t count) {
        std::memcpy(lit, bytes, count);
        std::memset(dist, 0, count * sizeof *dist);
        skip(count);
        counts.literals(bytes, bytes + count);
    }

    void skip(uint32_t count) {
        lit += count;
        dist += count;
    }

    void match(uint32_t length, uint32_t distance) {
        put(length - minMatch, distance);
        counts.match(length, distance);
    }

 private:
    void put(uint32_t value, uint32_t distance) {
        *lit++ = static_cast<uint8_t>(value);
        *dist++ = static_cast<uint16_t>(distance);
    }
};

struct Match {
    uint32_t length;
    uint32_t distance;
};

/// The bytes to be matched, those of before right in front of them.
struct History {
    const uint8_t* src;
    uint32_t start;   ///< Position of src[0].
    uint32_t oldest;  ///< Position of the oldest byte of history.
    uint32_t ringMask;

    /// Distances from `position` below or at this are within reach.
    uint32_t reach(uint32_t position) const { return std::min(ringMask, position - oldest); }

    /// The byte `back` + 1 before src[at], and those behind it.
    const uint8_t* place(uint32_t at, uint32_t back) const { return src + at - 1 - back; }

    /// Length, up to `limit`, of the match of src[at] with the bytes `back` + 1 before it.
    uint32_t matchAt(uint32_t at, uint32_t back, uint32_t limit) const {
        return static_cast<uint32_t>(matchLength(src + at, place(at, back), limit));
    }

    /// Whether a match of `length` bytes, at least four, of src[at] with what is `back` + 1 before
    /// it ends in the same four bytes.
    bool endsAlike(uint32_t at, uint32_t back, uint32_t length) const {
        const uint8_t* const tail = src + at + length - hashBytes;
        return load<uint32_t>(tail - 1 - back) == load<uint32_t>(tail);
    }
};

}  // namespace vek::inline VEK_LEVEL::deflate
