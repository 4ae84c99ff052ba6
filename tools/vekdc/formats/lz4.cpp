// The LZ4 frame format (https://github.com/lz4/lz4/blob/dev/doc/lz4_Frame_format.md).
//
// A frame is a descriptor with its own checksum, blocks of at most 64 KiB to 4 MiB (each coded, or
// stored where coding gains nothing), an end mark and a checksum of the content. Written: one
// frame, content checksum included. Read: any number of frames one behind the other, every option,
// skippable frames, and the legacy frames of old kernels' tools.
//
// Every block is coded behind the history that it may refer to, in one buffer: none, a dictionary,
// or, in a frame of linked blocks, the last 64 KiB of what came before. It needs nothing else of
// its neighbours, so blocks are coded on as many threads as wanted, and the output does not depend
// on how many.
#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>

#include "tools/vekdc/formats/formats.h"
#include "tools/vekdc/io/pipeline.h"
#include "vekdc.h"

namespace vekdc {
namespace {

using Data = std::vector<uint8_t>;

constexpr uint32_t kMagic = 0x184D2204;
constexpr uint32_t kLegacyMagic = 0x184C2102;
constexpr uint32_t kSkippableMagic = 0x184D2A50;  // And the 15 behind it.
constexpr uint32_t kStored = 0x80000000;          // Set in the size of a block that is stored.
constexpr size_t kLegacyBlock = 8 << 20;
constexpr size_t kHistory = 64 << 10;

enum Flag : uint8_t {
    kHasDictionaryId = 1,
    kReserved = 2,
    kContentChecksum = 4,
    kContentSize = 8,
    kBlockChecksum = 16,
    kIndependent = 32,
    kVersion = 64,
    kVersionMask = 192
};

/// Block sizes by their codes, 4 to 7.
constexpr size_t blockSize(unsigned code) {
    return size_t{1} << (8 + 2 * code);
}
constexpr unsigned kSmallestCode = 4;
constexpr unsigned kLargestCode = 7;

bool isSkippable(uint32_t magic) {
    return (magic & ~15U) == kSkippableMagic;
}
bool isMagic(uint32_t magic) {
    return magic == kMagic || magic == kLegacyMagic || isSkippable(magic);
}

uint32_t magicOf(Bytes bytes) {
    uint32_t magic = 0;
    for (size_t i = 0; i < 4 && bytes.size() >= 4; ++i)
        magic |= static_cast<uint32_t>(bytes[i]) << (8 * i);
    return magic;
}

uint32_t hashOf(Bytes bytes) {
    return XXH32(bytes.data(), bytes.size(), 0);
}

void append(Data& to, uint64_t value, int count) {
    for (int i = 0; i < count; ++i) to.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

/// What a new block may refer to, when `bytes` came last: at most the format's window of them.
Bytes window(Bytes bytes) {
    return bytes.last(std::min(bytes.size(), kHistory));
}

/// The end of the file that --dict names; empty without the option.
Data readDictionary(const Settings& settings) {
    const auto found = settings.own.find("dict");
    if (found == settings.own.end()) return {};
    std::ifstream file(found->second, std::ios::binary);
    Data bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file || bytes.empty()) throw Failure("cannot read the dictionary " + found->second);
    const Bytes end = window(bytes);
    return {end.begin(), end.end()};
}

// --- writing -------------------------------------------------------------------------------------

/// What the options and the level ask for.
struct Choice {
    int level = 1;  ///< 1: plain; 2 to 9: high compression.
    int acceleration = 1;
    unsigned code = kLargestCode;
    bool linked = false;
    bool blockChecksums = false;
};

int numberOption(const std::string& name, const std::string& text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 1)
        throw Failure("--" + name + " takes a number from 1 on, not " + text);
    return value;
}

Choice choose(const Settings& settings) {
    constexpr int fastestAcceleration = 8;
    Choice choice;
    choice.level = settings.level;
    choice.linked = settings.own.contains("linked");
    choice.blockChecksums = settings.own.contains("block-checksums");
    if (settings.fastest) choice.acceleration = fastestAcceleration;
    if (const auto fast = settings.own.find("fast"); fast != settings.own.end())
        choice.acceleration = numberOption("fast", fast->second);
    if (choice.acceleration > 1 || settings.own.contains("fast")) choice.level = 1;
    if (const auto size = settings.own.find("block-size"); size != settings.own.end()) {
        constexpr std::array<const char*, 4> names = {"64K", "256K", "1M", "4M"};
        const auto at = std::find(names.begin(), names.end(), size->second);
        if (at == names.end()) throw Failure("--block-size takes 64K, 256K, 1M or 4M");
        choice.code = kSmallestCode + static_cast<unsigned>(at - names.begin());
    }
    return choice;
}

/// Codes blocks, one at a time; has the work memory of one thread.
class BlockEncoder {
 public:
    explicit BlockEncoder(const Choice& choice) : choice_(choice) {}

    /// Codes all of `data` but the first `history` bytes, which it may refer to. Returns the coded
    /// bytes; none where they would be as many as the block's own.
    Bytes encode(const Data& data, size_t history) {
        const uint8_t* const src = data.data() + history;
        const auto index = static_cast<int>(history);
        const auto length = static_cast<int>(data.size() - history);
        out_.resize(vekLZ4EncodeBound(data.size() - history));
        auto written = static_cast<int>(out_.size());
        VekStatus status = vekStatusOk;
        if (choice_.level > 1) {
            status = encodeHigh(data.data(), index, length, written);
        } else if (history == 0) {
            status = veksEncodeLZ4Fast_8u(src, length, out_.data(), &written, table(),
                                          choice_.acceleration);
        } else {
            veksEncodeLZ4DictHashTableInit_8u(table(), length);
            veksEncodeLZ4LoadDict_8u(table(), data.data(), index);
            status = veksEncodeLZ4Dict_8u(src, index, length, out_.data(), &written, table(),
                                          nullptr, 0);
        }
        if (status != vekStatusOk) throw std::logic_error("LZ4 encoding failed");
        if (written >= length) return {};
        return Bytes(out_).first(static_cast<size_t>(written));
    }

 private:
    uint8_t* table() {
        fast_.resize(16384 / sizeof(uint32_t));
        return reinterpret_cast<uint8_t*>(fast_.data());
    }

    /// The history gets into the tables by being coded itself, the way a stream's first block is.
    VekStatus encodeHigh(const uint8_t* data, int index, int length, int& written) {
        hash_.resize(131072 / sizeof(uint32_t));
        chain_.resize(262144 / sizeof(uint32_t));
        uint8_t* tables[2] = {reinterpret_cast<uint8_t*>(hash_.data()),
                              reinterpret_cast<uint8_t*>(chain_.data())};
        veksEncodeLZ4HCHashTableInit_8u(tables);
        if (index != 0) {
            Data unused(vekLZ4EncodeBound(static_cast<size_t>(index)));
            int consumed = index;
            auto room = static_cast<int>(unused.size());
            veksEncodeLZ4HC_8u(data, 0, &consumed, unused.data(), &room, tables, nullptr, 0, 1);
        }
        return veksEncodeLZ4HC_8u(data + index, index, &length, out_.data(), &written, tables,
                                  nullptr, 0, choice_.level);
    }

    Choice choice_;
    Data out_;
    std::vector<uint32_t> fast_;
    std::vector<uint32_t> hash_;
    std::vector<uint32_t> chain_;
};

Data makeHeader(const Choice& choice, std::optional<uint64_t> contentSize) {
    Data descriptor;
    descriptor.push_back(static_cast<uint8_t>(
        kVersion | kContentChecksum | (choice.linked ? 0 : kIndependent) |
        (choice.blockChecksums ? kBlockChecksum : 0) | (contentSize ? kContentSize : 0)));
    descriptor.push_back(static_cast<uint8_t>(choice.code << 4));
    if (contentSize) append(descriptor, *contentSize, 8);
    Data header;
    append(header, kMagic, 4);
    header.insert(header.end(), descriptor.begin(), descriptor.end());
    header.push_back(static_cast<uint8_t>(hashOf(descriptor) >> 8));
    return header;
}

struct Block {
    Data data;  ///< History, then the block's own bytes.
    size_t history = 0;
    Data coded;  ///< As it stands in the file.

    Bytes own() const { return Bytes(data).subspan(history); }
};

void compressFrame(Source& source, Sink& sink, const Settings& settings) {
    Choice choice = choose(settings);
    Data history = readDictionary(settings);
    Data first(blockSize(choice.code));
    first.resize(source.read(first.data(), first.size()));
    std::optional<uint64_t> contentSize;
    if (source.atEnd()) {
        contentSize = first.size();
        while (choice.code > kSmallestCode && first.size() <= blockSize(choice.code - 1))
            --choice.code;
    }
    sink.write(makeHeader(choice, contentSize));

    XXH32_state_t hash;
    XXH32_reset(&hash, 0);
    std::vector<BlockEncoder> encoders(settings.jobs, BlockEncoder(choice));
    bool isFirst = true;
    const auto produce = [&](Block& block) {
        block.data = history;
        block.history = history.size();
        if (isFirst) {
            block.data.insert(block.data.end(), first.begin(), first.end());
            first = {};
        } else {
            block.data.resize(block.history + blockSize(choice.code));
            block.data.resize(block.history + source.read(block.data.data() + block.history,
                                                          blockSize(choice.code)));
        }
        isFirst = false;
        if (choice.linked) {
            const Bytes end = window(block.data);
            history.assign(end.begin(), end.end());
        }
        return block.data.size() != block.history;
    };
    const auto work = [&](Block& block, unsigned thread) {
        const Bytes coded = encoders[thread].encode(block.data, block.history);
        const bool stored = coded.empty();
        const Bytes bytes = stored ? block.own() : coded;
        block.coded.clear();
        append(block.coded, bytes.size() | (stored ? kStored : 0), 4);
        block.coded.insert(block.coded.end(), bytes.begin(), bytes.end());
        if (choice.blockChecksums) append(block.coded, hashOf(bytes), 4);
    };
    const auto consume = [&](Block& block) {
        XXH32_update(&hash, block.own().data(), block.own().size());
        sink.write(block.coded);
    };
    orderedPipeline<Block>(settings.jobs, produce, work, consume);

    Data end;
    append(end, 0, 4);
    append(end, XXH32_digest(&hash), 4);
    sink.write(end);
}

// --- reading -------------------------------------------------------------------------------------

struct Frame {
    uint64_t number = 0;
    uint64_t offset = 0;
    const char* kind = "frame";
    uint8_t flags = 0;
    size_t blockMost = 0;
    std::optional<uint64_t> contentSize;
    uint32_t checksum = 0;
    uint64_t blocks = 0;
    uint64_t storedBlocks = 0;
    uint64_t packed = 0;
    uint64_t plain = 0;
};

class FrameReader {
 public:
    FrameReader(Source& source, Sink& sink, const Settings& settings)
        : source_(source), sink_(sink), dictionary_(readDictionary(settings)) {}

    /// Reads one frame of any kind; throws FormatError.
    Frame read() {
        const uint64_t number = frame_.number + 1;
        frame_ = {};
        frame_.number = number;
        frame_.offset = source_.offset();
        const Bytes start = source_.peek(4);
        if (start.empty() || (number > 1 && start.size() < 4)) source_.throwTruncated();
        const uint32_t magic = magicOf(start);
        if (!isMagic(magic)) throw FormatError(source_.offset(), "not an lz4 file");
        source_.skip(4);
        if (isSkippable(magic))
            skipFrame();
        else if (magic == kLegacyMagic)
            readLegacy();
        else
            readFrame();
        frame_.packed = source_.offset() - frame_.offset;
        return frame_;
    }

 private:
    [[noreturn]] void corrupt(uint64_t offset, const std::string& reason) const {
        std::string where = "frame " + std::to_string(frame_.number);
        if (frame_.blocks != 0) where += ", block " + std::to_string(frame_.blocks);
        throw FormatError(offset, where + ": " + reason);
    }

    void skipFrame() {
        frame_.kind = "skipped";
        for (uint64_t left = source_.littleEndian(4); left != 0;) {
            const Bytes bytes = source_.peek();
            if (bytes.empty()) source_.throwTruncated();
            const auto count = static_cast<size_t>(std::min<uint64_t>(left, bytes.size()));
            source_.skip(count);
            left -= count;
        }
    }

    void readHeader() {
        Data descriptor;
        const auto take = [&](int count) {
            const uint64_t value = source_.littleEndian(count);
            append(descriptor, value, count);
            return value;
        };
        frame_.flags = static_cast<uint8_t>(take(1));
        const auto sizes = static_cast<uint8_t>(take(1));
        const auto code = static_cast<unsigned>(sizes >> 4) & 7;
        if ((frame_.flags & kVersionMask) != kVersion)
            corrupt(source_.offset() - 2, "unknown version of the format");
        if ((frame_.flags & kReserved) != 0 || (sizes & 0x8F) != 0)
            corrupt(source_.offset() - 2, "reserved bits are set in the header");
        if (code < kSmallestCode) corrupt(source_.offset() - 1, "unknown block size");
        frame_.blockMost = blockSize(code);
        if ((frame_.flags & kContentSize) != 0) frame_.contentSize = take(8);
        const bool needsDictionary = (frame_.flags & kHasDictionaryId) != 0;
        const uint64_t id = needsDictionary ? take(4) : 0;
        if (source_.byte() != static_cast<uint8_t>(hashOf(descriptor) >> 8))
            corrupt(source_.offset() - 1, "the header's checksum does not match");
        if (needsDictionary && dictionary_.empty())
            corrupt(frame_.offset,
                    "needs the dictionary with the ID " + std::to_string(id) + " (see --dict)");
    }

    void readFrame() {
        readHeader();
        XXH32_state_t hash;
        XXH32_reset(&hash, 0);
        buffer_ = dictionary_;
        while (const auto field = static_cast<uint32_t>(source_.littleEndian(4))) {
            ++frame_.blocks;
            const bool stored = (field & kStored) != 0;
            const size_t size = field & ~kStored;
            if (size > frame_.blockMost)
                corrupt(source_.offset() - 4, "the block is larger than the frame allows");
            const uint64_t offset = source_.offset();
            readCoded(size);
            if ((frame_.flags & kBlockChecksum) != 0 && source_.littleEndian(4) != hashOf(coded_))
                corrupt(source_.offset() - 4, "the block's checksum does not match");
            const Bytes plain = stored ? keep() : decode(offset, frame_.blockMost);
            frame_.storedBlocks += stored ? 1 : 0;
            XXH32_update(&hash, plain.data(), plain.size());
            deliver(plain);
            const Bytes next =
                (frame_.flags & kIndependent) != 0 ? Bytes(dictionary_) : window(buffer_);
            slide(next);
        }
        if ((frame_.flags & kContentChecksum) != 0) {
            frame_.checksum = static_cast<uint32_t>(source_.littleEndian(4));
            if (frame_.checksum != XXH32_digest(&hash))
                throw FormatError(source_.offset() - 4,
                                  "frame " + std::to_string(frame_.number) +
                                      ": the checksum of the content does not match");
        }
        if (frame_.contentSize && *frame_.contentSize != frame_.plain)
            throw FormatError(source_.offset(), "frame " + std::to_string(frame_.number) +
                                                    ": the length of the content does not match");
    }

    /// Blocks until the end of the file or the next frame.
    void readLegacy() {
        frame_.kind = "legacy";
        frame_.blockMost = kLegacyBlock;
        while (!source_.atEnd()) {
            if (isMagic(magicOf(source_.peek(4)))) return;
            const auto size = static_cast<size_t>(source_.littleEndian(4));
            ++frame_.blocks;
            if (size == 0 || size > vekLZ4EncodeBound(kLegacyBlock))
                corrupt(source_.offset() - 4, "the block's size is impossible");
            const uint64_t offset = source_.offset();
            readCoded(size);
            buffer_.clear();
            deliver(decode(offset, kLegacyBlock));
        }
    }

    void readCoded(size_t size) {
        coded_.resize(size);
        if (source_.read(coded_.data(), size) != size) source_.throwTruncated();
    }

    /// A stored block, behind the history.
    Bytes keep() {
        buffer_.insert(buffer_.end(), coded_.begin(), coded_.end());
        return Bytes(buffer_).last(coded_.size());
    }

    /// Decodes the block, which stands at `offset` in the file, behind the history.
    Bytes decode(uint64_t offset, size_t most) {
        const size_t history = buffer_.size();
        buffer_.resize(history + most);
        auto consumed = static_cast<int>(coded_.size());
        auto written = static_cast<int>(most);
        const VekStatus status = veksDecodeLZ4Dict_8u(coded_.data(), &consumed, buffer_.data(),
                                                      static_cast<int>(history), &written,
                                                      buffer_.data(), static_cast<int>(history));
        const bool empty = coded_.size() == 1 && coded_[0] == 0;
        if (status == vekStatusDestinationFull)
            corrupt(offset, "holds more than a block of this frame may");
        if (status == vekStatusError) corrupt(offset, "refers to data in front of the first byte");
        if (!empty && (status != vekStatusOk || static_cast<size_t>(consumed) != coded_.size()))
            corrupt(offset, "the block's data are broken");
        buffer_.resize(history + static_cast<size_t>(written));
        return Bytes(buffer_).subspan(history);
    }

    void deliver(Bytes plain) {
        frame_.plain += plain.size();
        sink_.write(plain);
    }

    /// Makes `next`, which may lie in the buffer, all that is in it.
    void slide(Bytes next) {
        const Data history(next.begin(), next.end());
        buffer_.assign(history.begin(), history.end());
    }

    Source& source_;
    Sink& sink_;
    Data dictionary_;
    Frame frame_;
    Data coded_;
    Data buffer_;  // History, then the block.
};

template <class Use>
void readAll(Source& source, Sink& sink, const Settings& settings, Use&& use) {
    FrameReader reader(source, sink, settings);
    do {
        use(reader.read());
        if (!source.atEnd() && !isMagic(magicOf(source.peek(4)))) {
            settings.warn("byte " + std::to_string(source.offset()) +
                          ": ignored what follows the lz4 data");
            return;
        }
    } while (!source.atEnd());
}

class Lz4 : public Format {
 public:
    const char* name() const override { return "lz4"; }
    const char* title() const override { return "LZ4 frame"; }
    std::vector<Suffix> suffixes() const override { return {{".lz4", ""}, {".tlz4", ".tar"}}; }
    bool recognises(Bytes start) const override { return isMagic(magicOf(start)); }
    std::vector<FormatOption> options() const override {
        return {
            {"fast", "N", "acceleration from 1 on, in place of a level"},
            {"dict", "FILE", "dictionary; its last 64 KiB are used"},
            {"block-size", "SIZE", "64K, 256K, 1M or 4M (the default)"},
            {"linked", nullptr, "let blocks refer to the ones before"},
            {"block-checksums", nullptr, "add a checksum to each block"},
        };
    }

    void compress(Source& source, Sink& sink, const Settings& settings) const override {
        compressFrame(source, sink, settings);
    }

    void decompress(Source& source, Sink& sink, const Settings& settings) const override {
        readAll(source, sink, settings, [](const Frame&) {});
    }

    void describe(Source& source, const Settings& settings, const Print& print) const override {
        print(
            "  offset     kind  compressed  uncompressed   ratio  blocks (stored)  block size  "
            "checksum  flags");
        NullSink nowhere;
        Frame total;
        readAll(source, nowhere, settings, [&](const Frame& frame) {
            print(row(frame));
            total.number = frame.number;
            total.packed += frame.packed;
            total.plain += frame.plain;
        });
        if (total.number > 1)
            print("  " + std::to_string(total.number) + " frames, " + std::to_string(total.packed) +
                  " -> " + std::to_string(total.plain) + " bytes, ratio " +
                  ratio(total.plain, total.packed));
    }

 private:
    static std::string row(const Frame& frame) {
        const bool own = std::string_view(frame.kind) == "frame";
        std::string flags = !own                                ? "-"
                            : (frame.flags & kIndependent) != 0 ? "independent"
                                                                : "linked";
        if ((frame.flags & kBlockChecksum) != 0) flags += ",block-checksums";
        if (frame.contentSize) flags += ",content-size";
        if ((frame.flags & kHasDictionaryId) != 0) flags += ",dictionary";
        std::array<char, 200> text{};
        std::snprintf(text.data(), text.size(), "%8llu  %7s %11llu %13llu %7s  %7llu (%6llu)  ",
                      static_cast<unsigned long long>(frame.offset), frame.kind,
                      static_cast<unsigned long long>(frame.packed),
                      static_cast<unsigned long long>(frame.plain),
                      ratio(frame.plain, frame.packed).c_str(),
                      static_cast<unsigned long long>(frame.blocks),
                      static_cast<unsigned long long>(frame.storedBlocks));
        const bool checked = own && (frame.flags & kContentChecksum) != 0;
        return text.data() + std::to_string(frame.blockMost) + "  " +
               (checked ? hex32(frame.checksum) : "-") + "  " + flags;
    }
};

}  // namespace

const Format& lz4Format() {
    static const Lz4 format;
    return format;
}

}  // namespace vekdc
