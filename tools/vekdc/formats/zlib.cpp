// The zlib stream format (RFC 1950): two header bytes, a deflate stream, an Adler-32.
//
// One stream a file. A stream that needs a preset dictionary is refused: nothing says which one.
#include <array>

#include "codec/checksums.h"
#include "tools/vekdc/formats/deflate_all.h"
#include "tools/vekdc/formats/formats.h"
#include "tools/vekdc/formats/inflate_stream.h"

namespace vekdc {
namespace {

constexpr uint8_t kDeflate = 8;
constexpr uint8_t kWindow32k = 7;
constexpr uint8_t kDictionaryFlag = 0x20;
constexpr unsigned kCheckModulus = 31;

struct Stream {
    unsigned windowBits = 0;
    unsigned effort = 0;
    uint32_t adler = 0;
    uint64_t plain = 0;
    std::array<uint64_t, 3> blocks{};
};

Stream readStream(Source& source, Sink& sink, const Settings& settings) {
    const uint8_t method = source.byte();
    const uint8_t flags = source.byte();
    if ((method & 15) != kDeflate || (method << 8 | flags) % kCheckModulus != 0)
        throw FormatError(0, "not a zlib stream");
    if ((method >> 4) > kWindow32k) throw FormatError(0, "the window is larger than 32 KiB");
    if ((flags & kDictionaryFlag) != 0)
        throw FormatError(1, "the stream needs a preset dictionary, which is not supported");
    Stream stream;
    stream.windowBits = (method >> 4) + 8U;
    stream.effort = flags >> 6;
    stream.adler = codec::kAdler32.initial;
    InflateReader inflate(source);
    inflate.start();
    for (Bytes bytes = inflate.next(); !bytes.empty(); bytes = inflate.next()) {
        stream.adler = codec::kAdler32.update(stream.adler, bytes);
        stream.plain += bytes.size();
        sink.write(bytes);
    }
    uint32_t stored = 0;
    for (int i = 0; i < 4; ++i) stored = stored << 8 | source.byte();
    if (stored != stream.adler)
        throw FormatError(source.offset() - 4, "the Adler-32 does not match");
    stream.blocks = inflate.blocks();
    if (!source.atEnd())
        settings.warn("byte " + std::to_string(source.offset()) +
                      ": ignored what follows the zlib data");
    return stream;
}

class Zlib : public Format {
 public:
    const char* name() const override { return "zlib"; }
    const char* title() const override { return "zlib stream (RFC 1950)"; }
    std::vector<Suffix> suffixes() const override { return {{".zz", ""}, {".zlib", ""}}; }
    bool recognises(Bytes start) const override {
        return start.size() >= 2 && (start[0] & 15) == kDeflate && (start[0] >> 4) <= kWindow32k &&
               (start[0] << 8 | start[1]) % kCheckModulus == 0;
    }

    void compress(Source& source, Sink& sink, const Settings& settings) const override {
        const unsigned effort = settings.fastest || settings.level == 1 ? 0
                                : settings.level < 6                    ? 1
                                : settings.level == 6                   ? 2
                                                                        : 3;
        const unsigned method = kWindow32k << 4 | kDeflate;
        unsigned flags = effort << 6;
        flags += kCheckModulus - (method << 8 | flags) % kCheckModulus;
        const std::array<uint8_t, 2> header = {static_cast<uint8_t>(method),
                                               static_cast<uint8_t>(flags)};
        sink.write(header);
        const uint32_t adler = deflateAll(source, sink, settings, codec::kAdler32).check;
        const std::array<uint8_t, 4> trailer = {
            static_cast<uint8_t>(adler >> 24), static_cast<uint8_t>(adler >> 16),
            static_cast<uint8_t>(adler >> 8), static_cast<uint8_t>(adler)};
        sink.write(trailer);
    }

    void decompress(Source& source, Sink& sink, const Settings& settings) const override {
        readStream(source, sink, settings);
    }

    void describe(Source& source, const Settings& settings, const Print& print) const override {
        NullSink nowhere;
        const Stream stream = readStream(source, nowhere, settings);
        print("  window       " + std::to_string(uint64_t{1} << stream.windowBits) + " bytes");
        print("  effort       " + std::to_string(stream.effort) + " of 3");
        print("  compressed   " + std::to_string(source.offset()));
        print("  uncompressed " + std::to_string(stream.plain));
        print("  ratio        " + ratio(stream.plain, source.offset()));
        print("  adler-32     " + hex32(stream.adler));
        print("  blocks       " + std::to_string(stream.blocks[0]) + " stored, " +
              std::to_string(stream.blocks[1]) + " fixed, " + std::to_string(stream.blocks[2]) +
              " dynamic");
    }
};

}  // namespace

const Format& zlibFormat() {
    static const Zlib format;
    return format;
}

}  // namespace vekdc
