// Raw deflate streams (RFC 1951) through the library's stages.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/vekdc/io/stream.h"
#include "vekdc.h"

namespace vekdc {

/// Compresses one stream, or a part of one, in whatever pieces it comes.
///
/// Bytes become pairs, pairs a block; each block is written in the cheapest of the format's three
/// ways, by exact size. A block ends when its pairs or its bytes are many. Memory is about 1.5 MiB
/// whatever the stream.
class DeflateEncoder {
 public:
    enum class End {
        More,  ///< More of the stream follows, through this encoder.
        Sync,  ///< More follows from elsewhere: ends on a byte boundary, with an empty stored
               ///< block.
        Final  ///< The stream ends here.
    };

    static constexpr int fastestLevel = 0;

    /// Level 1 (fast) to 9 (small), or fastestLevel.
    explicit DeflateEncoder(int level);

    /// Begins a stream, or a part of one that continues behind `history` (its last 32 KiB count).
    void start(Bytes history);

    /// Appends the code of `in` to `out`. Except at an end, some of it may be kept for a later
    /// call.
    void encode(Bytes in, End end, std::vector<uint8_t>& out);

 private:
    static constexpr uint32_t windowSize = 32768;
    static constexpr uint32_t hashSize = 65536;
    static constexpr uint32_t fastestHashSize = 32768;  // smaller: it is cleared for each piece
    static constexpr uint32_t litSymbols = 286;
    static constexpr uint32_t distSymbols = 30;
    static constexpr uint32_t endOfBlock = 256;

    void match(Bytes in, End end, std::vector<uint8_t>& out);
    bool encodeFastest(Bytes in, End end, std::vector<uint8_t>& out);
    void writeBlock(bool last, std::vector<uint8_t>& out);
    void writePairs(const VekHuffEntry* lit, const VekHuffEntry* dist, std::vector<uint8_t>& out);
    void writeStored(Bytes bytes, bool last, std::vector<uint8_t>& out);
    void putBits(uint32_t bits, uint32_t count, std::vector<uint8_t>& out);
    void putHeader(const uint8_t* header, uint32_t bits, bool last, std::vector<uint8_t>& out);
    void finish(End end, std::vector<uint8_t>& out);
    void clearBlock();

    int32_t parameters_[4];  // of the matcher
    bool lazy_;
    bool fastest_;

    uint32_t bits_ = 0;  // the stream's last, incomplete byte
    uint32_t bitCount_ = 0;

    int32_t position_ = 0;
    std::vector<uint8_t> window_;
    std::vector<int32_t> head_;
    std::vector<int32_t> prev_;

    // The block under way: its pairs, their frequencies, and its bytes in case they are stored.
    std::vector<uint8_t> lits_;
    std::vector<uint16_t> dists_;
    uint32_t pairs_ = 0;
    std::vector<uint8_t> raw_;
    VekHuffEntry litFreq_[litSymbols];
    VekHuffEntry distFreq_[distSymbols];

    std::vector<uint8_t> coded_;
};

}  // namespace vekdc
