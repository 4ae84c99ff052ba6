// The whole bz2 reader on hostile bytes against libbz2: files that it decodes are decoded to the
// same bytes, others are refused, in pieces of any size and on several threads alike. The CRCs of
// the first stream are mended first, where it has one block, so that they do not keep mutations
// out.
//
// Input: pieces and threads (1 byte), file.
#include <bzlib.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "codec/checksums.h"
#include "fuzz/reader.h"

namespace {

using vekdc::Bytes;
using namespace vekfuzz;

/// A few bytes decode to a million times as many; more than this is not compared.
constexpr size_t kMostPlain = 110'000;

struct Result {
    Data plain;
    std::string complaint;  // Empty: none.
    bool operator==(const Result&) const = default;
};

Result ours(vekdc::Source& source, unsigned jobs) {
    LimitedSink sink(kMostPlain);
    vekdc::Settings settings;
    settings.jobs = jobs;
    std::string complaint;
    try {
        vekdc::formatByName("bz2")->decompress(source, sink, settings);
    } catch (const vekdc::FormatError& error) {
        complaint = std::to_string(error.offset) + ": " + error.what();
    }
    return {sink.data, complaint};
}

/// One stream, as far as it goes; `packed` moves on over it.
int theirStream(Bytes& packed, Data& plain) {
    bz_stream stream{};
    if (BZ2_bzDecompressInit(&stream, 0, 0) != BZ_OK) abort();
    stream.next_in = reinterpret_cast<char*>(const_cast<uint8_t*>(packed.data()));
    stream.avail_in = static_cast<unsigned>(packed.size());
    int status = BZ_OK;
    for (bool stuck = false; status == BZ_OK && !stuck;) {
        Data piece(16 << 10);
        stream.next_out = reinterpret_cast<char*>(piece.data());
        stream.avail_out = static_cast<unsigned>(piece.size());
        status = BZ2_bzDecompress(&stream);
        const size_t count = piece.size() - stream.avail_out;
        stuck = count == 0 && stream.avail_in == 0;
        plain.insert(plain.end(), piece.begin(), piece.begin() + static_cast<ptrdiff_t>(count));
        if (plain.size() > kMostPlain) {
            BZ2_bzDecompressEnd(&stream);
            throw TooMuch();
        }
    }
    packed = packed.subspan(packed.size() - stream.avail_in);
    BZ2_bzDecompressEnd(&stream);
    return status;
}

/// All streams, the way that bzip2 reads them: what follows and is none is ignored.
std::optional<Data> theirs(Bytes packed) {
    Data plain;
    for (bool first = true;; first = false) {
        const int status = theirStream(packed, plain);
        if (!first && status == BZ_DATA_ERROR_MAGIC) return plain;
        if (status != BZ_STREAM_END) return std::nullopt;
        if (packed.empty()) return plain;
    }
}

uint64_t bitsAt(const Data& file, size_t position, unsigned count) {
    uint64_t value = 0;
    for (size_t i = position; i < position + count; ++i)
        value = value << 1 | (file[i / 8] >> (7 - i % 8) & 1);
    return value;
}

void setCrc(Data& file, size_t position, uint32_t crc) {
    for (size_t i = 0; i < 32; ++i) {
        const auto bit = static_cast<uint8_t>(0x80 >> ((position + i) % 8));
        uint8_t& byte = file[(position + i) / 8];
        byte = static_cast<uint8_t>(byte & ~bit);
        if ((crc >> (31 - i) & 1) != 0) byte |= bit;
    }
}

/// Mends the CRCs of a first stream of one block. libbz2 gives a block's bytes before it looks at
/// its CRC, and stops right behind a stream's.
void mend(Data& file) {
    constexpr size_t blockCrc = 8 * 10;
    constexpr uint64_t endMagic = 0x177245385090;
    if (file.size() < 14) return;
    Data plain;
    Bytes rest(file);
    if (theirStream(rest, plain) != BZ_DATA_ERROR || plain.empty()) return;
    const uint32_t crc = vekdc::codec::kBzip2Crc.update(0, plain);
    setCrc(file, blockCrc, crc);
    plain.clear();
    rest = file;
    if (theirStream(rest, plain) != BZ_DATA_ERROR) return;
    const size_t end = 8 * (file.size() - rest.size());
    for (size_t pad = 0; pad < 8 && end - pad >= blockCrc + 32 + 80; ++pad)
        if (bitsAt(file, end - pad - 80, 48) == endMagic) setCrc(file, end - pad - 32, crc);
}

/// What libbz2 decodes and vekdc refuses.
bool isRefusal(const std::string& complaint) {
    return complaint.find("the block is randomised") != std::string::npos ||
           complaint.find("the code tables are broken") != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    Data file(data + 1, data + size);
    try {
        mend(file);
        Dripping reader(file, 1 + (data[0] >> 3) * 7U);
        vekdc::Source pieces(reader, 32 + data[0]);
        const Result result = ours(pieces, 1);
        if (data[0] % 8 == 0) {
            vekdc::Source whole(file);
            if (ours(whole, 2) != result) abort();
        }
        const auto reference = theirs(file);
        if (reference && result.plain != *reference && !isRefusal(result.complaint)) abort();
        if (reference.has_value() != result.complaint.empty() && !isRefusal(result.complaint))
            abort();
    } catch (const TooMuch&) {
        return 0;
    }
    return 0;
}
