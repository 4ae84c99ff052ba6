// The container for LZSS streams (docs/lzss.md), by the codec's encoder of blocks on as many
// threads as wanted, and by its decoder. The output does not depend on the number of threads.
#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "codec/lzss_decoder.h"
#include "codec/lzss_encoder.h"
#include "tools/vekdc/formats/block_parts.h"
#include "tools/vekdc/formats/formats.h"
#include "tools/vekdc/io/buffer.h"
#include "tools/vekdc/io/pipeline.h"

namespace vekdc {
namespace {

using codec::LzssInfo;
using Data = Buffer;

constexpr size_t kBlock = size_t{1} << codec::kLzssBlockBits;

struct Block {
    Data data;
    Data coded;  ///< As it stands in the file, but for its head, in its first bytes.
    size_t codedSize = 0;
};

void compressFile(Source& source, Sink& sink, unsigned jobs) {
    Data first(kBlock);
    first.resize(source.read(first.data(), first.size()));
    codec::LzssFrame frame(source.atEnd() ? first.size() : codec::kLzssUnknown);
    std::array<uint8_t, codec::kLzssHeader> header{};
    sink.write(Bytes(header).first(frame.putHeader(header.data())));

    std::vector<codec::LzssBlockEncoder> encoders(jobs);
    orderedPipeline<Block>(
        jobs,
        [&](Block& block) {
            if (!first.empty()) {
                block.data = std::exchange(first, {});
            } else {
                block.data.resize(kBlock);
                block.data.resize(source.read(block.data.data(), kBlock));
            }
            return !block.data.empty();
        },
        [&](Block& block, unsigned thread) {
            block.coded.resize(block.data.size());
            if (!encoders[thread].encode(block.data, block.coded.data(), block.codedSize))
                throw std::bad_alloc();
        },
        [&](Block& block) {
            std::array<uint8_t, codec::kLzssBlockHead> head{};
            sink.write(
                Bytes(head).first(frame.putBlockHead(block.data, block.codedSize, head.data())));
            sink.write(Bytes(block.coded).first(block.codedSize));
        });
    std::array<uint8_t, codec::kLzssEnd> end{};
    sink.write(Bytes(end).first(frame.putEnd(end.data())));
}

class Lzss : public Format {
 public:
    const char* name() const override { return "lzss"; }
    const char* title() const override { return "LZSS file"; }
    std::vector<Suffix> suffixes() const override { return {{".lzss", ""}}; }
    bool recognises(Bytes start) const override {
        return start.size() >= codec::kLzssMagic.size() &&
               std::equal(codec::kLzssMagic.begin(), codec::kLzssMagic.end(), start.begin());
    }

    void compress(Source& source, Sink& sink, const Settings& settings) const override {
        compressFile(source, sink, settings.jobs);
    }

    void decompress(Source& source, Sink& sink, const Settings& settings) const override {
        Reader reader(source, sink, "part", kBlock);
        readParts(*this, source, settings, [&] { reader.read(); });
    }

    void describe(Source& source, const Settings& settings, const Print& print) const override {
        print("  offset  compressed  uncompressed   ratio  blocks (stored)  block size    crc-32c");
        NullSink nowhere;
        Reader reader(source, nowhere, "part", kBlock);
        readParts(*this, source, settings, [&] { print(row(reader.read())); });
        reader.printTotal(print);
    }

 private:
    using Reader = PartReader<codec::LzssDecoder>;

    static std::string row(const Part<LzssInfo>& part) {
        const LzssInfo& info = part.info;
        std::array<char, 160> text{};
        std::snprintf(
            text.data(), text.size(), "%8llu %11llu %13llu %7s  %7llu (%5llu)  %10zu   ",
            static_cast<unsigned long long>(part.offset),
            static_cast<unsigned long long>(part.packed),
            static_cast<unsigned long long>(info.plain), ratio(info.plain, part.packed).c_str(),
            static_cast<unsigned long long>(info.blocks),
            static_cast<unsigned long long>(info.storedBlocks), size_t{1} << info.blockBits);
        return text.data() + hex32(info.sum);
    }
};

}  // namespace

const Format& lzssFormat() {
    static const Lzss format;
    return format;
}

}  // namespace vekdc
