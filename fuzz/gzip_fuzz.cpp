// The whole gz and zlib readers on hostile bytes: they end in a FormatError or in good output, in
// pieces of any size alike; and what zlib accepts they decode to the same bytes. The input is also
// taken as a raw deflate stream, so that checksums do not keep mutations out.
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <vector>

#include "tools/vekdc/format.h"

namespace {

using Data = std::vector<uint8_t>;
using vekdc::Bytes;

/// A stream of a few bytes decodes to a thousand times as many; more than this is not compared.
constexpr size_t kMost = 256 << 10;

struct TooMuch {};

class LimitedSink : public vekdc::Sink {
 public:
    void write(Bytes bytes) override {
        if (data.size() + bytes.size() > kMost) throw TooMuch();
        data.insert(data.end(), bytes.begin(), bytes.end());
    }
    Data data;
};

class Dripping : public vekdc::Reader {
 public:
    Dripping(Bytes bytes, size_t piece) : bytes_(bytes), piece_(piece) {}
    size_t read(uint8_t* to, size_t room) override {
        const size_t count = std::min({room, piece_, bytes_.size()});
        std::copy_n(bytes_.begin(), count, to);
        bytes_ = bytes_.subspan(count);
        return count;
    }

 private:
    Bytes bytes_;
    size_t piece_;
};

std::optional<Data> ours(const vekdc::Format& format, vekdc::Source& source) {
    LimitedSink sink;
    try {
        format.decompress(source, sink, {});
    } catch (const vekdc::FormatError&) {
        return std::nullopt;
    }
    return sink.data;
}

/// What zlib makes of one stream; nothing when it refuses it or more follows.
std::optional<Data> zlibs(Bytes packed, int windowBits) {
    z_stream stream{};
    if (inflateInit2(&stream, windowBits) != Z_OK) abort();
    Data out(kMost);
    stream.next_in = const_cast<Bytef*>(packed.data());
    stream.avail_in = static_cast<uInt>(packed.size());
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    const int status = inflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    const bool whole = status == Z_STREAM_END && stream.avail_in == 0;
    inflateEnd(&stream);
    if (!whole) return std::nullopt;
    return out;
}

}  // namespace

/// A gz file of a raw deflate stream that decodes to `plain`.
Data wrapped(Bytes deflated, const Data& plain) {
    Data file = {0x1F, 0x8B, 8, 0, 0, 0, 0, 0, 0, 255};
    file.insert(file.end(), deflated.begin(), deflated.end());
    const uLong crc = crc32(0, plain.data(), static_cast<uInt>(plain.size()));
    for (const uint64_t value : {static_cast<uint64_t>(crc), static_cast<uint64_t>(plain.size())})
        for (int shift = 0; shift < 32; shift += 8)
            file.push_back(static_cast<uint8_t>(value >> shift));
    return file;
}

// The first byte chooses the format and the size of the input's pieces.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const bool gz = (data[0] & 1) != 0;
    const vekdc::Format& format = *vekdc::formatByName(gz ? "gz" : "zlib");
    const Bytes packed(data + 1, size - 1);
    try {
        vekdc::Source whole(packed);
        const auto result = ours(format, whole);
        Dripping reader(packed, 1 + (data[0] >> 1));
        vekdc::Source pieces(reader, 32 + data[0]);
        if (ours(format, pieces) != result) abort();
        const auto reference = zlibs(packed, gz ? 15 + 16 : 15);
        if (reference && result != reference) abort();

        // The bytes as raw deflate data: here no checksum stands in the way of mutation.
        if (const auto plain = zlibs(packed, -15)) {
            const Data file = wrapped(packed, *plain);
            vekdc::Source source(file);
            if (ours(*vekdc::formatByName("gz"), source) != plain) abort();
        }
    } catch (const TooMuch&) {
        return 0;
    }
    return 0;
}
