// A small container for LZSS streams: docs/lzss.md has its layout, byte by byte.
//
// The stream has no end mark, no length and no checksum, and grows by an eighth where there is
// nothing to find. So the container cuts the data into blocks, each a stream of its own or stored,
// behind its lengths and the CRC-32C of all data so far: damage is told from the block that has it
// on, before anything of that block is delivered, and a lost or exchanged block is noticed too.
// Blocks of 1 MiB lose next to nothing to the 32 KiB of history that each one starts without, and
// are coded on as many threads as wanted; the output does not depend on how many.
#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "codec/checksums.h"
#include "tools/vekdc/formats/formats.h"
#include "tools/vekdc/io/pipeline.h"
#include "vekdc.h"

namespace vekdc {
namespace {

using Data = std::vector<uint8_t>;

constexpr std::array<uint8_t, 8> kMagic = {0x89, 'L', 'Z', 'S', 'S', 0x0D, 0x0A, 0x1A};
constexpr uint8_t kVersion = 1;
constexpr unsigned kBlockBits = 20;  // Of the blocks written.
constexpr unsigned kFewestBits = 12;
constexpr unsigned kMostBits = 24;
constexpr uint64_t kUnknown = ~uint64_t{0};
/// The longest match, 258 bytes, takes 3.
constexpr size_t kLargestExpansion = 86;

void append(Data& to, uint64_t value, int count) {
    for (int i = 0; i < count; ++i) to.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

uint32_t sumOf(Bytes bytes) {
    return codec::kCrc32c.finish(codec::kCrc32c.update(codec::kCrc32c.initial, bytes));
}

/// The library's record, for one block at a time; takes memory when it is first used.
class Record {
 public:
    void* get() {
        if (words_.empty()) {
            int32_t size = 0;
            veksLZSSGetSize_8u(&size);
            words_.resize(static_cast<size_t>(size) / sizeof(void*) + 1);
        }
        return words_.data();
    }

 private:
    std::vector<void*> words_;
};

// --- writing -------------------------------------------------------------------------------------

struct Block {
    Data data;
    Data stream;  ///< Empty where the block is to be stored.
};

void encode(Block& block, Record& record) {
    const auto length = static_cast<int32_t>(block.data.size());
    block.stream.resize(block.data.size());
    const uint8_t* from = block.data.data();
    int32_t left = length;
    uint8_t* to = block.stream.data();
    int32_t room = length - 1;  // What fills it is not worth having.
    const bool fits = veksEncodeLZSSInit_8u(record.get()) == vekStatusOk &&
                      veksEncodeLZSS_8u(&from, &left, &to, &room, record.get()) == vekStatusOk &&
                      veksEncodeLZSSFlush_8u(&to, &room, record.get()) == vekStatusOk;
    block.stream.resize(fits ? static_cast<size_t>(to - block.stream.data()) : 0);
}

void compressFile(Source& source, Sink& sink, unsigned jobs) {
    constexpr size_t blockSize = size_t{1} << kBlockBits;
    Data first(blockSize);
    first.resize(source.read(first.data(), first.size()));
    Data header(kMagic.begin(), kMagic.end());
    append(header, kVersion, 1);
    append(header, kBlockBits, 1);
    append(header, source.atEnd() ? first.size() : kUnknown, 8);
    append(header, sumOf(header), 4);
    sink.write(header);

    uint64_t length = 0;
    uint32_t sum = codec::kCrc32c.initial;
    std::vector<Record> records(jobs);
    orderedPipeline<Block>(
        jobs,
        [&](Block& block) {
            if (!first.empty()) {
                block.data = std::exchange(first, {});
            } else {
                block.data.resize(blockSize);
                block.data.resize(source.read(block.data.data(), blockSize));
            }
            return !block.data.empty();
        },
        [&](Block& block, unsigned thread) { encode(block, records[thread]); },
        [&](Block& block) {
            length += block.data.size();
            sum = codec::kCrc32c.update(sum, block.data);
            const Data& bytes = block.stream.empty() ? block.data : block.stream;
            Data head;
            append(head, block.data.size(), 4);
            append(head, bytes.size(), 4);
            append(head, codec::kCrc32c.finish(sum), 4);
            sink.write(head);
            sink.write(bytes);
        });
    Data end;
    append(end, 0, 4);
    append(end, length, 8);
    sink.write(end);
}

// --- reading -------------------------------------------------------------------------------------

struct Part {
    uint64_t number = 0;
    uint64_t offset = 0;
    unsigned blockBits = 0;
    uint64_t stated = kUnknown;
    uint32_t sum = 0;
    uint64_t blocks = 0;
    uint64_t storedBlocks = 0;
    uint64_t packed = 0;
    uint64_t plain = 0;
};

class PartReader {
 public:
    PartReader(Source& source, Sink& sink) : source_(source), sink_(sink) {}

    /// Reads one part; throws FormatError.
    const Part& read() {
        const uint64_t number = part_.number + 1;
        part_ = {};
        part_.number = number;
        part_.offset = source_.offset();
        for (const uint8_t byte : kMagic)
            if (source_.byte() != byte) throw FormatError(part_.offset, "not an lzss file");
        readHeader();
        uint32_t sum = codec::kCrc32c.initial;
        while (readBlock(sum)) {
        }
        part_.sum = codec::kCrc32c.finish(sum);
        if (source_.littleEndian(8) != part_.plain)
            fail(source_.offset() - 8, ": the length does not match");
        if (part_.stated != kUnknown && part_.stated != part_.plain)
            fail(part_.offset + kMagic.size() + 2, ": the length in the header does not match");
        part_.packed = source_.offset() - part_.offset;
        return part_;
    }

 private:
    [[noreturn]] void fail(uint64_t offset, const std::string& reason) const {
        throw FormatError(offset, "part " + std::to_string(part_.number) + reason);
    }
    [[noreturn]] void corrupt(uint64_t offset, const std::string& reason) const {
        fail(offset, ", block " + std::to_string(part_.blocks) + ": " + reason);
    }

    void readHeader() {
        Data header(kMagic.begin(), kMagic.end());
        const auto take = [&](int count) {
            const uint64_t value = source_.littleEndian(count);
            append(header, value, count);
            return value;
        };
        if (take(1) != kVersion) fail(source_.offset() - 1, ": unknown version of the format");
        part_.blockBits = static_cast<unsigned>(take(1));
        part_.stated = take(8);
        if (source_.littleEndian(4) != sumOf(header))
            fail(source_.offset() - 4, ": the header's checksum does not match");
        if (part_.blockBits < kFewestBits || part_.blockBits > kMostBits)
            fail(part_.offset + kMagic.size() + 1, ": unknown block size");
    }

    /// Adds a block to the sum of all data; false at the end of the part.
    bool readBlock(uint32_t& sum) {
        const auto size = static_cast<size_t>(source_.littleEndian(4));
        if (size == 0) return false;
        ++part_.blocks;
        if (size > size_t{1} << part_.blockBits)
            corrupt(source_.offset() - 4, "the block is larger than the file allows");
        const auto codedSize = static_cast<size_t>(source_.littleEndian(4));
        if (codedSize > size || size / kLargestExpansion > codedSize)
            corrupt(source_.offset() - 4, "the compressed length is impossible");
        const auto expected = static_cast<uint32_t>(source_.littleEndian(4));
        const uint64_t offset = source_.offset();
        coded_.clear();
        source_.take(coded_, codedSize);
        if (codedSize == size) ++part_.storedBlocks;
        const Bytes plain = codedSize == size ? Bytes(coded_) : decode(offset, size);
        sum = codec::kCrc32c.update(sum, plain);
        if (codec::kCrc32c.finish(sum) != expected)
            corrupt(offset - 4, "the CRC-32C does not match");
        part_.plain += size;
        sink_.write(plain);
        return true;
    }

    /// Decodes the block, which stands at `offset` in the file, to `size` bytes.
    Bytes decode(uint64_t offset, size_t size) {
        plain_.resize(size + 1);  // One more shows a stream that goes on.
        const uint8_t* from = coded_.data();
        auto left = static_cast<int32_t>(coded_.size());
        uint8_t* to = plain_.data();
        auto room = static_cast<int32_t>(plain_.size());
        if (veksDecodeLZSSInit_8u(record_.get()) != vekStatusOk ||
            veksDecodeLZSS_8u(&from, &left, &to, &room, record_.get()) != vekStatusOk ||
            left != 0 || room != 1)
            corrupt(offset, "the block's data are broken");
        return Bytes(plain_).first(size);
    }

    Source& source_;
    Sink& sink_;
    Part part_;
    Record record_;
    Data coded_;
    Data plain_;
};

class Lzss : public Format {
 public:
    const char* name() const override { return "lzss"; }
    const char* title() const override { return "LZSS file"; }
    std::vector<Suffix> suffixes() const override { return {{".lzss", ""}}; }
    bool recognises(Bytes start) const override {
        return start.size() >= kMagic.size() &&
               std::equal(kMagic.begin(), kMagic.end(), start.begin());
    }

    void compress(Source& source, Sink& sink, const Settings& settings) const override {
        compressFile(source, sink, settings.jobs);
    }

    void decompress(Source& source, Sink& sink, const Settings& settings) const override {
        PartReader reader(source, sink);
        readParts(*this, source, settings, [&] { reader.read(); });
    }

    void describe(Source& source, const Settings& settings, const Print& print) const override {
        print("  offset  compressed  uncompressed   ratio  blocks (stored)  block size    crc-32c");
        NullSink nowhere;
        PartReader reader(source, nowhere);
        Part total;
        readParts(*this, source, settings, [&] {
            const Part& part = reader.read();
            print(row(part));
            total.number = part.number;
            total.packed += part.packed;
            total.plain += part.plain;
        });
        if (total.number > 1) print(totalText(total.number, "parts", total.packed, total.plain));
    }

 private:
    static std::string row(const Part& part) {
        std::array<char, 160> text{};
        std::snprintf(
            text.data(), text.size(), "%8llu %11llu %13llu %7s  %7llu (%5llu)  %10zu   ",
            static_cast<unsigned long long>(part.offset),
            static_cast<unsigned long long>(part.packed),
            static_cast<unsigned long long>(part.plain), ratio(part.plain, part.packed).c_str(),
            static_cast<unsigned long long>(part.blocks),
            static_cast<unsigned long long>(part.storedBlocks), size_t{1} << part.blockBits);
        return text.data() + hex32(part.sum);
    }
};

}  // namespace

const Format& lzssFormat() {
    static const Lzss format;
    return format;
}

}  // namespace vekdc
