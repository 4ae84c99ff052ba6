// The drop-in libz against the distribution's: both are loaded side by side and made to do the
// same.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>

#include "support/data.h"

#undef gzgetc

namespace {

using namespace vektest;

/// The interface of one of the two libraries.
struct Zlib {
// clang-format off
#define EACH_FUNCTION(X) \
    X(adler32) X(adler32_z) X(adler32_combine) X(crc32) X(crc32_z) X(crc32_combine) \
    X(crc32_combine_gen) X(crc32_combine_op) X(get_crc_table) X(zError) X(zlibVersion) \
    X(zlibCompileFlags) X(compress2) X(compressBound) X(uncompress2) X(deflateInit2_) X(deflate) \
    X(deflateEnd) X(deflateReset) X(deflateResetKeep) X(deflateCopy) X(deflateParams) \
    X(deflateTune) X(deflatePrime) X(deflatePending) X(deflateBound) X(deflateSetDictionary) \
    X(deflateGetDictionary) X(deflateSetHeader) X(inflateInit2_) X(inflate) X(inflateEnd) \
    X(inflateReset) X(inflateResetKeep) X(inflateReset2) X(inflateCopy) X(inflatePrime) \
    X(inflateSync) X(inflateSyncPoint) X(inflateMark) X(inflateUndermine) X(inflateValidate) \
    X(inflateSetDictionary) X(inflateGetDictionary) X(inflateGetHeader) X(inflateBackInit_) \
    X(inflateBack) X(inflateBackEnd) X(gzopen) X(gzdopen) X(gzbuffer) X(gzsetparams) X(gzread) \
    X(gzfread) X(gzwrite) X(gzfwrite) X(gzprintf) X(gzputs) X(gzgets) X(gzputc) X(gzgetc) \
    X(gzungetc) X(gzflush) X(gzseek) X(gzrewind) X(gztell) X(gzoffset) X(gzeof) X(gzdirect) \
    X(gzclose) X(gzerror) X(gzclearerr)
// clang-format on
// NOLINTNEXTLINE(bugprone-macro-parentheses): a name that is declared takes none.
#define DECLARE(name) decltype(&::name) name;
    EACH_FUNCTION(DECLARE)

    explicit Zlib(const char* path) {
        void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) throw std::runtime_error(dlerror());
#define LOAD(name) name = reinterpret_cast<decltype(name)>(dlsym(library, #name));
        EACH_FUNCTION(LOAD)
    }
};

const Zlib ours(VEK_BUILD_DIR "/lib/dropin/libz.so.1");
const Zlib stock(VEK_STOCK_LIBRARY);

Bytes someData(Random& random, size_t most) {
    const Shape& shape = shapes()[pick(random, 0, shapes().size() - 1)];
    return shape.make(pick(random, 0, most), static_cast<uint32_t>(random()));
}

/// The same stream in either library, and what its calls gave.
struct Side {
    const Zlib* z;
    z_stream stream{};
    Bytes out;

    /// All that a call leaves for the caller to see.
    std::string seen(int status, bool type = true) const {
        return std::to_string(status) + " in " + std::to_string(stream.avail_in) + " out " +
               std::to_string(stream.avail_out) + " totals " + std::to_string(stream.total_in) +
               " " + std::to_string(stream.total_out) + " adler " + std::to_string(stream.adler) +
               (type ? " type " + std::to_string(stream.data_type) : "") + " " +
               (stream.msg != nullptr ? stream.msg : "-");
    }
};

/// Compressed by the distribution's library, with flushes.
Bytes packed(Random& random, const Bytes& plain, int windowBits, const Bytes& dictionary,
             gz_header* header) {
    z_stream s{};
    const int strategy = static_cast<int>(pick(random, 0, 4));
    stock.deflateInit2_(&s, static_cast<int>(pick(random, 0, 9)), Z_DEFLATED, windowBits, 8,
                        strategy, ZLIB_VERSION, sizeof s);
    if (!dictionary.empty() && windowBits < 16)
        stock.deflateSetDictionary(&s, dictionary.data(), static_cast<uInt>(dictionary.size()));
    if (windowBits > 15 && header != nullptr) stock.deflateSetHeader(&s, header);
    Bytes out(plain.size() * 2 + 5000);
    s.next_in = const_cast<Bytef*>(plain.data());
    s.next_out = out.data();
    s.avail_out = static_cast<uInt>(out.size());
    // Not by total_in, which counts the dictionary.
    const auto left = [&] { return static_cast<size_t>(plain.data() + plain.size() - s.next_in); };
    while (left() != 0 && s.avail_out > 3000) {
        s.avail_in = static_cast<uInt>(pick(random, 1, left()));
        stock.deflate(&s, pick(random, 0, 5) == 4 ? Z_BLOCK : Z_FULL_FLUSH);
    }
    s.avail_in = static_cast<uInt>(left());
    stock.deflate(&s, Z_FINISH);
    out.resize(s.total_out);
    stock.deflateEnd(&s);
    return out;
}

/// Breaks some bytes, or none.
void damage(Random& random, Bytes& stream) {
    if (stream.empty() || pick(random, 0, 2) == 0) return;
    for (size_t n = pick(random, 1, 4); n != 0; --n) {
        const size_t most =
            pick(random, 0, 1) == 0 ? std::min<size_t>(40, stream.size() - 1) : stream.size() - 1;
        stream[pick(random, 0, most)] ^= static_cast<uint8_t>(1U << pick(random, 0, 7));
    }
}

TEST(DropinZlib, InflatesAnythingAsTheStockLibraryDoes) {
    for (uint32_t seed = 1; seed <= effort(300); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Random random(seed);
        const Bytes plain = someData(random, pick(random, 0, 9) == 0 ? 300000 : 6000);
        const Bytes dictionary = pick(random, 0, 3) == 0 ? someData(random, 3000) : Bytes();
        const int bits = static_cast<int>(pick(random, 9, 15));
        const int format = static_cast<int>(pick(random, 0, 2));
        Bytef name[] = "name";
        gz_header header{};
        header.name = name;
        header.extra = name;
        header.extra_len = 4;
        header.hcrc = static_cast<int>(pick(random, 0, 1));
        Bytes stream = packed(random, plain,
                              format == 0   ? -bits
                              : format == 1 ? bits
                                            : bits + 16,
                              dictionary, &header);
        if (pick(random, 0, 15) == 0) {
            for (uint8_t& byte : stream) byte = static_cast<uint8_t>(random());
        }
        damage(random, stream);
        const size_t pieces = pick(random, 0, 3);
        const size_t rooms = pick(random, 0, 3);
        constexpr size_t sizes[] = {1, 20, 1000, 40000};
        const int readBits = pick(random, 0, 7) == 0   ? static_cast<int>(pick(random, 0, 47))
                             : format == 0             ? -std::max<int>(bits, pick(random, 8, 15))
                             : pick(random, 0, 1) == 0 ? 47
                                                       : 15 + 16 * (format - 1);
        const bool steady = pick(random, 0, 1) == 0;
        Side sides[] = {{&ours, {}, {}}, {&stock, {}, {}}};
        std::string log;
        Random fork(seed);
        const auto both = [&](const char* what, const std::function<std::string(Side&)>& act) {
            std::string seen[2];
            for (int i = 0; i < 2; ++i) seen[i] = act(sides[i]);
            log = log.substr(log.size() > 600 ? log.size() - 600 : 0) + what + " " + seen[1] + "\n";
            ASSERT_EQ(seen[0], seen[1]) << log << "window " << readBits;
        };
        int status = Z_OK;
        both("init", [&](Side& side) {
            status = side.z->inflateInit2_(&side.stream, readBits, ZLIB_VERSION, sizeof(z_stream));
            return side.seen(status);
        });
        if (HasFatalFailure()) return;
        if (status != Z_OK) continue;
        gz_header heads[2]{};
        Bytef names[2][8] = {};
        size_t at = 0;
        int idle = 0;
        for (int calls = 0; calls < 3000 && idle < 3; ++calls) {
            const size_t in = std::min(stream.size() - at, pick(fork, 0, sizes[pieces]));
            const size_t room = pick(fork, 0, sizes[rooms]);
            const int flush = steady ? Z_NO_FLUSH : static_cast<int>(pick(fork, 0, 6));
            const size_t odd = steady ? 99 : pick(fork, 0, 60);
            const int prime = static_cast<int>(pick(fork, 0, 17)) - 1;
            size_t taken = 0;
            both("call", [&](Side& side) {
                z_stream& s = side.stream;
                const size_t self = &side == sides ? 0 : 1;
                s.next_in = stream.data() + at;
                s.avail_in = static_cast<uInt>(in);
                const size_t had = side.out.size();
                side.out.resize(had + room + 1);
                s.next_out = side.out.data() + had;
                s.avail_out = static_cast<uInt>(room);
                std::string more;
                switch (odd) {
                    case 0:
                        status = side.z->inflateSync(&s);
                        break;
                    case 1:
                        status = side.z->inflateReset(&s);
                        break;
                    case 3:
                        status = side.z->inflateReset2(&s, readBits);
                        break;
                    case 4:  // In the midst of a block it is for nobody.
                        if (s.total_in != 0) break;
                        status = side.z->inflatePrime(&s, prime, 0x5A5A);
                        break;
                    case 5: {
                        z_stream copy{};
                        status = side.z->inflateCopy(&copy, &s);
                        side.z->inflateEnd(&s);
                        s = copy;
                        // The state knows its stream by its address.
                        z_stream moved{};
                        if (side.z->inflateCopy(&moved, &copy) == Z_STREAM_ERROR) more = "lost";
                        side.z->inflateEnd(&copy);
                        side.z->inflateInit2_(&s, readBits, ZLIB_VERSION, sizeof s);
                        side.z->inflateEnd(&moved);
                        break;
                    }
                    case 6:
                        status = side.z->inflateValidate(&s, prime & 1);
                        break;
                    case 7: {
                        heads[self].name = names[self];
                        heads[self].name_max = 3;
                        status = side.z->inflateGetHeader(&s, &heads[self]);
                        break;
                    }
                    case 8: {
                        Bytef found[33000];
                        uInt size = 0;
                        status = side.z->inflateGetDictionary(&s, found, &size);
                        break;
                    }
                    case 9:
                        status = side.z->inflateUndermine(&s, 1);
                        break;
                    case 10:
                        status = side.z->inflateSetDictionary(&s, dictionary.data(),
                                                              static_cast<uInt>(dictionary.size()));
                        break;
                    default:
                        status = side.z->inflate(&s, flush);
                        if (status == Z_NEED_DICT)
                            more = side.seen(side.z->inflateSetDictionary(
                                &s, dictionary.data(), static_cast<uInt>(dictionary.size())));
                        if (status == Z_NEED_DICT) status = Z_OK;
                }
                taken = in - s.avail_in;
                side.out.resize(had + room - s.avail_out);
                const std::string head = std::to_string(heads[self].done) +
                                         std::to_string(heads[self].os) +
                                         std::string(names[self], names[self] + 8);
                if (odd == 4) more += " prime " + std::to_string(prime);
                std::ostringstream text;
                text << odd << " " << flush << ": " << side.seen(status) << more << head << " sync "
                     << side.z->inflateSyncPoint(&s) << " "
                     << side.z->crc32(0, side.out.data() + had,
                                      static_cast<uInt>(side.out.size() - had));
                return text.str();
            });
            if (HasFatalFailure()) return;
            at += taken;
            idle = taken == 0 && at == stream.size() ? idle + 1 : 0;
            if (status == Z_DATA_ERROR && steady) ++idle;
        }
        for (Side& side : sides) side.z->inflateEnd(&side.stream);
    }
}

/// What the distribution's library makes of a whole stream; empty where it refuses it.
Bytes unpacked(const Bytes& stream, int windowBits, const Bytes& dictionary, size_t size) {
    z_stream s{};
    stock.inflateInit2_(&s, windowBits, ZLIB_VERSION, sizeof s);
    Bytes out(size + 1);
    s.next_in = const_cast<Bytef*>(stream.data());
    s.avail_in = static_cast<uInt>(stream.size());
    s.next_out = out.data();
    s.avail_out = static_cast<uInt>(out.size());
    const auto give = [&] {
        stock.inflateSetDictionary(&s, dictionary.data(), static_cast<uInt>(dictionary.size()));
    };
    if (windowBits < 0 && !dictionary.empty()) give();
    int status = stock.inflate(&s, Z_SYNC_FLUSH);
    if (status == Z_NEED_DICT) {
        give();
        status = stock.inflate(&s, Z_SYNC_FLUSH);
    }
    EXPECT_EQ(status, Z_STREAM_END) << (s.msg != nullptr ? s.msg : "") << " at " << s.total_in;
    EXPECT_EQ(s.avail_in, 0U);
    out.resize(s.total_out);
    stock.inflateEnd(&s);
    return out;
}

TEST(DropinZlib, DeflatesWhatTheStockLibraryReadsWithTheSameCodes) {
    for (uint32_t seed = 1; seed <= effort(600); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Random random(seed);
        const Bytes plain = someData(random, pick(random, 0, 9) == 0 ? 600000 : 6000);
        const int format = static_cast<int>(pick(random, 0, 2));
        const int bits = static_cast<int>(pick(random, 9, 15));
        const int windowBits = format == 0 ? -bits : format == 1 ? bits : bits + 16;
        const Bytes dictionary =
            format < 2 && pick(random, 0, 2) == 0 ? someData(random, 3000) : Bytes();
        // With ample room for each call the two give the same codes and counts of input.
        const bool ample = pick(random, 0, 1) == 0;
        const int level = static_cast<int>(pick(random, ample ? 1 : 0, 9));
        Side sides[] = {{&ours, {}, {}}, {&stock, {}, {}}};
        Bytef name[] = "name";
        gz_header header{};
        header.name = header.comment = name;
        header.hcrc = 1;
        const int strategy = static_cast<int>(pick(random, 0, 4));
        for (Side& side : sides) {
            z_stream& s = side.stream;
            ASSERT_EQ(side.z->deflateInit2_(&s, level, Z_DEFLATED, windowBits, 8, strategy,
                                            ZLIB_VERSION, sizeof s),
                      Z_OK);
            if (!dictionary.empty()) {
                ASSERT_EQ(side.z->deflateSetDictionary(&s, dictionary.data(),
                                                       static_cast<uInt>(dictionary.size())),
                          Z_OK);
            }
            ASSERT_EQ(side.z->deflateSetHeader(&s, &header), format == 2 ? Z_OK : Z_STREAM_ERROR);
        }
        Bytes room(ample ? 2 * plain.size() + 10000 : 300);
        size_t at = 0;
        const size_t pieceMost = pick(random, 0, 1) == 0 ? plain.size() : 900;
        int status = Z_OK;
        for (int calls = 0; status != Z_STREAM_END && calls < 100000; ++calls) {
            const size_t odd = pick(random, 0, 40);
            const size_t in = std::min(plain.size() - at, pick(random, 0, pieceMost));
            const int flush = at + in == plain.size()   ? Z_FINISH
                              : pick(random, 0, 3) != 0 ? Z_NO_FLUSH
                                                        : static_cast<int>(pick(random, 0, 5)) % 5;
            const int blockFlush = flush == Z_FINISH && at + in != plain.size() ? Z_BLOCK : flush;
            const size_t out = ample ? room.size() : pick(random, 1, room.size());
            const int newLevel = static_cast<int>(pick(random, ample ? 1 : 0, 9));
            const int newStrategy = static_cast<int>(pick(random, 0, 4));
            std::string seen[2];
            size_t taken = 0;
            for (int i = ample ? 1 : 0; i >= 0; --i) {
                Side& side = sides[i];
                z_stream& s = side.stream;
                s.next_in = const_cast<Bytef*>(plain.data()) + at;
                s.avail_in = static_cast<uInt>(in);
                s.next_out = room.data();
                s.avail_out = static_cast<uInt>(out);
                if (odd == 0) {
                    status = side.z->deflateParams(&s, newLevel, newStrategy);
                } else if (odd == 1) {
                    z_stream copy{};
                    ASSERT_EQ(side.z->deflateCopy(&copy, &s), Z_OK);
                    const int ended = side.z->deflateEnd(&s);
                    EXPECT_TRUE(ended == Z_OK || ended == Z_DATA_ERROR);
                    ASSERT_EQ(side.z->deflateCopy(&s, &copy), Z_OK);
                    side.z->deflateEnd(&copy);
                    status = Z_OK;
                } else if (odd == 2) {
                    status = side.z->deflate(&s, 7) + side.z->deflateTune(&s, 1, 2, 3, 4);
                } else {
                    status = side.z->deflate(&s, blockFlush);
                }
                side.out.insert(side.out.end(), room.begin(), room.begin() + (out - s.avail_out));
                taken = in - s.avail_in;
                seen[i] = std::to_string(odd) + " " + std::to_string(blockFlush) + ": " +
                          std::to_string(status) + " " + std::to_string(s.avail_in) + " " +
                          std::to_string(s.total_in) + " " + std::to_string(s.adler) + " " +
                          (s.msg != nullptr ? s.msg : "");
            }
            if (ample) {
                ASSERT_EQ(seen[0], seen[1]);
            }
            at += taken;
        }
        ASSERT_EQ(status, Z_STREAM_END);
        EXPECT_EQ(unpacked(sides[0].out, windowBits, dictionary, plain.size()), plain);
        if (HasFailure()) return;
        for (Side& side : sides) side.z->deflateEnd(&side.stream);
    }
}

TEST(DropinZlib, SumsAndOneCallsAgree) {
    Random random(7);
    EXPECT_EQ(ours.zlibCompileFlags() & 0xFF, stock.zlibCompileFlags() & 0xFF);
    EXPECT_STREQ(ours.zlibVersion(), stock.zlibVersion());
    EXPECT_TRUE(
        std::equal(ours.get_crc_table(), ours.get_crc_table() + 256, stock.get_crc_table()));
    for (int code = Z_VERSION_ERROR; code <= Z_NEED_DICT; ++code)
        EXPECT_STREQ(ours.zError(code), stock.zError(code));
    for (size_t i = 0; i < effort(400); ++i) {
        const Bytes plain = someData(random, 5000);
        const auto size = static_cast<uInt>(plain.size());
        const uLong value = random();
        const uLong other = random();
        const auto length = static_cast<z_off_t>(random() >> 1);
        EXPECT_EQ(ours.crc32(value, plain.data(), size), stock.crc32(value, plain.data(), size));
        EXPECT_EQ(ours.adler32(value, plain.data(), size),
                  stock.adler32(value, plain.data(), size));
        EXPECT_EQ(ours.crc32_combine(value, other, length),
                  stock.crc32_combine(value, other, length));
        EXPECT_EQ(ours.crc32_combine_op(value, other, ours.crc32_combine_gen(length)),
                  stock.crc32_combine_op(value, other, stock.crc32_combine_gen(length)));
        const uLong sum = ours.adler32(1, plain.data(), size);
        EXPECT_EQ(ours.adler32_combine(sum, sum, length), stock.adler32_combine(sum, sum, length));

        Bytes small(ours.compressBound(size));
        uLong packedSize = small.size();
        const int level = static_cast<int>(pick(random, 0, 10)) - 1;
        ASSERT_EQ(ours.compress2(small.data(), &packedSize, plain.data(), size, level), Z_OK);
        small.resize(packedSize);
        damage(random, small);
        // Room below, at and above what is needed.
        const size_t room = pick(random, 0, 1) == 0 ? size : pick(random, 0, size + 5);
        std::string seen[2];
        for (const Zlib* z : {&ours, &stock}) {
            Bytes out(room + 1);
            uLong outSize = room;
            uLong inSize = small.size();
            const int status = z->uncompress2(out.data(), &outSize, small.data(), &inSize);
            seen[z == &ours ? 0 : 1] = std::to_string(status) + " " + std::to_string(outSize) +
                                       " " + std::to_string(inSize) + " " +
                                       std::to_string(z->crc32(0, out.data(), outSize));
        }
        EXPECT_EQ(seen[0], seen[1]);
    }
}

/// The streams' ends for inflateBack().
struct Ends {
    const Bytes* from;
    size_t piece;
    size_t at;
    size_t stopAt;
    Bytes to;
};
unsigned pull(void* opaque, z_const unsigned char** bytes) {
    auto* const ends = static_cast<Ends*>(opaque);
    *bytes = const_cast<Bytef*>(ends->from->data()) + ends->at;
    const size_t count = std::min(ends->piece, ends->from->size() - ends->at);
    ends->at += count;
    return static_cast<unsigned>(count);
}
int push(void* opaque, unsigned char* bytes, unsigned count) {
    auto* const ends = static_cast<Ends*>(opaque);
    ends->to.insert(ends->to.end(), bytes, bytes + count);
    return ends->to.size() > ends->stopAt ? 1 : 0;
}

TEST(DropinZlib, InflatesByCallbacks) {
    for (uint32_t seed = 1; seed <= effort(400); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Random random(seed);
        const Bytes plain = someData(random, 100000);
        Bytes stream = packed(random, plain, -15, {}, nullptr);
        damage(random, stream);
        const size_t piece = pick(random, 1, 3000);
        const size_t stopAt = pick(random, 0, 3) == 0 ? 30000 : 1000000;
        std::string seen[2];
        for (const Zlib* z : {&ours, &stock}) {
            z_stream s{};
            Bytes window(32768);
            Ends ends{&stream, piece, 0, stopAt, {}};
            ASSERT_EQ(z->inflateBackInit_(&s, 15, window.data(), ZLIB_VERSION, sizeof s), Z_OK);
            const int status = z->inflateBack(&s, pull, &ends, push, &ends);
            seen[z == &ours ? 0 : 1] =
                std::to_string(status) + " " + std::to_string(s.avail_in) + " " +
                std::to_string(ends.at) + " " + std::to_string(ends.to.size()) + " " +
                std::to_string(z->crc32(0, ends.to.data(), static_cast<uInt>(ends.to.size()))) +
                " " + (s.msg != nullptr ? s.msg : "-") + (s.next_in == nullptr ? " null" : "");
            EXPECT_EQ(z->inflateBackEnd(&s), Z_OK);
        }
        // The stock library takes some distances before the start for good.
        if (seen[0].find("too far back") == std::string::npos) {
            ASSERT_EQ(seen[0], seen[1]);
        }
    }
}

/// Memory that ends after a number of pieces, and knows how many are out.
struct Supply {
    int left;
    int out = 0;
};
voidpf supply(voidpf opaque, uInt items, uInt size) {
    auto* const from = static_cast<Supply*>(opaque);
    if (from->left-- <= 0) return nullptr;
    ++from->out;
    return malloc(size_t{items} * size);
}
void takeBack(voidpf opaque, voidpf memory) {
    --static_cast<Supply*>(opaque)->out;
    free(memory);
}

TEST(DropinZlib, TakesMemoryFromTheStreamAlone) {
    const Bytes plain = sample(90000);
    for (int pieces = 0; pieces < 20; ++pieces) {
        Supply from{pieces};
        z_stream s{};
        s.zalloc = supply;
        s.zfree = takeBack;
        s.opaque = &from;
        Bytes packed(plain.size() * 2);
        int status = ours.deflateInit2_(&s, 6, Z_DEFLATED, 15, 8, 0, ZLIB_VERSION, sizeof s);
        for (size_t at = 0; status == Z_OK; at += 3000) {
            s.next_in = const_cast<Bytef*>(plain.data()) + at;
            s.avail_in = 3000;
            s.next_out = packed.data() + s.total_out;
            s.avail_out = 3100;
            status = ours.deflate(&s, at + 3000 == plain.size() ? Z_FINISH : Z_NO_FLUSH);
            if (at + 3000 == plain.size()) break;
        }
        EXPECT_TRUE(status == Z_OK || status == Z_STREAM_END || status == Z_MEM_ERROR) << status;
        EXPECT_EQ(status == Z_MEM_ERROR, from.left < 0) << pieces;
        ours.deflateEnd(&s);
        EXPECT_EQ(from.out, 0);
    }
    for (int pieces = 0; pieces < 4; ++pieces) {
        Supply from{pieces};
        z_stream s{};
        s.zalloc = supply;
        s.zfree = takeBack;
        s.opaque = &from;
        const Bytes stream = [&] {
            Random random(1);
            return packed(random, plain, 15, {}, nullptr);
        }();
        Bytes out(1000);
        int status = ours.inflateInit2_(&s, 15, ZLIB_VERSION, sizeof s);
        s.next_in = const_cast<Bytef*>(stream.data());
        s.avail_in = static_cast<uInt>(stream.size());
        while (status == Z_OK) {
            s.next_out = out.data();
            s.avail_out = 1000;
            status = ours.inflate(&s, Z_NO_FLUSH);
        }
        EXPECT_EQ(status, pieces < 2 ? Z_MEM_ERROR : Z_STREAM_END);
        ours.inflateEnd(&s);
        EXPECT_EQ(from.out, 0);
    }
}

TEST(DropinZlib, FilesBehaveAsThoseOfTheStockLibrary) {
    const std::string base = testing::TempDir() + "dropin_zlib_" + std::to_string(getpid());
    for (uint32_t seed = 1; seed <= effort(300); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Random random(seed);
        const Bytes plain = someData(random, 40000);
        // Written by both with the same calls; what either wrote is read by both.
        constexpr const char* modes[] = {"wb", "w1", "w9h", "w6R", "wT", "w5F"};
        const char* const mode = modes[pick(random, 0, 5)];
        const size_t bufferSize = pick(random, 64, 20000);
        const std::string paths[] = {base + ".0", base + ".1"};
        std::string log[2];
        for (int i = 0; i < 2; ++i) {
            const Zlib& z = i == 0 ? ours : stock;
            Random calls(seed);
            for (const char* const how : {mode, "ab"}) {
                gzFile file = z.gzopen(paths[i].c_str(), how);
                ASSERT_NE(file, nullptr);
                z.gzbuffer(file, static_cast<unsigned>(bufferSize));
                for (size_t n = pick(calls, 0, 30); n != 0; --n) {
                    const size_t from = pick(calls, 0, plain.size());
                    const auto size = static_cast<unsigned>(
                        pick(calls, 0, std::min<size_t>(5000, plain.size() - from)));
                    long result = 0;
                    const size_t op = pick(calls, 0, 9);
                    switch (op) {
                        case 0:
                            result = z.gzputc(file, static_cast<int>(size));
                            break;
                        case 1:
                            result = z.gzputs(file, "a line of text\n");
                            break;
                        case 2:
                            result = z.gzprintf(file, "%s %u\n", "number", size);
                            if (bufferSize < 20) result = 0;
                            break;
                        case 3:
                            result = z.gzflush(file, static_cast<int>(pick(calls, 0, 4)));
                            break;
                        case 4:
                            result = z.gzseek(file, size, SEEK_CUR);
                            break;
                        case 5:
                            if (z.gzdirect(file) == 0) result = z.gzsetparams(file, 3, Z_FILTERED);
                            break;
                        case 6:
                            result =
                                static_cast<long>(z.gzfwrite(plain.data() + from, 1, size, file));
                            break;
                        default:
                            result = z.gzwrite(file, plain.data() + from, size);
                    }
                    log[i] += std::to_string(op) + "=" + std::to_string(result) + "@" +
                              std::to_string(z.gztell(file)) + "d" +
                              std::to_string(z.gzdirect(file)) + " ";
                }
                log[i] += std::to_string(z.gzclose(file)) + "; ";
            }
        }
        ASSERT_EQ(log[0], log[1]);
        // One file may be broken, or have rubbish behind it.
        if (pick(random, 0, 2) == 0) {
            FILE* const file = fopen(paths[0].c_str(), "r+b");
            fseek(file, pick(random, 0, 1) == 0 ? 40 : 0,
                  pick(random, 0, 1) == 0 ? SEEK_SET : SEEK_END);
            fputs("rubbish", file);
            fclose(file);
        }
        for (const std::string& path : paths) {
            log[0] = log[1] = "";
            for (int i = 0; i < 2; ++i) {
                const Zlib& z = i == 0 ? ours : stock;
                Random calls(seed + 1000);
                gzFile file = z.gzopen(path.c_str(), "rb");
                ASSERT_NE(file, nullptr);
                z.gzbuffer(file, static_cast<unsigned>(bufferSize));
                z.gzdirect(file);
                std::string text(40000, 0);
                for (size_t n = 0; n < 60; ++n) {
                    const auto size =
                        static_cast<unsigned>(pick(calls, 1, pick(calls, 0, 5) == 0 ? 40000 : 400));
                    long result = 0;
                    std::fill(text.begin(), text.end(), '\0');
                    const size_t op = pick(calls, 0, 12);
                    switch (op) {
                        case 0:
                            result = z.gzgetc(file);
                            break;
                        case 1:
                            result = z.gzungetc(static_cast<int>(size & 255), file);
                            break;
                        case 2:
                            result = z.gzgets(file, text.data(), static_cast<int>(size)) != nullptr;
                            break;
                        case 3:
                            result = z.gzseek(file, size, SEEK_CUR);
                            break;
                        case 4:
                            result = z.gzseek(file, -static_cast<long>(size), SEEK_CUR);
                            break;
                        case 5:
                            result =
                                z.gzseek(file, size, pick(calls, 0, 2) == 0 ? SEEK_END : SEEK_SET);
                            break;
                        case 6:
                            result = pick(calls, 0, 5) == 0 ? z.gzrewind(file) : 0;
                            break;
                        case 7:
                            result = z.gzeof(file);
                            break;
                        case 8:
                            result = static_cast<long>(z.gzfread(text.data(), 3, size / 3, file));
                            break;
                        case 9:
                            if (pick(calls, 0, 3) == 0) z.gzclearerr(file);
                            break;
                        default:
                            result = z.gzread(file, text.data(), size);
                    }
                    int error = 0;
                    const char* const message = z.gzerror(file, &error);
                    log[i] +=
                        std::to_string(op) + "=" + std::to_string(result) + "@" +
                        std::to_string(z.gztell(file)) + "o" + std::to_string(z.gzoffset(file)) +
                        "e" + std::to_string(z.gzeof(file)) + "d" +
                        std::to_string(z.gzdirect(file)) + message + std::to_string(error) + " " +
                        std::to_string(z.crc32(0, reinterpret_cast<Bytef*>(text.data()),
                                               static_cast<uInt>(text.size()))) +
                        "\n";
                }
                log[i] += std::to_string(z.gzclose(file));
            }
            ASSERT_EQ(log[0], log[1]) << mode << " buffer " << bufferSize;
        }
        for (const std::string& path : paths) unlink(path.c_str());
    }
}

}  // namespace
