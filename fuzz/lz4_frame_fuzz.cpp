// The lz4 frame reader on hostile bytes: it ends in a FormatError or in good output, the same for
// pieces of any size and for describe(); and what liblz4's frame reader accepts as well, it decodes
// to the same bytes.
//
// Input: a byte of choices, then a file; or what a file is built of, so that header checksums do
// not keep mutations out: flags, then blocks, each behind its size (2 bytes, the top bit: stored).
#define XXH_INLINE_ALL
#include <lz4frame_static.h>
#include <unistd.h>
#include <xxhash.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/reader.h"

namespace {

using vekdc::Bytes;
using namespace vekfuzz;

/// A block of a few bytes decodes to a hundred times as many; more than this is not compared.
constexpr size_t kMostPlain = 1 << 20;
constexpr size_t kLargestBlock = 4 << 20;

void require(bool holds) {
    if (!holds) abort();
}

/// The dictionary that the seeds were made with, and a file of it for --dict.
const Data& dictionary() {
    static const Data bytes = [] {
        Data d(4000);
        for (size_t i = 0; i < d.size(); ++i) d[i] = static_cast<uint8_t>(i * 7 + i / 256);
        return d;
    }();
    return bytes;
}
class DictionaryFile {
 public:
    DictionaryFile() {
        std::ofstream file(path_, std::ios::binary);
        file.write(reinterpret_cast<const char*>(dictionary().data()),
                   static_cast<std::streamsize>(dictionary().size()));
        require(file.good());
    }
    ~DictionaryFile() { std::remove(path_.c_str()); }
    DictionaryFile(const DictionaryFile&) = delete;
    DictionaryFile& operator=(const DictionaryFile&) = delete;
    const std::string& path() const { return path_; }

 private:
    std::string path_ = "/tmp/fuzz_lz4_frame_dictionary_" + std::to_string(getpid());
};

struct Result {
    std::optional<Data> plain;  ///< Nothing when the file is refused.
    std::string error;
    bool junk = false;  ///< Something that is no frame follows.
};

Result ours(vekdc::Source& source, vekdc::Settings settings, bool describe) {
    const vekdc::Format& format = *vekdc::formatByName("lz4");
    Result result;
    settings.warn = [&](const std::string&) { result.junk = true; };
    LimitedSink sink(kMostPlain);
    try {
        if (describe)
            format.describe(source, settings, [](const std::string&) {});
        else
            format.decompress(source, sink, settings);
        result.plain = std::move(sink.data);
    } catch (const vekdc::FormatError& error) {
        result.error = std::to_string(error.offset) + ": " + error.what();
    }
    return result;
}

uint32_t littleEndian(Bytes bytes, size_t at) {
    uint32_t value = 0;
    for (size_t i = 4; i-- != 0;) value = value << 8 | (at + i < bytes.size() ? bytes[at + i] : 0U);
    return value;
}

/// True when a coded block of an accepted file has two zero bytes in a row. They may be an offset
/// of 0, which repeats what the buffer held, and that differs from decoder to decoder.
bool mayHaveZeroOffset(Bytes file) {
    for (size_t at = 0; at < file.size();) {
        const uint32_t magic = littleEndian(file, at);
        if (magic != 0x184D2204) {
            at += 8 + littleEndian(file, at + 4);
            continue;
        }
        const unsigned flags = file[at + 4];
        at += 7U + ((flags & 8) != 0 ? 8 : 0) + ((flags & 1) != 0 ? 4 : 0);
        while (const uint32_t field = littleEndian(file, at)) {
            const size_t size = field & 0x7FFFFFFF;
            const Bytes block = file.subspan(at + 4, size);
            const uint8_t zeros[2] = {0, 0};
            if (size == field &&
                std::search(block.begin(), block.end(), zeros, zeros + 2) != block.end())
                return true;
            at += 4 + size + ((flags & 16) != 0 ? 4 : 0);
        }
        at += (flags & 4) != 0 ? 8 : 4;
    }
    return false;
}

/// What liblz4 makes of the frames of a file; nothing when it refuses one, as all legacy ones.
std::optional<Data> theirs(Bytes packed, bool withDictionary) {
    static Data out(kMostPlain + 2 * kLargestBlock);
    LZ4F_dctx* context = nullptr;
    require(LZ4F_isError(LZ4F_createDecompressionContext(&context, LZ4F_VERSION)) == 0);
    size_t done = 0;
    size_t status = 1;
    while (!packed.empty() && done <= kMostPlain) {
        size_t room = out.size() - done;
        size_t left = packed.size();
        status = LZ4F_decompress_usingDict(context, out.data() + done, &room, packed.data(), &left,
                                           dictionary().data(),
                                           withDictionary ? dictionary().size() : 0, nullptr);
        if (LZ4F_isError(status) != 0 || (left == 0 && room == 0)) break;
        packed = packed.subspan(left);
        done += room;
    }
    LZ4F_freeDecompressionContext(context);
    if (status != 0 || !packed.empty()) return std::nullopt;
    return Data(out.begin(), out.begin() + static_cast<ptrdiff_t>(done));
}

void append(Data& to, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) to.push_back(static_cast<uint8_t>(value >> shift));
}

/// A frame, or a legacy one, of the blocks in `bytes`.
Data built(Bytes bytes, bool legacy) {
    Data file;
    append(file, legacy ? 0x184C2102 : 0x184D2204);
    const uint8_t flags = bytes.empty() ? 0 : bytes[0];
    const bool checksums = !legacy && (flags & 16) != 0;
    if (!legacy) {
        // Version, any of independent, block checksums and dictionary ID; blocks of 64 KiB.
        Data descriptor = {static_cast<uint8_t>(64 | (flags & 49)), 0x40};
        if ((flags & 1) != 0) append(descriptor, 77);
        file.insert(file.end(), descriptor.begin(), descriptor.end());
        file.push_back(static_cast<uint8_t>(XXH32(descriptor.data(), descriptor.size(), 0) >> 8));
    }
    for (bytes = bytes.subspan(bytes.empty() ? 0 : 1); bytes.size() > 2;) {
        const size_t size = std::min<size_t>(bytes[0] + 256U * (bytes[1] & 127), bytes.size() - 2);
        const bool stored = !legacy && (bytes[1] & 128) != 0;
        const Bytes block = bytes.subspan(2, size);
        bytes = bytes.subspan(2 + size);
        if (size == 0) continue;
        append(file, static_cast<uint32_t>(size) | (stored ? 0x80000000U : 0));
        file.insert(file.end(), block.begin(), block.end());
        if (checksums) append(file, XXH32(block.data(), block.size(), 0));
    }
    if (!legacy) append(file, 0);
    return file;
}

}  // namespace

// The first byte chooses: 1, 2: build a frame or a legacy frame; 4: with the dictionary; the rest:
// the size of the input's pieces.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const bool withDictionary = (data[0] & 4) != 0;
    const Bytes rest(data + 1, size - 1);
    const unsigned kind = data[0] & 3;
    const Data file =
        kind == 1 || kind == 2 ? built(rest, kind == 2) : Data(rest.begin(), rest.end());
    vekdc::Settings settings;
    static const DictionaryFile dictionaryFile;
    if (withDictionary) settings.own["dict"] = dictionaryFile.path();
    try {
        vekdc::Source whole(file);
        const Result result = ours(whole, settings, false);
        const size_t piece = 1 + (data[0] >> 3);
        Dripping reader(file, piece);
        vekdc::Source pieces(reader, 32 + piece);
        const Result dripped = ours(pieces, settings, false);
        require(dripped.plain == result.plain && dripped.error == result.error);
        vekdc::Source again(file);
        require(ours(again, settings, true).error == result.error);

        if (!result.plain || result.junk) return 0;
        const std::optional<Data> peer = theirs(file, withDictionary);
        if (peer && peer != result.plain) require(mayHaveZeroOffset(file));
    } catch (const TooMuch&) {
        return 0;
    }
    return 0;
}
