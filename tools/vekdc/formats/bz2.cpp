// The bzip2 file format: any number of streams, one behind the other.
//
// Written: one stream, in blocks of 100 000 bytes for each level. Read: what bzip2 reads, but for
// randomised blocks, which its first versions wrote. What follows the last stream and
// cannot be another one is ignored with a warning. Every CRC is verified.
#include <algorithm>
#include <cstdio>

#include "codec/bzip2_blocks.h"
#include "tools/vekdc/formats/bz2_stream.h"
#include "tools/vekdc/formats/formats.h"

namespace vekdc {
namespace {

class Bz2 : public Format {
 public:
    const char* name() const override { return "bz2"; }
    const char* title() const override { return "bzip2 file"; }
    std::vector<Suffix> suffixes() const override {
        return {{".bz2", ""}, {".tbz2", ".tar"}, {".tbz", ".tar"}};
    }
    bool recognises(Bytes start) const override {
        using codec::bzip2::kMagic;
        return start.size() > std::size(kMagic) &&
               std::equal(std::begin(kMagic), std::end(kMagic), start.begin()) && start[3] >= '1' &&
               start[3] <= '9';
    }

    void compress(Source& source, Sink& sink, const Settings& settings) const override {
        bz2::writeStream(source, sink, settings);
    }

    void decompress(Source& source, Sink& sink, const Settings& settings) const override {
        bz2::readStreams(source, sink, settings, [](const bz2::Stream&) {});
    }

    void describe(Source& source, const Settings& settings, const Print& print) const override {
        print("  offset  compressed  uncompressed   ratio       crc  block size  blocks");
        NullSink nowhere;
        bz2::Stream total;
        const auto use = [&](const bz2::Stream& stream) {
            print(row(stream));
            total.number = stream.number;
            total.packed += stream.packed;
            total.plain += stream.plain;
        };
        bz2::readStreams(source, nowhere, settings, use);
        if (total.number > 1)
            print("  " + std::to_string(total.number) + " streams, " +
                  std::to_string(total.packed) + " -> " + std::to_string(total.plain) +
                  " bytes, ratio " + ratio(total.plain, total.packed));
    }

 private:
    static std::string row(const bz2::Stream& stream) {
        std::array<char, 200> text{};
        std::snprintf(text.data(), text.size(), "%8llu %11llu %13llu %7s  %s  %10d  %6llu",
                      static_cast<unsigned long long>(stream.offset),
                      static_cast<unsigned long long>(stream.packed),
                      static_cast<unsigned long long>(stream.plain),
                      ratio(stream.plain, stream.packed).c_str(), hex32(stream.crc).c_str(),
                      stream.level * codec::bzip2::kLevelBytes,
                      static_cast<unsigned long long>(stream.blocks));
        return text.data();
    }
};

}  // namespace

const Format& bz2Format() {
    static const Bz2 format;
    return format;
}

}  // namespace vekdc
