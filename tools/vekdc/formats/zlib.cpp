// The zlib stream format (RFC 1950): two header bytes, a deflate stream, an Adler-32.
//
// One stream a file. A stream that needs a preset dictionary is refused: nothing says which one.
#include <array>

#include "codec/zlib.h"
#include "tools/vekdc/formats/deflate_all.h"
#include "tools/vekdc/formats/formats.h"
#include "tools/vekdc/formats/pump.h"

namespace vekdc {
namespace {

void readStream(codec::ZlibDecoder& decoder, Source& source, Sink& sink, const Settings& settings) {
    pumpDecoder(decoder, source, sink, [] { return std::string(); });
    if (!source.atEnd())
        settings.warn("byte " + std::to_string(source.offset()) +
                      ": ignored what follows the zlib data");
}

class Zlib : public Format {
 public:
    const char* name() const override { return "zlib"; }
    const char* title() const override { return "zlib stream (RFC 1950)"; }
    std::vector<Suffix> suffixes() const override { return {{".zz", ""}, {".zlib", ""}}; }
    bool recognises(Bytes start) const override { return codec::startsZlib(start); }

    void compress(Source& source, Sink& sink, const Settings& settings) const override {
        const codec::DeflateOptions options = deflateOptions(settings);
        if (settings.jobs == 1) {
            codec::ZlibEncoder encoder(options);
            pumpEncoder(encoder, source, sink);
            return;
        }
        std::array<uint8_t, codec::kZlibHeader> header;
        codec::putZlibHeader(header.data(), options);
        sink.write(header);
        const uint32_t adler = deflateOnThreads(source, sink, settings, codec::kAdler32).check;
        std::array<uint8_t, codec::kZlibTrailer> trailer;
        codec::putBigEndian(trailer.data(), adler, trailer.size());
        sink.write(trailer);
    }

    void decompress(Source& source, Sink& sink, const Settings& settings) const override {
        codec::ZlibDecoder decoder;
        readStream(decoder, source, sink, settings);
    }

    void describe(Source& source, const Settings& settings, const Print& print) const override {
        NullSink nowhere;
        codec::ZlibDecoder decoder;
        readStream(decoder, source, nowhere, settings);
        const uint64_t plain = decoder.inflate().totalOut();
        const auto& blocks = decoder.inflate().blocks();
        print("  window       " + std::to_string(uint64_t{1} << decoder.windowBits()) + " bytes");
        print("  effort       " + std::to_string(decoder.effort()) + " of 3");
        print("  compressed   " + std::to_string(source.offset()));
        print("  uncompressed " + std::to_string(plain));
        print("  ratio        " + ratio(plain, source.offset()));
        print("  adler-32     " + hex32(decoder.adler()));
        print("  blocks       " + std::to_string(blocks[0]) + " stored, " +
              std::to_string(blocks[1]) + " fixed, " + std::to_string(blocks[2]) + " dynamic");
    }
};

}  // namespace

const Format& zlibFormat() {
    static const Zlib format;
    return format;
}

}  // namespace vekdc
