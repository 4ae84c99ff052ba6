// The deflate formats' own library, a call each way.
#pragma once

#include <gtest/gtest.h>
#include <zlib.h>

#include "support/data.h"

namespace vektest {

/// Added to a window's bits: with a gzip header.
constexpr int kGzipMode = 16;

struct ZlibWay {
    int windowBits = 15, strategy = Z_DEFAULT_STRATEGY, flush = Z_NO_FLUSH, level = 6, memory = 8;
};

inline void setEnds(z_stream& stream, const Bytes& in, Bytes& out) {
    stream.next_in = const_cast<Bytef*>(in.data());
    stream.avail_in = static_cast<uInt>(in.size());
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
}

/// Flushed behind every piece.
inline Bytes zlibDeflate(const Bytes& plain, const ZlibWay& way, size_t piece = 7000) {
    z_stream stream{};
    EXPECT_EQ(
        deflateInit2(&stream, way.level, Z_DEFLATED, way.windowBits, way.memory, way.strategy),
        Z_OK);
    Bytes out(plain.size() + plain.size() / 8 + 20 * (plain.size() / piece) + 1000);
    setEnds(stream, plain, out);
    for (size_t left = plain.size(); left > piece; left -= piece) {
        stream.avail_in = static_cast<uInt>(piece);
        deflate(&stream, way.flush);
    }
    stream.avail_in = static_cast<uInt>(plain.data() + plain.size() - stream.next_in);
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

/// What a stream holds, which must end with its last byte.
inline Bytes zlibInflate(const Bytes& packed, int windowBits, size_t size,
                         const Bytes& dictionary = {}) {
    z_stream stream{};
    EXPECT_EQ(inflateInit2(&stream, windowBits), Z_OK);
    Bytes out(size + 1);
    setEnds(stream, packed, out);
    const auto give = [&] {
        return inflateSetDictionary(&stream, dictionary.data(),
                                    static_cast<uInt>(dictionary.size()));
    };
    if (windowBits < 0) give();
    int status = inflate(&stream, Z_FINISH);
    if (status == Z_NEED_DICT && give() == Z_OK) status = inflate(&stream, Z_FINISH);
    EXPECT_EQ(status, Z_STREAM_END) << (stream.msg != nullptr ? stream.msg : "");
    EXPECT_EQ(stream.avail_in, 0U);
    out.resize(stream.total_out);
    inflateEnd(&stream);
    return out;
}

}  // namespace vektest
