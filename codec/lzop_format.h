// lzop's container: a header with its own checksum, then blocks of 256 KiB, each an LZO1X stream or
// stored where that would not be smaller, with checksums of its data, then a length of 0.
//
// All numbers are big-endian. The header: magic number; versions of the writing program, of its
// LZO library and of the reader it needs (2 bytes each); method and level (1 each); flags (4); with
// a flag of their own, a filter (4); mode, time stamp, and the time stamp's high half (4 each);
// the name behind its length (1); Adler-32 or CRC-32 of all but the magic number (4). Headers of
// versions below 0x0940 lack the version needed, the level and the high half. A flag announces an
// extra field: length, bytes, checksum of both. A block: length of its data and of what is stored
// (4 each), up to two checksums of the data, and, where it is not stored, up to two of the stream.
#pragma once

#include <array>

#include "codec/checksums.h"

namespace vekdc::codec {

constexpr std::array<uint8_t, 9> kLzopMagic = {0x89, 'L', 'Z', 'O', 0, 0x0D, 0x0A, 0x1A, 0x0A};
constexpr size_t kLzopBlock = 256 << 10;
constexpr size_t kLzopLargestBlock = 64 << 20;  ///< The format's own limit.
/// By number, from 1. They differ in who makes them; all make LZO1X streams.
constexpr std::array<const char*, 3> kLzopMethods = {"LZO1X-1", "LZO1X-1(15)", "LZO1X-999"};
constexpr size_t kLzopLongestName = 255;

enum LzopVersion : uint32_t {
    kLzopOldest = 0x0900,
    kLzopHasLevel = 0x0940,  ///< And the version needed, and the time stamp's high half.
    kLzopHasCrc = 0x1001,
    kLzopNewest = 0x1040,
    kLzopLibrary = 0x20A0
};

enum LzopFlag : uint32_t {
    kLzopAdlerOfData = 0x1,
    kLzopAdlerOfStream = 0x2,
    kLzopFromStdin = 0x4,
    kLzopExtra = 0x40,
    kLzopCrcOfData = 0x100,
    kLzopCrcOfStream = 0x200,
    kLzopFiltered = 0x800,
    kLzopHeaderCrc = 0x1000,
    kLzopReserved = 0x000FC000,
    kLzopUnix = 0x03000000
};

/// The checksums of a block, in the order in which they stand before it.
struct LzopBlockCheck {
    uint32_t flag;
    const Checksum& checksum;
    bool ofStream;
    const char* mismatch;

    uint32_t of(Bytes bytes) const { return checksum.update(checksum.initial, bytes); }
};
inline constexpr std::array<LzopBlockCheck, 4> kLzopBlockChecks = {
    {{kLzopAdlerOfData, kAdler32, false, "the Adler-32 does not match"},
     {kLzopCrcOfData, kCrc32, false, "the CRC-32 does not match"},
     {kLzopAdlerOfStream, kAdler32, true, "the Adler-32 of the compressed data does not match"},
     {kLzopCrcOfStream, kCrc32, true, "the CRC-32 of the compressed data does not match"}}};

inline const Checksum& lzopHeaderChecksum(uint32_t flags) {
    return (flags & kLzopHeaderCrc) != 0 ? kCrc32 : kAdler32;
}

}  // namespace vekdc::codec
