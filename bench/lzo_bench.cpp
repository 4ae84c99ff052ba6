// LZO against the format's own library: both decoders, both methods. The 32-bit library also has
// decoders in assembly; where they are exported, they are contenders too.

#include <cstring>

#include "bench.h"
#include "vekdc.h"

#ifdef VEK_HAS_lzo2
#include <lzo/lzo1x.h>
#if defined(__i386__) && __has_include(<lzo/lzo_asm.h>)
#include <lzo/lzo_asm.h>
#define BENCH_LZO_ASSEMBLY
#endif
#endif

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t stateSize = 131096;
Bytes work(1 << 20);

size_t encode(int32_t method, const Bytes& data, Bytes* out) {
    alignas(16) static uint8_t state[stateSize];
    veksEncodeLZOInit_8u(method, 0, state);
    auto length = static_cast<uint32_t>(out->size());
    veksEncodeLZO_8u(data.data(), static_cast<uint32_t>(data.size()), out->data(), &length, state);
    return length;
}

template <auto Function>
size_t decode(const Bytes& stream, Bytes* out) {
    auto length = static_cast<uint32_t>(out->size());
    if (Function(stream.data(), static_cast<uint32_t>(stream.size()), out->data(), &length) != 0)
        vekbench::fail("our decoder refuses a stream");
    return length;
}

#ifdef VEK_HAS_lzo2
template <auto Function>
size_t peerCall(const Bytes& from, Bytes* out) {
    lzo_uint length = out->size();
    Function(from.data(), from.size(), out->data(), &length, work.data());
    return length;
}
#endif

}  // namespace

void registerBenchmarks() {
    using vekbench::add;
    for (const auto& file : vekbench::files()) {
        const Bytes& data = file.bytes;
        auto* const out = new Bytes(vekLZOEncodeBound(static_cast<uint32_t>(data.size())));
        auto* const back = new Bytes(data.size());
        auto* const stream = new Bytes(*out);
        stream->resize(encode(0, data, stream));
        if (decode<veksDecodeLZOSafe_8u>(*stream, back) != data.size() || *back != data)
            vekbench::fail("round trip of " + file.name);
        const size_t size = data.size();
        for (int32_t method : {0, 2})
            add("lzo-encode-" + std::to_string(method), file.name, "vekdc", size,
                [=, &data] { return encode(method, data, out); });
        add("lzo-decode", file.name, "vekdc", size,
            [=] { return decode<veksDecodeLZO_8u>(*stream, back); });
        add("lzo-decode-safe", file.name, "vekdc", size,
            [=] { return decode<veksDecodeLZOSafe_8u>(*stream, back); });
#ifdef VEK_HAS_lzo2
        for (const char* operation : {"lzo-encode-0", "lzo-encode-2"})
            add(operation, file.name, "lzo2", size,
                [=, &data] { return peerCall<lzo1x_1_compress>(data, out); });
        add("lzo-decode", file.name, "lzo2", size,
            [=] { return peerCall<lzo1x_decompress>(*stream, back); });
        add("lzo-decode-safe", file.name, "lzo2", size,
            [=] { return peerCall<lzo1x_decompress_safe>(*stream, back); });
#ifdef BENCH_LZO_ASSEMBLY
        add("lzo-decode", file.name, "lzo2-asm", size,
            [=] { return peerCall<lzo1x_decompress_asm_fast>(*stream, back); });
        add("lzo-decode-safe", file.name, "lzo2-asm", size,
            [=] { return peerCall<lzo1x_decompress_asm_fast_safe>(*stream, back); });
#endif
#endif
    }
    vekbench::goal("lzo-encode-0", "lzo2", 1.0, 0.96);
    vekbench::goal("lzo-encode-2", "lzo2", 1.2, 1.03);
    vekbench::goal("lzo-decode", "lzo2", 2.0);
    vekbench::goal("lzo-decode-safe", "lzo2", 2.0);
#ifdef BENCH_LZO_ASSEMBLY
    vekbench::goal("lzo-decode", "lzo2-asm", 1.0);
    vekbench::goal("lzo-decode-safe", "lzo2-asm", 1.0);
#endif
}
