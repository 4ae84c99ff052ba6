// The drop-in libz against the distribution's: both are loaded side by side and made to do the
// same.
#include <unistd.h>
#include <zlib.h>

#include "support/dropin.h"

#undef gzgetc

namespace {

using namespace vektest;

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
struct Zlib : Library {
    using Library::Library;
#define ZLIB_MEMBER(name) VEK_MEMBER(name, ::name)
    EACH_FUNCTION(ZLIB_MEMBER)
};

const Zlib ours(VEK_BUILD_DIR "/lib/dropin/libz.so.1");
const Zlib stock(VEK_STOCK_LIBRARY);

uInt count(const Bytes& bytes) {
    return static_cast<uInt>(bytes.size());
}
int number(Random& random, int low, int high) {
    return low + pick<int>(random, 0, static_cast<size_t>(high - low));
}
bool oneIn(Random& random, size_t n) {
    return pick(random, 0, n - 1) == 0;
}

Bytes someData(Random& random, size_t most) {
    const Shape& shape = shapes()[pick(random, 0, shapes().size() - 1)];
    return shape.make(pick(random, 0, most), static_cast<uint32_t>(random()));
}

const char* orDash(const char* message) {
    return message != nullptr ? message : "-";
}

void setEnds(z_stream& s, const Bytes& in, size_t at, size_t most, Bytes& out) {
    s.next_in = const_cast<Bytef*>(in.data()) + at;
    s.avail_in = static_cast<uInt>(most);
    s.next_out = out.data();
    s.avail_out = count(out);
}

/// The same stream in either library, and what its calls gave.
struct Side {
    const Zlib* z;
    z_stream stream{};
    Bytes out{};

    /// All that a call leaves for the caller to see.
    std::string seen(int status) const {
        return text(status, "in", stream.avail_in, "out", stream.avail_out, "totals",
                    stream.total_in, stream.total_out, "adler", stream.adler, "type",
                    stream.data_type, orDash(stream.msg));
    }
    int give(const Bytes& dictionary) {
        return z->inflateSetDictionary(&stream, dictionary.data(), count(dictionary));
    }
};

/// Compressed by the distribution's library, with flushes.
Bytes packed(Random& random, const Bytes& plain, int windowBits, const Bytes& dictionary = {},
             gz_header* header = nullptr) {
    z_stream s{};
    const int strategy = number(random, 0, 4);
    stock.deflateInit2_(&s, number(random, 0, 9), Z_DEFLATED, windowBits, 8, strategy, ZLIB_VERSION,
                        sizeof s);
    if (!dictionary.empty() && windowBits < 16)
        stock.deflateSetDictionary(&s, dictionary.data(), count(dictionary));
    if (windowBits > 15 && header != nullptr) stock.deflateSetHeader(&s, header);
    Bytes out(plain.size() * 2 + 5000);
    setEnds(s, plain, 0, 0, out);
    // Not by total_in, which counts the dictionary.
    const auto left = [&] { return static_cast<size_t>(plain.data() + plain.size() - s.next_in); };
    while (left() != 0 && s.avail_out > 3000) {
        s.avail_in = pick<uInt>(random, 1, left());
        stock.deflate(&s, oneIn(random, 6) ? Z_BLOCK : Z_FULL_FLUSH);
    }
    s.avail_in = static_cast<uInt>(left());
    stock.deflate(&s, Z_FINISH);
    out.resize(s.total_out);
    stock.deflateEnd(&s);
    return out;
}

/// Breaks some bytes, or none.
void damage(Random& random, Bytes& stream) {
    if (stream.empty() || oneIn(random, 3)) return;
    for (size_t n = pick(random, 1, 4); n != 0; --n) {
        const size_t last = stream.size() - 1;
        const size_t most = oneIn(random, 2) ? std::min<size_t>(40, last) : last;
        flip(stream, 8 * pick(random, 0, most) + pick(random, 0, 7));
    }
}

// Long, since one random stream goes through every call, and each depends on the random choices
// before.
TEST(DropinZlib, InflatesAnythingAsTheStockLibraryDoes) {
    for (uint32_t seed = 1; seed <= effort(300); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Random random(seed);
        const Bytes plain = someData(random, oneIn(random, 10) ? 300000 : 6000);
        const Bytes dictionary = oneIn(random, 4) ? someData(random, 3000) : Bytes();
        const int bits = number(random, 9, 15);
        const int format = number(random, 0, 2);
        Bytef name[] = "name";
        gz_header header{};
        header.name = header.extra = name;
        header.extra_len = 4;
        header.hcrc = number(random, 0, 1);
        const int written[] = {-bits, bits, bits + 16};
        Bytes stream = packed(random, plain, written[format], dictionary, &header);
        if (oneIn(random, 16)) std::generate(stream.begin(), stream.end(), std::ref(random));
        damage(random, stream);
        constexpr size_t sizes[] = {1, 20, 1000, 40000};
        const size_t piece = sizes[pick(random, 0, 3)];
        const size_t mostRoom = sizes[pick(random, 0, 3)];
        const int readBits = oneIn(random, 8)   ? number(random, 0, 47)
                             : format == 0      ? -std::max(bits, number(random, 8, 15))
                             : oneIn(random, 2) ? 47
                                                : 15 + 16 * (format - 1);
        const bool steady = oneIn(random, 2);
        Side sides[] = {{&ours}, {&stock}};
        std::string log;
        Random fork(seed);
        const auto both = [&](const std::function<std::string(Side&)>& act) {
            const std::string mine = act(sides[0]), theirs = act(sides[1]);
            log.erase(0, log.size() > 600 ? log.size() - 600 : 0);
            log += theirs + "\n";
            ASSERT_EQ(mine, theirs) << log << "window " << readBits;
        };
        int status = Z_OK;
        both([&](Side& side) {
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
            const size_t in = std::min(stream.size() - at, pick(fork, 0, piece));
            const size_t room = pick(fork, 0, mostRoom);
            const int flush = steady ? Z_NO_FLUSH : number(fork, 0, 6);
            const size_t odd = steady ? 99 : pick(fork, 0, 60);
            const int prime = number(fork, -1, 16);
            size_t taken = 0;
            both([&](Side& side) {
                const Zlib& z = *side.z;
                z_stream& s = side.stream;
                const size_t self = &side == sides ? 0 : 1;
                Bytes out(room + 1);  // Null would be an error.
                setEnds(s, stream, at, in, out);
                --s.avail_out;
                std::string more;
                if (odd == 0) {
                    status = z.inflateSync(&s);
                } else if (odd == 1) {
                    status = z.inflateReset(&s);
                } else if (odd == 3) {
                    status = z.inflateReset2(&s, readBits);
                } else if (odd == 4) {  // In the midst of a block it is for nobody.
                    if (s.total_in == 0) status = z.inflatePrime(&s, prime, 0x5A5A);
                    more = text("prime", prime);
                } else if (odd == 5) {
                    z_stream copy{};
                    status = z.inflateCopy(&copy, &s);
                    z.inflateEnd(&s);
                    s = copy;
                    // The state knows its stream by its address.
                    z_stream moved{};
                    if (z.inflateCopy(&moved, &copy) == Z_STREAM_ERROR) more = "lost";
                    z.inflateEnd(&copy);
                    z.inflateInit2_(&s, readBits, ZLIB_VERSION, sizeof s);
                    z.inflateEnd(&moved);
                } else if (odd == 6) {
                    status = z.inflateValidate(&s, prime & 1);
                } else if (odd == 7) {
                    heads[self].name = names[self];
                    heads[self].name_max = 3;
                    status = z.inflateGetHeader(&s, &heads[self]);
                } else if (odd == 8) {
                    Bytef found[33000];
                    uInt size = 0;
                    status = z.inflateGetDictionary(&s, found, &size);
                } else if (odd == 9) {
                    status = z.inflateUndermine(&s, 1);
                } else if (odd == 10) {
                    status = side.give(dictionary);
                } else {
                    status = z.inflate(&s, flush);
                    if (status == Z_NEED_DICT) more = side.seen(side.give(dictionary));
                    if (status == Z_NEED_DICT) status = Z_OK;
                }
                taken = in - s.avail_in;
                return text(odd, flush, side.seen(status), more, heads[self].done, heads[self].os,
                            std::string(names[self], names[self] + 8), "sync",
                            z.inflateSyncPoint(&s),
                            z.crc32(0, out.data(), static_cast<uInt>(room - s.avail_out)));
            });
            if (HasFatalFailure()) return;
            at += taken;
            idle = taken == 0 && at == stream.size() ? idle + 1 : 0;
            if (status == Z_DATA_ERROR && steady) ++idle;
        }
        for (Side& side : sides) side.z->inflateEnd(&side.stream);
    }
}

/// What the distribution's library makes of a whole stream.
Bytes unpacked(const Bytes& stream, int windowBits, const Bytes& dictionary, size_t size) {
    Side side{&stock};
    z_stream& s = side.stream;
    stock.inflateInit2_(&s, windowBits, ZLIB_VERSION, sizeof s);
    Bytes out(size + 1);
    setEnds(s, stream, 0, stream.size(), out);
    if (windowBits < 0) side.give(dictionary);
    int status = stock.inflate(&s, Z_SYNC_FLUSH);
    if (status == Z_NEED_DICT && side.give(dictionary) == Z_OK)
        status = stock.inflate(&s, Z_SYNC_FLUSH);
    EXPECT_EQ(status, Z_STREAM_END) << orDash(s.msg) << " at " << s.total_in;
    EXPECT_EQ(s.avail_in, 0U);
    out.resize(s.total_out);
    stock.inflateEnd(&s);
    return out;
}

TEST(DropinZlib, DeflatesWhatTheStockLibraryReadsWithTheSameCodes) {
    for (uint32_t seed = 1; seed <= effort(600); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Random random(seed);
        const size_t most = oneIn(random, 10) ? 600000 : oneIn(random, 3) ? 1100 : 6000;
        const Bytes plain = someData(random, most);
        const int format = number(random, 0, 2);
        const int bits = number(random, 9, 15);
        const int windowBits = format == 0 ? -bits : format == 1 ? bits : bits + 16;
        const Bytes dictionary = format < 2 && oneIn(random, 3) ? someData(random, 3000) : Bytes();
        // With ample room for each call the two give the same codes and counts of input.
        const bool ample = oneIn(random, 2);
        const int level = number(random, ample ? 1 : 0, 9);
        Side sides[] = {{&ours}, {&stock}};
        Bytef name[] = "name";
        gz_header header{};
        header.name = header.comment = name;
        header.hcrc = 1;
        const int strategy = number(random, 0, 4);
        for (Side& side : sides) {
            z_stream& s = side.stream;
            ASSERT_EQ(side.z->deflateInit2_(&s, level, Z_DEFLATED, windowBits, 8, strategy,
                                            ZLIB_VERSION, sizeof s),
                      Z_OK);
            if (!dictionary.empty()) {
                ASSERT_EQ(side.z->deflateSetDictionary(&s, dictionary.data(), count(dictionary)),
                          Z_OK);
            }
            ASSERT_EQ(side.z->deflateSetHeader(&s, &header), format == 2 ? Z_OK : Z_STREAM_ERROR);
        }
        size_t at = 0;
        const size_t mostRoom = ample ? 2 * plain.size() + 10000 : 300;
        const size_t pieceMost = oneIn(random, 2) ? plain.size() : 900;
        int status = Z_OK;
        for (int calls = 0; status != Z_STREAM_END && calls < 100000; ++calls) {
            const size_t odd = pick(random, 0, 40);
            const size_t in = std::min(
                plain.size() - at, oneIn(random, 5) ? plain.size() : pick(random, 0, pieceMost));
            const int flush = at + in == plain.size() ? Z_FINISH
                              : !oneIn(random, 4)     ? Z_NO_FLUSH
                                                      : number(random, 0, 5) % 5;
            const int blockFlush = flush == Z_FINISH && at + in != plain.size() ? Z_BLOCK : flush;
            Bytes room(ample ? mostRoom : pick(random, 1, mostRoom));
            const int newLevel = number(random, ample ? 1 : 0, 9);
            const int newStrategy = number(random, 0, 4);
            std::string seen[2];
            size_t taken = 0;
            for (int i = ample ? 1 : 0; i >= 0; --i) {
                const Zlib& z = *sides[i].z;
                z_stream& s = sides[i].stream;
                setEnds(s, plain, at, in, room);
                if (odd == 0) {
                    status = z.deflateParams(&s, newLevel, newStrategy);
                } else if (odd == 1) {
                    z_stream copy{};
                    ASSERT_EQ(z.deflateCopy(&copy, &s), Z_OK);
                    const int ended = z.deflateEnd(&s);
                    EXPECT_TRUE(ended == Z_OK || ended == Z_DATA_ERROR);
                    ASSERT_EQ(z.deflateCopy(&s, &copy), Z_OK);
                    z.deflateEnd(&copy);
                    status = Z_OK;
                } else if (odd == 2) {
                    status = z.deflate(&s, 7) + z.deflateTune(&s, 1, 2, 3, 4);
                } else {
                    status = z.deflate(&s, blockFlush);
                }
                sides[i].out = sides[i].out + part(room, 0, room.size() - s.avail_out);
                taken = in - s.avail_in;
                seen[i] =
                    text(odd, blockFlush, status, s.avail_in, s.total_in, s.adler, orDash(s.msg));
            }
            ASSERT_EQ(seen[0], ample ? seen[1] : seen[0]);
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
        const uLong value = random(), other = random();
        const auto length = static_cast<z_off_t>((uint64_t{random()} << 32 | random()) &
                                                 std::numeric_limits<z_off_t>::max());
        Bytes small(ours.compressBound(count(plain)));
        uLong packedSize = small.size();
        ASSERT_EQ(ours.compress2(small.data(), &packedSize, plain.data(), count(plain),
                                 number(random, -1, 9)),
                  Z_OK);
        small.resize(packedSize);
        damage(random, small);
        // Room below, at and above what is needed.
        const size_t room = oneIn(random, 2) ? plain.size() : pick(random, 0, plain.size() + 5);
        std::string seen[2];
        for (const Zlib* z : {&ours, &stock}) {
            const uLong sum = z->adler32(1, plain.data(), count(plain));
            Bytes out(room + 1);
            uLong outSize = room, inSize = small.size();
            const int status = z->uncompress2(out.data(), &outSize, small.data(), &inSize);
            seen[z == &ours] =
                text(z->crc32(value, plain.data(), count(plain)),
                     z->adler32(value, plain.data(), count(plain)), sum,
                     z->adler32_combine(sum, sum, length), z->crc32_combine(value, other, length),
                     z->crc32_combine_op(value, other, z->crc32_combine_gen(length)), status,
                     outSize, inSize, z->crc32(0, out.data(), static_cast<uInt>(outSize)));
        }
        EXPECT_EQ(seen[0], seen[1]);
    }
}

/// The streams' ends for inflateBack().
struct Ends {
    const Bytes* from;
    size_t piece, at, stopAt;
    Bytes to;
};
unsigned pull(void* opaque, z_const unsigned char** bytes) {
    auto* const ends = static_cast<Ends*>(opaque);
    *bytes = const_cast<Bytef*>(ends->from->data()) + ends->at;
    const size_t given = std::min(ends->piece, ends->from->size() - ends->at);
    ends->at += given;
    return static_cast<unsigned>(given);
}
int push(void* opaque, unsigned char* bytes, unsigned size) {
    auto* const ends = static_cast<Ends*>(opaque);
    ends->to.insert(ends->to.end(), bytes, bytes + size);
    return ends->to.size() > ends->stopAt ? 1 : 0;
}

TEST(DropinZlib, InflatesByCallbacks) {
    for (uint32_t seed = 1; seed <= effort(400); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Random random(seed);
        Bytes stream = packed(random, someData(random, 100000), -15);
        damage(random, stream);
        const size_t piece = pick(random, 1, 3000);
        const size_t stopAt = oneIn(random, 4) ? 30000 : 1000000;
        std::string seen[2];
        for (const Zlib* z : {&ours, &stock}) {
            z_stream s{};
            Bytes window(32768);
            Ends ends{&stream, piece, 0, stopAt, {}};
            ASSERT_EQ(z->inflateBackInit_(&s, 15, window.data(), ZLIB_VERSION, sizeof s), Z_OK);
            const int status = z->inflateBack(&s, pull, &ends, push, &ends);
            seen[z == &ours] = text(status, s.avail_in, ends.at, ends.to.size(),
                                    z->crc32(0, ends.to.data(), count(ends.to)), orDash(s.msg),
                                    s.next_in == nullptr);
            EXPECT_EQ(z->inflateBackEnd(&s), Z_OK);
        }
        // The stock library takes some distances before the start for good.
        if (seen[1].find("too far back") == std::string::npos) {
            ASSERT_EQ(seen[0], seen[1]);
        }
    }
}

void takeFrom(z_stream& s, Supply& memory) {
    s.opaque = &memory;
    s.zalloc = Supply::give;
    s.zfree = Supply::take;
}

TEST(DropinZlib, TakesMemoryFromTheStreamAlone) {
    const Bytes plain = sample(90000);
    Random random(1);
    const Bytes stream = packed(random, plain, 15);
    for (size_t pieces = 0; pieces < 20; ++pieces)
        for (const bool packs : {true, false}) {
            Supply from{pieces};
            z_stream s{};
            takeFrom(s, from);
            const Bytes& in = packs ? plain : stream;
            Bytes room(1000);
            int status =
                packs ? ours.deflateInit2_(&s, 6, Z_DEFLATED, 15, 8, 0, ZLIB_VERSION, sizeof s)
                      : ours.inflateInit2_(&s, 15, ZLIB_VERSION, sizeof s);
            for (size_t left = in.size(); status == Z_OK; left = s.avail_in) {
                setEnds(s, in, in.size() - left, left, room);
                status = packs ? ours.deflate(&s, Z_FINISH) : ours.inflate(&s, Z_NO_FLUSH);
            }
            EXPECT_EQ(status, from.refused ? Z_MEM_ERROR : Z_STREAM_END) << pieces;
            EXPECT_TRUE(packs || from.refused == (pieces < 2)) << pieces;
            packs ? ours.deflateEnd(&s) : ours.inflateEnd(&s);
        }
}

/// Writes a file by calls of all kinds; returns what they returned.
std::string writeFile(const Zlib& z, const std::string& path, const char* mode, unsigned bufferSize,
                      const Bytes& plain, uint32_t seed) {
    Random calls(seed);
    std::string log;
    for (const char* const how : {mode, "ab"}) {
        gzFile file = z.gzopen(path.c_str(), how);
        if (file == nullptr) return "not opened";
        z.gzbuffer(file, bufferSize);
        for (size_t n = pick(calls, 0, 30); n != 0; --n) {
            const Bytes bytes = part(plain, pick(calls, 0, plain.size()), pick(calls, 0, 5000));
            const size_t op = pick(calls, 0, 9);
            long result = 0;
            if (op == 0) result = z.gzputc(file, static_cast<int>(bytes.size()));
            if (op == 1) result = z.gzputs(file, "a line of text\n");
            if (op == 2) result = z.gzprintf(file, "%s %u\n", "number", count(bytes));
            if (op == 3) result = z.gzflush(file, number(calls, 0, 4));
            if (op == 4) result = z.gzseek(file, static_cast<long>(bytes.size()), SEEK_CUR);
            if (op == 5 && z.gzdirect(file) == 0) result = z.gzsetparams(file, 3, Z_FILTERED);
            if (op == 6)
                result = static_cast<long>(z.gzfwrite(bytes.data(), 1, bytes.size(), file));
            if (op > 6) result = z.gzwrite(file, bytes.data(), count(bytes));
            log += text(op, "=", result, "at", z.gztell(file), "direct", z.gzdirect(file));
        }
        log += text("closed", z.gzclose(file));
    }
    return log;
}

/// Reads one likewise.
std::string readFile(const Zlib& z, const std::string& path, unsigned bufferSize, uint32_t seed) {
    Random calls(seed + 1000);
    std::string log;
    gzFile file = z.gzopen(path.c_str(), "rb");
    if (file == nullptr) return "not opened";
    z.gzbuffer(file, bufferSize);
    z.gzdirect(file);
    for (size_t n = 0; n < 60; ++n) {
        const int size = number(calls, 1, oneIn(calls, 6) ? 40000 : 400);
        const auto room = static_cast<unsigned>(size);
        const size_t op = pick(calls, 0, 12);
        const bool sometimes = oneIn(calls, 4);
        std::string got(40000, '\0');
        long result = 0;
        if (op == 0) result = z.gzgetc(file);
        if (op == 1) result = z.gzungetc(size & 255, file);
        if (op == 2) result = z.gzgets(file, got.data(), size) != nullptr;
        if (op == 3) result = z.gzseek(file, size, SEEK_CUR);
        if (op == 4) result = z.gzseek(file, -size, SEEK_CUR);
        if (op == 5) result = z.gzseek(file, size, sometimes ? SEEK_END : SEEK_SET);
        if (op == 6 && sometimes) result = z.gzrewind(file);
        if (op == 7) result = z.gzeof(file);
        if (op == 8) result = static_cast<long>(z.gzfread(got.data(), 3, room / 3, file));
        if (op == 9 && sometimes) z.gzclearerr(file);
        if (op > 9) result = z.gzread(file, got.data(), room);
        int error = 0;
        const char* const message = z.gzerror(file, &error);
        log += text(op, "=", result, "at", z.gztell(file), z.gzoffset(file), "end", z.gzeof(file),
                    "direct", z.gzdirect(file), message, error,
                    z.crc32(0, reinterpret_cast<Bytef*>(got.data()), 40000));
    }
    return log + text("closed", z.gzclose(file));
}

TEST(DropinZlib, FilesBehaveAsThoseOfTheStockLibrary) {
    const std::string base = testing::TempDir() + "dropin_zlib_" + std::to_string(getpid());
    const std::string paths[] = {base + ".0", base + ".1"};
    for (uint32_t seed = 1; seed <= effort(300); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Random random(seed);
        const Bytes plain = someData(random, 40000);
        // Written by both with the same calls; what either wrote is read by both.
        constexpr const char* modes[] = {"wb", "w1", "w9h", "w6R", "wT", "w5F"};
        const char* const mode = modes[pick(random, 0, 5)];
        const auto bufferSize = pick<unsigned>(random, 64, 20000);
        ASSERT_EQ(writeFile(ours, paths[0], mode, bufferSize, plain, seed),
                  writeFile(stock, paths[1], mode, bufferSize, plain, seed));
        // One file may be broken, or have rubbish behind it.
        if (oneIn(random, 3)) {
            FILE* const file = fopen(paths[0].c_str(), "r+b");
            fseek(file, oneIn(random, 2) ? 40 : 0, oneIn(random, 2) ? SEEK_SET : SEEK_END);
            fputs("rubbish", file);
            fclose(file);
        }
        for (const std::string& path : paths)
            ASSERT_EQ(readFile(ours, path, bufferSize, seed),
                      readFile(stock, path, bufferSize, seed))
                << mode << " buffer " << bufferSize;
    }
    for (const std::string& path : paths) unlink(path.c_str());
}

}  // namespace
