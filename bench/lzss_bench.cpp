// LZSS, both ways. The format has no other library; the goals are absolute (text: 100 MB/s in, 500
// MB/s out).

#include "bench.h"
#include "vekdc.h"

namespace {

using Bytes = std::vector<uint8_t>;

// As large as the record of either variant, and aligned for its pointers.
alignas(16) uint8_t state[327744 + 64];

size_t encode(const Bytes& data, Bytes* out) {
    const uint8_t* src = data.data();
    auto left = static_cast<int32_t>(data.size());
    uint8_t* dst = out->data();
    auto room = static_cast<int32_t>(out->size());
    veksEncodeLZSSInit_8u(state);
    veksEncodeLZSS_8u(&src, &left, &dst, &room, state);
    veksEncodeLZSSFlush_8u(&dst, &room, state);
    return static_cast<size_t>(dst - out->data());
}

size_t decode(const Bytes& bits, Bytes* out) {
    const uint8_t* src = bits.data();
    auto left = static_cast<int32_t>(bits.size());
    uint8_t* dst = out->data();
    auto room = static_cast<int32_t>(out->size());
    veksDecodeLZSSInit_8u(state);
    veksDecodeLZSS_8u(&src, &left, &dst, &room, state);
    return static_cast<size_t>(dst - out->data());
}

}  // namespace

void registerBenchmarks() {
    for (const auto& file : vekbench::files()) {
        const Bytes& data = file.bytes;
        auto* const out = new Bytes(vekLZSSEncodeBound(static_cast<int32_t>(data.size())));
        auto* const back = new Bytes(data.size());
        auto* const bits = new Bytes(*out);
        bits->resize(encode(data, bits));
        if (decode(*bits, back) != data.size() || *back != data)
            vekbench::fail("round trip of " + file.name);
        vekbench::add("lzss-encode", file.name, "vekdc", data.size(),
                      [=, &data] { return encode(data, out); });
        vekbench::add("lzss-decode", file.name, "vekdc", data.size(),
                      [=] { return decode(*bits, back); });
    }
}
