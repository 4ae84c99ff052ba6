// Whole deflate streams: any bytes, at any level and in any pieces, must come back through our
// reader and, where it is there, through zlib.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "tools/vekdc/formats/deflate_stream.h"
#include "tools/vekdc/formats/inflate_stream.h"

#ifdef VEK_HAS_zlib
#include <zlib.h>
#endif

using vekdc::DeflateEncoder;

namespace {

using Buffer = std::vector<uint8_t>;

Buffer decode(const Buffer& coded) {
    vekdc::Source source{vekdc::Bytes(coded)};
    vekdc::InflateReader reader(source);
    reader.start();
    Buffer out;
    for (auto piece = reader.next(); !piece.empty(); piece = reader.next())
        out.insert(out.end(), piece.begin(), piece.end());
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    DeflateEncoder encoder(data[0] % 10);
    const size_t most = 1 + data[1] * size_t{37};
    const unsigned repeats = 1 + data[2] % 16;  // makes matches, and blocks that fill up
    Buffer plain;
    for (unsigned i = 0; i < repeats; ++i) plain.insert(plain.end(), data + 3, data + size);
    Buffer coded;
    for (size_t at = 0; at < plain.size();) {
        const size_t n = std::min(1 + (at * 7919 + data[1]) % most, plain.size() - at);
        const auto end = (at ^ n) % 5 == 0 ? DeflateEncoder::End::Sync : DeflateEncoder::End::More;
        encoder.encode({plain.data() + at, n}, end, coded);
        at += n;
    }
    encoder.encode({}, DeflateEncoder::End::Final, coded);
    if (decode(coded) != plain) std::abort();
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
