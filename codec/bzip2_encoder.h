// A bzip2 stream, written: blocks as large as its level allows, coded as soon as they are full.
#pragma once

#include "codec/bzip2_blocks.h"
#include "codec/fields.h"

namespace vekdc::codec {

/// Directives Block, SyncFlush and FullFlush are one here: all of the input is coded and the block
/// ended. The format cannot end on a byte boundary, so up to seven bits stay back; what follows
/// brings them. The header comes with the first of all that comes out, not before.
class Bzip2Encoder {
 public:
    /// Blocks of `level` times 100 000 bytes, 1 to 9.
    explicit Bzip2Encoder(int level = 9, const Allocator& allocator = {});

    Status run(Input& in, Output& out, Directive directive);
    /// Nothing can be wrong with the input.
    Fault fault() const { return {}; }
    Status reset();
    /// Whether what was coded waits for room.
    bool hasOutput() const { return !fields_.empty() || coded_.left != 0; }

 private:
    enum class Phase { Filling, Coding, Ended };

    bool drain(Output& out);
    void putHeader();
    bool codeBlock();
    void end();

    int level_;
    Phase phase_ = Phase::Filling;
    bool begun_ = false;  // The header is out, or waits.
    uint32_t crc_ = 0;
    Bzip2Block block_;
    Bzip2BlockFiller filler_;
    Bzip2BlockEncoder encoder_;
    FieldsOut<bzip2::kHeaderBytes + bzip2::kEndBytes> fields_;
    bzip2::LastBits last_;
    Input coded_{nullptr, 0};  // What is left of the coded block's whole bytes.
};

}  // namespace vekdc::codec
