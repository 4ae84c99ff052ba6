// Matches of three bytes, which are too short for the chains.
//
// In data of many different bytes, such as programs, three literals cost more than such a match;
// without them programs come out a tenth larger. Text has fewer bytes, and its literals are cheap.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>

#include "bytes/crc32c_step.h"
#include "bytes/words.h"

namespace vek::inline VEK_LEVEL::matching {

/// Whether the bytes are so many different ones that matches of three pay.
inline bool wantsNearMatches(const uint8_t* bytes, uint32_t length) {
    constexpr uint32_t samples = 1024;
    constexpr int manyValues = 128;
    std::array<uint8_t, 256> seen{};
    const uint32_t step = length / samples | 1;
    for (uint32_t i = 0; i < length; i += step) seen[bytes[i]] = 1;
    return std::accumulate(seen.begin(), seen.end(), 0) > manyValues;
}

/// The latest places of three bytes.
///
/// They pay where they are near. The table is one call's own: it begins empty, an entry is the low
/// half of an offset, and what it names is verified.
class NearMatches {
 public:
    NearMatches(const uint8_t* bytes, uint32_t length, uint32_t farthest)
        : reach_(wantsNearMatches(bytes, length) ? std::min(mostReach, farthest) : 0) {
        if (reach_ != 0) latest_.fill(0);
    }

    /// Enters bytes[at] and returns the distance to the same three bytes, or 0.
    uint32_t enter(const uint8_t* bytes, uint32_t at) {
        if (reach_ == 0) return 0;
        const uint32_t three = firstThree(bytes + at);
        uint16_t& slot = latest_[crc32cStep(0, three) % entries];
        const uint32_t distance = static_cast<uint16_t>(at - slot);
        slot = static_cast<uint16_t>(at);
        // Whether the distance is in reach cannot be predicted: one out of reach becomes 0.
        const uint32_t usable = 0U - static_cast<uint32_t>(distance - 1 < std::min(at, reach_));
        const uint32_t nearby = distance & usable;
        return firstThree(bytes + (at - nearby)) == three ? nearby : 0;
    }

 private:
    static constexpr uint32_t entries = 4096;
    static constexpr uint32_t mostReach = 1024;

    static uint32_t firstThree(const uint8_t* p) { return load<uint32_t>(p) << 8; }

    uint32_t reach_;
    std::array<uint16_t, entries> latest_;
};

}  // namespace vek::inline VEK_LEVEL::matching
