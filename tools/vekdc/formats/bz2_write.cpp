// Writing a bzip2 stream: run-length code, block sort, move-to-front, zero runs, Huffman code.
//
// Where a block ends depends on its run-length code, so that stage and the CRC, both far faster
// than the rest, stay with the reading thread; the rest of a block's work is its own and runs on as
// many threads as wanted. Each block is coded from a bit 0 on and shifted to its place when its
// turn comes.
#include <algorithm>

#include "codec/checksums.h"
#include "tools/vekdc/formats/bz2_stream.h"
#include "tools/vekdc/io/pipeline.h"

namespace vekdc::bz2 {
namespace {

using Data = std::vector<uint8_t>;

/// Room to spare in a block, for the count of its last run among others.
constexpr int kSlack = 19;

/// Bits, the most significant first, in memory of a given size.
class BitWriter {
 public:
    explicit BitWriter(uint8_t* to, int32_t room) : to_(to), room_(room) {}

    /// Puts the low `bits` bits of a value, 1 to 24.
    void put(uint32_t value, int32_t bits) {
        code_ |= value << (32 - bits) >> count_;
        count_ += bits;
        flush(8);
    }
    void put32(uint32_t value) {
        put(value >> 16, 16);
        put(value & 0xFFFF, 16);
    }
    void putMagic(uint64_t magic) {
        put(static_cast<uint32_t>(magic >> 24), 24);
        put(static_cast<uint32_t>(magic) & 0xFFFFFF, 24);
    }

    /// Calls a stage that writes on from here.
    template <class Stage>
    void run(Stage&& stage) {
        int32_t written = room_ - written_;
        require(stage(&code_, &count_, to_ + written_, &written));
        written_ += written;
    }

    /// Ends the last byte; returns the number of bits.
    uint64_t finish() {
        const uint64_t bits = 8 * static_cast<uint64_t>(written_) + static_cast<uint64_t>(count_);
        flush(1);
        return bits;
    }

 private:
    void flush(int32_t least) {
        for (; count_ >= least; count_ -= 8, code_ <<= 8)
            to_[written_++] = static_cast<uint8_t>(code_ >> 24);
    }

    uint8_t* to_;
    int32_t room_;
    int32_t written_ = 0;
    uint32_t code_ = 0;
    int32_t count_ = 0;
};

/// A block on its way into the file.
struct PlainBlock : Block {
    std::array<uint8_t, 256> inUse{};
    Data coded;
    uint64_t bits = 0;  ///< As many are the block's; the last byte's others are 0.
};

/// Fills blocks: run-length codes a source and sums it.
class BlockFiller {
 public:
    BlockFiller(Source& source, int level) : source_(source), room_(level * kLevelBytes - kSlack) {}

    /// False where nothing is left.
    bool fill(PlainBlock& block) {
        if (source_.atEnd()) return false;
        Bz2RleState state;
        require(veksEncodeRLEInit_BZ2_8u(&state));
        int32_t length = 0;
        block.crc = codec::kBzip2Crc.initial;
        while (length < room_ && !source_.atEnd()) {
            const Bytes bytes = source_.peek();
            const Bytes part = bytes.first(std::min(bytes.size(), Source::kRoom));
            const uint8_t* src = part.data();
            auto left = static_cast<int32_t>(part.size());
            int32_t written = room_ - length;
            veksEncodeRLE_BZ2_8u(&src, &left, block.data.get() + length, &written, &state);
            length += written;
            const Bytes taken = part.first(static_cast<size_t>(src - part.data()));
            block.crc = codec::kBzip2Crc.update(block.crc, taken);
            source_.skip(taken.size());
        }
        int32_t written = 1;
        require(veksEncodeRLEFlush_BZ2_8u(block.data.get() + length, &written, &state));
        require(veksRLEGetInUseTable_8u(block.inUse.data(), &state));
        length += written;
        block.length = static_cast<size_t>(length);
        return true;
    }

 private:
    Source& source_;
    int32_t room_;
};

/// Codes blocks, one at a time; has the work memory of one thread.
class BlockEncoder {
 public:
    void encode(PlainBlock& block) {
        const auto length = static_cast<int32_t>(block.length);
        int32_t index = 0;
        sort(block, length, index);
        int32_t values = 0;
        require(veksReduceDictionary_8u_I(block.inUse.data(), sorted_.get(), length, &values));
        MtfState list;
        require(veksMTFInit_8u(&list));
        require(veksMTFFwd_8u(sorted_.get(), sorted_.get(), length, &list));
        const int32_t count = makeSymbols(length, values);

        auto* const state = makeTables(count, values + 2);
        BitWriter bits(coded_.get(), kMostCoded);
        bits.putMagic(kBlockMagic);
        bits.put32(block.crc);
        bits.put(0, 1);  // Not randomised.
        bits.put(static_cast<uint32_t>(index), 24);
        putMap(bits, block.inUse);
        bits.run([&](auto... to) { return veksPackHuffContext_BZ2_16u8u(to..., state); });
        const uint16_t* src = symbols();
        int32_t left = count;
        bits.run([&](uint32_t* code, int32_t* pending, uint8_t* dst, int32_t* room) {
            return veksEncodeHuff_BZ2_16u8u(code, pending, &src, &left, dst, room, state);
        });
        block.bits = bits.finish();
        block.coded.assign(coded_.get(), coded_.get() + (block.bits + 7) / 8);
    }

 private:
    static constexpr int kSortMethod = 1;  // Never gives up, in the least memory.
    /// Codes have at most 17 bits; the rest is for the header and the tables' description.
    static constexpr int kMostCoded = kMostBlock / 8 * 17 + (64 << 10);

    void sort(const PlainBlock& block, int32_t length, int32_t& index) {
        int32_t size = 0;
        require(veksBWTFwdGetBufSize_SelectSort_8u(length, &size, kSortMethod));
        if (static_cast<size_t>(size) > workSize_) {
            work_ = makeBuffer<uint8_t>(static_cast<size_t>(size));
            workSize_ = static_cast<size_t>(size);
        }
        require(veksBWTFwd_SelectSort_8u(block.data.get(), sorted_.get(), length, &index,
                                         work_.get(), kSortMethod));
    }

    /// Returns the number of symbols, end of block included; their frequencies stand in freq_.
    int32_t makeSymbols(int32_t length, int32_t values) {
        freq_.fill(0);
        const uint8_t* src = sorted_.get();
        int32_t count = length + 64;  // More than it takes, and less than the sort's memory.
        require(veksEncodeZ1Z2_BZ2_8u16u(&src, &length, symbols(), &count, freq_.data()));
        const auto end = static_cast<uint16_t>(values + 1);
        symbols()[static_cast<size_t>(count)] = end;
        freq_[end] = 1;
        return count + 1;
    }

    Bz2HuffEncState* makeTables(int32_t count, int32_t alphaSize) {
        int32_t size = 0;
        require(veksEncodeHuffGetSize_BZ2_16u8u(count, &size));
        huffman_.resize(static_cast<size_t>(size) / 8 + 1);
        auto* const state = reinterpret_cast<Bz2HuffEncState*>(huffman_.data());
        require(veksEncodeHuffInit_BZ2_16u8u(alphaSize, freq_.data(), symbols(), count, state));
        return state;
    }

    static void putMap(BitWriter& bits, const std::array<uint8_t, 256>& inUse) {
        std::array<uint32_t, 16> values{};
        uint32_t rows = 0;
        for (unsigned i = 0; i < 256; ++i) values[i / 16] |= uint32_t{inUse[i]} << (15 - i % 16);
        for (unsigned row = 0; row < 16; ++row) rows |= uint32_t{values[row] != 0} << (15 - row);
        bits.put(rows, 16);
        for (const uint32_t row : values)
            if (row != 0) bits.put(row, 16);
    }

    /// They stand where the block was sorted: its memory is larger by far, and free by then.
    uint16_t* symbols() { return reinterpret_cast<uint16_t*>(work_.get()); }

    std::unique_ptr<uint8_t[]> work_;
    size_t workSize_ = 0;
    std::unique_ptr<uint8_t[]> sorted_ = makeBuffer<uint8_t>(kMostBlock);
    std::array<uint32_t, 258> freq_{};
    std::vector<uint64_t> huffman_;  // In words, for the record's alignment.
    std::unique_ptr<uint8_t[]> coded_ = makeBuffer<uint8_t>(kMostCoded);
};

/// Puts stretches of bits one behind the other.
class BitSink {
 public:
    explicit BitSink(Sink& sink) : sink_(sink) {}

    /// Takes the first `bits` bits of the bytes; any behind them in the last byte are 0.
    void put(Bytes bytes, uint64_t bits) {
        out_.resize(bytes.size() + 1);
        uint32_t before = last_;
        for (size_t i = 0; i < bytes.size(); ++i) {
            out_[i] = static_cast<uint8_t>(before | bytes[i] >> count_);
            before = static_cast<uint32_t>(bytes[i]) << (8 - count_);
        }
        out_[bytes.size()] = static_cast<uint8_t>(before);
        const uint64_t all = count_ + bits;
        const auto whole = static_cast<size_t>(all / 8);
        sink_.write(Bytes(out_).first(whole));
        count_ = static_cast<unsigned>(all % 8);
        last_ = count_ == 0 ? 0 : out_[whole];
    }
    void finish() {
        if (count_ != 0) sink_.write(Bytes(&last_, 1));
    }

 private:
    Sink& sink_;
    Data out_;
    uint8_t last_ = 0;    // The bits that do not make up a byte yet,
    unsigned count_ = 0;  // so many.
};

}  // namespace

void writeStream(Source& source, Sink& sink, const Settings& settings) {
    const int level = settings.fastest ? 1 : settings.level;
    BitSink out(sink);
    out.put(Data{kMagic[0], kMagic[1], kMagic[2], static_cast<uint8_t>('0' + level)}, 32);
    BlockFiller filler(source, level);
    std::vector<BlockEncoder> encoders(settings.jobs);
    uint32_t crc = 0;
    orderedPipeline<PlainBlock>(
        settings.jobs, [&](PlainBlock& block) { return filler.fill(block); },
        [&](PlainBlock& block, unsigned thread) { encoders[thread].encode(block); },
        [&](PlainBlock& block) {
            crc = joinCrc(crc, block.crc);
            out.put(block.coded, block.bits);
        });
    std::array<uint8_t, 10> end{};
    BitWriter bits(end.data(), end.size());
    bits.putMagic(kEndMagic);
    bits.put32(crc);
    out.put(end, bits.finish());
    out.finish();
}

}  // namespace vekdc::bz2
