// The pairs that a matcher writes: a literal with the distance 0, or a match's length less three
// with its distance.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "matching/text.h"

namespace vek::inline VEK_LEVEL::matching {

/// Nothing is counted.
struct NoCounts {
    void literal(uint8_t /*byte*/) {}
    void literals(const uint8_t* /*begin*/, const uint8_t* /*end*/) {}
    void match(uint32_t /*length*/, uint32_t /*distance*/) {}
};

/// The room for pairs, and what counts their symbols.
template <class Counts>
struct PairWriter {
    uint8_t* lit;
    uint16_t* dist;
    const uint8_t* litEnd;  ///< Behind the room.
    [[no_unique_address]] Counts counts;

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

/// Makes literals of the bytes from offset `at` on, as far as `end` and the room go.
template <class Counts>
inline uint32_t writeLiterals(const uint8_t* bytes, uint32_t at, uint32_t end,
                              PairWriter<Counts>& pairs) {
    const uint32_t count = std::min(end - at, pairs.left());
    pairs.literals(bytes + at, count);
    return at + count;
}

}  // namespace vek::inline VEK_LEVEL::matching
