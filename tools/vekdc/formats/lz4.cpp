// The LZ4 frame format, by the codec's encoder of blocks on as many threads as wanted, and by its
// decoder of frames.
//
// Written: one frame, content checksum included; the output does not depend on the number of
// threads. Read: any number of frames one behind the other, every option, skippable frames, and the
// legacy frames of old kernels' tools.
#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>

#include "codec/lz4_frame_decoder.h"
#include "codec/lz4_frame_encoder.h"
#include "tools/vekdc/formats/block_parts.h"
#include "tools/vekdc/formats/formats.h"
#include "tools/vekdc/io/buffer.h"
#include "tools/vekdc/io/files.h"
#include "tools/vekdc/io/pipeline.h"

namespace vekdc {
namespace {

using codec::Lz4FrameInfo;
using codec::Lz4FrameOptions;
using Data = Buffer;

bool isMagic(Bytes start) {
    return start.size() >= 4 &&
           codec::isLz4Magic(static_cast<uint32_t>(codec::getLittleEndian(start.data(), 4)));
}

/// The end of the file that --dict names; empty without the option.
Data readDictionary(const Settings& settings) {
    const auto found = settings.own.find("dict");
    if (found == settings.own.end()) return {};
    InputFile file(found->second);
    Source source(file);
    Data bytes;
    while (!source.atEnd()) source.take(bytes, source.peek().size());
    if (bytes.empty()) throw Failure("the dictionary " + found->second + " is empty");
    const Bytes end = codec::lz4History(bytes);
    return {end.begin(), end.end()};
}

// --- writing -------------------------------------------------------------------------------------

int numberOption(const std::string& name, const std::string& text) {
    const std::optional<uint64_t> value = numberFrom(text);
    if (!value || *value < 1 || *value > INT_MAX)
        throw Failure("--" + name + " takes a number from 1 on, not " + text);
    return static_cast<int>(*value);
}

/// What the options and the level ask for.
Lz4FrameOptions choose(const Settings& settings) {
    constexpr int fastestAcceleration = 8;
    Lz4FrameOptions options;
    options.linked = settings.own.contains("linked");
    codec::Lz4Coding& coding = options.coding;
    coding.level = settings.level;
    coding.checksums = settings.own.contains("block-checksums");
    if (settings.fastest) coding.acceleration = fastestAcceleration;
    if (const auto fast = settings.own.find("fast"); fast != settings.own.end())
        coding.acceleration = numberOption("fast", fast->second);
    if (coding.acceleration > 1 || settings.own.contains("fast")) coding.level = 1;
    if (const auto size = settings.own.find("block-size"); size != settings.own.end()) {
        const std::optional<uint64_t> bytes = numberFrom(size->second);
        options.blockCode = codec::kLz4SmallestCode;
        while (options.blockCode < codec::kLz4LargestCode &&
               bytes > codec::lz4BlockSize(options.blockCode))
            ++options.blockCode;
        if (bytes != codec::lz4BlockSize(options.blockCode))
            throw Failure("--block-size takes 64K, 256K, 1M or 4M");
    }
    return options;
}

struct Block {
    Data data;  ///< History, then the block's own bytes.
    size_t history = 0;
    Data coded;  ///< As it stands in the file, in its first bytes.
    size_t codedSize = 0;

    Bytes own() const { return Bytes(data).subspan(history); }
};

void compressFrame(Source& source, Sink& sink, const Settings& settings) {
    Lz4FrameOptions options = choose(settings);
    Data history = readDictionary(settings);
    Data first(codec::lz4BlockSize(options.blockCode));
    first.resize(source.read(first.data(), first.size()));
    if (source.atEnd()) {
        options.contentSize = first.size();
        while (options.blockCode > codec::kLz4SmallestCode &&
               first.size() <= codec::lz4BlockSize(options.blockCode - 1))
            --options.blockCode;
    }
    const size_t blockSize = codec::lz4BlockSize(options.blockCode);
    std::array<uint8_t, codec::kLz4LargestHeader> header{};
    sink.write(Bytes(header).first(codec::putLz4Header(options, header.data())));

    codec::Lz4Hash hash;
    std::vector<codec::Lz4BlockEncoder> encoders;
    for (unsigned i = 0; i < settings.jobs; ++i) encoders.emplace_back(options.coding);
    const auto produce = [&](Block& block) {
        if (first.empty() && source.atEnd()) return false;
        block.history = history.size();
        if (!first.empty()) {
            first.insert(first.begin(), history.begin(), history.end());
            block.data = std::exchange(first, {});
        } else {
            block.data = history;
            block.data.resize(block.history + blockSize);
            block.data.resize(block.history +
                              source.read(block.data.data() + block.history, blockSize));
        }
        if (options.linked) {
            const Bytes end = codec::lz4History(block.data);
            history.assign(end.begin(), end.end());
        }
        return true;
    };
    const auto work = [&](Block& block, unsigned thread) {
        const Bytes own = block.own();
        block.coded.resize(codec::Lz4BlockEncoder::bound(own.size()));
        if (!encoders[thread].encode(own.data(), block.history, own.size(), block.coded.data(),
                                     block.codedSize))
            throw std::bad_alloc();
    };
    const auto consume = [&](Block& block) {
        hash.update(block.own());
        sink.write(Bytes(block.coded).first(block.codedSize));
    };
    orderedPipeline<Block>(settings.jobs, produce, work, consume);

    std::array<uint8_t, codec::kLz4LargestEnd> end{};
    sink.write(Bytes(end).first(codec::putLz4End(options, hash, end.data())));
}

// --- reading -------------------------------------------------------------------------------------

using FrameReader = PartReader<codec::Lz4FrameDecoder>;

/// Calls `use` for every frame read; throws FormatError.
template <class Use>
void readAll(FrameReader& reader, Source& source, const Settings& settings, Use&& use) {
    const Data dictionary = readDictionary(settings);
    reader.decoder().setDictionary(dictionary);
    const Bytes start = source.peek(4);
    if (!start.empty() && !isMagic(start)) throw FormatError(source.offset(), "not an lz4 file");
    do {
        use(reader.read());
        if (!source.atEnd() && !isMagic(source.peek(4))) {
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
    bool recognises(Bytes start) const override { return isMagic(start); }
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
        FrameReader reader(source, sink, "frame", kRoom);
        readAll(reader, source, settings, [](const auto&) {});
    }

    void describe(Source& source, const Settings& settings, const Print& print) const override {
        print(
            "  offset     kind  compressed  uncompressed   ratio  blocks (stored)  block size  "
            "checksum  flags");
        NullSink nowhere;
        FrameReader reader(source, nowhere, "frame", kRoom);
        readAll(reader, source, settings, [&](const auto& frame) { print(row(frame)); });
        reader.printTotal(print);
    }

 private:
    static constexpr size_t kRoom = codec::lz4BlockSize(codec::kLz4LargestCode);

    static std::string row(const Part<Lz4FrameInfo>& frame) {
        constexpr std::array<const char*, 4> kinds = {"", "frame", "skipped", "legacy"};
        const Lz4FrameInfo& info = frame.info;
        const bool own = info.kind == Lz4FrameInfo::Kind::Frame;
        std::string flags = !own                               ? "-"
                            : info.has(codec::kLz4Independent) ? "independent"
                                                               : "linked";
        if (info.has(codec::kLz4BlockChecksum)) flags += ",block-checksums";
        if (info.has(codec::kLz4ContentSize)) flags += ",content-size";
        if (info.has(codec::kLz4HasDictionaryId)) flags += ",dictionary";
        std::array<char, 200> text{};
        std::snprintf(
            text.data(), text.size(), "%8llu  %7s %11llu %13llu %7s  %7llu (%6llu)  ",
            static_cast<unsigned long long>(frame.offset), kinds[static_cast<size_t>(info.kind)],
            static_cast<unsigned long long>(frame.packed),
            static_cast<unsigned long long>(info.plain), ratio(info.plain, frame.packed).c_str(),
            static_cast<unsigned long long>(info.blocks),
            static_cast<unsigned long long>(info.storedBlocks));
        const bool checked = own && info.has(codec::kLz4ContentChecksum);
        return text.data() + std::to_string(info.blockMost) + "  " +
               (checked ? hex32(info.checksum) : "-") + "  " + flags;
    }
};

}  // namespace

const Format& lz4Format() {
    static const Lz4 format;
    return format;
}

}  // namespace vekdc
