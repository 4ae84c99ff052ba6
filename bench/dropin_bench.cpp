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
    VEK_MEMBER(bound, ::compressBound)
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
    VEK_MEMBER(bound, ::LZ4_compressBound)
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

/// Compresses `in` in texts of `size` bytes, each by itself; returns the sum of their sizes.
size_t compressTexts(const Zlib& by, const Bytes& in, Bytes& out, int level, size_t size) {
    size_t sum = 0;
    for (size_t at = 0; at < in.size(); at += size) {
        uLongf packed = out.size();
        by.compress(out.data(), &packed, in.data() + at, std::min<size_t>(size, in.size() - at),
                    level);
        sum += packed;
    }
    return sum;
}

/// Adds both sides' runs of one operation, after a run of ours that must give `wanted` bytes, or
/// any number of them where that is 0.
template <class Library, class Call>
void addBoth(const std::string& operation, const Input& file, const Sides<Library>& sides,
             size_t bytes, size_t wanted, Call call) {
    const size_t size = call(sides.ours);
    if (size == 0 || (wanted != 0 && size != wanted)) {
        vekbench::fail(operation + " of " + file.name + " is wrong");
    }
    vekbench::add(operation, file.name, "vekdc", bytes,
                  [call, &sides] { return call(sides.ours); });
    vekbench::add(operation, file.name, sides.stock, bytes,
                  [call, &sides] { return call(sides.theirs); });
}

/// What ours wrote must be read by theirs.
void mustBe(const Bytes& read, const Input& file, const std::string& operation) {
    if (!std::equal(file.bytes.begin(), file.bytes.end(), read.begin(), read.end())) {
        vekbench::fail(operation + " of " + file.name + " is not read by the other library");
    }
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
    const size_t size = file.bytes.size();
    auto out = std::make_shared<Bytes>(zlib.theirs.bound(size) + 65536);
    for (const int level : levels) {
        for (const size_t piece : pieceSizes) {
            addBoth(pieces("deflate -" + std::to_string(level), piece), file, zlib, size, 0,
                    [=, &file](const Zlib& by) {
                        return deflateIn(by, file.bytes, *out, level, piece);
                    });
            Bytes plain(size + 1);
            plain.resize(inflateIn(zlib.theirs, *out, plain, piece));
            mustBe(plain, file, "deflate");
        }
        for (const size_t textSize : textSizes) {
            auto some = std::make_shared<Bytes>(
                file.bytes.begin(),
                file.bytes.begin() + static_cast<ptrdiff_t>(std::min(size, textCount * textSize)));
            addBoth(texts(textSize, level), file, zlib, some->size(), 0, [=](const Zlib& by) {
                return compressTexts(by, *some, *out, level, textSize);
            });
        }
    }
    auto packed = std::make_shared<Bytes>(out->size());
    packed->resize(deflateIn(zlib.theirs, file.bytes, *packed, 6, packed->size()));
    auto plain = std::make_shared<Bytes>(size);
    for (const size_t piece : pieceSizes) {
        addBoth(pieces("inflate", piece), file, zlib, size, size,
                [=](const Zlib& by) { return inflateIn(by, *packed, *plain, piece); });
    }
}

void addBzip2(const Input& file) {
    auto packed = std::make_shared<Bytes>(file.bytes.size() + file.bytes.size() / 50 + 700);
    auto plain = std::make_shared<Bytes>(file.bytes.size());
    const auto compress = [=, &file](const Bzip2& by) {
        auto size = static_cast<unsigned>(packed->size());
        by.compress(chars(*packed), &size, chars(file.bytes),
                    static_cast<unsigned>(file.bytes.size()), 9, 0, 30);
        return size_t{size};
    };
    const auto decompress = [](const Bzip2& by, const Bytes& from, Bytes& to) {
        auto size = static_cast<unsigned>(to.size());
        by.decompress(chars(to), &size, chars(from), static_cast<unsigned>(from.size()), 0, 0);
        return size_t{size};
    };
    addBoth("drop-in bzip2 -9", file, bzip2, file.bytes.size(), 0, compress);
    decompress(bzip2.theirs, *packed, *plain);
    mustBe(*plain, file, "bzip2");
    const size_t count = compress(bzip2.theirs);
    auto theirs =
        std::make_shared<Bytes>(packed->begin(), packed->begin() + static_cast<ptrdiff_t>(count));
    addBoth("drop-in bzip2 -d", file, bzip2, file.bytes.size(), file.bytes.size(),
            [=](const Bzip2& by) { return decompress(by, *theirs, *plain); });
}

void addLz4(const Input& file) {
    const int size = static_cast<int>(file.bytes.size());
    auto packed = std::make_shared<Bytes>(lz4.theirs.bound(size));
    auto plain = std::make_shared<Bytes>(file.bytes.size());
    const auto compress = [=, &file](const Lz4& by) {
        return static_cast<size_t>(
            by.compress(chars(file.bytes), chars(*packed), size, static_cast<int>(packed->size())));
    };
    const auto decompress = [](const Lz4& by, const Bytes& from, size_t count, Bytes& to) {
        return static_cast<size_t>(by.decompress(chars(from), chars(to), static_cast<int>(count),
                                                 static_cast<int>(to.size())));
    };
    addBoth("drop-in lz4", file, lz4, file.bytes.size(), 0, compress);
    decompress(lz4.theirs, *packed, compress(lz4.ours), *plain);
    mustBe(*plain, file, "lz4");
    const size_t count = compress(lz4.theirs);
    auto theirs =
        std::make_shared<Bytes>(packed->begin(), packed->begin() + static_cast<ptrdiff_t>(count));
    addBoth("drop-in lz4 -d", file, lz4, file.bytes.size(), file.bytes.size(),
            [=](const Lz4& by) { return decompress(by, *theirs, theirs->size(), *plain); });
}

}  // namespace

void registerBenchmarks() {
    for (const auto& file : vekbench::files()) {
        addZlib(file);
        addBzip2(file);
        addLz4(file);
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
