// Inflate against libdeflate and zlib: raw streams of zlib's levels 1, 6 and 9, decoded from and
// into whole buffers, and with at most 4 KiB of input and of room a call (libdeflate, which cannot
// stop, always whole).
#include <cstdlib>
#include <memory>

#include "../fuzz/deflate_streams.h"
#include "bench.h"
#include "vekdc.h"

#if defined(VEK_HAS_zlib) && defined(VEK_HAS_libdeflate)
#include <libdeflate.h>
#include <zlib.h>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes deflateRaw(const Bytes& raw, int level) {
    z_stream z{};
    if (deflateInit2(&z, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) std::abort();
    Bytes data(deflateBound(&z, raw.size()));
    z.next_in = const_cast<Bytef*>(raw.data());
    z.avail_in = static_cast<uInt>(raw.size());
    z.next_out = data.data();
    z.avail_out = static_cast<uInt>(data.size());
    deflate(&z, Z_FINISH);
    data.resize(z.total_out);
    deflateEnd(&z);
    return data;
}

/// Decodes into one buffer, in calls of at most `piece` bytes.
struct Output {
    uint8_t* out;
    size_t size;
    size_t piece;
    size_t at = 0;

    bool stored(const uint8_t* bytes, size_t count) {
        if (count > size - at) return false;
        std::copy_n(bytes, count, out + at);
        at += count;
        return true;
    }
    bool coded(vektest::BitSource& in, VekInflateState& state) {
        for (int32_t mode = 1; mode != 0;) {
            auto srcLen = static_cast<uint32_t>(std::min<size_t>(piece, in.end - in.src));
            auto room = static_cast<uint32_t>(std::min(piece - at % piece, size - at));
            uint8_t* dst = out + at;
            if (veksInflate_8u(&in.src, &srcLen, &in.code, &in.nBits, 0, &dst, &room,
                               static_cast<uint32_t>(at), &mode, &state) != vekStatusOk) {
                return false;
            }
            at = dst - out;
        }
        return true;
    }
};

size_t ours(const Bytes& data, Bytes& out, VekInflateState& state, size_t piece) {
    Output output{out.data(), out.size(), piece};
    vektest::BitSource in{data.data(), data.data() + data.size()};
    return vektest::readDeflate(in, state, output) ? output.at : 0;
}

size_t zlibs(const Bytes& data, Bytes& out, size_t piece) {
    z_stream z{};
    inflateInit2(&z, -15);
    int result = Z_OK;
    while (result == Z_OK) {
        const size_t left = data.size() - z.total_in;
        z.next_in = const_cast<Bytef*>(data.data()) + z.total_in;
        z.avail_in = static_cast<uInt>(std::min<size_t>(piece, left));
        z.next_out = out.data() + z.total_out;
        z.avail_out = static_cast<uInt>(std::min<size_t>(piece, out.size() - z.total_out));
        result = inflate(&z, Z_NO_FLUSH);
    }
    inflateEnd(&z);
    return result == Z_STREAM_END ? z.total_out : 0;
}

std::string operationOf(bool whole, int level) {
    return std::string(whole ? "inflate" : "inflate-4k") + " of zlib -" + std::to_string(level);
}

}  // namespace

void registerBenchmarks() {
    for (const auto& file : vekbench::files()) {
        for (const int level : {1, 6, 9}) {
            auto data = std::make_shared<Bytes>(deflateRaw(file.bytes, level));
            auto out = std::make_shared<Bytes>(file.bytes.size());
            auto state = std::make_shared<VekInflateState>();
            const std::string& input = file.name;
            const auto libdeflates = [data, out] {
                static libdeflate_decompressor* decompressor = libdeflate_alloc_decompressor();
                size_t size = 0;
                libdeflate_deflate_decompress(decompressor, data->data(), data->size(), out->data(),
                                              out->size(), &size);
                return size;
            };
            for (const bool whole : {true, false}) {
                const size_t piece = whole ? SIZE_MAX : 4096;
                const std::string operation = operationOf(whole, level);
                const auto run = [=] { return ours(*data, *out, *state, piece); };
                std::fill(out->begin(), out->end(), uint8_t{0});
                if (run() != file.bytes.size() || *out != file.bytes) {
                    vekbench::fail(
                        std::string(operation).append(" of ").append(input).append(" is wrong"));
                }
                vekbench::add(operation, input, "vekdc", file.bytes.size(), run);
                vekbench::add(operation, input, "libdeflate", file.bytes.size(), libdeflates);
                vekbench::add(operation, input, "zlib", file.bytes.size(),
                              [=] { return zlibs(*data, *out, whole ? UINT32_MAX : piece); });
            }
        }
    }
    for (const int level : {1, 6, 9}) {
        vekbench::goal(operationOf(true, level), "libdeflate", 1.0);
        vekbench::goal(operationOf(false, level), "libdeflate", 0.9);
    }
}
#else
void registerBenchmarks() {}
#endif
