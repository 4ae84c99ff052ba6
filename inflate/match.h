// What the careful steps and the fast kernel of the inflate decoder share: entries, bits, and the
// copying of matches out of window and output.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "bytes/copy.h"
#include "inflate/table_layout.h"

namespace vek::inline VEK_LEVEL::inflate {

/// What a lookup finds; `value` is a literal, a base length - 3 or a base distance.
struct Entry {
    uint32_t kind;
    uint32_t value;

    constexpr uint32_t codeLen() const { return kind & 15; }
    constexpr uint32_t lengthExtra() const { return (kind >> 4) & 7; }
    constexpr uint32_t distanceExtra() const { return kind >> 4; }
    constexpr bool isLiteral() const { return kind < 16; }
    constexpr bool isLength() const { return kind >= 0x80; }
    constexpr bool isDistance() const { return distanceExtra() <= maxDistExtra; }
};

constexpr uint32_t maxExtraBits = 15;

/// Copies from the window as much of a match as lies there, at most `length` bytes; `back` is how
/// far before the output's start the match begins, at most windowSize. Returns the bytes copied.
inline uint32_t copyFromWindow(const Run& run, uint8_t* dst, uint32_t back, uint32_t length) {
    const uint32_t total = std::min(back, length);
    for (uint32_t left = total; left != 0;) {
        const bool wrapped = back > run.winIdx;
        const uint32_t at = wrapped ? run.winIdx + (run.windowSize - back) : run.winIdx - back;
        const uint32_t piece = std::min(left, (wrapped ? run.windowSize : run.winIdx) - at);
        std::memmove(dst, run.window + at, piece);
        dst += piece;
        back -= piece;
        left -= piece;
    }
    return total;
}

/// True when bytes may be run over wherever there is room.
inline bool mayRunOver(const Run& run) {
    return run.overEnd == run.dstEnd;
}

/// True when a match at `distance` starts within the history.
inline bool reachable(const Run& run, const uint8_t* dst, uint32_t distance) {
    const auto written = static_cast<size_t>(dst - run.dstStart);
    return distance != 0 && (distance <= written || distance - written <= run.windowSize);
}

/// Copies as much of a reachable match as there is room for; returns the bytes copied.
inline uint32_t copyMatch(const Run& run, uint8_t* dst, uint32_t distance, uint32_t length) {
    const auto room = static_cast<size_t>(run.dstEnd - dst);
    const auto total = static_cast<uint32_t>(std::min<size_t>(room, length));
    const auto written = static_cast<size_t>(dst - run.dstStart);
    uint32_t done = 0;
    if (distance > written) {
        done = copyFromWindow(run, dst, static_cast<uint32_t>(distance - written), total);
    }
    if (done != total) copyOverlap(dst + done, distance, total - done);
    return total;
}

}  // namespace vek::inline VEK_LEVEL::inflate
