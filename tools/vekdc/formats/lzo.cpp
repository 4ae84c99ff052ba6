// lzop's container: a header with its own checksum, then blocks of 256 KiB, each an LZO1X stream
// or stored where that would not be smaller, with checksums of its data, then a length of 0.
//
// All numbers are big-endian. The header: magic number; versions of the writing program, of its
// LZO library and of the reader it needs (2 bytes each); method and level (1 each); flags (4); with
// a flag of their own, a filter (4); mode, time stamp, and the time stamp's high half (4 each);
// the name behind its length (1); Adler-32 or CRC-32 of all but the magic number (4). Headers of
// versions below 0x0940 lack the version needed, the level and the high half. A flag announces an
// extra field: length, bytes, checksum of both. A block: length of its data and of what is stored
// (4 each), up to two checksums of the data, and, where it is not stored, up to two of the stream.
//
// Written: one part, its Adler-32 or CRC-32 on. Read: any number of parts, every method that makes
// LZO1X streams, every combination of checksums, filters. Blocks know nothing of each other, so
// they are coded on as many threads as wanted, and the output does not depend on how many. What is
// delivered is checked first, a block at a time; memory is that of a block or two for each thread.
#include <algorithm>
#include <array>
#include <cstdio>

#include "codec/checksums.h"
#include "tools/vekdc/formats/formats.h"
#include "tools/vekdc/io/pipeline.h"
#include "vekdc.h"

namespace vekdc {
namespace {

using Data = std::vector<uint8_t>;

constexpr std::array<uint8_t, 9> kMagic = {0x89, 'L', 'Z', 'O', 0, 0x0D, 0x0A, 0x1A, 0x0A};
constexpr size_t kBlock = 256 << 10;
constexpr size_t kLargestBlock = 64 << 20;  // The format's own limit.
/// No LZO1X stream expands further: a byte adds at most this many to a run or match.
constexpr size_t kLargestExpansion = 255;
constexpr unsigned kLargestFilter = 16;
/// By number, from 1. They differ in who makes them; all make LZO1X streams.
constexpr std::array<const char*, 3> kMethods = {"LZO1X-1", "LZO1X-1(15)", "LZO1X-999"};

enum Version : uint32_t {
    kOldest = 0x0900,
    kHasLevel = 0x0940,  // And the version needed, and the time stamp's high half.
    kHasCrc = 0x1001,
    kNewest = 0x1040,
    kLibrary = 0x20A0
};

enum Flag : uint32_t {
    kAdlerOfData = 0x1,
    kAdlerOfStream = 0x2,
    kFromStdin = 0x4,
    kExtra = 0x40,
    kCrcOfData = 0x100,
    kCrcOfStream = 0x200,
    kFiltered = 0x800,
    kHeaderCrc = 0x1000,
    kReserved = 0x000FC000,
    kUnix = 0x03000000
};

/// The checksums of a block, in the order in which they stand before it.
struct BlockCheck {
    uint32_t flag;
    const codec::Checksum& checksum;
    bool ofStream;
    const char* mismatch;

    uint32_t of(Bytes bytes) const { return checksum.update(checksum.initial, bytes); }
};
const std::array<BlockCheck, 4> kBlockChecks = {
    {{kAdlerOfData, codec::kAdler32, false, "the Adler-32 does not match"},
     {kCrcOfData, codec::kCrc32, false, "the CRC-32 does not match"},
     {kAdlerOfStream, codec::kAdler32, true, "the Adler-32 of the compressed data does not match"},
     {kCrcOfStream, codec::kCrc32, true, "the CRC-32 of the compressed data does not match"}}};

const codec::Checksum& headerChecksum(uint32_t flags) {
    return (flags & kHeaderCrc) != 0 ? codec::kCrc32 : codec::kAdler32;
}

void append(Data& to, uint64_t value, int count) {
    while (--count >= 0) to.push_back(static_cast<uint8_t>(value >> (8 * count)));
}

// --- writing -------------------------------------------------------------------------------------

/// What the options and the level ask for.
struct Choice {
    int32_t method = 0;        ///< The library's.
    uint8_t storedMethod = 1;  ///< The container's name for the like of it, and a level of that.
    uint8_t storedLevel = 5;
    uint32_t flags = 0;
};

Choice choose(const Settings& settings) {
    Choice choice;
    if (settings.fastest || settings.level <= 3) choice = {2, 2, 1, 0};
    const bool crc = settings.own.contains("crc32");
    choice.flags = kUnix;
    if (crc) choice.flags |= kHeaderCrc;
    if (settings.name.empty()) choice.flags |= kFromStdin;
    const bool without = settings.own.contains("no-checksum");
    const bool more = settings.own.contains("block-checksums");
    if (without && more) throw Failure("--no-checksum and --block-checksums exclude each other");
    if (!without) choice.flags |= crc ? kCrcOfData : kAdlerOfData;
    if (more) choice.flags |= crc ? kCrcOfStream : kAdlerOfStream;
    return choice;
}

Data makeHeader(const Choice& choice, const Settings& settings) {
    const std::string name = settings.name.substr(0, 255);
    const bool crc = (choice.flags & kHeaderCrc) != 0;
    Data fields;
    append(fields, kNewest, 2);
    append(fields, kLibrary, 2);
    append(fields, crc ? kHasCrc : kHasLevel, 2);
    append(fields, choice.storedMethod, 1);
    append(fields, choice.storedLevel, 1);
    append(fields, choice.flags, 4);
    append(fields, settings.mode, 4);
    append(fields, settings.modified, 4);
    append(fields, 0, 4);
    append(fields, name.size(), 1);
    fields.insert(fields.end(), name.begin(), name.end());
    const codec::Checksum& checksum = headerChecksum(choice.flags);
    append(fields, checksum.update(checksum.initial, fields), 4);
    Data header(kMagic.begin(), kMagic.end());
    header.insert(header.end(), fields.begin(), fields.end());
    return header;
}

struct Block {
    Data data;
    Data coded;  ///< As it stands in the file.
};

/// Codes blocks, one at a time; has the work memory of one thread.
class BlockEncoder {
 public:
    explicit BlockEncoder(const Choice& choice) : choice_(choice) {
        uint32_t size = 0;
        veksEncodeLZOGetSize(choice.method, 0, &size);
        state_.resize((size + 3) / 4);
    }

    void encode(Block& block) {
        const auto length = static_cast<uint32_t>(block.data.size());
        stream_.resize(vekLZOEncodeBound(length));
        auto size = static_cast<uint32_t>(stream_.size());
        // A fresh table for every block: which thread codes it must not show.
        if (veksEncodeLZOInit_8u(choice_.method, 0, state_.data()) != vekStatusOk ||
            veksEncodeLZO_8u(block.data.data(), length, stream_.data(), &size, state_.data()) !=
                vekStatusOk)
            throw std::logic_error("the LZO encoder refused a block");
        const bool stored = size >= length;
        const Bytes bytes = stored ? Bytes(block.data) : Bytes(stream_).first(size);
        block.coded.clear();
        append(block.coded, length, 4);
        append(block.coded, bytes.size(), 4);
        for (const BlockCheck& check : kBlockChecks)
            if ((choice_.flags & check.flag) != 0 && !(stored && check.ofStream))
                append(block.coded, check.of(check.ofStream ? bytes : Bytes(block.data)), 4);
        block.coded.insert(block.coded.end(), bytes.begin(), bytes.end());
    }

 private:
    Choice choice_;
    std::vector<uint32_t> state_;
    Data stream_;
};

// --- reading -------------------------------------------------------------------------------------

struct Part {
    uint64_t number = 0;
    uint64_t offset = 0;
    uint8_t method = 0;
    uint8_t level = 0;
    uint32_t flags = 0;
    uint32_t filter = 0;
    uint32_t modified = 0;
    std::string name;
    size_t extraSize = 0;
    uint64_t blocks = 0;
    uint64_t storedBlocks = 0;
    uint64_t packed = 0;
    uint64_t plain = 0;
};

/// Takes back what the filter did: replaced every byte by its difference to the one `step` before.
void unfilter(Data& data, size_t step) {
    for (size_t i = step; i < data.size(); ++i)
        data[i] = static_cast<uint8_t>(data[i] + data[i - step]);
}

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
            if (source_.byte() != byte) throw FormatError(part_.offset, "not an lzo file");
        readHeader();
        while (readBlock()) {
        }
        part_.packed = source_.offset() - part_.offset;
        return part_;
    }

 private:
    [[noreturn]] void corrupt(uint64_t offset, const std::string& reason) const {
        std::string where = "part " + std::to_string(part_.number);
        if (part_.blocks != 0) where += ", block " + std::to_string(part_.blocks);
        throw FormatError(offset, where + ": " + reason);
    }

    uint32_t number(int count) { return static_cast<uint32_t>(source_.bigEndian(count)); }

    void readHeader() {
        Data fields;
        uint64_t last = 0;  // Offset of the last field taken.
        const auto take = [&](int count) {
            last = source_.offset();
            const uint32_t value = number(count);
            append(fields, value, count);
            return value;
        };
        const uint32_t version = take(2);
        if (version < kOldest) corrupt(last, "unknown version of the format");
        const bool isOld = version < kHasLevel;
        take(2);
        if (!isOld) {
            const uint32_t needed = take(2);
            if (needed < kOldest || needed > kNewest)
                corrupt(last, "needs a reader of a version that is unknown");
        }
        part_.method = static_cast<uint8_t>(take(1));
        const uint64_t methodOffset = last;
        if (!isOld) part_.level = static_cast<uint8_t>(take(1));
        part_.flags = take(4);
        const uint64_t flagsOffset = last;
        if ((part_.flags & kFiltered) != 0) part_.filter = take(4);
        const uint64_t filterOffset = last;
        take(4);
        part_.modified = take(4);
        if (!isOld) take(4);
        const size_t nameSize = take(1);
        source_.take(fields, nameSize);
        part_.name.assign(fields.end() - static_cast<ptrdiff_t>(nameSize), fields.end());
        const codec::Checksum& checksum = headerChecksum(part_.flags);
        if (number(4) != checksum.update(checksum.initial, fields))
            corrupt(source_.offset() - 4, "the header's checksum does not match");

        if (part_.method < 1 || part_.method > kMethods.size())
            corrupt(methodOffset, "unknown compression method " + std::to_string(part_.method));
        if ((part_.flags & kReserved) != 0)
            corrupt(flagsOffset, "reserved flags are set in the header");
        if (part_.filter > kLargestFilter)
            corrupt(filterOffset, "unknown filter " + std::to_string(part_.filter));
        if ((part_.flags & kExtra) != 0) readExtra(checksum);
    }

    /// Sums the extra field and keeps nothing of it.
    void readExtra(const codec::Checksum& checksum) {
        part_.extraSize = number(4);
        Data length;
        append(length, part_.extraSize, 4);
        uint32_t sum = checksum.update(checksum.initial, length);
        for (size_t left = part_.extraSize; left != 0;) {
            const Bytes bytes = source_.peek();
            if (bytes.empty()) source_.throwTruncated();
            const Bytes piece = bytes.first(std::min(left, bytes.size()));
            sum = checksum.update(sum, piece);
            left -= piece.size();
            source_.skip(piece.size());
        }
        if (number(4) != sum)
            corrupt(source_.offset() - 4, "the extra field's checksum does not match");
    }

    /// False at the end of the part.
    bool readBlock() {
        const size_t size = number(4);
        if (size == 0) return false;
        ++part_.blocks;
        if (size > kLargestBlock) corrupt(source_.offset() - 4, "the block is larger than 64 MiB");
        const size_t codedSize = number(4);
        if (codedSize == 0 || codedSize > size || size / kLargestExpansion > codedSize)
            corrupt(source_.offset() - 4, "the compressed length is impossible");
        const bool stored = codedSize == size;

        struct Expected {
            uint64_t offset;
            uint32_t value;
        };
        std::array<Expected, kBlockChecks.size()> expected{};
        const auto forChecks = [&](bool ofStream, auto&& use) {
            for (size_t i = 0; i < kBlockChecks.size(); ++i)
                if ((part_.flags & kBlockChecks[i].flag) != 0 &&
                    kBlockChecks[i].ofStream == ofStream)
                    use(kBlockChecks[i], expected[i]);
        };
        const auto take = [&](const BlockCheck&, Expected& value) {
            value.offset = source_.offset();
            value.value = number(4);
        };
        const auto verify = [&](Bytes bytes) {
            return [this, bytes](const BlockCheck& check, const Expected& value) {
                if (check.of(bytes) != value.value) corrupt(value.offset, check.mismatch);
            };
        };

        forChecks(false, take);
        if (!stored) forChecks(true, take);
        const uint64_t offset = source_.offset();
        if (stored) {
            plain_.clear();
            source_.take(plain_, size);
            ++part_.storedBlocks;
        } else {
            stream_.assign(1, 0);
            source_.take(stream_, codedSize);
            forChecks(true, verify(Bytes(stream_).subspan(1)));
            decode(offset, size);
        }
        if (part_.filter != 0) unfilter(plain_, part_.filter);
        forChecks(false, verify(plain_));
        part_.plain += size;
        sink_.write(plain_);
        return true;
    }

    /// Decodes the block, which stands at `offset` in the file and in stream_ behind a byte to
    /// spare, to `size` bytes.
    void decode(uint64_t offset, size_t size) {
        // What the decoder takes for the library's own container it writes to that one's length,
        // which may be 0. A container is none of ours: this is a run of 68 literals, which can be
        // said in two bytes too.
        Bytes stream = Bytes(stream_).subspan(1);
        if (vekLZOContainerParts(stream.data(), static_cast<uint32_t>(stream.size())) != 0) {
            constexpr uint8_t longRun = 18;
            stream_[0] = 0;
            stream_[1] = 68 - longRun;
            stream = stream_;
        }
        plain_.resize(size);
        auto written = static_cast<uint32_t>(size);
        if (veksDecodeLZOSafe_8u(stream.data(), static_cast<uint32_t>(stream.size()), plain_.data(),
                                 &written) != vekStatusOk ||
            written != size)
            corrupt(offset, "the block's data are broken");
    }

    Source& source_;
    Sink& sink_;
    Part part_;
    Data stream_;
    Data plain_;
};

class Lzo : public Format {
 public:
    const char* name() const override { return "lzo"; }
    const char* title() const override { return "lzop file"; }
    std::vector<Suffix> suffixes() const override { return {{".lzo", ""}, {".tzo", ".tar"}}; }
    bool recognises(Bytes start) const override {
        return start.size() >= kMagic.size() &&
               std::equal(kMagic.begin(), kMagic.end(), start.begin());
    }
    std::vector<FormatOption> options() const override {
        return {
            {"crc32", nullptr, "CRC-32 instead of Adler-32"},
            {"no-checksum", nullptr, "no checksum of the data"},
            {"block-checksums", nullptr, "add a checksum to each block"},
        };
    }

    void compress(Source& source, Sink& sink, const Settings& settings) const override {
        const Choice choice = choose(settings);
        sink.write(makeHeader(choice, settings));
        std::vector<BlockEncoder> encoders(settings.jobs, BlockEncoder(choice));
        orderedPipeline<Block>(
            settings.jobs,
            [&](Block& block) {
                block.data.resize(kBlock);
                block.data.resize(source.read(block.data.data(), kBlock));
                return !block.data.empty();
            },
            [&](Block& block, unsigned thread) { encoders[thread].encode(block); },
            [&](Block& block) { sink.write(block.coded); });
        sink.write(Data(4, 0));
    }

    void decompress(Source& source, Sink& sink, const Settings& settings) const override {
        PartReader reader(source, sink);
        readParts(*this, source, settings, [&] { reader.read(); });
    }

    void describe(Source& source, const Settings& settings, const Print& print) const override {
        print(
            "  offset  compressed  uncompressed   ratio  blocks (stored)  method         "
            "modified (UTC)       checksums  name");
        NullSink nowhere;
        PartReader reader(source, nowhere);
        Part total;
        readParts(*this, source, settings, [&] {
            const Part& part = reader.read();
            print(row(part));
            if (part.extraSize != 0)
                print("          extra field of " + std::to_string(part.extraSize) + " bytes");
            total.number = part.number;
            total.packed += part.packed;
            total.plain += part.plain;
        });
        if (total.number > 1) print(totalText(total.number, "parts", total.packed, total.plain));
    }

 private:
    static std::string checksumNames(const Part& part) {
        std::string names;
        const auto add = [&](uint32_t flag, const char* name) {
            if ((part.flags & flag) != 0) names += (names.empty() ? "" : ",") + std::string(name);
        };
        add(kAdlerOfData, "adler32");
        add(kCrcOfData, "crc32");
        add(kAdlerOfStream, "block-adler32");
        add(kCrcOfStream, "block-crc32");
        return names.empty() ? "-" : names;
    }

    static std::string row(const Part& part) {
        std::string method = kMethods[part.method - 1U];
        if (part.level != 0) method += "/" + std::to_string(part.level);
        if (part.filter != 0) method += "+" + std::to_string(part.filter);
        std::array<char, 200> text{};
        std::snprintf(
            text.data(), text.size(), "%8llu %11llu %13llu %7s  %7llu (%5llu)  %-13s  %-19s  ",
            static_cast<unsigned long long>(part.offset),
            static_cast<unsigned long long>(part.packed),
            static_cast<unsigned long long>(part.plain), ratio(part.plain, part.packed).c_str(),
            static_cast<unsigned long long>(part.blocks),
            static_cast<unsigned long long>(part.storedBlocks), method.c_str(),
            timeText(part.modified).c_str());
        return text.data() + checksumNames(part) + "  " +
               (part.name.empty() ? "-" : printable(part.name));
    }
};

}  // namespace

const Format& lzoFormat() {
    static const Lzo format;
    return format;
}

}  // namespace vekdc
