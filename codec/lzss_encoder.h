// Writes the container of codec/lzss_format.h, one part. Blocks know nothing of each other but the
// sum of all data so far, so all else of them can be made on as many threads as wanted.
#pragma once

#include "codec/block_stream.h"
#include "codec/lzss_format.h"

namespace vekdc::codec {

/// Codes single blocks; has the work memory of one thread.
class LzssBlockEncoder {
 public:
    explicit LzssBlockEncoder(const Allocator& allocator = {}) : record_(allocator) {}

    /// Codes a block to where there is room for all of it: as a stream, or as it is where that
    /// would not be smaller. `written` tells which. False when there is no memory.
    [[nodiscard]] bool encode(Bytes data, uint8_t* to, size_t& written);

 private:
    LzssRecord record_;
};

/// Writes what stands around the blocks of a part.
class LzssFrame {
 public:
    explicit LzssFrame(uint64_t length = kLzssUnknown) : stated_(length) {}

    size_t putHeader(uint8_t* to) const;
    /// Of the next block, which takes `codedSize` bytes.
    size_t putBlockHead(Bytes data, size_t codedSize, uint8_t* to);
    /// 0 when the data are not as long as the header says.
    size_t putEnd(uint8_t* to) const;
    void restart() { *this = LzssFrame(stated_); }

 private:
    uint64_t stated_;
    uint64_t length_ = 0;
    uint32_t sum_ = kCrc32c.initial;
};

/// What BlockStreamEncoder is to know of the container.
class LzssFormat {
 public:
    LzssFormat(const Allocator& allocator, uint64_t length) : frame_(length), blocks_(allocator) {}

    static size_t blockSize() { return size_t{1} << kLzssBlockBits; }
    static size_t headerBound() { return kLzssHeader; }
    static size_t blockBound(size_t size) { return kLzssBlockHead + size; }
    static size_t endBound() { return kLzssEnd; }
    void begin(Lookahead& ahead) {
        ahead.reset();
        frame_.restart();
    }
    size_t putHeader(uint8_t* to) const { return frame_.putHeader(to); }
    bool putBlock(const Lookahead& /*ahead*/, Bytes data, uint8_t* to, size_t& written) {
        if (!blocks_.encode(data, to + kLzssBlockHead, written)) return false;
        written += frame_.putBlockHead(data, written, to);
        return true;
    }
    size_t putEnd(uint8_t* to) const { return frame_.putEnd(to); }

 private:
    LzssFrame frame_;
    LzssBlockEncoder blocks_;
};

class LzssEncoder : public BlockStreamEncoder<LzssFormat> {
 public:
    /// The header states the length of the data, if it is known.
    explicit LzssEncoder(uint64_t length = kLzssUnknown, const Allocator& allocator = {})
        : BlockStreamEncoder(allocator, length) {}
};

}  // namespace vekdc::codec
