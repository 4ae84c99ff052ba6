// Whole deflate streams: any bytes, at any level and strategy, in any pieces and with any flushes,
// must come back through our decoder and, where it is there, through zlib.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "codec/deflate_encoder.h"
#include "codec/inflate_decoder.h"

#ifdef VEK_HAS_zlib
#include <zlib.h>
#endif

using namespace vekdc::codec;

namespace {

using Buffer = std::vector<uint8_t>;

/// Runs a codec into rooms of `piece` bytes until it wants more input or has ended.
template <class Run>
Status runInto(Buffer& out, size_t piece, Run run) {
    Buffer room(piece);
    for (;;) {
        Output to{room.data(), room.size()};
        const Status status = run(to);
        out.insert(out.end(), room.begin(), room.end() - static_cast<ptrdiff_t>(to.left));
        if (status != Status::Going || to.left != 0) return status;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    DeflateEncoder encoder(
        {data[0] % 11 - 1, static_cast<DeflateStrategy>(data[3] % 4), 8U + data[3] / 4 % 8});
    const size_t most = 1 + data[1] * size_t{37};
    const unsigned repeats = 1 + data[2] % 16;  // makes matches, and blocks that fill up
    Buffer plain;
    for (unsigned i = 0; i < repeats; ++i) plain.insert(plain.end(), data + 4, data + size);
    Buffer coded;
    for (size_t at = 0;;) {
        const size_t n = std::min(1 + (at * 7919 + data[1]) % most, plain.size() - at);
        Input in{plain.data() + at, n};
        at += n;
        const auto directive =
            at == plain.size() ? Directive::Finish : static_cast<Directive>((at ^ n) % 7 % 4);
        if (runInto(coded, most, [&](Output& out) { return encoder.run(in, out, directive); }) ==
            Status::Ended)
            break;
    }
    InflateDecoder decoder;
    Buffer decoded;
    Input in{coded.data(), coded.size()};
    if (runInto(decoded, most, [&](Output& out) { return decoder.run(in, out); }) !=
            Status::Ended ||
        in.left != 0 || decoded != plain)
        std::abort();
#ifdef VEK_HAS_zlib
    Buffer out(plain.size() + 1);
    z_stream stream = {};
    inflateInit2(&stream, -15);
    stream.next_in = coded.data();
    stream.avail_in = static_cast<uInt>(coded.size());
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    if (inflate(&stream, Z_FINISH) != Z_STREAM_END || stream.avail_in != 0) std::abort();
    out.resize(stream.total_out);
    inflateEnd(&stream);
    if (out != plain) std::abort();
#endif
    return 0;
}
