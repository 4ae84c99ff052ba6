// Reads a ZFP field: the floats of a chunk (zfp_blocks.h) at a time, as bytes.
//
// Blocks tell their length only by being decoded, in turn. So coded bytes go through a window: as
// many blocks as are in it for certain, whatever their lengths, are decoded at once, and where
// there may be less than one, it is tried. A block that then used bits behind the window's end is
// decoded again when more has come. Thus the field ends with the very byte that completes its last
// block, without knowing the input's end; coded bytes behind a finished chunk go back to the
// caller, to come again.
//
// Memory is the window and a chunk. The chunk is not cleared: what a header promises without
// keeping it is asked for, but not touched.
#pragma once

#include "codec/zfp_blocks.h"

namespace vekdc::codec {

class ZfpFieldDecoder {
 public:
    explicit ZfpFieldDecoder(const Allocator& allocator = {});

    /// Ended comes with the byte that has the last bit of the last block. As many bytes as
    /// padding() says complete its 64-bit word, in files of most writers.
    Status run(Input& in, Output& out);
    Fault fault() const { return reader_.fault(); }
    /// Ready for another field.
    Status reset();

    /// What the header told; null before it has been read.
    const ZfpHeader* header() const {
        return phase_ == Phase::Header ? nullptr : &reader_.header();
    }
    size_t padding() const { return static_cast<size_t>(-taken_ & 7); }

 private:
    enum class Phase { Header, Blocks, Drain, Ended };

    Status begin();
    Status decodeChunk(Input& in);
    size_t fill(Input& in);
    bool decodeBlocks(uint64_t most);
    uint64_t bitsHeld() const { return 8 * held_ - at_; }

    ZfpHeaderReader reader_;
    ZfpChunks chunks_;
    ZfpChunkDecoder decoder_;
    ZfpBlockWalk walk_;
    Memory<uint8_t> window_;
    Memory<float> values_;

    Phase phase_ = Phase::Header;
    uint32_t next_ = 0;          ///< The chunk to be decoded.
    size_t held_ = 0;            ///< Bytes in the window.
    uint64_t at_ = 0;            ///< The bit of the window where the next block begins.
    uint64_t taken_ = 0;         ///< Bytes of the stream.
    Input left_ = {nullptr, 0};  ///< Of values_, to be written.
};

}  // namespace vekdc::codec
