// Writing a bzip2 stream. The calling thread fills blocks and puts the coded ones one behind the
// other; with several jobs they are coded side by side.
#include "codec/bzip2_encoder.h"
#include "tools/vekdc/formats/bz2_stream.h"
#include "tools/vekdc/formats/pump.h"
#include "tools/vekdc/io/buffer.h"
#include "tools/vekdc/io/pipeline.h"

namespace vekdc::bz2 {
namespace {

/// A block on its way into the file.
struct Block {
    codec::Bzip2Block plain;
    Buffer coded;  ///< With room for one more byte.
    uint64_t bits = 0;
};

/// Fills a block; false where nothing is left.
bool fill(codec::Bzip2BlockFiller& filler, Source& source, codec::Bzip2Block& block) {
    if (source.atEnd()) return false;
    filler.begin(block);
    while (!filler.isFull(block) && !source.atEnd()) {
        const Bytes bytes = source.peek();
        codec::Input in{bytes.data(), bytes.size()};
        if (!filler.take(block, in)) throw std::bad_alloc();
        source.skip(bytes.size() - in.left);
    }
    filler.end(block);
    return true;
}

void encode(codec::Bzip2BlockEncoder& encoder, Block& block) {
    if (!encoder.encode(block.plain)) throw std::bad_alloc();
    block.bits = encoder.bits();
    block.coded.assign(encoder.coded(), encoder.coded() + (block.bits + 7) / 8 + 1);
}

void writeParallel(Source& source, Sink& sink, int level, unsigned jobs) {
    using namespace codec::bzip2;
    std::array<uint8_t, kHeaderBytes> header;
    writeHeader(header.data(), level);
    sink.write(header);
    codec::Bzip2BlockFiller filler(level);
    std::vector<codec::Bzip2BlockEncoder> encoders(jobs);
    LastBits last;
    uint32_t crc = 0;
    orderedPipeline<Block>(
        jobs, [&](Block& block) { return fill(filler, source, block.plain); },
        [&](Block& block, unsigned thread) { encode(encoders[thread], block); },
        [&](Block& block) {
            crc = joinCrc(crc, block.plain.crc);
            const size_t whole = joinBits(last, block.coded.data(), block.bits);
            sink.write(Bytes(block.coded).first(whole));
        });
    std::array<uint8_t, kEndBytes> end;
    sink.write(Bytes(end).first(writeEnd(last, end.data(), crc)));
}

}  // namespace

void writeStream(Source& source, Sink& sink, const Settings& settings) {
    const int level = settings.fastest ? 1 : settings.level;
    if (settings.jobs > 1) {
        writeParallel(source, sink, level, settings.jobs);
    } else {
        codec::Bzip2Encoder encoder(level);
        pumpEncoder(encoder, source, sink);
    }
}

}  // namespace vekdc::bz2
