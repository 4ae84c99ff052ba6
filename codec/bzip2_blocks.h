// Single blocks of the bzip2 format: filling, coding and decoding them, and joining strings of
// bits.
//
// A stream is a header that names the block size, blocks, and an end mark with a CRC made of the
// blocks' own. Nothing but the header is aligned to bytes: blocks follow each other at any bit and
// are found only by decoding what is in front of them, or by the 48 bits that they start with.
//
// Where a block ends depends on its run-length code, so filling blocks, which is far faster than
// the rest, is one thread's work; the rest of a block's coding is its own. A block is coded from a
// bit 0 on and shifted to its place when its turn comes. All memory is taken by need: beside some
// 50 KB for code tables a block costs at most some tens of bytes for each of its own, however large
// its stream's blocks may be.
#pragma once

#include <bit>

#include "codec/codec.h"
#include "codec/memory.h"
#include "vekdc.h"

namespace vekdc::codec {

namespace bzip2 {

constexpr uint8_t kMagic[] = {'B', 'Z', 'h'};
constexpr size_t kHeaderBytes = sizeof(kMagic) + 1;
constexpr uint64_t kBlockMagic = 0x314159265359;
constexpr uint64_t kEndMagic = 0x177245385090;
constexpr unsigned kMagicBits = 48;
constexpr int32_t kLevelBytes = 100'000;
constexpr int32_t kMostBlock = 9 * kLevelBytes;

/// The CRC of a stream from those of its blocks.
inline uint32_t joinCrc(uint32_t stream, uint32_t block) {
    return std::rotl(stream, 1) ^ block;
}

/// Writes the header of a stream, kHeaderBytes long.
void writeHeader(uint8_t* to, int level);

/// The end of a string of bits that makes up no byte yet: the top `count` bits of `value`, 0 to 7,
/// with zeros below.
struct LastBits {
    uint8_t value = 0;
    unsigned count = 0;
};

/// Puts `bits` bits behind the last ones, in place; zeros fill up their last byte, behind which
/// there is room for one more. Returns the number of whole bytes; the last byte, if not whole,
/// stands behind them and in `last`.
size_t joinBits(LastBits& last, uint8_t* bytes, uint64_t bits);

/// The most that writeEnd() writes.
constexpr size_t kEndBytes = 11;

/// Writes the end of a stream behind the last bits; returns the number of bytes.
size_t writeEnd(LastBits last, uint8_t* to, uint32_t crc);

}  // namespace bzip2

/// A block as the block sort takes and gives it: run-length coded.
struct Bzip2Block {
    Bzip2Block() = default;
    explicit Bzip2Block(const Allocator& allocator) : data(allocator) {}

    Memory<uint8_t> data;
    int32_t length = 0;
    uint32_t crc = 0;    ///< Of what the block stands for.
    uint8_t inUse[256];  ///< 1 for each value that it holds, else 0.
};

/// Fills blocks, one after the other: run-length codes input and sums it.
class Bzip2BlockFiller {
 public:
    explicit Bzip2BlockFiller(int level) : most_(level * bzip2::kLevelBytes - kSlack) {}

    /// Starts a block.
    void begin(Bzip2Block& block);
    /// Takes input until it is used up or the block is full. False when there is no memory: as if
    /// no more input than was taken had been given.
    [[nodiscard]] bool take(Bzip2Block& block, Input& in);
    bool isFull(const Bzip2Block& block) const { return block.length >= most_; }
    /// Makes the block ready to be coded.
    void end(Bzip2Block& block);

 private:
    /// Bytes of a block that stay free, for the count of its last run among others.
    static constexpr int32_t kSlack = 19;

    bool reserve(Bzip2Block& block, size_t more) const;

    int32_t most_;
    VekBz2RleState state_;
};

/// Codes blocks, one at a time; has the work memory of one thread.
class Bzip2BlockEncoder {
 public:
    explicit Bzip2BlockEncoder(const Allocator& allocator = {})
        : work_(allocator), sorted_(allocator), huffman_(allocator), coded_(allocator) {}

    /// Codes a block that is not empty. False when there is no memory.
    [[nodiscard]] bool encode(const Bzip2Block& block);
    /// What came of it: so many bits, to be used as joinBits() takes them.
    uint8_t* coded() { return coded_.data(); }
    uint64_t bits() const { return bits_; }

 private:
    bool sort(const Bzip2Block& block, int32_t& index);
    int32_t makeSymbols(int32_t length, int32_t values);
    bool write(const Bzip2Block& block, int32_t index, int32_t count, int32_t alphaSize);
    uint16_t* symbols();

    Memory<uint8_t> work_;
    Memory<uint8_t> sorted_;
    Memory<uint64_t> huffman_;  // In words, for the record's alignment.
    Memory<uint8_t> coded_;
    uint64_t bits_ = 0;
    uint32_t frequencies_[258];
};

/// Bits of input that comes in pieces, the most significant first.
class Bzip2BitsIn {
 public:
    /// The next `bits` bits, up to 64, once all of them have come.
    bool read(Input& in, unsigned bits, uint64_t& value) {
        while (held_ < bits) {
            const auto more = static_cast<int32_t>(bits - held_ < 8 ? bits - held_ : 8);
            if (count_ < more && !takeByte(in)) return false;
            value_ = value_ << more | code_ >> (32 - more);
            code_ <<= more;
            count_ -= more;
            held_ += static_cast<unsigned>(more);
        }
        value = value_;
        value_ = held_ = 0;
        return true;
    }

    /// Calls a stage that reads on from here. Behind whatever a stage reads a stream has more, so a
    /// stage without input waits for it.
    template <class Stage>
    VekStatus run(Input& in, Stage&& stage) {
        if (in.left == 0) return vekStatusSourceIncomplete;
        const uint8_t* src = in.next;
        auto left = static_cast<int32_t>(in.left < kMostInput ? in.left : kMostInput);
        const VekStatus status = stage(&code_, &count_, &src, &left);
        const auto taken = static_cast<size_t>(src - in.next);
        in = {src, in.left - taken};
        taken_ += taken;
        return status;
    }

    /// Calls a stage that would see more bits than it may need on what is left of the input, with
    /// zeros behind. True when it came to its end without those; else as if it had not been called.
    template <class Stage>
    bool runToEnd(Stage&& stage) {
        constexpr uint8_t zeros[4] = {};
        uint32_t code = code_;
        int32_t count = count_;
        const uint8_t* src = zeros;
        int32_t left = sizeof(zeros);
        const VekStatus status = stage(&code, &count, &src, &left);
        const int32_t rest = count + 8 * left - 8 * static_cast<int32_t>(sizeof(zeros));
        if (status != vekStatusOk || rest < 0) return false;
        code_ = static_cast<uint32_t>(static_cast<uint64_t>(code_) << (count_ - rest));
        count_ = rest;
        return true;
    }

    /// Skips the rest of the byte that was begun.
    void toByte() {
        const int32_t rest = count_ % 8;
        code_ <<= rest;
        count_ -= rest;
    }

    /// Goes on from another bit, whose byte the input is at.
    void startAt(uint64_t position, Input& in) {
        *this = Bzip2BitsIn();
        taken_ = position / 8;
        uint64_t ignored = 0;
        read(in, position % 8, ignored);
    }

    /// The next bit's position, from the input's start.
    uint64_t position() const { return 8 * taken_ - static_cast<uint64_t>(count_); }
    uint64_t offset() const { return position() / 8; }
    /// Bytes of the input that were taken.
    uint64_t taken() const { return taken_; }

 private:
    static constexpr size_t kMostInput = 1 << 30;

    bool takeByte(Input& in) {
        if (in.left == 0) return false;
        code_ |= static_cast<uint32_t>(*in.next++) << (24 - count_);
        --in.left;
        ++taken_;
        count_ += 8;
        return true;
    }

    uint32_t code_ = 0;   // Pending bits, the next one on top, as the stages share them;
    int32_t count_ = 0;   // so many.
    uint64_t value_ = 0;  // What has come of a field,
    unsigned held_ = 0;   // so many bits.
    uint64_t taken_ = 0;
};

/// Whether a block is known to be right before any of it comes out. Otherwise it need not be
/// expanded twice, but what is wrong with it shows only behind its data.
enum class Bzip2Check { First, Last };

/// Decodes blocks, one at a time; has the work memory of one thread.
class Bzip2BlockDecoder {
 public:
    explicit Bzip2BlockDecoder(const Allocator& allocator = {},
                               Bzip2Check check = Bzip2Check::First)
        : check_(check),
          huffman_(allocator),
          trial_(allocator),
          symbols_(allocator),
          entries_(allocator) {}

    /// Starts a block of at most `most` bytes, right behind its magic number.
    void begin(const Bzip2BitsIn& bits, int32_t most);
    /// Reads on; Ended when `block` is there, and, with Bzip2Check::First, right.
    Status run(Bzip2BitsIn& bits, Input& in, Bzip2Block& block);
    /// With Bzip2Check::Last: of a block that was expanded and has this CRC.
    Status finish(const Bzip2Block& block, uint32_t crc);
    Fault fault() const { return fault_; }

 private:
    enum class Step { Crc, Randomised, Index, Rows, Values, TablesStart, Tables, Symbols, Block };

    Status readSymbols(Bzip2BitsIn& bits, Input& in);
    bool reserveSymbols(size_t more);
    bool readLastSymbols(Bzip2BitsIn& bits);
    Status decode(Bzip2Block& block);
    Status broken(const char* reason, uint64_t offset);
    VekBz2HuffDecState* huffman() { return reinterpret_cast<VekBz2HuffDecState*>(huffman_.data()); }

    Bzip2Check check_;
    Step step_ = Step::Crc;
    uint64_t start_ = 0;
    int32_t most_ = 0;
    int32_t index_ = 0;
    uint32_t rows_ = 0;  // Of 16 values each, the first one on top: those that are still to come.
    int32_t valueCount_ = 0;
    int32_t symbolCount_ = 0;
    Fault fault_;
    Memory<uint64_t> huffman_;  // In words, for the record's alignment.
    Memory<uint64_t> trial_;    // A copy of it, where the input ends in a block's last symbols.
    Memory<uint16_t> symbols_;
    Memory<uint8_t> entries_;
};

/// Expands blocks, piece by piece: a block of runs becomes fifty times as long.
class Bzip2BlockExpander {
 public:
    void begin();
    /// True when all of the block is out.
    bool run(const Bzip2Block& block, Output& out);

 private:
    int32_t at_ = 0;
    VekBz2RleState state_;
};

}  // namespace vekdc::codec
