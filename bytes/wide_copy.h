// The wide copy of the decoders' kernels: whole steps, whatever runs over.
//
// A kernel that knows of room behind its output copies in steps of 16 or 32 bytes without looking
// at the length's remainder: a typical match or literal run is then one or two moves and one
// branch. What it may overrun is wideCopyMargin, on both sides: each kernel's own margins are sums
// over it.
//
// A match nearer than a register is wide overlaps within one move; it goes by a byte shuffle
// (repeat.h). Any distance of 16 and more is safe for the plain steps, also where the match
// overlaps itself: each 16 bytes are read after all in front of them were written.
#pragma once

#include <cstddef>
#include <cstdint>

#include "bytes/copy.h"
#include "bytes/repeat.h"

namespace vek::inline VEK_LEVEL {

/// The distance from which on a match can be copied by 16-byte moves.
constexpr size_t wideDistance = 16;

/// The most bytes behind the last one asked for that a wide copy reads and writes. (A copy of no
/// bytes at all still takes a whole step.)
template <size_t Step>
constexpr size_t wideCopyMargin = Step - 1;

/// Copies `length` bytes in steps of Step (16 or 32), one step at least. Where the strings overlap,
/// `src` lies at least wideDistance in front of `dst`.
template <size_t Step>
inline void copyWide(uint8_t* dst, const uint8_t* src, size_t length) {
    static_assert(Step == 16 || Step == 32);
    size_t i = 0;
    do {
        copy16(dst + i, src + i);
        if constexpr (Step == 32) copy16(dst + i + 16, src + i + 16);
        i += Step;
    } while (i < length);
}

/// Copies a match of `length` bytes (at least 1) at any distance of at least 1, in steps of Step.
template <size_t Step>
inline void copyMatchWide(uint8_t* dst, size_t distance, size_t length) {
    if (distance >= wideDistance)
        copyWide<Step>(dst, dst - distance, length);
    else
        copyRepeated<Step>(dst, distance, length);
}

}  // namespace vek::inline VEK_LEVEL
