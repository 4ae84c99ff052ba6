// The whole lzo reader on hostile bytes: it ends in a FormatError or in good output, in pieces of
// any size alike. The input is also taken as blocks behind a good header that announces no
// checksums, so that these do not keep mutations out, and as one LZO1X stream: what liblzo2 accepts
// must decode to the same bytes. And as data to write and read again.
#include "codec/checksums.h"
#include "fuzz/reader.h"

#ifdef VEK_HAS_lzo2
#include <lzo/lzo1x.h>
#endif

namespace {

using namespace vekfuzz;

void append(Data& to, uint64_t value, int count) {
    while (--count >= 0) to.push_back(static_cast<uint8_t>(value >> (8 * count)));
}

Data header(uint32_t flags, unsigned filter) {
    Data file = {0x89, 'L', 'Z', 'O', 0, 0x0D, 0x0A, 0x1A, 0x0A};
    Data fields;
    for (const uint32_t value : {0x104020A0U, 0x09400105U, filter == 0 ? flags : flags | 0x800})
        append(fields, value, 4);
    if (filter != 0) append(fields, filter, 4);
    fields.resize(fields.size() + 13);
    append(fields, vekdc::codec::kAdler32.update(1, fields), 4);
    file.insert(file.end(), fields.begin(), fields.end());
    return file;
}

#ifdef VEK_HAS_lzo2
/// A file of one block that liblzo2 decodes must decode to the same here.
void compareStream(const vekdc::Format& format, Bytes stream) {
    Data plain(64 << 10);
    lzo_uint size = plain.size();
    if (lzo1x_decompress_safe(stream.data(), stream.size(), plain.data(), &size, nullptr) !=
            LZO_E_OK ||
        size <= stream.size())
        return;
    plain.resize(size);
    Data file = header(1, 0);
    append(file, size, 4);
    append(file, stream.size(), 4);
    append(file, vekdc::codec::kAdler32.update(1, plain), 4);
    file.insert(file.end(), stream.begin(), stream.end());
    append(file, 0, 4);
    if (decoded(format, Bytes(file)) != plain) abort();
}
#endif

}  // namespace

// The first byte is the size of the input's pieces, the second the filter and the writer's options.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const vekdc::Format& format = *vekdc::formatByName("lzo");
    const Bytes bytes(data + 2, size - 2);
    try {
        decodedInAnyPieces(format, bytes, 1U + data[0]);
        Data blocks = header(0, data[1] % 17U);
        blocks.insert(blocks.end(), bytes.begin(), bytes.end());
        decodedInAnyPieces(format, blocks, 1U + data[0]);
#ifdef VEK_HAS_lzo2
        compareStream(format, bytes);
#endif
        vekdc::Settings settings;
        settings.level = (data[1] & 128) != 0 ? 1 : 6;
        if ((data[1] & 64) != 0) settings.own["crc32"] = "";
        if ((data[1] & 32) != 0) settings.own["block-checksums"] = "";
        roundTrip(format, bytes, settings);
    } catch (const TooMuch&) {
        return 0;
    }
    return 0;
}
