// Deflate: whole streams as the codec makes them ("vekdc -6"), with a matcher of its own; the
// library's stages and levels ("level 6") in a program of the plainest kind; and Huffman coding
// alone.

#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <functional>
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

/// Codes in blocks of up to 48 Ki pairs, each with a code of its own.
class LevelEncoder {
 public:
    explicit LevelEncoder(uint32_t level) : level_(level) {}

    /// Returns the size of the coded data.
    size_t encode(const Bytes& in, Bytes& out) {
        std::fill(head_.begin(), head_.end(), -32768);
        const uint8_t* src = in.data();
        auto left = static_cast<int32_t>(in.size());
        int32_t position = 0;
        bits_ = bitCount_ = size_ = 0;
        do {
            std::fill_n(lit_, 286, VekHuffEntry{});
            std::fill_n(dist_, 30, VekHuffEntry{});
            uint32_t room = blockPairs;
            veksDeflateLZ77_8u(&src, &left, &position, window_.data(), 32768, head_.data(),
                               prev_.data(), 65536, lit_, dist_, lits_.data(), dists_.data(), &room,
                               level_, 2);
            writeBlock(blockPairs - room, left == 0, out);
        } while (left != 0);
        put(0, 7, out);
        return size_;
    }

 private:
    static constexpr uint32_t blockPairs = 48 << 10;

    void put(uint32_t bits, uint32_t count, Bytes& out) {
        bits_ |= bits << bitCount_;
        for (bitCount_ += count; bitCount_ >= 8; bitCount_ -= 8, bits_ >>= 8)
            out[size_++] = static_cast<uint8_t>(bits_);
    }

    void writeBlock(uint32_t pairs, bool last, Bytes& out) {
        lit_[256].code = 1;
        veksDeflateLZ77FastestGenHuffTable_8u(lit_, dist_, lit_, dist_);
        uint8_t header[VEK_DEFLATE_HEADER_BOUND];
        uint32_t length = 0;
        uint32_t bits = 0;
        veksDeflateLZ77FastestGenHeader_8u(lit_, dist_, header, &length, &bits);
        if (!last) header[0] &= 0xFE;
        for (uint32_t at = 0; at < bits; at += 8) put(header[at / 8], std::min(8U, bits - at), out);
        veksDeflateHuff_8u(lits_.data(), dists_.data(), pairs, &bits_, &bitCount_, lit_, dist_,
                           out.data(), &size_);
        put(lit_[256].code, lit_[256].length, out);
    }

    uint32_t level_;
    uint32_t bits_ = 0;
    uint32_t bitCount_ = 0;
    uint32_t size_ = 0;
    std::vector<uint8_t> window_ = Bytes(32768);
    std::vector<int32_t> head_ = std::vector<int32_t>(65536);
    std::vector<int32_t> prev_ = std::vector<int32_t>(32768);
    VekHuffEntry lit_[286];
    VekHuffEntry dist_[30];
    Bytes lits_ = Bytes(blockPairs);
    std::vector<uint16_t> dists_ = std::vector<uint16_t>(blockPairs);
};

/// Returns the size of what it leaves in `out`, where there is room.
using Encode = std::function<size_t(const Bytes& in, Bytes& out)>;

Encode codecEncode(int level) {
    return [encoder = std::make_shared<DeflateEncoder>(vekdc::codec::DeflateOptions{level})](
               const Bytes& in, Bytes& out) { return deflateOurs(*encoder, in, out); };
}

Encode levelEncode(uint32_t level) {
    return [encoder = std::make_shared<LevelEncoder>(level)](const Bytes& in, Bytes& out) {
        return encoder->encode(in, out);
    };
}

void addContenders(const std::string& operation, const Input& input, const Encode& ours,
                   int peerLevel) {
    const Bytes& in = input.bytes;
    // Everyone writes where there is room already, so that no one is charged for fresh pages.
    auto room = std::make_shared<Bytes>(in.size() * 2 + 1000);
    auto coded = std::make_shared<Bytes>(in.size() * 2 + 1000);
    coded->resize(ours(in, *coded));
    if (inflateAll(*coded, in.size()) != in) vekbench::fail(operation + " of " + input.name);
    coded->resize(room->size());
    vekbench::add(operation, input.name, "vekdc", in.size(),
                  [ours, &in, coded] { return ours(in, *coded); });
    vekbench::add(operation, input.name, "zlib", in.size(),
                  [peerLevel, &in, room] { return deflateZlib(in, peerLevel, *room); });
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
        const std::string fastest = "deflate vekdc --fastest";
        addContenders(fastest, input, codecEncode(vekdc::codec::kDeflateFastest), 1);
        auto coded = std::make_shared<Bytes>(input.bytes.size() * 2 + 1000);
        vekbench::add(
            fastest, input.name, "vekdc -1", input.bytes.size(),
            [level1 = codecEncode(1), &input, coded] { return level1(input.bytes, *coded); });
        for (const int level : {1, 6, 9}) {
            const std::string number = std::to_string(level);
            addContenders("deflate vekdc -" + number, input, codecEncode(level), level);
            addContenders("deflate level " + number, input,
                          levelEncode(static_cast<uint32_t>(level)), level);
        }
        addHuffman(input);
    }
    vekbench::goal("deflate vekdc --fastest", "vekdc -1", 2);
    const bool is32 = sizeof(void*) == 4;
    vekbench::goal("deflate level 1", "libdeflate", is32 ? 1.25 : 1);
    vekbench::goal("deflate level 6", "libdeflate", 1);
    vekbench::goal("deflate level 9", "libdeflate", 1.5);
    for (const std::string level : {"1", "6", "9"}) {
        vekbench::goal("deflate level " + level, "zlib", {.worstSize = 1.03});
    }
    for (const std::string level : {"1", "6"})
        vekbench::goal("deflate vekdc -" + level, "libdeflate", 1);
    vekbench::goal("deflate vekdc -1", "zlib", 0, 1.01);
    vekbench::goal("deflate vekdc -6", "zlib", 0, 0.995);
    vekbench::goal("deflate vekdc -9", "zlib", 2.2, 1.0);
}
