// The whole lzss reader on hostile bytes: it ends in a FormatError or in good output, in pieces of
// any size alike. The input is also taken as the stream of one block, decoded here in a plain way
// and put into a file with good lengths and checksums: what it decodes to must be the same. And as
// data to write and read again.
#include "codec/checksums.h"
#include "fuzz/reader.h"

namespace {

using namespace vekfuzz;

void append(Data& to, uint64_t value, int count) {
    for (int i = 0; i < count; ++i) to.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

uint32_t sumOf(const Data& bytes) {
    return vekdc::codec::kCrc32c.finish(
        vekdc::codec::kCrc32c.update(vekdc::codec::kCrc32c.initial, bytes));
}

/// All whole tokens of a stream; nothing when a distance leaves the data or tokens leave a byte.
std::optional<Data> plainly(Bytes stream) {
    Data out;
    size_t at = 0;
    const auto bits = [&](int count) {
        size_t value = 0;
        for (; count != 0; --count, ++at) value = value << 1 | (stream[at / 8] >> (7 - at % 8) & 1);
        return value;
    };
    const size_t end = stream.size() * 8;
    while (end - at >= 9) {
        if ((stream[at / 8] >> (7 - at % 8) & 1) != 0) {
            out.push_back(static_cast<uint8_t>(bits(9)));
            continue;
        }
        if (end - at < 24) return std::nullopt;
        const size_t distance = bits(16);
        if (distance == 0 || distance > out.size()) return std::nullopt;
        for (size_t length = bits(8) + 3; length != 0; --length)
            out.push_back(out[out.size() - distance]);
    }
    return out;
}

void compareStream(const vekdc::Format& format, Bytes stream) {
    const auto plain = plainly(stream);
    if (!plain || plain->size() <= stream.size()) return;
    Data file = {0x89, 'L', 'Z', 'S', 'S', 0x0D, 0x0A, 0x1A, 1, 24};
    append(file, plain->size(), 8);
    append(file, sumOf(file), 4);
    append(file, plain->size(), 4);
    append(file, stream.size(), 4);
    append(file, sumOf(*plain), 4);
    file.insert(file.end(), stream.begin(), stream.end());
    append(file, 0, 4);
    append(file, plain->size(), 8);
    if (decoded(format, Bytes(file)) != plain) abort();
}

/// The block's lengths stand in front; whatever the stream is, only its checksum refuses it.
void decodeBlock(const vekdc::Format& format, Bytes bytes, size_t piece) {
    Data file = {0x89, 'L', 'Z', 'S', 'S', 0x0D, 0x0A, 0x1A, 1, 24};
    append(file, ~uint64_t{0}, 8);
    append(file, sumOf(file), 4);
    file.insert(file.end(), bytes.begin(), bytes.end());
    decodedInAnyPieces(format, file, piece);
}

}  // namespace

// The first byte is the size of the input's pieces, and asks for the slow round trip.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const vekdc::Format& format = *vekdc::formatByName("lzss");
    const Bytes bytes(data + 1, size - 1);
    try {
        decodedInAnyPieces(format, bytes, 1U + data[0]);
        decodeBlock(format, bytes, 1U + data[0]);
        compareStream(format, bytes);
        if (data[0] % 16 == 0) roundTrip(format, bytes, {});
    } catch (const TooMuch&) {
        return 0;
    }
    return 0;
}
