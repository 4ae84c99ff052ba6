// The source is cut into blocks that are coded independently, each one by an encoder primed with
// the 32 KiB before it, so that hardly any match is lost at the seams. Every block but the last
// ends with an empty stored block, which fills up the last byte; so the pieces join into one
// stream. Checksums are taken by the threads and combined in order. A block under way takes about
// twice its size, an encoder 400 KB, and 12 MiB for the best parse.
//
// What a block becomes follows from its bytes and that history alone: where blocks end by what they
// hold, a change in a file changes no more than the block or two that it is in.
#include "tools/vekdc/formats/deflate_all.h"

#include <algorithm>
#include <deque>

#include "tools/vekdc/formats/pump.h"
#include "tools/vekdc/io/buffer.h"
#include "tools/vekdc/io/pipeline.h"

namespace vekdc {
namespace {

constexpr size_t kHistory = 32 << 10;
constexpr size_t kBlock = 512 << 10;

struct Block {
    Buffer data;  // History, then the block.
    size_t history = 0;
    bool last = false;
    uint32_t check = 0;
    Buffer coded;

    Bytes before() const { return Bytes(data).first(history); }
    Bytes own() const { return Bytes(data).subspan(history); }
};

/// Where a block is to end behind which everything comes out as it did in another file that has
/// the same there: behind 64 bytes of a kind that one place in 64 Ki is, wherever the block began.
size_t cutByContent(Bytes bytes) {
    constexpr size_t least = 16 << 10;
    constexpr size_t seen = 64;
    constexpr uint64_t mix = 0x9E3779B97F4A7C15;
    uint64_t last = 0;  // Of a byte 64 places ago nothing is left.
    for (size_t i = least - seen; i < bytes.size(); ++i) {
        last = (last << 1) + bytes[i];
        if (i >= least && (last * mix) >> 48 == 0xFFFF) return i + 1;
    }
    return bytes.size();
}

size_t nextBlock(Source& source, const Settings& settings) {
    if (!settings.own.contains(kRsyncable)) return kBlock;
    const Bytes ahead = source.peek(Source::kRoom);
    return cutByContent(ahead.first(std::min(ahead.size(), Source::kRoom)));
}

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
    Buffer tail;  // The end of what was read, history for the next block.
    bool more = true;

    const auto produce = [&](Block& block) {
        if (!more) return false;
        block.data = tail;
        block.history = tail.size();
        const size_t size = nextBlock(source, settings);
        block.data.resize(block.history + size);
        block.data.resize(block.history + source.read(block.data.data() + block.history, size));
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
