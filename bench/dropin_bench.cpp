// The drop-in libraries against the distribution's of the same names, both loaded side by side and
// called through the format's own interface as programs do it: streams in pieces of 4 and 64 KiB,
// each with its init and end; many small texts, each compressed by a call of its own; whole
// buffers.
#include <bzlib.h>
#include <lz4.h>
#include <zlib.h>

#include <algorithm>
#include <memory>

#include "bench.h"
#include "support/library.h"

namespace {

using Bytes = std::vector<uint8_t>;
using vekbench::Input;

struct Zlib : vektest::Library {
    using Library::Library;
    VEK_MEMBER(compress, ::compress2)
    VEK_MEMBER(startDeflate, ::deflateInit_)
    VEK_MEMBER(deflate, ::deflate)
    VEK_MEMBER(deflateEnd, ::deflateEnd)
    VEK_MEMBER(startInflate, ::inflateInit_)
    VEK_MEMBER(inflate, ::inflate)
    VEK_MEMBER(inflateEnd, ::inflateEnd)
};

struct Bzip2 : vektest::Library {
    using Library::Library;
    VEK_MEMBER(compress, ::BZ2_bzBuffToBuffCompress)
    VEK_MEMBER(decompress, ::BZ2_bzBuffToBuffDecompress)
};

struct Lz4 : vektest::Library {
    using Library::Library;
    VEK_MEMBER(compress, ::LZ4_compress_default)
    VEK_MEMBER(decompress, ::LZ4_decompress_safe)
};

/// Both libraries for one format; `stock` is what the distribution's is called in the tables.
template <class Library>
struct Sides {
    Library ours;
    Library theirs;
    const char* stock;
};

const Sides<Zlib> zlib{Zlib(VEK_DROPINS "/libz.so.1"), Zlib(VEK_STOCK_zlib), "zlib"};
const Sides<Bzip2> bzip2{Bzip2(VEK_DROPINS "/libbz2.so.1.0"), Bzip2(VEK_STOCK_bzip2), "libbz2"};
const Sides<Lz4> lz4{Lz4(VEK_DROPINS "/liblz4.so.1"), Lz4(VEK_STOCK_lz4), "liblz4"};

char* chars(const Bytes& bytes) {
    return const_cast<char*>(reinterpret_cast<const char*>(bytes.data()));
}

/// Drives deflate() or inflate() over `in` with at most `piece` bytes of input and of room a call.
template <class Step>
void pump(z_stream& z, Step step, const Bytes& in, Bytes& out, size_t piece, int last) {
    for (int code = Z_OK; code == Z_OK;) {
        const size_t left = in.size() - z.total_in;
        z.next_in = const_cast<Bytef*>(in.data()) + z.total_in;
        z.avail_in = static_cast<uInt>(std::min<size_t>(piece, left));
        z.next_out = out.data() + z.total_out;
        z.avail_out = static_cast<uInt>(std::min<size_t>(piece, out.size() - z.total_out));
        code = step(&z, left <= piece ? last : Z_NO_FLUSH);
    }
}

size_t deflateIn(const Zlib& by, const Bytes& in, Bytes& out, int level, size_t piece) {
    z_stream z{};
    by.startDeflate(&z, level, ZLIB_VERSION, sizeof z);
    pump(z, by.deflate, in, out, piece, Z_FINISH);
    by.deflateEnd(&z);
    return z.total_out;
}

size_t inflateIn(const Zlib& by, const Bytes& in, Bytes& out, size_t piece) {
    z_stream z{};
    by.startInflate(&z, ZLIB_VERSION, sizeof z);
    pump(z, by.inflate, in, out, piece, Z_NO_FLUSH);
    by.inflateEnd(&z);
    return z.total_out;
}

/// Compresses `in` in texts of `size` bytes, each by itself, one behind the other; returns the sum
/// of their sizes.
size_t compressTexts(const Zlib& by, const Bytes& in, Bytes& out, int level, size_t size) {
    size_t sum = 0;
    for (size_t at = 0; at < in.size(); at += size) {
        uLongf packed = out.size() - sum;
        by.compress(out.data() + sum, &packed, in.data() + at,
                    std::min<size_t>(size, in.size() - at), level);
        sum += packed;
    }
    return sum;
}

/// What so many bytes of texts one behind the other are, read by theirs.
Bytes readTexts(const Zlib& by, const Bytes& packed, size_t count, size_t size) {
    Bytes plain;
    Bytes text(size);
    for (size_t at = 0; at < count;) {
        z_stream z{};
        by.startInflate(&z, ZLIB_VERSION, sizeof z);
        z.next_in = const_cast<Bytef*>(packed.data()) + at;
        z.avail_in = static_cast<uInt>(count - at);
        z.next_out = text.data();
        z.avail_out = static_cast<uInt>(size);
        const int code = by.inflate(&z, Z_FINISH);
        by.inflateEnd(&z);
        if (code != Z_STREAM_END) break;
        plain.insert(plain.end(), text.begin(), text.begin() + static_cast<ptrdiff_t>(z.total_out));
        at += z.total_in;
    }
    return plain;
}

/// Adds both sides' runs of one operation, after a run of ours whose result `plainOf` makes plain
/// again from its size, as the distribution's library reads it: it must be `wanted`.
template <class Library, class Call, class PlainOf>
void addBoth(const std::string& operation, const Input& file, const Sides<Library>& sides,
             const Bytes& wanted, Call call, PlainOf plainOf) {
    if (plainOf(call(sides.ours)) != wanted) {
        vekbench::fail(operation + " of " + file.name + " is wrong");
    }
    const size_t bytes = wanted.size();
    vekbench::add(operation, file.name, "vekdc", bytes,
                  [call, &sides] { return call(sides.ours); });
    vekbench::add(operation, file.name, sides.stock, bytes,
                  [call, &sides] { return call(sides.theirs); });
}

/// What ours decoded, taken out of its room, so that a later run finds nothing of it there.
Bytes takeOut(Bytes& room, size_t size) {
    Bytes result(room.begin(), room.begin() + static_cast<ptrdiff_t>(std::min(size, room.size())));
    std::fill(room.begin(), room.end(), uint8_t{0});
    return result;
}

std::string pieces(const std::string& operation, size_t size) {
    return "drop-in " + operation + ", " + std::to_string(size >> 10) + " KiB pieces";
}
std::string texts(size_t size, int level) {
    return "drop-in deflate -" + std::to_string(level) + ", texts of " + std::to_string(size) +
           " bytes";
}

constexpr size_t pieceSizes[] = {4096, 65536};
constexpr size_t textSizes[] = {200, 2048, 16384};
constexpr int levels[] = {1, 6, 9};
constexpr size_t textCount = 1000;

void addZlib(const Input& file) {
    const Bytes& bytes = file.bytes;
    auto out = std::make_shared<Bytes>(2 * bytes.size() + 65536);
    auto plain = std::make_shared<Bytes>(bytes.size());
    for (const int level : levels) {
        for (const size_t piece : pieceSizes) {
            addBoth(
                pieces("deflate -" + std::to_string(level), piece), file, zlib, bytes,
                [=, &bytes](const Zlib& by) { return deflateIn(by, bytes, *out, level, piece); },
                [=](size_t) {
                    return takeOut(*plain, inflateIn(zlib.theirs, *out, *plain, piece));
                });
        }
        for (const size_t size : textSizes) {
            auto some = std::make_shared<Bytes>(bytes);
            some->resize(std::min(bytes.size(), textCount * size));
            addBoth(
                texts(size, level), file, zlib, *some,
                [=](const Zlib& by) { return compressTexts(by, *some, *out, level, size); },
                [=](size_t count) { return readTexts(zlib.theirs, *out, count, size); });
        }
    }
    auto packed = std::make_shared<Bytes>(out->size());
    packed->resize(deflateIn(zlib.theirs, bytes, *packed, 6, packed->size()));
    for (const size_t piece : pieceSizes) {
        addBoth(
            pieces("inflate", piece), file, zlib, bytes,
            [=](const Zlib& by) { return inflateIn(by, *packed, *plain, piece); },
            [=](size_t size) { return takeOut(*plain, size); });
    }
}

/// A format whose library codes whole buffers: `compress(by, in, out)` and `decompress(by, in,
/// out)` return sizes.
template <class Library, class Compress, class Decompress>
void addWhole(const std::string& name, const Input& file, const Sides<Library>& sides,
              Compress compress, Decompress decompress) {
    const Bytes& bytes = file.bytes;
    auto out = std::make_shared<Bytes>(bytes.size() + bytes.size() / 50 + 700);
    auto plain = std::make_shared<Bytes>(bytes.size());
    const auto first = [=](size_t size) {
        return Bytes(out->begin(), out->begin() + static_cast<ptrdiff_t>(size));
    };
    addBoth(
        "drop-in " + name, file, sides, bytes,
        [=, &bytes](const Library& by) { return compress(by, bytes, *out); },
        [=, &sides](size_t size) {
            return takeOut(*plain, decompress(sides.theirs, first(size), *plain));
        });
    auto packed = std::make_shared<Bytes>(first(compress(sides.theirs, bytes, *out)));
    addBoth(
        "drop-in " + name.substr(0, name.find(' ')) + " -d", file, sides, bytes,
        [=](const Library& by) { return decompress(by, *packed, *plain); },
        [=](size_t size) { return takeOut(*plain, size); });
}

size_t compressBzip2(const Bzip2& by, const Bytes& in, Bytes& out) {
    auto size = static_cast<unsigned>(out.size());
    by.compress(chars(out), &size, chars(in), static_cast<unsigned>(in.size()), 9, 0, 30);
    return size;
}
size_t decompressBzip2(const Bzip2& by, const Bytes& in, Bytes& out) {
    auto size = static_cast<unsigned>(out.size());
    by.decompress(chars(out), &size, chars(in), static_cast<unsigned>(in.size()), 0, 0);
    return size;
}

size_t compressLz4(const Lz4& by, const Bytes& in, Bytes& out) {
    return static_cast<size_t>(by.compress(chars(in), chars(out), static_cast<int>(in.size()),
                                           static_cast<int>(out.size())));
}
size_t decompressLz4(const Lz4& by, const Bytes& in, Bytes& out) {
    const int size = by.decompress(chars(in), chars(out), static_cast<int>(in.size()),
                                   static_cast<int>(out.size()));
    return static_cast<size_t>(std::max(size, 0));
}

}  // namespace

void registerBenchmarks() {
    for (const auto& file : vekbench::files()) {
        addZlib(file);
        addWhole("bzip2 -9", file, bzip2, compressBzip2, decompressBzip2);
        addWhole("lz4", file, lz4, compressLz4, decompressLz4);
    }
    for (const size_t piece : pieceSizes) {
        for (const int level : levels) {
            vekbench::goal(pieces("deflate -" + std::to_string(level), piece), "zlib", 1.8, 1);
        }
        vekbench::goal(pieces("inflate", piece), "zlib", 2);
    }
    for (const int level : levels) {
        for (const size_t size : textSizes) {
            vekbench::goal(texts(size, level), "zlib", {size == 200 ? 2.0 : 0.0, 1.01, 0, 1.01});
        }
    }
    vekbench::goal("drop-in bzip2 -9", "libbz2", 2);
    vekbench::goal("drop-in bzip2 -d", "libbz2", 2);
    vekbench::goal("drop-in lz4", "liblz4", 1);
    vekbench::goal("drop-in lz4 -d", "liblz4", 1);
}
