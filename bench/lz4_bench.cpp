// LZ4 against liblz4, on blocks of 4 MiB and of 64 KiB of every file.
#include <algorithm>
#include <memory>

#include "bench.h"
#include "vekdc.h"

#ifdef VEK_HAS_lz4
#include <lz4.h>
#include <lz4hc.h>
#endif

namespace {

using vekbench::Input;

struct Tables {
    std::vector<uint32_t> fast = std::vector<uint32_t>(4096);
    std::vector<uint32_t> hash = std::vector<uint32_t>(32768);
    std::vector<uint32_t> chain = std::vector<uint32_t>(65536);
    uint8_t* pair[2] = {reinterpret_cast<uint8_t*>(hash.data()),
                        reinterpret_cast<uint8_t*>(chain.data())};
    uint8_t* table() { return reinterpret_cast<uint8_t*>(fast.data()); }
};

/// Encodes or decodes one block; returns the bytes written.
using Block = std::function<int(const uint8_t* src, int srcLen, uint8_t* dst, int room)>;

Block plain(bool safe) {
    auto t = std::make_shared<Tables>();
    return [t, safe](const uint8_t* src, int n, uint8_t* dst, int room) {
        if (safe)
            veksEncodeLZ4Safe_8u(src, &n, dst, &room, t->table());
        else
            veksEncodeLZ4_8u(src, n, dst, &room, t->table());
        return room;
    };
}

Block accelerated(int acceleration) {
    auto t = std::make_shared<Tables>();
    return [t, acceleration](const uint8_t* src, int n, uint8_t* dst, int room) {
        veksEncodeLZ4Fast_8u(src, n, dst, &room, t->table(), acceleration);
        return room;
    };
}

Block high(int level) {
    auto t = std::make_shared<Tables>();
    return [t, level](const uint8_t* src, int n, uint8_t* dst, int room) {
        veksEncodeLZ4HCHashTableInit_8u(t->pair);
        veksEncodeLZ4HC_8u(src, 0, &n, dst, &room, t->pair, nullptr, 0, level);
        return room;
    };
}

int decode(const uint8_t* src, int n, uint8_t* dst, int room) {
    veksDecodeLZ4_8u(src, n, dst, &room);
    return room;
}

/// A file cut into blocks, each with its place for the other side.
struct Cut {
    const Input* input;
    size_t block;
    size_t room;
    std::vector<uint8_t> coded;
    std::vector<int> sizes;

    Cut(const Input& in, size_t size)
        : input(&in),
          block(size),
          room(vekLZ4EncodeBound(size)),
          coded((in.bytes.size() + size - 1) / size * room),
          sizes((in.bytes.size() + size - 1) / size) {}

    int length(size_t i) const {
        return static_cast<int>(std::min(block, input->bytes.size() - i * block));
    }
    size_t encode(const Block& encoder) {
        size_t total = 0;
        for (size_t i = 0; i < sizes.size(); ++i) {
            sizes[i] = encoder(input->bytes.data() + i * block, length(i), coded.data() + i * room,
                               static_cast<int>(room));
            total += static_cast<size_t>(sizes[i]);
        }
        return total;
    }
    size_t decode(const Block& decoder, std::vector<uint8_t>& plainText) const {
        size_t total = 0;
        for (size_t i = 0; i < sizes.size(); ++i)
            total += static_cast<size_t>(decoder(coded.data() + i * room, sizes[i],
                                                 plainText.data() + i * block, length(i)));
        return total;
    }
};

void addEncoder(const std::string& operation, const Input& input, size_t size,
                const std::string& contender, const Block& encoder) {
    auto cut = std::make_shared<Cut>(input, size);
    cut->encode(encoder);
    std::vector<uint8_t> back(input.bytes.size());
    cut->decode(decode, back);
    if (back != input.bytes) vekbench::fail(operation + " of " + contender + " on " + input.name);
    vekbench::add(operation, input.name, contender, input.bytes.size(),
                  [cut, encoder] { return cut->encode(encoder); });
}

void addDecoder(const std::string& operation, const std::shared_ptr<Cut>& cut,
                const std::string& contender, const Block& decoder) {
    auto back = std::make_shared<std::vector<uint8_t>>(cut->input->bytes.size());
    cut->decode(decoder, *back);
    if (*back != cut->input->bytes) vekbench::fail(operation + " of " + contender);
    vekbench::add(operation, cut->input->name, contender, back->size(),
                  [cut, back, decoder] { return cut->decode(decoder, *back); });
}

}  // namespace

void registerBenchmarks() {
    const bool x86 = sizeof(void*) == 4;
    for (const auto& [size, suffix] : {std::pair{4U << 20, "4M"}, std::pair{64U << 10, "64K"}}) {
        const auto named = [&, s = suffix](const char* name) {
            return std::string("lz4-") + name + "-" + s;
        };
        for (const Input& input : vekbench::files()) {
            addEncoder(named("encode"), input, size, "vekdc", plain(false));
            addEncoder(named("safe"), input, size, "vekdc", plain(true));
            addEncoder(named("safe"), input, size, "vekdc-plain", plain(false));
            addEncoder(named("fast8"), input, size, "vekdc", accelerated(8));
            addEncoder(named("high4"), input, size, "vekdc", high(4));
            addEncoder(named("high9"), input, size, "vekdc", high(9));
            auto cut = std::make_shared<Cut>(input, size);
            cut->encode(plain(false));
            addDecoder(named("decode"), cut, "vekdc", decode);
#ifdef VEK_HAS_lz4
            const auto chars = [](const uint8_t* p) { return reinterpret_cast<const char*>(p); };
            const auto out = [](uint8_t* p) { return reinterpret_cast<char*>(p); };
            addEncoder(named("encode"), input, size, "liblz4",
                       [=](const uint8_t* s, int n, uint8_t* d, int room) {
                           return LZ4_compress_default(chars(s), out(d), n, room);
                       });
            addEncoder(named("fast8"), input, size, "liblz4",
                       [=](const uint8_t* s, int n, uint8_t* d, int room) {
                           return LZ4_compress_fast(chars(s), out(d), n, room, 8);
                       });
            for (const int level : {4, 9}) {
                const std::string operation = "high" + std::to_string(level);
                addEncoder(named(operation.c_str()), input, size, "liblz4",
                           [=](const uint8_t* s, int n, uint8_t* d, int room) {
                               return LZ4_compress_HC(chars(s), out(d), n, room, level);
                           });
            }
            addDecoder(named("decode"), cut, "liblz4",
                       [=](const uint8_t* s, int n, uint8_t* d, int room) {
                           return LZ4_decompress_safe(chars(s), out(d), n, room);
                       });
#endif
        }
        vekbench::goal(named("decode"), "liblz4", x86 ? 1.5 : 1.15);
        vekbench::goal(named("encode"), "liblz4", x86 ? 1.3 : 1.15, 1.01);
        vekbench::goal(named("safe"), "vekdc-plain", 0.97, 1.0);
        vekbench::goal(named("fast8"), "liblz4", 1.1, 1.03);
        vekbench::goal(named("high4"), "liblz4", 1.3, 1.02);
        vekbench::goal(named("high9"), "liblz4", 1.5, 1.01);
    }
}
