// Reads one raw deflate stream (RFC 1951) after another from a source.
//
// The library decodes the Huffman-coded data of a block; here is what stands around it: block
// headers, code lengths, stored blocks, and the history. Output is decoded into one buffer of 256
// KiB behind 32 KiB of history, so that matches are always served from the buffer itself, the
// library's fast kernels run nearly all the time, and only one byte in eight is moved, once, when
// the buffer is used up. The input is read in place, from the source's own window.
#pragma once

#include <array>
#include <cstdint>
#include <exception>
#include <vector>

#include "tools/vekdc/io/stream.h"
#include "vekdc.h"

namespace vekdc {

class InflateReader {
 public:
    static constexpr size_t kHistory = 32 << 10;
    static constexpr size_t kPiece = 256 << 10;

    explicit InflateReader(Source& source, size_t piece = kPiece)
        : source_(source), buffer_(kHistory + piece) {}

    /// Begins a new stream at the source's position: no history, counts at 0.
    void start();

    /// The next decoded bytes, valid until the next call; none at the end of the stream, where the
    /// source stands right behind it. Throws FormatError, but only after everything that was good
    /// has been returned.
    Bytes next();

    /// Blocks begun, by type: stored, with the fixed code, with a code of their own.
    const std::array<uint64_t, 3>& blocks() const { return blocks_; }

 private:
    enum class Step { Header, Stored, Coded, Done };

    void run();
    void readHeader();
    void readCodes();
    void copyStored();
    void decode();
    uint32_t bits(uint32_t count);
    void returnBytes();
    [[noreturn]] void corrupt(const char* reason) const;

    Source& source_;
    std::vector<uint8_t> buffer_;
    size_t end_ = 0;     // Bytes decoded so far stand before here, all of them history.
    uint32_t code_ = 0;  // Bits read ahead, the next one lowest.
    uint32_t codeBits_ = 0;
    uint32_t storedLeft_ = 0;
    int32_t mode_ = 0;
    bool final_ = false;
    Step step_ = Step::Done;
    std::array<uint64_t, 3> blocks_{};
    std::exception_ptr pending_;
    InflateState state_{};
};

}  // namespace vekdc
