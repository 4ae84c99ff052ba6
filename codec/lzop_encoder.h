// Writes lzop's container (codec/lzop_format.h), one part: what its own program makes of one file.
// Blocks know nothing of each other, so they can be coded on as many threads as wanted.
#pragma once

#include "codec/block_stream.h"
#include "codec/lzo_deep_encoder.h"
#include "codec/lzop_format.h"

namespace vekdc::codec {

struct LzopOptions {
    bool fast = false;                              ///< One method; else the better of two.
    uint8_t deep = 0;                               ///< LzoDeepEncoder's level, 7 to 9, or 0.
    uint32_t flags = kLzopUnix | kLzopAdlerOfData;  ///< LzopFlag; without extra field and filter.
    uint32_t mode = 0;                              ///< File type and permissions.
    uint32_t modified = 0;                          ///< Seconds since 1970.
    char name[kLzopLongestName + 1] = "";
};

constexpr size_t kLzopLargestHeader = kLzopMagic.size() + 25 + kLzopLongestName + 4;
/// Writes a part's header; returns its length.
size_t putLzopHeader(const LzopOptions& options, uint8_t* to);

/// A part ends in a length of 0.
constexpr size_t kLzopEnd = 4;

/// Codes blocks as they stand in a file, one at a time; has the work memory of one thread.
class LzopBlockEncoder {
 public:
    explicit LzopBlockEncoder(const LzopOptions& options, const Allocator& allocator = {})
        : isFast_(options.fast),
          isDeep_(options.deep != 0),
          flags_(options.flags),
          state_(allocator),
          other_(allocator),
          deep_(options.deep, allocator) {}

    /// The room that a block of `length` bytes needs.
    static size_t bound(size_t length);
    /// Codes a block of at least 1 byte; false when there is no memory.
    [[nodiscard]] bool encode(Bytes data, uint8_t* to, size_t& written);

 private:
    /// Codes the block as a stream of `size` bytes.
    bool encodeStream(Bytes data, uint8_t* stream, uint32_t& size);
    bool encodeBy(int32_t method, Bytes data, uint8_t* stream, uint32_t& size);

    bool isFast_;
    bool isDeep_;
    uint32_t flags_;
    Memory<uint32_t> state_;
    Memory<uint8_t> other_;
    LzoDeepEncoder deep_;
};

/// What BlockStreamEncoder is to know of lzop's container.
class LzopFormat {
 public:
    LzopFormat(const Allocator& allocator, const LzopOptions& options)
        : options_(options), blocks_(options, allocator) {}

    static size_t blockSize() { return kLzopBlock; }
    static size_t headerBound() { return kLzopLargestHeader; }
    static size_t blockBound(size_t size) { return LzopBlockEncoder::bound(size); }
    static size_t endBound() { return kLzopEnd; }
    static void begin(Lookahead& ahead) { ahead.reset(); }
    size_t putHeader(uint8_t* to) const { return putLzopHeader(options_, to); }
    bool putBlock(const Lookahead& /*ahead*/, Bytes data, uint8_t* to, size_t& written) {
        return blocks_.encode(data, to, written);
    }
    static size_t putEnd(uint8_t* to) {
        putBigEndian(to, 0, kLzopEnd);
        return kLzopEnd;
    }

 private:
    LzopOptions options_;
    LzopBlockEncoder blocks_;
};

class LzopEncoder : public BlockStreamEncoder<LzopFormat> {
 public:
    explicit LzopEncoder(const LzopOptions& options = {}, const Allocator& allocator = {})
        : BlockStreamEncoder(allocator, options) {}
};

}  // namespace vekdc::codec
