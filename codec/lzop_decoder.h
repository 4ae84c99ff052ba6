// Reads lzop's container (codec/lzop_format.h), a part at a time: every method that makes LZO1X
// streams, every combination of checksums, filters. What is delivered was checked first, a block at
// a time; a block that fits into the caller's room is decoded there.
#pragma once

#include "codec/block_stream.h"
#include "codec/lzop_format.h"

namespace vekdc::codec {

/// What is known of a part so far.
struct LzopInfo {
    uint8_t method = 0;
    uint8_t level = 0;
    uint32_t flags = 0;
    uint32_t filter = 0;
    uint32_t mode = 0;
    uint32_t modified = 0;
    uint8_t nameSize = 0;
    char name[kLzopLongestName];
    uint32_t extraSize = 0;
    uint64_t blocks = 0;
    uint64_t storedBlocks = 0;
    uint64_t plain = 0;  ///< Bytes decoded.
};

class LzopDecoder : public BlockStreamDecoder {
 public:
    explicit LzopDecoder(const Allocator& allocator = {})
        : BlockStreamDecoder(allocator), rewritten_(allocator) {}

    Status run(Input& in, Output& out) {
        return runSteps(out, [&] { return step(in, out); });
    }
    Status reset();
    const LzopInfo& info() const { return info_; }

 private:
    enum class Stage { Header, Extra, ExtraData, ExtraEnd, Block, Done };

    bool step(Input& in, Output& out);
    bool readHeader(Input& in);
    bool readExtra(Input& in);
    bool sumExtra(Input& in);
    bool endExtra(Input& in);
    bool readBlock(Input& in, Output& out);
    Status decodeStream(Bytes stream, uint8_t* to, size_t size);

    Stage stage_ = Stage::Header;
    LzopInfo info_;
    uint32_t sum_ = 0;   // Of the extra field,
    uint32_t left_ = 0;  // of which there are so many bytes to come.
    Memory<uint8_t> rewritten_;
};

}  // namespace vekdc::codec
