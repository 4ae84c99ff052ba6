// Writes raw deflate streams (RFC 1951) with the library's stages.
//
// The source is cut into blocks of at most 128 KiB. A block goes through the match finder, whose
// pairs and frequencies then decide: the sizes of a dynamic, a fixed and a stored block are
// computed exactly, to the bit, and the smallest one is written. History runs on from block to
// block in the match finder's window. The fastest path takes a block in one pass with a code made
// beforehand, and stores it when that gains nothing. An encoder takes about 900 KiB, whatever it
// encodes.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/vekdc/stream.h"
#include "vekdc.h"

namespace vekdc {

class DeflateEncoder {
 public:
    /// What comes after the bytes of a call: more of them; a byte boundary (an empty stored block);
    /// nothing, the stream ends.
    enum class End { More, Sync, Final };

    /// The level of the single-pass path, whose blocks know no history.
    static constexpr uint32_t kFastest = ~0U;

    /// `level` as of veksDeflateLZ77_8u(), or kFastest.
    explicit DeflateEncoder(uint32_t level);

    /// Begins a stream, or a part of one that goes on behind `history`, at most 32 KiB.
    void start(Bytes history = {});

    /// Appends the code of `in` to `out`.
    void encode(Bytes in, End end, std::vector<uint8_t>& out);

 private:
    static constexpr uint32_t kWindow = 32 << 10;
    static constexpr uint32_t kHash = 64 << 10;
    static constexpr uint32_t kFastHash = 16 << 10;
    static constexpr size_t kBlock = 128 << 10;

    void encodeBlock(Bytes in, bool last, std::vector<uint8_t>& out);
    void encodeFastest(Bytes in, bool last, std::vector<uint8_t>& out);
    void putHeader(const uint8_t* header, uint32_t headerBits, bool last,
                   std::vector<uint8_t>& out);
    void writeStored(Bytes in, bool last, std::vector<uint8_t>& out);
    void writePairs(const VekHuffEntry* lit, const VekHuffEntry* dist, std::vector<uint8_t>& out);
    void put(uint32_t value, uint32_t count, std::vector<uint8_t>& out);
    void align(std::vector<uint8_t>& out);

    uint32_t level_;
    int32_t position_ = 0;
    uint32_t code_ = 0;  // Bits not yet written, fewer than 8 between calls.
    uint32_t codeBits_ = 0;
    uint32_t pairs_ = 0;
    std::vector<uint8_t> window_;
    std::vector<int32_t> head_;
    std::vector<int32_t> chain_;
    std::vector<uint32_t> fastHead_;
    std::vector<uint8_t> lits_;
    std::vector<uint16_t> dists_;
    std::vector<uint8_t> pending_;  // Bytes of a block that is not full yet.
};

}  // namespace vekdc
