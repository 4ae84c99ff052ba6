// What LZ4 frames are made of (https://github.com/lz4/lz4/blob/dev/doc/lz4_Frame_format.md): their
// numbers and checksums, and the encoder of a single block.
//
// A block is coded behind the history that it may refer to: none, a dictionary, or, in a frame of
// linked blocks, the last 64 KiB of what came before. With that in memory in front of it, it needs
// nothing else of its neighbours, so blocks of one frame can be coded on as many threads as wanted.
#pragma once

#include <cstddef>
#include <cstdint>

#include "codec/codec.h"
#include "codec/memory.h"

namespace vekdc::codec {

constexpr uint32_t kLz4Magic = 0x184D2204;
constexpr uint32_t kLz4LegacyMagic = 0x184C2102;
constexpr uint32_t kLz4SkippableMagic = 0x184D2A50;  ///< And the 15 behind it.
constexpr uint32_t kLz4Stored = 0x80000000;          ///< Set in the size of a block that is stored.
constexpr size_t kLz4LegacyBlock = 8 << 20;
constexpr size_t kLz4History = 64 << 10;  ///< How far back a block may refer.

enum Lz4Flag : uint8_t {
    kLz4HasDictionaryId = 1,
    kLz4Reserved = 2,
    kLz4ContentChecksum = 4,
    kLz4ContentSize = 8,
    kLz4BlockChecksum = 16,
    kLz4Independent = 32,
    kLz4Version = 64,
    kLz4VersionMask = 192
};

constexpr unsigned kLz4SmallestCode = 4;
constexpr unsigned kLz4LargestCode = 7;
/// Block sizes by their codes.
constexpr size_t lz4BlockSize(unsigned code) {
    return size_t{1} << (8 + 2 * code);
}

constexpr bool isLz4Skippable(uint32_t magic) {
    return (magic & ~15U) == kLz4SkippableMagic;
}
/// Whether a frame of any kind begins with it.
constexpr bool isLz4Magic(uint32_t magic) {
    return magic == kLz4Magic || magic == kLz4LegacyMagic || isLz4Skippable(magic);
}

/// The last bytes of what came before, as many as a block may refer to.
constexpr Bytes lz4History(Bytes bytes) {
    return bytes.size() > kLz4History ? bytes.last(kLz4History) : bytes;
}

/// The checksum of headers, blocks and content: XXH32 with the seed 0.
uint32_t lz4Hash(Bytes bytes);

/// Likewise, of data in pieces.
class Lz4Hash {
 public:
    Lz4Hash() { reset(); }
    void reset();
    void update(Bytes bytes);
    uint32_t value() const;

 private:
    uint32_t state_[12];
};

/// How blocks are coded.
struct Lz4Coding {
    int level = 1;         ///< 1: plain; 2 to 9: high compression.
    int acceleration = 1;  ///< Of blocks without history at level 1: from 1 on, faster and larger.
    bool checksums = false;  ///< One behind each block.
};

/// Codes blocks as they stand in a frame, one at a time; has the work memory of one thread.
class Lz4BlockEncoder {
 public:
    explicit Lz4BlockEncoder(const Lz4Coding& coding, const Allocator& allocator = {})
        : coding_(coding), table_(allocator), chain_(allocator), unused_(allocator) {}

    void set(const Lz4Coding& coding) { coding_ = coding; }

    /// The room that a block of `length` bytes needs.
    static size_t bound(size_t length);

    /// Codes the `length` bytes at `data`, at least 1, which may refer to the `history` bytes in
    /// front of them, at most kLz4History. False when there is no memory.
    [[nodiscard]] bool encode(const uint8_t* data, size_t history, size_t length, uint8_t* to,
                              size_t& written);

    /// The same for all blocks of a stream in turn. While all of it stays in memory in front of the
    /// blocks, each `follows` the one before, and what that one left in the tables serves on: that
    /// is faster and finds more, but what comes out depends on the blocks before.
    [[nodiscard]] bool encodeNext(const uint8_t* data, size_t history, size_t length, bool follows,
                                  uint8_t* to, size_t& written);

 private:
    bool load(const uint8_t* data, size_t history, size_t length);
    size_t finish(Bytes data, uint8_t* to, int coded) const;

    Lz4Coding coding_;
    Memory<uint32_t> table_;  // Positions by hash.
    Memory<uint32_t> chain_;  // The positions before them; for high compression.
    Memory<uint8_t> unused_;
};

}  // namespace vekdc::codec
