// Deflate: the whole pipeline, as the codec composes it from the library's stages, and Huffman
// coding alone.

#include <libdeflate.h>
#include <zlib.h>

#include <memory>

#include "bench.h"
#include "codec/deflate_encoder.h"

using vekbench::Input;
using vekdc::codec::DeflateEncoder;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes inflateAll(const Bytes& coded, size_t size) {
    Bytes out(size + 1);
    z_stream stream = {};
    inflateInit2(&stream, -15);
    stream.next_in = const_cast<Bytef*>(coded.data());
    stream.avail_in = static_cast<uInt>(coded.size());
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    const int result = inflate(&stream, Z_FINISH);
    out.resize(result == Z_STREAM_END ? stream.total_out : 0);
    inflateEnd(&stream);
    return out;
}

size_t deflateOurs(DeflateEncoder& encoder, const Bytes& in, Bytes& out) {
    out.resize(static_cast<size_t>(DeflateEncoder::bound(in.size())));
    vekdc::codec::Input from{in.data(), in.size()};
    vekdc::codec::Output to{out.data(), out.size()};
    encoder.reset();
    encoder.run(from, to, vekdc::codec::Directive::Finish);
    return out.size() - to.left;
}

size_t deflateZlib(const Bytes& in, int level, Bytes& out) {
    z_stream stream = {};
    deflateInit2(&stream, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
    stream.next_in = const_cast<Bytef*>(in.data());
    stream.avail_in = static_cast<uInt>(in.size());
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    deflate(&stream, Z_FINISH);
    const size_t size = stream.total_out;
    deflateEnd(&stream);
    return size;
}

void addLevel(const Input& input, int level) {
    const std::string operation = level == vekdc::codec::kDeflateFastest
                                      ? "deflate fastest"
                                      : "deflate level " + std::to_string(level);
    const int peerLevel = level == vekdc::codec::kDeflateFastest ? 1 : level;
    const Bytes& in = input.bytes;
    auto encoder = std::make_shared<DeflateEncoder>(vekdc::codec::DeflateOptions{level});
    // Everyone writes where there is room already, so that no one is charged for fresh pages.
    auto room = std::make_shared<Bytes>(in.size() * 2 + 1000);
    auto coded = std::make_shared<Bytes>(in.size() * 2 + 1000);
    coded->resize(deflateOurs(*encoder, in, *coded));
    if (inflateAll(*coded, in.size()) != in) vekbench::fail(operation + " of " + input.name);
    vekbench::add(operation, input.name, "vekdc", in.size(),
                  [encoder, &in, coded] { return deflateOurs(*encoder, in, *coded); });
    vekbench::add(operation, input.name, "zlib", in.size(),
                  [peerLevel, &in, room] { return deflateZlib(in, peerLevel, *room); });
    if (level == vekdc::codec::kDeflateFastest) {
        auto level1 = std::make_shared<DeflateEncoder>(vekdc::codec::DeflateOptions{1});
        vekbench::add(operation, input.name, "our level 1", in.size(),
                      [level1, &in, coded] { return deflateOurs(*level1, in, *coded); });
    }
    std::shared_ptr<libdeflate_compressor> compressor(libdeflate_alloc_compressor(peerLevel),
                                                      libdeflate_free_compressor);
    vekbench::add(operation, input.name, "libdeflate", in.size(), [compressor, &in, room] {
        return libdeflate_deflate_compress(compressor.get(), in.data(), in.size(), room->data(),
                                           room->size());
    });
}

/// Codes a block of 64 Ki pairs of the input again and again.
void addHuffman(const Input& input) {
    struct Block {
        std::vector<uint8_t> window = Bytes(32768);
        std::vector<int32_t> head = std::vector<int32_t>(32768, -32768);
        std::vector<int32_t> prev = std::vector<int32_t>(32768);
        VekHuffEntry lit[286] = {};
        VekHuffEntry dist[30] = {};
        Bytes lits = Bytes(65536);
        std::vector<uint16_t> dists = std::vector<uint16_t>(65536);
        uint32_t pairs = 65536;
        Bytes out;
    };
    auto block = std::make_shared<Block>();
    const uint8_t* src = input.bytes.data();
    auto left = static_cast<int32_t>(input.bytes.size());
    int32_t position = 0;
    veksDeflateLZ77_8u(&src, &left, &position, block->window.data(), 32768, block->head.data(),
                       block->prev.data(), 32768, block->lit, block->dist, block->lits.data(),
                       block->dists.data(), &block->pairs, 6, 2);
    block->pairs = 65536 - block->pairs;
    veksDeflateLZ77FastestGenHuffTable_8u(block->lit, block->dist, block->lit, block->dist);
    block->out.resize(vekDeflateHuffBound(block->pairs));
    const size_t consumed = input.bytes.size() - static_cast<size_t>(left);
    vekbench::add("deflate Huffman coding", input.name, "vekdc", consumed, [block] {
        uint32_t code = 0;
        uint32_t bits = 0;
        uint32_t index = 0;
        veksDeflateHuff_8u(block->lits.data(), block->dists.data(), block->pairs, &code, &bits,
                           block->lit, block->dist, block->out.data(), &index);
        return static_cast<size_t>(index);
    });
}

}  // namespace

void registerBenchmarks() {
    for (const Input& input : vekbench::files()) {
        for (const int level : {vekdc::codec::kDeflateFastest, 1, 6, 9}) addLevel(input, level);
        addHuffman(input);
    }
    vekbench::goal("deflate fastest", "our level 1", 2);
    vekbench::goal("deflate level 1", "libdeflate", 1);
    vekbench::goal("deflate level 1", "zlib", 0, 1.01);
    vekbench::goal("deflate level 6", "libdeflate", 1);
    vekbench::goal("deflate level 6", "zlib", 0, 1.01);
    vekbench::goal("deflate level 9", "zlib", 1.5, 1.005);
}
