// A bzip2 stream, read: what every encoder of the format writes, but for blocks that are
// randomised, as the format's first versions had them.
//
// A block comes out once all of it is in and, unless asked otherwise, its CRC is right, so nothing
// comes out of a broken one. For callers that decode blocks side by side, the decoder reads what is
// between them: they ask for the way to the next block, decode it elsewhere, and pass it here.
#pragma once

#include "codec/bzip2_blocks.h"

namespace vekdc::codec {

class Bzip2Decoder {
 public:
    explicit Bzip2Decoder(const Allocator& allocator = {}, Bzip2Check check = Bzip2Check::First)
        : check_(check), block_(allocator), blocks_(allocator, check) {}

    Status run(Input& in, Output& out);
    Fault fault() const { return fault_; }
    Status reset();

    /// Of the stream, 1 to 9; 0 until its header has been read, and for what is no stream.
    int level() const { return level_; }
    /// Blocks that were decoded and passed, and the stream's CRC up to them.
    uint64_t blockCount() const { return blockCount_; }
    uint32_t crc() const { return crc_; }
    /// Whether the next bit belongs to a block: behind the magic number that it starts with.
    bool inBlock() const { return phase_ == Phase::Block; }
    /// The stream's next bit; the bytes of it that were taken.
    uint64_t position() const { return bits_.position(); }
    uint64_t taken() const { return bits_.taken(); }

    /// Reads on to a block: Going when the decoder is in one, or the input is used up.
    Status toBlock(Input& in);
    /// Takes the block that the decoder is in front of as read and put out by the caller, up to a
    /// bit of the stream whose byte the input is at.
    void passBlock(uint32_t crc, uint64_t end, Input& in);

 private:
    enum class Phase { Header, Magic, Block, Expanding, Crc, Ended };

    Status readHeader(Input& in);
    Status readMagic(Input& in);
    bool expand(Output& out);
    Status broken(const char* reason, unsigned bits);
    void addBlock(uint32_t crc);

    Bzip2Check check_;
    Phase phase_ = Phase::Header;
    int level_ = 0;
    uint64_t blockCount_ = 0;
    uint32_t crc_ = 0;
    uint32_t blockCrc_ = 0;   // Of what has come out of the block.
    uint64_t magic_ = 0;      // What has come of the magic number,
    unsigned magicBits_ = 0;  // so many bits.
    Fault fault_;
    Bzip2BitsIn bits_;
    Bzip2Block block_;
    Bzip2BlockDecoder blocks_;
    Bzip2BlockExpander expander_;
};

}  // namespace vekdc::codec
