// The source is cut into blocks that are coded independently, each one by an encoder primed with
// the 32 KiB before it, so that hardly any match is lost at the seams. Every block but the last
// ends with an empty stored block, which fills up the last byte; so the pieces join into one
// stream. Checksums are taken by the threads and combined in order. A block under way takes about
// twice its size, an encoder about 700 KiB, and 12 MiB for
// the best parse.
#include "tools/vekdc/formats/deflate_all.h"

#include <algorithm>
#include <deque>

#include "tools/vekdc/formats/pump.h"
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

}  // namespace

codec::DeflateOptions deflateOptions(const Settings& settings) {
    codec::DeflateOptions options;
    options.level = settings.fastest ? codec::kDeflateFastest
                    : settings.best  ? codec::kDeflateBest
                                     : settings.level;
    return options;
}

Deflated deflateOnThreads(Source& source, Sink& sink, const Settings& settings,
                          const codec::Checksum& checksum) {
    Deflated result{checksum.initial, 0};
    std::deque<codec::DeflateEncoder> encoders;
    while (encoders.size() < settings.jobs) encoders.emplace_back(deflateOptions(settings));
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
        codec::DeflateEncoder& encoder = encoders[thread];
        const Bytes own = block.own();
        block.check = checksum.update(checksum.initial, own);
        block.coded.resize(static_cast<size_t>(codec::DeflateEncoder::bound(own.size())));
        codec::Input in{own.data(), own.size()};
        codec::Output out{block.coded.data(), block.coded.size()};
        encoder.reset();
        if (encoder.setHistory(block.before()) == codec::Status::NoMemory ||
            encoder.run(in, out,
                        block.last ? codec::Directive::Finish : codec::Directive::SyncFlush) ==
                codec::Status::NoMemory)
            throw std::bad_alloc();
        block.coded.resize(block.coded.size() - out.left);
    };
    const auto consume = [&](Block& block) {
        sink.write(block.coded);
        result.check = checksum.combine(result.check, block.check, block.own().size());
        result.plain += block.own().size();
    };
    orderedPipeline<Block>(settings.jobs, produce, work, consume);
    return result;
}

}  // namespace vekdc
