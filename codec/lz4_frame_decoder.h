// Reads LZ4 frames of every kind: with blocks of any size, independent or linked, with any of the
// checksums, behind a dictionary; skippable ones, which give nothing; and the legacy frames of old
// kernels' tools.
//
// A block is decoded straight into the caller's room when all of it is sure to fit there, else in
// memory of the decoder's own. Linked blocks find their history in the caller's room too, as long
// as run() stays in it; before it returns, the last 64 KiB are saved.
#pragma once

#include "codec/block_stream.h"
#include "codec/lz4_blocks.h"
#include "vekdc.h"

namespace vekdc::codec {

/// What is known of a frame so far.
struct Lz4FrameInfo {
    enum class Kind { Unknown, Frame, Skippable, Legacy };

    Kind kind = Kind::Unknown;
    uint8_t flags = 0;  ///< Lz4Flag; they tell which of the following there are.
    size_t blockMost = 0;
    uint64_t contentSize = 0;
    uint32_t dictionaryId = 0;
    uint32_t checksum = 0;
    uint64_t blocks = 0;
    uint64_t storedBlocks = 0;
    uint64_t plain = 0;  ///< Bytes decoded.

    bool has(Lz4Flag flag) const { return (flags & flag) != 0; }
};

class Lz4FrameDecoder : public BlockStreamDecoder {
 public:
    explicit Lz4FrameDecoder(const Allocator& allocator = {})
        : BlockStreamDecoder(allocator), window_(allocator) {}

    /// What frames may refer to before their first byte, also those that name no dictionary; null
    /// for nothing. The bytes stay the caller's. To be set before a frame, or when one needs it.
    void setDictionary(Bytes dictionary);
    /// Whether to refuse what does not agree with its checksum, and to wait for a dictionary where
    /// a frame names one; both are so unless set.
    void insist(bool onChecksums, bool onDictionary) {
        insistsOnChecksums_ = onChecksums;
        insistsOnDictionary_ = onDictionary;
    }

    /// Reads one frame.
    Status run(Input& in, Output& out);
    Status reset();
    const Lz4FrameInfo& info() const { return info_; }

    /// A legacy frame has no end. It is over where the input is, if that may be, or where another
    /// frame's magic number stands; run() then says Ended, and has taken `overrun()` bytes of it.
    bool mayEnd() const { return stage_ == Stage::LegacyBlock && ahead_.kept().empty(); }
    size_t overrun() const { return ahead_.kept().size(); }

    /// Whether a frame has begun, and whether its header has been read.
    bool hasBegun() const { return stage_ != Stage::Magic || !ahead_.kept().empty(); }
    bool hasHeader() const { return stage_ != Stage::Magic && stage_ != Stage::Header; }
    /// Bytes that the next step waits for; 0 while it waits for room.
    size_t missing() const {
        return stage_ == Stage::Skip ? static_cast<size_t>(left_) : ahead_.missing();
    }

 private:
    enum class Stage { Magic, Header, Block, LegacyBlock, End, Skip, Done };

    bool step(Input& in, Output& out);
    bool readMagic(Input& in);
    bool readHeader(Input& in);
    bool readBlock(Input& in, Output& out);
    bool readLegacyBlock(Input& in, Output& out);
    bool readEnd(Input& in);
    bool skip(Input& in);

    bool makeBlock(Bytes coded, bool stored, uint64_t offset, Output& out);
    static VekStatus decode(Bytes coded, bool stored, Bytes history, uint8_t* to, size_t& size);
    bool isLinked() const {
        return info_.kind == Lz4FrameInfo::Kind::Frame && !info_.has(kLz4Independent);
    }
    void beginWindow();
    Bytes history(const Output& out);
    void save(const Output& out);
    void slide(size_t size);
    uint8_t* roomInWindow(const Output& out);

    Stage stage_ = Stage::Magic;
    Lz4FrameInfo info_;
    Bytes dictionary_;
    bool insistsOnChecksums_ = true;
    bool insistsOnDictionary_ = true;
    Lz4Hash content_;
    uint64_t left_ = 0;  // To skip.
    Memory<uint8_t> window_;
    size_t windowEnd_ = 0;
    size_t unsaved_ = 0;  // Bytes before the caller's room that are not in the window.
};

}  // namespace vekdc::codec
