// Writes LZ4 frames: a descriptor with its own checksum, blocks of at most 64 KiB to 4 MiB (each
// coded, or stored where coding gains nothing), an end mark and a checksum of the content.
//
// Every Directive ends a block, so all that was put in can be decoded. Blocks that refer to nothing
// before them are read from the caller's input where all of it is there; linked ones, and those
// behind a dictionary, are collected behind their history. That is kept up to 1 MiB long, so that
// the tables are seldom made anew for having been moved.
#pragma once

#include "codec/block_stream.h"
#include "codec/lz4_blocks.h"

namespace vekdc::codec {

struct Lz4FrameOptions {
    static constexpr uint64_t kUnknown = ~uint64_t{0};

    Lz4Coding coding;
    unsigned blockCode = kLz4LargestCode;
    bool linked = false;  ///< Blocks may refer to the ones before.
    bool contentChecksum = true;
    uint64_t contentSize = kUnknown;  ///< Stated in the header unless unknown.
    uint32_t dictionaryId = 0;        ///< Likewise unless 0.
    Bytes dictionary;                 ///< Stays the caller's; its last 64 KiB are used.
};

constexpr size_t kLz4LargestHeader = 19;
/// Writes a frame's header; returns its length.
size_t putLz4Header(const Lz4FrameOptions& options, uint8_t* to);

constexpr size_t kLz4LargestEnd = 8;
/// Writes what is behind the last block; returns its length.
size_t putLz4End(const Lz4FrameOptions& options, const Lz4Hash& content, uint8_t* to);

/// Collects data as Lookahead does, behind the history that they may refer to.
class Lz4Ahead {
 public:
    explicit Lz4Ahead(const Allocator& allocator) : alone_(allocator), memory_(allocator) {}

    /// A new stream; nothing is copied before it is needed.
    void begin(const Lz4FrameOptions& options);

    const uint8_t* show(Input& in, size_t size);
    bool keep(Input& in, size_t size);
    void accept(Input& in, size_t size);
    void forget();
    Bytes kept() const;
    uint64_t offset() const { return alone_.offset(); }

    /// The bytes in front of what was shown, and whether all are where they were for the last
    /// block.
    size_t history() const { return history_; }
    bool follows() const { return follows_; }

 private:
    Lookahead alone_;
    Memory<uint8_t> memory_;  // History, then what was kept behind it.
    Bytes dictionary_;
    bool linked_ = false;
    bool behind_ = false;  // There is history, or will be.
    bool begun_ = false;   // The dictionary is in memory.
    bool follows_ = false;
    size_t block_ = 0;
    size_t most_ = 0;  // Of memory.
    size_t history_ = 0;
    size_t held_ = 0;
};

/// What BlockStreamEncoder is to know of LZ4 frames.
class Lz4FrameFormat {
 public:
    Lz4FrameFormat(const Allocator& allocator, const Lz4FrameOptions& options)
        : options_(options), blocks_(options.coding, allocator) {}

    size_t blockSize() const { return lz4BlockSize(options_.blockCode); }
    static size_t headerBound() { return kLz4LargestHeader; }
    static size_t blockBound(size_t size) { return Lz4BlockEncoder::bound(size); }
    static size_t endBound() { return kLz4LargestEnd; }
    void set(const Lz4FrameOptions& options);
    void begin(Lz4Ahead& ahead);
    size_t putHeader(uint8_t* to) const { return putLz4Header(options_, to); }
    bool putBlock(const Lz4Ahead& ahead, Bytes data, uint8_t* to, size_t& written);
    size_t putEnd(uint8_t* to) const;

 private:
    Lz4FrameOptions options_;
    Lz4BlockEncoder blocks_;
    Lz4Hash content_;
    uint64_t length_ = 0;
};

class Lz4FrameEncoder : public BlockStreamEncoder<Lz4FrameFormat, Lz4Ahead> {
 public:
    explicit Lz4FrameEncoder(const Lz4FrameOptions& options, const Allocator& allocator = {})
        : BlockStreamEncoder(allocator, options) {}

    using BlockStreamEncoder::reset;
    /// Ready for another frame, with other options.
    Status reset(const Lz4FrameOptions& options) {
        format().set(options);
        return reset();
    }
};

}  // namespace vekdc::codec
