// The LZO1X format: instructions, their fields, and the container of several streams.
//
// A stream is a sequence of instructions. Its first byte decides which, and for the values below 16
// also what came before: the number of literals since the last match (0 to 3, or "a run" of at
// least 4).
//
//     first byte  before    what             bytes  length             distance
//     0..15       none      literal run      1 +    3 + op             -
//     0..15       1..3      shortest match   2      2                  1..1024
//     0..15       a run     beyond match     2      3                  2049..3072
//     16..31      any       far match        3 +    2 + (op & 7)       16385..49151 (a)
//     32..63      any       middle match     3 +    2 + (op & 31)      1..16384
//     64..255     any       near match       2      1 + (op >> 5)      1..2048
//     (a) 16384 ends the stream.
//
// Where the length's bits of a run, a far or a middle match are all 0, an extension follows the
// first byte: 255 for each zero byte, then a byte that is not 0. The length is what it would be
// with all bits set (18, 9 or 33) plus the extension.
//
// The last two bytes of a match hold its distance; the low two bits of the first of them give the
// number of literals (0..3) that follow it without an instruction of their own. A stream's first
// byte from 18 on is a run of (it - 17) literals.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vek::inline VEK_LEVEL::lzo {

// First bytes, from which on they are of the class.
constexpr uint32_t farMatch = 16;
constexpr uint32_t middleMatch = 32;
constexpr uint32_t nearMatch = 64;

// The most that each class expresses. (A far match's distance has one more bit, in its first byte.)
constexpr size_t nearDistance = 0x800;
constexpr size_t nearLength = 8;
constexpr size_t middleDistance = 0x4000;
constexpr size_t maxDistance = 0xBFFF;
constexpr size_t endDistance = middleDistance;   // A far match of it is the stream's end.
constexpr size_t beyondDistance = nearDistance;  // What a beyond match adds to its distance.

// Lengths: what the bits are added to, and the bits.
constexpr size_t runBase = 3;
constexpr size_t runBits = 15;
constexpr size_t matchBase = 2;
constexpr size_t middleBits = 31;
constexpr size_t farBits = 7;

constexpr size_t firstRunBase = 17;  // A stream's first byte above it announces a run.
constexpr uint32_t maxTrailing = 3;  // Literals that follow a match without an instruction.

/// What a far or middle match's first byte adds to its 14 bits of distance.
constexpr size_t distanceBase(uint32_t op) {
    return op >= middleMatch ? 1 : middleDistance + ((op & 8) << 11);
}
constexpr size_t lengthBits(uint32_t op) {
    return op >= middleMatch ? middleBits : farBits;
}

// A container holds up to 32 independently compressed parts behind a header of 4n + 3 bytes: the
// mark, n, n XOR mark, the expanded length T of all, and the compressed lengths of all parts but
// the last. Part k expands to T / n bytes, the last to the rest.
constexpr uint8_t containerMark = 0x55;
constexpr uint32_t maxParts = 32;
constexpr size_t totalOffset = 3;
constexpr size_t partLengthsOffset = 7;

constexpr size_t containerHeaderSize(size_t parts) {
    return 4 * parts + 3;
}

/// The end instruction, and all there is of a stream that expands to nothing.
constexpr uint8_t endInstruction[3] = {0x11, 0, 0};

}  // namespace vek::inline VEK_LEVEL::lzo
