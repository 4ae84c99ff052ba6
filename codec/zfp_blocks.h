// Stretches of a ZFP field, "chunks", that are coded apart from each other.
//
// A chunk is contiguous in the raw field: four planes (or rows, where the field has but one plane),
// or as many times four as make about 256 KiB. Its blocks need nothing of another chunk's, so
// chunks can be coded on threads of the caller's, each with a ZfpChunkEncoder of its own, and their
// bits be strung together with a ZfpBitString; chunks of a fixed rate stand at known bits and can
// be decoded likewise.
//
// A block at a far side that the field does not fill is padded along each axis in turn: three
// values by their first, two by the second and the first, one by itself.
#pragma once

#include "codec/codec.h"
#include "codec/memory.h"
#include "codec/zfp_header.h"
#include "vekdc.h"

namespace vekdc::codec {

/// How a field is cut into chunks.
class ZfpChunks {
 public:
    ZfpChunks() = default;
    explicit ZfpChunks(const ZfpDims& field);

    uint32_t count() const { return (layers_ + perChunk_ - 1) / perChunk_; }
    ZfpDims at(uint32_t index) const;
    /// Whether a chunk's floats are fewer bytes than an address space has.
    bool addressable() const;

 private:
    ZfpDims field_;
    bool byPlanes_ = false;
    uint32_t layers_ = 1;
    uint32_t perChunk_ = 4;
};

/// Goes over a chunk's blocks in the order of the stream.
class ZfpBlockWalk {
 public:
    ZfpBlockWalk() = default;
    explicit ZfpBlockWalk(const ZfpDims& chunk) : dims_(chunk) {}

    bool atEnd() const { return z_ >= dims_.z; }
    void advance() {
        if ((x_ += 4) < dims_.x) return;
        x_ = 0;
        if ((y_ += 4) < dims_.y) return;
        y_ = 0;
        z_ += 4;
    }

    /// The block's first value, counted from the chunk's.
    size_t first() const { return (size_t{z_} * dims_.y + y_) * dims_.x + x_; }
    /// How far the block is filled along each axis.
    ZfpDims filled() const {
        return {std::min(4U, dims_.x - x_), std::min(4U, dims_.y - y_), std::min(4U, dims_.z - z_)};
    }
    const ZfpDims& chunk() const { return dims_; }

 private:
    ZfpDims dims_;
    uint32_t x_ = 0;
    uint32_t y_ = 0;
    uint32_t z_ = 0;
};

/// A state record of the library.
class ZfpRecord {
 public:
    explicit ZfpRecord(const Allocator& allocator = {}) : memory_(allocator) {}
    /// Takes the record's memory where it is not there yet.
    [[nodiscard]] bool reserve();
    VekZfpState* get() { return reinterpret_cast<VekZfpState*>(memory_.data()); }
    /// Makes this record what another is; both have their memory.
    void copy(const ZfpRecord& other);

 private:
    Memory<uint32_t> memory_;
};

/// Coded bits as 64-bit words, those above the last bit zero.
struct ZfpCoded {
    ZfpCoded() = default;
    explicit ZfpCoded(const Allocator& allocator) : words(allocator) {}
    Memory<uint64_t> words;
    uint64_t bits = 0;
};

class ZfpChunkEncoder {
 public:
    explicit ZfpChunkEncoder(const Allocator& allocator = {}) : record_(allocator) {}

    /// Codes a chunk from its first bit on. Ended, or NoMemory.
    Status encode(const float* values, const ZfpDims& chunk, const ZfpParameters& p,
                  ZfpCoded& coded);

 private:
    ZfpRecord record_;
};

/// Strings bits of any number together.
class ZfpBitString {
 public:
    /// Puts `bits` bits behind those that are held: shifts them, in place, and returns how many
    /// whole words there are to be written now. One word behind the last whole one is used too.
    size_t join(uint64_t* words, uint64_t bits);
    /// The last word, to be written where held() is not 0.
    uint64_t last() const { return held_; }
    unsigned held() const { return pending_; }

 private:
    uint64_t held_ = 0;  ///< The bits held; those above them are zero.
    unsigned pending_ = 0;
};

/// Decodes blocks from memory, from any bit on.
class ZfpChunkDecoder {
 public:
    /// Bytes in front of the one that a block begins in. The library can skip bits as a block of a
    /// fixed length, but not fewer than a block's header has.
    static constexpr size_t kAhead = 2;
    static_assert(8 * kAhead >= kZfpBlockHeaderBits);

    explicit ZfpChunkDecoder(const Allocator& allocator = {})
        : record_(allocator), probe_(allocator) {}

    /// Memory for open(), once.
    [[nodiscard]] bool reserve() { return record_.reserve() && probe_.reserve(); }
    /// Blocks begin `skip` bits, at least 8 * kAhead, behind the first byte.
    void open(Bytes bytes, uint64_t skip, const ZfpParameters& p);
    /// Decodes up to `most` blocks of a chunk; false when the bytes end inside one.
    bool decode(ZfpBlockWalk& walk, float* values, uint64_t most = ~uint64_t{0});
    /// How many bits are left. Exact where there are at least kZfpBlockHeaderBits.
    uint64_t bitsLeft();

 private:
    ZfpRecord record_;
    ZfpRecord probe_;
    Bytes bytes_;
};

}  // namespace vekdc::codec
