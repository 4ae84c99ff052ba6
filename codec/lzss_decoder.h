// Reads the container of codec/lzss_format.h, a part at a time, checking all that can be checked.
// What is delivered was checked first, a block at a time; a block that fits into the caller's room
// is decoded there.
#pragma once

#include "codec/block_stream.h"
#include "codec/lzss_format.h"

namespace vekdc::codec {

/// What is known of a part so far.
struct LzssInfo {
    unsigned blockBits = 0;
    uint64_t stated = kLzssUnknown;  ///< The length that the header states.
    uint32_t sum = 0;                ///< The CRC-32C of what was decoded.
    uint64_t blocks = 0;
    uint64_t storedBlocks = 0;
    uint64_t plain = 0;  ///< Bytes decoded.
};

class LzssDecoder : public BlockStreamDecoder {
 public:
    explicit LzssDecoder(const Allocator& allocator = {})
        : BlockStreamDecoder(allocator), record_(allocator) {}

    Status run(Input& in, Output& out) {
        return runSteps(out, [&] { return step(in, out); });
    }
    Status reset();
    const LzssInfo& info() const { return info_; }

 private:
    enum class Stage { Header, Block, End, Done };

    bool step(Input& in, Output& out);
    bool readHeader(Input& in);
    bool readBlock(Input& in, Output& out);
    bool readEnd(Input& in);
    Status decodeStream(Bytes stream, uint8_t* to, size_t size);

    Stage stage_ = Stage::Header;
    LzssInfo info_;
    LzssRecord record_;
    uint32_t sum_ = kCrc32c.initial;
};

}  // namespace vekdc::codec
