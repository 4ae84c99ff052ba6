// Decodes raw deflate streams (RFC 1951).
#pragma once

#include <array>
#include <cstdint>

#include "bits/deflate_symbols.h"
#include "codec/codec.h"
#include "codec/memory.h"
#include "vekdc.h"

namespace vekdc::codec {

/// Where a decoder stops of itself, beside the stream's end.
enum class InflatePause {
    Never,
    Blocks,  ///< Behind each block.
    Codes,   ///< And behind each block's header.
};

/// What is wrong with a stream, for callers that have words of their own for it.
enum class InflateFault : uint8_t {
    None,
    BlockType,
    StoredLength,
    SymbolCounts,  ///< Too many symbols in a dynamic block.
    LengthCode,    ///< The code of the code lengths is over-subscribed or incomplete.
    LengthRepeat,  ///< A repeated code length without one before it, or beyond the last.
    NoEndOfBlock,  ///< The end of block has no code.
    LiteralCode,   ///< A block's own code is over-subscribed or incomplete.
    DistanceCode,
    LiteralSymbol,  ///< In the data: no symbol's code.
    DistanceSymbol,
    Distance,  ///< Too far back.
};

/// One stream, in pieces of any size. A stream decoded by a single call takes no memory; any other
/// at most 160 KiB.
class InflateDecoder {
 public:
    static constexpr size_t kHistory = 32 << 10;

    explicit InflateDecoder(const Allocator& allocator = {});

    /// Never takes input that stands behind the stream. Input may be taken ahead of the output that
    /// it gives, unless the decoder is told to pause. NoMemory stays until reset(): the output is
    /// given, but there is no place for what later output refers to.
    Status run(Input& in, Output& out);
    Fault fault() const { return state_.fault; }
    InflateFault faultKind() const { return state_.faultKind; }
    Status reset();
    /// Likewise, but the other stream may refer to this one's output.
    Status restart();

    /// For callers who count input by output: none is taken but what the output needs, and the one
    /// symbol for which there is no room, and of the room nothing changes but what is written.
    /// Matches reach back `history` bytes, at most kHistory, from where the call began. Memory is
    /// 64 KiB at most. Before the first run(); reset() keeps it.
    void neverAhead(size_t history);

    /// Bytes that the stream may refer to, as if they had just been decoded.
    Status setHistory(Bytes bytes);
    /// What the stream may still refer to, at most kHistory bytes; the decoder may hold more that
    /// it has not given out. Nothing of a stream decoded by a single call.
    Bytes history() const;

    /// With a pause, run() says Going with paused() true.
    void pauseAt(InflatePause pause) { state_.pause = pause; }
    bool paused() const { return state_.paused; }

    /// Puts `count` bits, at most 16, in front of the input that comes; false where there are too
    /// many.
    bool prime(uint32_t value, uint32_t count);

    /// Goes on with the other's stream as it would. NoMemory leaves this as after reset().
    Status copyFrom(const InflateDecoder& other);

    uint64_t totalIn() const { return state_.totalIn; }
    uint64_t totalOut() const { return state_.totalOut; }
    /// Bits of the bytes taken that are not decoded yet: all below a byte's, except while a
    /// symbol's rest is missing.
    unsigned unusedBits() const { return state_.bitCount; }
    /// Whether the block under way, or the one that just ended, is the stream's last.
    bool inLastBlock() const { return state_.last; }
    /// Entries of the tables that the latest block's code has in the library's record.
    uint32_t codesUsed() const {
        return state_.library.tableKind == 0
                   ? 0
                   : (1U << state_.library.litBits) + (1U << state_.library.distBits);
    }
    bool betweenBlocks() const { return state_.step == Step::Header || state_.step == Step::End; }
    /// Whether the latest run() came to where it is, between two blocks.
    bool justEndedBlock() const { return state_.endedBlock && betweenBlocks(); }
    bool inCodedData() const { return state_.step == Step::Coded; }
    /// Whether the next bits are a stored block's length; how much of such a block is left.
    bool beforeStoredLength() const { return state_.step == Step::StoredSize; }
    uint32_t storedLeft() const { return state_.step == Step::Stored ? state_.storedLeft : 0; }
    /// The unused bits, the next one lowest; they are the caller's then.
    uint32_t takeUnused();
    /// Blocks begun, by type: stored, with the fixed code, with a code of their own.
    const std::array<uint64_t, 3>& blocks() const { return state_.blocks; }

 private:
    static constexpr size_t kAhead = 128 << 10;
    static constexpr size_t kExactAhead = 32 << 10;
    static constexpr uint32_t kMostLengths =
        vek::deflate_format::litLenSymbols + vek::deflate_format::distSymbols;
    static constexpr uint32_t kLengthSymbols = 19;
    static constexpr uint32_t kMaxLength = 7;

    /// What comes next in the stream.
    enum class Step : uint8_t {
        Header,
        StoredSize,
        Stored,
        Counts,
        LengthCode,
        Lengths,
        Coded,
        End,
    };
    struct Entry {
        uint8_t symbol;
        uint8_t length;
    };
    /// Where a call of the library began.
    struct Position {
        Input in;
        uint32_t bits;
        uint32_t bitCount;
        uint64_t reach;  ///< How much history there was.
    };

    struct State {
        Status status = Status::Going;
        Fault fault;
        InflateFault faultKind = InflateFault::None;
        bool exact = false;       ///< Never ahead.
        size_t reach = kHistory;  ///< How far matches may go back.
        uint64_t totalIn = 0;
        uint64_t totalOut = 0;
        std::array<uint64_t, 3> blocks{};

        Step step = Step::Header;
        InflatePause pause = InflatePause::Never;
        bool paused = false;
        bool endedBlock = false;  ///< In the latest run().
        bool last = false;
        uint32_t bits = 0;  ///< Read ahead, the next one lowest.
        uint32_t bitCount = 0;
        uint32_t storedLeft = 0;
        int32_t mode = 0;  ///< The library's.

        // A dynamic block's header on its way in.
        uint32_t litCount = 0;
        uint32_t distCount = 0;
        uint32_t lengthCount = 0;
        uint32_t at = 0;
        std::array<uint8_t, kLengthSymbols> codeLengths{};
        std::array<Entry, 1U << kMaxLength> lengthCode{};
        std::array<uint16_t, kMostLengths> lengths{};

        // In window_: the latest output, and how much of it the caller has.
        size_t held = 0;
        size_t given = 0;

        VekInflateState library{};
    };

    size_t windowRoom() const { return kHistory + (state_.exact ? kExactAhead : kAhead); }
    void decodeAhead(Input& in, Output& out);
    void decodeExactly(Input& in, Output& out);
    void decodeDirect(Input& in, Output& out);
    void slideWindow();
    void decode(Input& in, Output& out, size_t before);
    bool decodeHeader(Input& in);
    bool readCounts(Input& in);
    bool readLengthCode(Input& in);
    bool readLengths(Input& in);
    bool decodeCoded(Input& in, Output& out, const uint8_t* start, bool keepRoom);
    void endBlock();
    void pauseBehind(InflatePause place);
    bool fill(Input& in, uint32_t count);
    uint32_t take(uint32_t count);
    bool broken(InflateFault kind, const char* reason);
    bool brokenCode();
    bool brokenData(Input& in, const Output& out, const Position& start);
    bool remember(const uint8_t* bytes, size_t count);

    State state_;
    Memory<uint8_t> window_;
};

}  // namespace vekdc::codec
