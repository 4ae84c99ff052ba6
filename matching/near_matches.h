// Matches of three bytes, which are too short for the chains.
//
// In data that is not text, such as programs, three literals cost more than such a match; without
// them programs come out a tenth larger, and tables of offsets up to twice as large.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "bytes/words.h"

namespace vek::inline VEK_LEVEL::matching {

/// The reach of matches of three bytes: `most`, or 0 where few bytes are below the tabulator's, as
/// in text, whose literals are cheap, and in what is packed already.
inline uint32_t nearReach(const uint8_t* bytes, uint32_t length, uint32_t most) {
    constexpr uint32_t samples = 1024;
    const uint32_t step = length / samples | 1;
    uint32_t seen = 0;
    uint32_t low = 0;
    for (uint32_t i = 0; i < length; i += step, ++seen) low += bytes[i] < '\t' ? 1 : 0;
    return low > seen / 16 ? most : 0;
}

/// The latest places of three bytes.
///
/// The table is one call's own: it begins empty, an entry is the low half of an offset, and what it
/// names is verified.
class NearMatches {
 public:
    /// Of distances up to `reach`; 0: there are none.
    explicit NearMatches(uint32_t reach) : reach_(reach) {
        if (reach_ != 0) latest_.fill(0);
    }

    /// Enters the offsets [from, to).
    void enterRange(const uint8_t* bytes, uint32_t from, uint32_t to) {
        if (reach_ == 0) return;
        for (; from < to; ++from)
            latest_[hash(firstThree(bytes + from))] = static_cast<uint16_t>(from);
    }

    /// Enters bytes[at] and returns what distanceTo() is to be asked about.
    uint16_t exchange(const uint8_t* bytes, uint32_t at) {
        return std::exchange(latest_[hash(firstThree(bytes + at))], static_cast<uint16_t>(at));
    }

    /// How far before bytes[at] the same three bytes are, or 0.
    uint32_t distanceTo(const uint8_t* bytes, uint32_t at, uint16_t latest) const {
        const uint32_t distance = static_cast<uint16_t>(at - latest);
        // Whether the distance is in reach cannot be predicted: one out of reach becomes 0.
        const uint32_t usable = 0U - static_cast<uint32_t>(distance - 1 < std::min(at, reach_));
        const uint32_t nearby = distance & usable;
        return firstThree(bytes + (at - nearby)) == firstThree(bytes + at) ? nearby : 0;
    }

    /// Enters bytes[at] and returns the distance to the same three bytes, or 0.
    uint32_t enter(const uint8_t* bytes, uint32_t at) {
        return reach_ == 0 ? 0 : distanceTo(bytes, at, exchange(bytes, at));
    }

 private:
    static constexpr unsigned tableBits = 12;

    static uint32_t firstThree(const uint8_t* p) { return load<uint32_t>(p) & 0xFFFFFF; }
    static uint32_t hash(uint32_t three) { return three * 0x9E3779B1U >> (32 - tableBits); }

    uint32_t reach_;
    std::array<uint16_t, 1U << tableBits> latest_;
};

}  // namespace vek::inline VEK_LEVEL::matching
