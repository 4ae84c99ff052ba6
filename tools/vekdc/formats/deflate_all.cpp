// One thread: the encoder runs through the source, its history in its own window.
//
// Many threads: the source is cut into blocks that are coded independently, each one by an encoder
// primed with the 32 KiB before it, so that hardly any match is lost at the seams. Every block but
// the last ends with an empty stored block, which fills up the last byte; so the pieces join into
// one stream. Checksums are taken by the threads and combined in order. A block under way takes
// about twice its size, an encoder about 1 MiB.
#include "tools/vekdc/formats/deflate_all.h"

#include <algorithm>

#include "tools/vekdc/formats/deflate_stream.h"
#include "tools/vekdc/io/pipeline.h"

namespace vekdc {
namespace {

constexpr size_t kHistory = 32 << 10;
constexpr size_t kBlock = 512 << 10;

struct Block {
    std::vector<uint8_t> data;  // History, then the block.
    size_t history = 0;
    bool last = false;
    uint32_t check = 0;
    std::vector<uint8_t> coded;

    Bytes before() const { return Bytes(data).first(history); }
    Bytes own() const { return Bytes(data).subspan(history); }
};

int levelOf(const Settings& settings) {
    return settings.fastest ? DeflateEncoder::fastestLevel : settings.level;
}

Deflated onThreads(Source& source, Sink& sink, const Settings& settings,
                   const codec::Checksum& checksum) {
    Deflated result{checksum.initial, 0};
    std::vector<DeflateEncoder> encoders(settings.jobs, DeflateEncoder(levelOf(settings)));
    std::vector<uint8_t> tail;  // The end of what was read, history for the next block.
    bool more = true;

    const auto produce = [&](Block& block) {
        if (!more) return false;
        block.data = tail;
        block.history = tail.size();
        block.data.resize(block.history + kBlock);
        block.data.resize(block.history + source.read(block.data.data() + block.history, kBlock));
        more = !source.atEnd();
        block.last = !more;
        tail.assign(
            block.data.end() - static_cast<ptrdiff_t>(std::min(kHistory, block.data.size())),
            block.data.end());
        return true;
    };
    const auto work = [&](Block& block, unsigned thread) {
        DeflateEncoder& encoder = encoders[thread];
        block.coded.clear();
        block.check = checksum.update(checksum.initial, block.own());
        encoder.start(block.before());
        encoder.encode(block.own(),
                       block.last ? DeflateEncoder::End::Final : DeflateEncoder::End::Sync,
                       block.coded);
    };
    const auto consume = [&](Block& block) {
        sink.write(block.coded);
        result.check = checksum.combine(result.check, block.check, block.own().size());
        result.plain += block.own().size();
    };
    orderedPipeline<Block>(settings.jobs, produce, work, consume);
    return result;
}

Deflated inTurn(Source& source, Sink& sink, const Settings& settings,
                const codec::Checksum& checksum) {
    Deflated result{checksum.initial, 0};
    DeflateEncoder encoder(levelOf(settings));
    std::vector<uint8_t> coded;
    for (bool more = true; more;) {
        const Bytes bytes = source.peek(128 << 10);
        result.check = checksum.update(result.check, bytes);
        result.plain += bytes.size();
        coded.clear();
        more = !bytes.empty();
        encoder.encode(bytes, more ? DeflateEncoder::End::More : DeflateEncoder::End::Final, coded);
        source.skip(bytes.size());
        sink.write(coded);
    }
    return result;
}

}  // namespace

Deflated deflateAll(Source& source, Sink& sink, const Settings& settings,
                    const codec::Checksum& checksum) {
    return settings.jobs > 1 ? onThreads(source, sink, settings, checksum)
                             : inTurn(source, sink, settings, checksum);
}

}  // namespace vekdc
