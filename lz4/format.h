// The LZ4 block format's numbers.
//
// A block is a row of sequences: a token (literal count in the high nibble, match length - 4 in the
// low one; a nibble of 15 is followed by bytes to add, up to and including the first that is not
// 255), the literals, a 16-bit offset, the match length's further bytes. The last sequence ends
// after its literals.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vek::inline VEK_LEVEL::lz4 {

constexpr size_t tokenSize = 1;
constexpr size_t offsetSize = 2;
constexpr size_t nibbleFull = 15;  // A nibble with this value is extended by bytes.
constexpr size_t minMatch = 4;
constexpr uint32_t maxOffset = 65535;
constexpr size_t lastLiterals = 5;  // A match ends at least this far in front of the block's end.
constexpr size_t lastMatchStart = 12;  // The last match begins at least so far from it.

/// The longest run of literals and the longest match that need no byte of extension.
constexpr size_t shortLiterals = nibbleFull - 1;
constexpr size_t shortMatch = nibbleFull - 1 + minMatch;

/// Bytes that extend a nibble of a value: none below 15, then one for every 255 begun.
constexpr size_t extensionBytes(size_t value) {
    return value < nibbleFull ? 0 : (value - nibbleFull) / 255 + 1;
}

}  // namespace vek::inline VEK_LEVEL::lz4
