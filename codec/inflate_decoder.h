// Decodes raw deflate streams (RFC 1951).
#pragma once

#include <array>
#include <cstdint>

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
    Status reset();

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
    /// Blocks begun, by type: stored, with the fixed code, with a code of their own.
    const std::array<uint64_t, 3>& blocks() const { return state_.blocks; }

 private:
    static constexpr uint32_t kLengthSymbols = 19;
    static constexpr uint32_t kMaxLength = 7;

    /// What comes next in the stream.
    enum class Step : uint8_t {
        Header,
        StoredSize,
        StoredCheck,
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

    struct State {
        Status status = Status::Going;
        Fault fault;
        uint64_t totalIn = 0;
        uint64_t totalOut = 0;
        std::array<uint64_t, 3> blocks{};

        Step step = Step::Header;
        InflatePause pause = InflatePause::Never;
        bool paused = false;
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
        std::array<uint16_t, 286 + 30> lengths{};

        // In window_: the latest output, and how much of it the caller has.
        size_t held = 0;
        size_t given = 0;

        VekInflateState library{};
    };

    void decode(Input& in, Output& out, size_t before);
    bool decodeHeader(Input& in);
    bool readCounts(Input& in);
    bool readLengthCode(Input& in);
    bool readLengths(Input& in);
    bool decodeCoded(Input& in, Output& out, const uint8_t* start);
    void endBlock();
    void pauseBehind(InflatePause place);
    bool fill(Input& in, uint32_t count);
    uint32_t take(uint32_t count);
    bool broken(const char* reason);
    bool remember(const uint8_t* bytes, size_t count);

    State state_;
    Memory<uint8_t> window_;
};

}  // namespace vekdc::codec
