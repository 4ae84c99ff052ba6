// Reading bzip2 streams.
//
// The reader is serial code that follows the bits. With several jobs, the file is first cut up
// wherever the bits that start a block show, and the pieces are decoded side by side as blocks.
// That is a guess, since the bits may show inside a block as well: a block counts if its CRC holds
// and what is decoded in front leads to it. Where that ends, be it at the last block, a false start
// or a fault, the serial code goes on from the last good bit. So there is one reader that says what
// is wrong, and the guess can cost time but no correctness.
#include <algorithm>
#include <cstring>
#include <optional>

#include "codec/checksums.h"
#include "tools/vekdc/formats/bz2_stream.h"
#include "tools/vekdc/io/pipeline.h"

namespace vekdc::bz2 {
namespace {

using Data = std::vector<uint8_t>;
using UseStream = std::function<void(const Stream&)>;

constexpr int kMostGroups = 32767;  // Files may name more groups of symbols than they use.
constexpr int kGroup = 50;
constexpr size_t kPiece = 64 << 10;

/// The file ends where more is needed.
struct CutShort {};

/// Reads a source bit by bit, the most significant first.
class BitSource {
 public:
    /// `base`: where the source starts in the file, in bytes.
    explicit BitSource(Source& source, uint64_t base = 0) : source_(source), base_(base) {}

    bool has(int32_t bits) {
        while (count_ < bits) {
            const Bytes bytes = source_.peek();
            if (bytes.empty()) return false;
            code_ |= static_cast<uint32_t>(bytes[0]) << (24 - count_);
            source_.skip(1);
            count_ += 8;
        }
        return true;
    }

    /// The next 1 to 24 bits.
    uint32_t take(int32_t bits) {
        if (!has(bits)) throw CutShort();
        const uint32_t value = code_ >> (32 - bits);
        code_ <<= bits;
        count_ -= bits;
        return value;
    }
    uint32_t take32() {
        const uint32_t high = take(16);
        return high << 16 | take(16);
    }
    uint64_t takeMagic() {
        const uint64_t high = take(24);
        return high << 24 | take(24);
    }
    void toByte() {
        if (count_ % 8 != 0) take(count_ % 8);
    }
    void skip(uint64_t bits) {
        for (; bits >= 8; bits -= 8) take(8);
        if (bits != 0) take(static_cast<int32_t>(bits));
    }

    /// Calls a stage that reads on from here, until it wants no more input. Behind whatever a stage
    /// reads a whole stream has more, so a stage at the end of the input was cut short.
    template <class Stage>
    VekStatus run(Stage&& stage) {
        constexpr size_t most = 1 << 30;
        for (;;) {
            const Bytes bytes = source_.peek();
            if (bytes.empty()) throw CutShort();
            const uint8_t* src = bytes.data();
            auto left = static_cast<int32_t>(std::min(bytes.size(), most));
            const VekStatus status = stage(&code_, &count_, &src, &left);
            source_.skip(static_cast<size_t>(src - bytes.data()));
            if (status != vekStatusSourceIncomplete) return status;
        }
    }

    /// The next bit's position in the file, and its byte's.
    uint64_t position() const {
        return 8 * (base_ + source_.offset()) - static_cast<uint64_t>(count_);
    }
    uint64_t offset() const { return position() / 8; }

 private:
    Source& source_;
    uint64_t base_;
    uint32_t code_ = 0;
    int32_t count_ = 0;
};

/// Expands blocks, piece by piece: a block of runs becomes fifty times as long.
class Expander {
 public:
    template <class Use>
    void expand(const Block& block, Use&& use) {
        Bz2RleState state;
        require(veksDecodeRLEStateInit_BZ2_8u(&state));
        const uint8_t* src = block.data.get();
        auto left = static_cast<int32_t>(block.length);
        bool more = true;
        while (more) {
            uint8_t* dst = piece_.data();
            auto room = static_cast<int32_t>(piece_.size());
            if (left != 0) {
                veksDecodeRLEState_BZ2_8u(&src, &left, &dst, &room, &state);
            } else {
                more = veksDecodeRLEStateFlush_BZ2_8u(&state, &dst, &room) != vekStatusOk;
            }
            use(Bytes(piece_).first(static_cast<size_t>(dst - piece_.data())));
        }
    }

    uint32_t crc(const Block& block) {
        uint32_t crc = codec::kBzip2Crc.initial;
        expand(block, [&](Bytes bytes) { crc = codec::kBzip2Crc.update(crc, bytes); });
        return crc;
    }

 private:
    Data piece_ = Data(kPiece);
};

/// Whether the block ends behind four equal bytes, where a count must follow.
bool lacksCount(Bytes block) {
    const size_t size = block.size();
    if (size < 4) return false;
    const uint8_t last = block[size - 1];
    if (last != block[size - 2] || last != block[size - 3] || last != block[size - 4]) return false;
    size_t i = 0;
    for (int run = 0; i < size; ++i) {
        run = run != 0 && block[i] == block[i - 1] ? run + 1 : 1;
        if (run != 4) continue;
        run = 0;
        ++i;
    }
    return i > size;
}

/// Decodes blocks, one at a time; has the work memory of one thread.
class BlockDecoder {
 public:
    /// Reads the block behind its magic number; throws FormatError, CutShort. It may be `most`
    /// bytes long.
    void read(BitSource& bits, Block& block, int most) {
        const uint64_t offset = (bits.position() - kMagicBits) / 8;
        block.crc = bits.take32();
        if (bits.take(1) != 0)
            throw FormatError(offset,
                              "the block is randomised, as by versions of bzip2 before 0.9.5; "
                              "that is not supported");
        const auto index = static_cast<int32_t>(bits.take(24));
        readMap(bits);
        const int32_t count = readSymbols(bits, most);
        int32_t length = most;
        if (count == 0 || index >= most ||
            veksDecodeBlock_BZ2_16u8u(symbols_.get(), count, block.data.get(), &length, index,
                                      valueCount_, inUse_.data(), entries_.get()) != vekStatusOk)
            throw FormatError(offset, kBrokenData);
        block.length = static_cast<size_t>(length);
        if (lacksCount(block.bytes()))
            throw FormatError(offset, "the block's last run has no length");
        if (expander_.crc(block) != block.crc)
            throw FormatError(offset, "the block's CRC does not match");
    }

 private:
    static constexpr const char* kBrokenData = "the block's data are broken";

    void readMap(BitSource& bits) {
        const uint32_t rows = bits.take(16);
        inUse_.fill(0);
        valueCount_ = 0;
        for (unsigned row = 0; row < 16; ++row) {
            if ((rows >> (15 - row) & 1) == 0) continue;
            const uint32_t values = bits.take(16);
            for (unsigned i = 0; i < 16; ++i) inUse_[16 * row + i] = values >> (15 - i) & 1;
            valueCount_ += std::popcount(values);
        }
        if (valueCount_ == 0) throw FormatError(bits.offset(), "the block has no values");
    }

    /// Returns the number of symbols, end of block not counted.
    int32_t readSymbols(BitSource& bits, int most) {
        auto* const state = reinterpret_cast<Bz2HuffDecState*>(huffman_.get());
        require(veksDecodeHuffInit_BZ2_8u16u(valueCount_ + 2, state));
        VekStatus status = bits.run(
            [&](auto... stream) { return veksUnpackHuffContext_BZ2_8u16u(stream..., state); });
        if (status != vekStatusOk) throw FormatError(bits.offset(), "the code tables are broken");
        int32_t count = 0;
        status = bits.run([&](auto... stream) {
            int32_t room = most + 1 - count;
            uint16_t* const dst = symbols_.get() + count;
            const VekStatus result = veksDecodeHuff_BZ2_8u16u(stream..., dst, &room, state);
            count += room;
            return result;
        });
        if (status != vekStatusOk) throw FormatError(bits.offset(), kBrokenData);
        return count;
    }

    static size_t huffmanSize() {
        int32_t size = 0;
        require(veksDecodeHuffGetSize_BZ2_8u16u(kMostGroups * kGroup, &size));
        return static_cast<size_t>(size);
    }
    static size_t entriesSize() {
        int32_t size = 0;
        require(veksDecodeBlockGetSize_BZ2_8u(kMostBlock, &size));
        return static_cast<size_t>(size);
    }

    std::array<uint8_t, 256> inUse_{};
    int32_t valueCount_ = 0;
    // In words, for the record's alignment.
    std::unique_ptr<uint32_t[]> huffman_ = makeBuffer<uint32_t>(huffmanSize() / 4 + 1);
    std::unique_ptr<uint16_t[]> symbols_ = makeBuffer<uint16_t>(kMostBlock + 1);
    std::unique_ptr<uint8_t[]> entries_ = makeBuffer<uint8_t>(entriesSize());
    Expander expander_;
};

/// Where in the bytes, in bits, a block's magic number first shows at or behind the bit `from`.
std::optional<size_t> findBlock(Bytes bytes, size_t from) {
    // The magic number's first whole byte behind its start, by the bit of a byte that it starts at.
    constexpr auto shiftsByByte = [] {
        std::array<uint8_t, 256> table{};
        for (unsigned shift = 0; shift < 8; ++shift)
            table[kBlockMagic >> (kMagicBits - 16 + shift) & 0xFF] |=
                static_cast<uint8_t>(1U << shift);
        return table;
    }();
    for (size_t at = from / 8; at + 6 <= bytes.size(); ++at) {
        const uint8_t shifts = shiftsByByte[bytes[at + 1]];
        if (shifts == 0) [[likely]]
            continue;
        uint64_t word = 0;
        for (size_t i = at; i < at + 7; ++i) word = word << 8 | (i < bytes.size() ? bytes[i] : 0);
        for (unsigned shift = 0; shift < 8; ++shift) {
            const uint64_t here = word >> (8 - shift) & ((uint64_t{1} << kMagicBits) - 1);
            if (here == kBlockMagic && 8 * at + shift >= from &&
                8 * at + shift + kMagicBits <= 8 * bytes.size())
                return 8 * at + shift;
        }
    }
    return std::nullopt;
}

/// A piece of the file from one block's magic number to behind the next.
struct Segment {
    uint64_t offset = 0;  ///< Of its first byte.
    uint64_t start = 0;   ///< Position of its first bit.
    uint64_t next = 0;    ///< Position of the next magic number.
    bool isBlock = false;
    bool isLast = false;  ///< There is no next one, or it is too far away.
    Data bytes;
    Block block;
    bool good = false;  ///< The block is decoded, and ends at `end`.
    uint64_t end = 0;
};

/// Cuts a source up at the blocks' magic numbers. The first segment is what is in front of them.
class Splitter {
 public:
    explicit Splitter(Source& source) : source_(source) {}

    bool next(Segment& segment) {
        if (done_) return false;
        segment.offset = start_ / 8;
        segment.start = start_;
        segment.isBlock = start_ != 0;
        segment.isLast = false;
        segment.good = false;
        segment.bytes.clear();
        size_t from = segment.isBlock ? start_ % 8 + 1 : 0;
        while (segment.bytes.size() < kMostCoded) {
            constexpr size_t overlap = 6;  // Bytes of a magic number in front of its last.
            const Bytes all = source_.peek(overlap + 1);
            const Bytes view = all.first(std::min(all.size(), Source::kRoom));
            const uint64_t base = 8 * source_.offset();
            const auto found = findBlock(view, from);
            if (found) {
                append(segment, view.first(std::min(view.size(), *found / 8 + overlap + 1)));
                source_.skip(*found / 8);
                start_ = segment.next = base + *found;
                return true;
            }
            const bool ends = view.size() <= overlap;
            const Bytes part = view.first(ends ? view.size() : view.size() - overlap);
            append(segment, part);
            source_.skip(part.size());
            if (ends) break;
            from = 0;
        }
        done_ = segment.isLast = true;
        return true;
    }

 private:
    /// More than any encoder makes of a block.
    static constexpr size_t kMostCoded = 1 << 20;

    static void append(Segment& segment, Bytes bytes) {
        segment.bytes.insert(segment.bytes.end(), bytes.begin(), bytes.end());
    }

    Source& source_;
    uint64_t start_ = 0;
    bool done_ = false;
};

/// Reads what was read before once more, then the rest.
class Replay : public Reader {
 public:
    Replay(Bytes again, Source& rest) : again_(again), rest_(rest) {}

    size_t read(uint8_t* to, size_t room) override {
        if (again_.empty()) return rest_.read(to, room);
        const size_t count = std::min(again_.size(), room);
        std::memcpy(to, again_.data(), count);
        again_ = again_.subspan(count);
        return count;
    }

 private:
    Bytes again_;
    Source& rest_;
};

class StreamsReader {
 public:
    StreamsReader(Source& source, Sink& sink, const Settings& settings, const UseStream& use)
        : source_(source), sink_(sink), settings_(settings), use_(use) {}

    /// Reads all streams; throws FormatError.
    void read() {
        if (settings_.jobs > 1)
            readParallel();
        else
            readSerial(source_, 0);
    }

 private:
    // --- what both ways share

    /// Reads on to behind the next block's magic number; false where the streams end. After a throw
    /// `resume_` is the position of the step that failed, and nothing of it is done.
    bool toBlock(BitSource& bits) {
        for (;;) {
            resume_ = bits.position();
            if (!inStream_) {
                if (!readHeader(bits)) return false;
                continue;
            }
            const uint64_t magic = bits.takeMagic();
            if (magic == kBlockMagic) return true;
            if (magic != kEndMagic)
                throw FormatError(resume_ / 8, "neither a block nor the end of the stream");
            finishStream(bits);
        }
    }

    bool readHeader(BitSource& bits) {
        const uint64_t offset = bits.offset();
        const bool isFirst = stream_.number == 0;
        if (!isFirst && !bits.has(8)) return false;
        uint8_t level = 0;
        bool fits = true;
        for (size_t i = 0; fits && i < 4; ++i) {
            level = static_cast<uint8_t>(bits.take(8));
            fits = i < 3 ? level == kMagic[i] : level >= '1' && level <= '9';
        }
        if (!fits && isFirst) throw FormatError(offset, "not a bz2 file");
        if (!fits) {
            ignoredFrom_ = offset;
            return false;
        }
        stream_ = {.number = stream_.number + 1, .offset = offset, .level = level - '0'};
        inStream_ = true;
        return true;
    }

    void finishStream(BitSource& bits) {
        const uint64_t offset = bits.offset();
        if (bits.take32() != stream_.crc)
            throw FormatError(offset, "the stream's CRC does not match");
        bits.toByte();
        stream_.packed = bits.offset() - stream_.offset;
        use_(stream_);
        inStream_ = false;
    }

    int mostBlock() const { return stream_.level * kLevelBytes; }

    void deliver(const Block& block) {
        stream_.crc = joinCrc(stream_.crc, block.crc);
        ++stream_.blocks;
        expander_.expand(block, [&](Bytes bytes) {
            stream_.plain += bytes.size();
            sink_.write(bytes);
        });
    }

    // --- one block after the other

    /// Reads from a source that starts at a byte of the file, on from the bit `resume_`.
    void readSerial(Source& source, uint64_t base) {
        BitSource bits(source, base);
        bool inBlock = false;
        const auto where = [&] {
            if (stream_.number == 0) return std::string();
            return "stream " + std::to_string(stream_.number) +
                   (inBlock ? ", block " + std::to_string(stream_.blocks + 1) : "") + ": ";
        };
        try {
            bits.skip(resume_ - 8 * base);
            BlockDecoder decoder;
            Block block;
            while (toBlock(bits)) {
                inBlock = true;
                decoder.read(bits, block, mostBlock());
                inBlock = false;
                deliver(block);
            }
        } catch (const CutShort&) {
            throw FormatError(base + source.offset(), where() + "the file ends too early");
        } catch (const FormatError& error) {
            throw FormatError(error.offset, where() + error.what());
        }
        if (ignoredFrom_)
            settings_.warn("byte " + std::to_string(*ignoredFrom_) +
                           ": ignored what follows the bz2 data");
    }

    // --- blocks side by side

    void readParallel() {
        Splitter splitter(source_);
        std::vector<BlockDecoder> decoders(settings_.jobs);
        orderedPipeline<Segment>(
            settings_.jobs,
            [&](Segment& segment) { return !goesOnSerial_ && splitter.next(segment); },
            [&](Segment& segment, unsigned thread) { decode(segment, decoders[thread]); },
            [&](Segment& segment) { take(segment); });
        decoders.clear();
        // The splitter has shown more than it went over.
        source_.skip(static_cast<size_t>(againFrom_ + again_.size() - source_.offset()));
        Replay replay(again_, source_);
        Source rest(replay);
        readSerial(rest, againFrom_);
    }

    static void decode(Segment& segment, BlockDecoder& decoder) {
        if (!segment.isBlock) return;
        try {
            Source source{Bytes(segment.bytes)};
            BitSource bits(source, segment.offset);
            bits.skip(segment.start - 8 * segment.offset + kMagicBits);
            decoder.read(bits, segment.block, kMostBlock);
            segment.end = bits.position();
            segment.good = true;
        } catch (const CutShort&) {
        } catch (const FormatError&) {
        }
    }

    /// Takes segments as long as one leads to the next, then collects them for the serial reader.
    void take(Segment& segment) {
        if (goesOnSerial_) {
            const uint64_t end = againFrom_ + again_.size();
            const auto known = static_cast<ptrdiff_t>(end - segment.offset);
            again_.insert(again_.end(), segment.bytes.begin() + known, segment.bytes.end());
            return;
        }
        if (segment.isBlock) {
            const auto most = static_cast<size_t>(mostBlock());
            if (segment.good && segment.block.length <= most) {
                deliver(segment.block);
                resume_ = segment.end;
                if (leadsToNext(segment)) return;
            }
        } else if (leadsToNext(segment)) {
            return;
        }
        goesOnSerial_ = true;
        againFrom_ = segment.offset;
        again_ = std::move(segment.bytes);
    }

    /// Whether the serial reader, from `resume_`, would come to the next segment's start.
    bool leadsToNext(const Segment& segment) {
        if (segment.isLast) return false;
        try {
            Source source{Bytes(segment.bytes)};
            BitSource bits(source, segment.offset);
            bits.skip(resume_ - 8 * segment.offset);
            return toBlock(bits) && resume_ == segment.next;
        } catch (const CutShort&) {
        } catch (const FormatError&) {
        }
        return false;
    }

    Source& source_;
    Sink& sink_;
    const Settings& settings_;
    const UseStream& use_;
    Expander expander_;
    Stream stream_;
    bool inStream_ = false;
    uint64_t resume_ = 0;
    std::optional<uint64_t> ignoredFrom_;
    bool goesOnSerial_ = false;  // What was decoded side by side ends: the rest is serial,
    Data again_;                 // and begins with these bytes,
    uint64_t againFrom_ = 0;     // which stand here.
};

}  // namespace

void readStreams(Source& source, Sink& sink, const Settings& settings, const UseStream& use) {
    StreamsReader(source, sink, settings, use).read();
}

}  // namespace vekdc::bz2
