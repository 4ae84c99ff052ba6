// Encodes raw deflate streams (RFC 1951).
#pragma once

#include <cstdint>

#include "codec/codec.h"
#include "codec/deflate_blocks.h"
#include "codec/deflate_codes.h"
#include "codec/deflate_matcher.h"
#include "codec/deflate_parser.h"
#include "codec/fields.h"
#include "codec/memory.h"

namespace vekdc::codec {

/// Which pairs a stream is made of, and which blocks.
enum class DeflateStrategy {
    Usual,
    HuffmanOnly,  ///< Literals alone.
    RunLength,    ///< Literals, and repetitions of the byte before.
    FixedCodes,   ///< No block has a code of its own.
};

struct DeflateOptions {
    int level = 6;  ///< 1 (fast) to 9 (small), or one of those below.
    DeflateStrategy strategy = DeflateStrategy::Usual;
    unsigned windowBits = 15;  ///< Distances stay below 1 << windowBits: 8 to 15.
};
constexpr int kDeflateStored = 0;
constexpr int kDeflateFastest = -1;  ///< A single pass, with a code made beforehand.
constexpr int kDeflateBest = 10;     ///< All that can be had; takes time, and 12 MiB.

/// One stream, or a part of one, in pieces of any size. Memory is taken when it is needed: a few
/// times the size of a short stream that comes whole, and at most 392 KiB at the levels 1 to 9, 880
/// KiB at the fastest.
class DeflateEncoder {
 public:
    explicit DeflateEncoder(const DeflateOptions& options = {}, const Allocator& allocator = {});

    /// Room that suffices for a stream of `size` bytes coded by one call of run() to Finish or to a
    /// flush.
    static constexpr uint64_t bound(uint64_t size) { return size + 5 * (size / 16384 + 1) + 32; }

    /// A flush ends with an empty stored block; said again without input in between, it writes
    /// nothing more. Block ends at any bit, of which pendingBits() are kept back.
    Status run(Input& in, Output& out, Directive directive);
    Fault fault() const { return {}; }
    Status reset();
    /// Likewise, with other options.
    Status reset(DeflateOptions options);

    /// What follows may refer to these bytes, and to none before them. Between blocks only: at the
    /// start, or when all input is coded and its block has ended.
    Status setHistory(Bytes history);

    /// Another level and strategy, for what is not coded yet. Say Block first to have all input so
    /// far coded as before.
    void tune(int level, DeflateStrategy strategy);

    /// Puts `count` bits, at most 16, into the stream, between blocks; false where there is no
    /// room.
    bool prime(uint32_t value, uint32_t count);

    /// Goes on with the other's stream as it would. NoMemory leaves this as after reset().
    Status copyFrom(const DeflateEncoder& other);

    /// Whether coded data are still to be given out; no input waits to be matched; and there is no
    /// input at all that is not written.
    bool writing() const { return state_.rest != Rest::Nothing || !state_.staged.empty(); }
    bool allMatched() const {
        return state_.matched == state_.end && (state_.rest != Rest::Nothing || underWay() == 0);
    }
    bool betweenBlocks() const { return state_.rest == Rest::Nothing && allMatched(); }
    /// The stream's last block is under way or written.
    bool ending() const { return state_.last || state_.ended; }

    /// Copies the latest input that what follows may refer to, at most a window's size; to a null
    /// pointer nothing. Returns its size. Where no matches are sought, not all of it is kept.
    size_t copyHistory(uint8_t* to) const;

    /// Whether the first block is coded, and what its literals look like.
    bool kindKnown() const { return state_.kindKnown; }
    bool looksLikeText() const { return state_.text; }

    uint64_t totalIn() const { return state_.totalIn; }
    uint64_t totalOut() const { return state_.totalOut; }
    /// Coded, but not given out yet for want of room: whole bytes, those of blocks under way apart.
    size_t pendingBytes() const { return state_.staged.size() + state_.codedEnd - state_.codedAt; }
    /// Coded bits of the stream's last, incomplete byte.
    unsigned pendingBits() const { return state_.bitCount; }

 private:
    static constexpr size_t kStagedBytes = 2048;
    /// Room before the pairs, for those that some of them become.
    static constexpr uint32_t kSpare = 1024;

    /// How stretches of input become blocks; the first ones are the matcher's ways.
    enum class Method : uint8_t {
        Quick,
        Greedy,
        Lazy,
        Short,
        Literals,
        RunLength,
        Parse,
        Fastest,
        Stored
    };
    /// What of a block is still to be written.
    enum class Rest : uint8_t { Nothing, Block, Pairs, Stored, Coded };

    struct State {
        DeflateOptions options;
        uint64_t totalIn = 0;
        uint64_t totalOut = 0;

        // The stream's last byte, and what found no room yet.
        uint32_t bits = 0;
        uint32_t bitCount = 0;
        FieldsOut<kStagedBytes> staged;

        /// The matcher's or the parser's tables are those of the stream so far.
        bool matching = false;

        // In text_: what may be referred to, the block under way, and from `matched` on what is not
        // looked at yet.
        size_t oldest = 0;
        size_t begin = 0;
        size_t matched = 0;
        size_t end = 0;
        size_t dropped = 0;  ///< Of the block under way's bytes, before those that are there.

        // The blocks under way, and then what of them is written.
        Method method = Method::Lazy;
        uint32_t pairs = 0;
        uint32_t refined = 0;  ///< Pairs of the dropped bytes.
        DeflateTables counts{};
        DeflateBlocks blocks;
        uint32_t block = 0;                ///< The one that is written, or the next one.
        const uint8_t* inPlace = nullptr;  ///< The bytes, where they are the caller's.
        DeflateTables codes{};
        Rest rest = Rest::Nothing;
        size_t at = 0;  ///< The next pair or stored byte.
        size_t stop = 0;
        size_t codedAt = 0;  ///< Of the bytes in coded_, the next one, and
        size_t codedEnd = 0;
        size_t storedLeft = 0;  ///< Of a stored block.
        size_t coded = 0;       ///< Bytes of the blocks up to this one.
        size_t wholeSize = 0;   ///< Bytes of all blocks.
        bool last = false;      ///< The stream ends with the last of the blocks.
        bool kindKnown = false;
        bool text = false;
        bool ended = false;
        Directive done = Directive::Go;  ///< The latest flush, nothing having come since.
    };

    Status work(Input& in, Output& out, Directive directive);
    Method method() const;
    static bool usesMatcher(Method method) { return method <= Method::Lazy; }
    /// Whether matches may refer to what stands in text_; otherwise that is no more than what
    /// waits to be coded, and input may be taken where it stands.
    static bool keepsText(Method method) { return method <= Method::RunLength; }
    size_t window() const { return size_t{1} << state_.options.windowBits; }
    size_t mostText() const;
    size_t matchable(bool all) const;
    /// Bytes of the block under way.
    size_t underWay() const { return state_.dropped + state_.matched - state_.begin; }
    void dropBytes();
    void compact();
    bool gather(Input& in);
    bool append(Bytes bytes);
    bool reserveText(size_t count);
    bool placeHistory(Bytes history);

    Status codeStretch(Bytes ahead, bool direct, bool all, Input& in, Output& out,
                       Directive directive);
    bool changeMethod(Method to);
    bool prepareMatcher(size_t whole);
    bool prepareParser(size_t whole);
    int usualLevel() const;
    Method methodFor(size_t whole) const;
    uint32_t mostPairs() const;
    bool reservePairs(size_t count);
    size_t match(size_t stop);
    size_t parse(Bytes piece);
    size_t matchShort(Bytes piece);
    size_t matchLiterals(Bytes piece);
    size_t matchRuns(Bytes piece);
    static uint32_t fastestRoom(size_t size);
    static uint32_t fastestHashSize(size_t size);
    bool reserveFastest(size_t size, const Output& out);
    bool codeFastest(Bytes piece, Output& out);

    DeflatePairs pairs() const { return {lits_.data() + kSpare, dists_.data() + kSpare}; }
    /// The bytes of the blocks under way, if none were dropped.
    const uint8_t* blockBytes() const {
        return state_.inPlace != nullptr ? state_.inPlace : text_.data() + state_.begin;
    }
    void beginBlocks(size_t size);
    bool splitPays(size_t size) const;
    void beginBlock();
    bool mayRefine(size_t size) const;
    bool refines(const DeflateTables& counts, size_t size, size_t whole) const;
    void beginStored(size_t size);
    bool inLastBlock() const { return state_.last && state_.block + 1 == state_.blocks.count(); }
    uint64_t storedBits(size_t size) const;
    void endBlock();
    void endFlush(Directive directive);
    void putEmptyBlock(bool last);

    bool drain(Output& out);
    bool drainCoded(Output& out);
    void writePairs(Output& out);
    void writeStored(Output& out);
    void putBits(uint32_t bits, uint32_t count);
    void alignToByte();

    State state_;
    Memory<uint8_t> text_;
    DeflateMatcher matcher_;
    Memory<uint8_t> lits_;
    Memory<uint16_t> dists_;
    DeflateParser parser_;
    Memory<uint32_t> heads_;  ///< Of the fastest level.
    Memory<uint8_t> coded_;   ///< What was coded at once where there was no room for it.
};

}  // namespace vekdc::codec
