// The whole gz and zlib readers on hostile bytes: they end in a FormatError or in good output, in
// pieces of any size alike; and what zlib accepts they decode to the same bytes. The input is also
// taken as a raw deflate stream, so that checksums do not keep mutations out.
#include <zlib.h>

#include "fuzz/reader.h"

namespace {

using namespace vekfuzz;

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
        const auto result = decodedInAnyPieces(format, packed, 1U + (data[0] >> 1));
        const auto reference = zlibs(packed, gz ? 15 + 16 : 15);
        if (reference && result != reference) abort();

        // The bytes as raw deflate data: here no checksum stands in the way of mutation.
        if (const auto plain = zlibs(packed, -15)) {
            const Data file = wrapped(packed, *plain);
            if (decoded(*vekdc::formatByName("gz"), Bytes(file)) != plain) abort();
        }
    } catch (const TooMuch&) {
        return 0;
    }
    return 0;
}
