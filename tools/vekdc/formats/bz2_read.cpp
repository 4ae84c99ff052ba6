// Reading bzip2 streams.
//
// The reader is serial code that follows the bits. With several jobs, the file is first cut up
// wherever the bits that start a block show, and the pieces are decoded side by side as blocks.
// That is a guess, since the bits may show inside a block as well: a block counts if its CRC holds
// and what is decoded in front leads to it. Where that ends, be it at the last block, a false start
// or a fault, the serial code goes on from where it stands. So there is one reader that says what
// is wrong, and the guess can cost time but no correctness.
#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

#include "codec/bzip2_decoder.h"
#include "tools/vekdc/formats/bz2_stream.h"
#include "tools/vekdc/formats/pump.h"
#include "tools/vekdc/io/buffer.h"
#include "tools/vekdc/io/pipeline.h"

namespace vekdc::bz2 {
namespace {

using namespace codec::bzip2;
using Data = Buffer;
using UseStream = std::function<void(const Stream&)>;

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
    codec::Bzip2Block block;
    bool good = false;  ///< The block is decoded, and ends at `end`.
    uint64_t end = 0;

    /// From the byte of a bit on.
    codec::Input from(uint64_t position) const {
        const auto at = static_cast<size_t>(position / 8 - offset);
        return {bytes.data() + at, bytes.size() - at};
    }
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

/// Hands on what it is given, and counts it.
class CountingSink : public Sink {
 public:
    explicit CountingSink(Sink& sink) : sink_(sink) {}
    void write(Bytes bytes) override {
        written += bytes.size();
        sink_.write(bytes);
    }
    uint64_t written = 0;

 private:
    Sink& sink_;
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
    /// The decoder has come to the end of a stream.
    void finishStream() {
        use_({.number = ++streamCount_,
              .offset = start_,
              .level = decoder_.level(),
              .blocks = decoder_.blockCount(),
              .crc = decoder_.crc(),
              .packed = decoder_.taken(),
              .plain = sink_.written});
        start_ += decoder_.taken();
        sink_.written = 0;
        decoder_.reset();
    }

    // --- one block after the other

    /// What a message begins with: the stream and the block.
    std::string where() const {
        const uint64_t stream = streamCount_ + (decoder_.level() != 0 ? 1 : 0);
        if (stream == 0) return {};
        return "stream " + std::to_string(stream) +
               (decoder_.inBlock() ? ", block " + std::to_string(decoder_.blockCount() + 1) : "") +
               ": ";
    }

    /// Lets the decoder go on with a source that starts at the byte `base` of the file.
    void readSerial(Source& source, uint64_t base) {
        const auto isDone = [&] {
            return streamCount_ != 0 && decoder_.taken() == 0 && source.atEnd();
        };
        try {
            while (!isDone()) {
                pumpDecoder(decoder_, source, sink_, [&] { return where(); });
                finishStream();
            }
        } catch (const FormatError& error) {
            const codec::Fault fault = decoder_.fault();
            if (fault.reason == nullptr) throw FormatError(base + error.offset, error.what());
            if (decoder_.level() != 0 || streamCount_ == 0)
                throw FormatError(start_ + fault.offset, error.what());
            settings_.warn("byte " + std::to_string(start_) +
                           ": ignored what follows the bz2 data");
        }
    }

    // --- blocks side by side

    void readParallel() {
        Splitter splitter(source_);
        std::vector<codec::Bzip2BlockDecoder> decoders(settings_.jobs);
        orderedPipeline<Segment>(
            settings_.jobs,
            [&](Segment& segment) { return !goesOnSerial_ && splitter.next(segment); },
            [&](Segment& segment, unsigned thread) { decode(segment, decoders[thread]); },
            [&](Segment& segment) { take(segment); });
        decoders.clear();
        // The splitter has shown more than it went over, the decoder taken some of that.
        source_.skip(static_cast<size_t>(againFrom_ + again_.size() - source_.offset()));
        const uint64_t at = start_ + decoder_.taken();
        Replay replay(Bytes(again_).subspan(static_cast<size_t>(at - againFrom_)), source_);
        Source rest(replay);
        readSerial(rest, at);
    }

    static void decode(Segment& segment, codec::Bzip2BlockDecoder& decoder) {
        if (!segment.isBlock) return;
        const uint64_t behindMagic = segment.start + kMagicBits;
        codec::Input in = segment.from(behindMagic);
        codec::Bzip2BitsIn bits;
        bits.startAt(behindMagic, in);
        decoder.begin(bits, kMostBlock);
        const codec::Status status = decoder.run(bits, in, segment.block);
        if (status == codec::Status::NoMemory) throw std::bad_alloc();
        segment.good = status == codec::Status::Ended;
        segment.end = bits.position();
    }

    /// Takes segments as long as one leads to the next, then collects them for the serial reader.
    void take(Segment& segment) {
        if (goesOnSerial_) {
            const uint64_t end = againFrom_ + again_.size();
            const auto known = static_cast<ptrdiff_t>(end - segment.offset);
            again_.insert(again_.end(), segment.bytes.begin() + known, segment.bytes.end());
            return;
        }
        const bool isPassed = !segment.isBlock || pass(segment);
        if (isPassed && !segment.isLast && leadsToNext(segment)) return;
        goesOnSerial_ = true;
        againFrom_ = segment.offset;
        again_ = std::move(segment.bytes);
    }

    /// Puts a segment's block out, if it is good and fits the stream.
    bool pass(const Segment& segment) {
        if (!segment.good || segment.block.length > decoder_.level() * kLevelBytes) return false;
        codec::Bzip2BlockExpander expander;
        expander.begin();
        for (bool done = false; !done;) {
            codec::Output out = room_.output();
            done = expander.run(segment.block, out);
            sink_.write(room_.written(out));
        }
        codec::Input in = segment.from(segment.end);
        decoder_.passBlock(segment.block.crc, segment.end - 8 * start_, in);
        return true;
    }

    /// Whether the decoder, from where it stands, comes to the next segment's start.
    bool leadsToNext(const Segment& segment) {
        for (;;) {
            codec::Input in = segment.from(8 * (start_ + decoder_.taken()));
            const codec::Status status = decoder_.toBlock(in);
            if (status != codec::Status::Ended)
                return decoder_.inBlock() &&
                       8 * start_ + decoder_.position() == segment.next + kMagicBits;
            finishStream();
        }
    }

    Source& source_;
    CountingSink sink_;
    PumpRoom room_;
    const Settings& settings_;
    const UseStream& use_;
    codec::Bzip2Decoder decoder_;
    uint64_t start_ = 0;         // Of the decoder's stream.
    uint64_t streamCount_ = 0;   // Those that are complete.
    bool goesOnSerial_ = false;  // What was decoded side by side ends: the rest is serial,
    Data again_;                 // and begins with these bytes,
    uint64_t againFrom_ = 0;     // which stand here.
};

}  // namespace

void readStreams(Source& source, Sink& sink, const Settings& settings, const UseStream& use) {
    StreamsReader(source, sink, settings, use).read();
}

}  // namespace vekdc::bz2
