// lzop's files, by the codec's encoder of blocks on as many threads as wanted, and by its decoder.
//
// Written: one part, its Adler-32 or CRC-32 on; the output does not depend on the number of
// threads. Read: any number of parts. Memory is that of a block or two for each thread.
#include <algorithm>
#include <array>
#include <cstdio>

#include "codec/lzop_decoder.h"
#include "codec/lzop_encoder.h"
#include "tools/vekdc/formats/block_parts.h"
#include "tools/vekdc/formats/formats.h"
#include "tools/vekdc/io/buffer.h"
#include "tools/vekdc/io/pipeline.h"

namespace vekdc {
namespace {

using codec::LzopInfo;
using codec::LzopOptions;
using Data = Buffer;

/// What the options and the level ask for.
LzopOptions choose(const Settings& settings) {
    LzopOptions options;
    options.fast = settings.fastest || settings.level <= 3;
    if (!settings.fastest && settings.level >= codec::LzoDeepEncoder::kFirstLevel)
        options.deep =
            static_cast<uint8_t>(std::min(settings.level, int{codec::LzoDeepEncoder::kLastLevel}));
    const bool crc = settings.own.contains("crc32");
    options.flags = codec::kLzopUnix;
    if (crc) options.flags |= codec::kLzopHeaderCrc;
    if (settings.name.empty()) options.flags |= codec::kLzopFromStdin;
    const bool without = settings.own.contains("no-checksum");
    const bool more = settings.own.contains("block-checksums");
    if (without && more) throw Failure("--no-checksum and --block-checksums exclude each other");
    if (!without) options.flags |= crc ? codec::kLzopCrcOfData : codec::kLzopAdlerOfData;
    if (more) options.flags |= crc ? codec::kLzopCrcOfStream : codec::kLzopAdlerOfStream;
    options.mode = settings.mode;
    options.modified = settings.modified;
    settings.name.copy(options.name, codec::kLzopLongestName);
    return options;
}

struct Block {
    Data data;
    Data coded;  ///< As it stands in the file, in its first bytes.
    size_t codedSize = 0;
};

class Lzo : public Format {
 public:
    const char* name() const override { return "lzo"; }
    const char* title() const override { return "lzop file"; }
    std::vector<Suffix> suffixes() const override { return {{".lzo", ""}, {".tzo", ".tar"}}; }
    bool recognises(Bytes start) const override {
        return start.size() >= codec::kLzopMagic.size() &&
               std::equal(codec::kLzopMagic.begin(), codec::kLzopMagic.end(), start.begin());
    }
    std::vector<FormatOption> options() const override {
        return {
            {"crc32", nullptr, "CRC-32 instead of Adler-32"},
            {"no-checksum", nullptr, "no checksum of the data"},
            {"block-checksums", nullptr, "add a checksum to each block"},
        };
    }

    void compress(Source& source, Sink& sink, const Settings& settings) const override {
        const LzopOptions options = choose(settings);
        std::array<uint8_t, codec::kLzopLargestHeader> header{};
        sink.write(Bytes(header).first(codec::putLzopHeader(options, header.data())));
        std::vector<codec::LzopBlockEncoder> encoders;
        for (unsigned i = 0; i < settings.jobs; ++i) encoders.emplace_back(options);
        orderedPipeline<Block>(
            settings.jobs,
            [&](Block& block) {
                block.data.resize(codec::kLzopBlock);
                block.data.resize(source.read(block.data.data(), codec::kLzopBlock));
                return !block.data.empty();
            },
            [&](Block& block, unsigned thread) {
                block.coded.resize(codec::LzopBlockEncoder::bound(block.data.size()));
                if (!encoders[thread].encode(block.data, block.coded.data(), block.codedSize))
                    throw std::bad_alloc();
            },
            [&](Block& block) { sink.write(Bytes(block.coded).first(block.codedSize)); });
        sink.write(Data(codec::kLzopEnd, 0));
    }

    void decompress(Source& source, Sink& sink, const Settings& settings) const override {
        Reader reader(source, sink, "part", codec::kLzopBlock);
        readParts(*this, source, settings, [&] {
            if (settings.stored) settings.stored(storedAt(source));
            reader.read();
        });
    }

    void describe(Source& source, const Settings& settings, const Print& print) const override {
        print(
            "  offset  compressed  uncompressed   ratio  blocks (stored)  method         "
            "modified (UTC)       checksums  name");
        NullSink nowhere;
        Reader reader(source, nowhere, "part", codec::kLzopBlock);
        readParts(*this, source, settings, [&] {
            const Part<LzopInfo>& part = reader.read();
            print(row(part));
            if (part.info.extraSize != 0)
                print("          extra field of " + std::to_string(part.info.extraSize) + " bytes");
        });
        reader.printTotal(print);
    }

 private:
    using Reader = PartReader<codec::LzopDecoder>;

    /// What the header at the source says of the file, where it is good.
    static Stored storedAt(Source& source) {
        codec::LzopDecoder decoder;
        constexpr size_t enough = 512;  // A header has at most 297 bytes.
        const Bytes start = source.peek(enough);
        codec::Input in{start.data(), std::min(start.size(), enough)};
        codec::Output none{nullptr, 0};
        decoder.run(in, none);
        const LzopInfo& info = decoder.info();
        return {{info.name, info.nameSize}, info.modified};
    }

    static std::string checksumNames(uint32_t flags) {
        std::string names;
        const auto add = [&](uint32_t flag, const char* name) {
            if ((flags & flag) != 0) names += (names.empty() ? "" : ",") + std::string(name);
        };
        add(codec::kLzopAdlerOfData, "adler32");
        add(codec::kLzopCrcOfData, "crc32");
        add(codec::kLzopAdlerOfStream, "block-adler32");
        add(codec::kLzopCrcOfStream, "block-crc32");
        return names.empty() ? "-" : names;
    }

    static std::string row(const Part<LzopInfo>& part) {
        const LzopInfo& info = part.info;
        std::string method = codec::kLzopMethods[info.method - 1U];
        if (info.level != 0) method += "/" + std::to_string(info.level);
        if (info.filter != 0) method += "+" + std::to_string(info.filter);
        std::array<char, 200> text{};
        std::snprintf(
            text.data(), text.size(), "%8llu %11llu %13llu %7s  %7llu (%5llu)  %-13s  %-19s  ",
            static_cast<unsigned long long>(part.offset),
            static_cast<unsigned long long>(part.packed),
            static_cast<unsigned long long>(info.plain), ratio(info.plain, part.packed).c_str(),
            static_cast<unsigned long long>(info.blocks),
            static_cast<unsigned long long>(info.storedBlocks), method.c_str(),
            timeText(info.modified).c_str());
        const std::string_view name(info.name, info.nameSize);
        return text.data() + checksumNames(info.flags) + "  " +
               (name.empty() ? "-" : printable(name));
    }
};

}  // namespace

const Format& lzoFormat() {
    static const Lzo format;
    return format;
}

}  // namespace vekdc
