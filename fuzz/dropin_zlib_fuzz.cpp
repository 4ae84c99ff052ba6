// The drop-in libz and the distribution's do the same: hostile streams in pieces of any size give
// the same data, codes, counts and messages after every call; and so do calls in any order, legal
// or not, as far as the manual fixes what they give.
//
// Input: a byte of choices; then of a stream its format and a seed for the pieces, and the stream;
// or calls.
#include <zlib.h>

#include "fuzz/dropin.h"

namespace {

using namespace vekfuzz;

// clang-format off
#define EACH_FUNCTION(X) \
    X(deflateInit2_) X(deflate) X(deflateEnd) X(deflateReset) X(deflateCopy) X(deflateParams) \
    X(deflateTune) X(deflatePrime) X(deflateSetDictionary) X(deflateSetHeader) X(inflateInit2_) \
    X(inflate) X(inflateEnd) X(inflateReset) X(inflateReset2) X(inflateCopy) X(inflatePrime) \
    X(inflateSync) X(inflateSyncPoint) X(inflateUndermine) X(inflateValidate) X(adler32) \
    X(inflateSetDictionary) X(inflateGetDictionary) X(inflateGetHeader)
// clang-format on
struct Zlib : Library {
    using Library::Library;
#define ZLIB_MEMBER(name) VEK_MEMBER(name, ::name)
    EACH_FUNCTION(ZLIB_MEMBER)
};

const Zlib ours(VEK_OURS);
const Zlib stock(VEK_STOCK);

/// A stream in either library; what it gave, and what it was given to code.
struct Side {
    const Zlib& z;
    z_stream stream{};
    gz_header header{};
    Data out{};

    std::string seen(int status) const {
        return text(status, stream.avail_in, stream.avail_out, stream.total_in, stream.total_out,
                    stream.adler, stream.msg != nullptr ? stream.msg : "-");
    }
};

uint32_t sum(const Data& data, size_t size) {
    return static_cast<uint32_t>(stock.adler32(1, data.data(), static_cast<uInt>(size)));
}

void inflateInPieces(Choices choices) {
    constexpr int formats[] = {-15, 15, 31, 47, -9, 9, 25, 0};
    const int windowBits = formats[choices.byte() % 8];
    const uint32_t seed = choices.byte() * 256U + choices.byte();
    const auto stream = choices.rest();
    constexpr size_t most[] = {1, 17, 300, 40000};
    std::string results[2];
    Side sides[] = {{ours}, {stock}};
    for (Side& side : sides) {
        std::string& log = results[&side - sides];
        z_stream& s = side.stream;
        Sizes sizes(seed);
        const size_t mostIn = most[seed % 4];
        const size_t mostOut = most[seed / 4 % 4];
        const bool steady = seed / 16 % 4 != 0;
        if (side.z.inflateInit2_(&s, windowBits, ZLIB_VERSION, sizeof s) != Z_OK) abort();
        size_t at = 0;
        for (int calls = 0, idle = 0; calls < 400 && idle < 2; ++calls) {
            const size_t in = std::min(stream.size() - at, sizes.upTo(mostIn));
            Data room(1 + sizes.upTo(mostOut));
            // A buffer of its own, so that what is read behind it shows.
            Data piece(stream.begin() + static_cast<ptrdiff_t>(at),
                       stream.begin() + static_cast<ptrdiff_t>(at + in));
            piece.reserve(1);
            s.next_in = piece.data();
            s.avail_in = static_cast<uInt>(in);
            s.next_out = room.data();
            s.avail_out = static_cast<uInt>(room.size() - 1);
            const uint32_t odd = steady ? 99 : sizes.next() % 32;
            int status = odd == 0 ? side.z.inflateSync(&s)
                                  : side.z.inflate(&s, steady ? Z_NO_FLUSH : odd % 7);
            if (status == Z_NEED_DICT) {
                log += side.seen(status);
                status = side.z.inflateSetDictionary(&s, stream.data(), 4);
            }
            log += side.seen(status) + text(s.data_type, sum(room, room.size() - 1 - s.avail_out)) +
                   "\n";
            at += in - s.avail_in;
            idle = status < 0 && status != Z_BUF_ERROR ? idle + 1
                   : at == stream.size() && in == 0    ? idle + 1
                   : status == Z_STREAM_END && in != 0 ? idle + 1
                                                       : 0;
        }
        side.z.inflateEnd(&s);
    }
    same(results[0], results[1], text("window", windowBits, "seed", seed));
}

/// Bytes that repeat, and do not.
Data plainBytes(Choices& choices) {
    Data plain(choices.size(20000));
    Sizes noise(choices.byte());
    const uint32_t period = 1U + choices.byte();
    for (size_t i = 0; i < plain.size(); ++i)
        plain[i] = i >= period && noise.next() % 16 != 0 ? plain[i - period]
                                                         : static_cast<uint8_t>(noise.next());
    return plain;
}

/// What ours wrote gives back the bytes.
void mustInflate(const Data& packed, const Data& plain, int windowBits, const Data& dictionary) {
    z_stream s{};
    // The smallest window is taken for the next larger one.
    stock.inflateInit2_(&s, windowBits == 8 ? 9 : windowBits, ZLIB_VERSION, sizeof s);
    Data out(plain.size() + 1);
    s.next_in = const_cast<Bytef*>(packed.data());
    s.avail_in = static_cast<uInt>(packed.size());
    s.next_out = out.data();
    s.avail_out = static_cast<uInt>(out.size());
    const auto give = [&] {
        stock.inflateSetDictionary(&s, dictionary.data(), static_cast<uInt>(dictionary.size()));
    };
    if (windowBits < 0 && !dictionary.empty()) give();
    int status = stock.inflate(&s, Z_FINISH);
    if (status == Z_NEED_DICT) {
        give();
        status = stock.inflate(&s, Z_FINISH);
    }
    out.resize(s.total_out);
    stock.inflateEnd(&s);
    if (status != Z_STREAM_END || out != plain) {
        std::fprintf(stderr, "window %d: %d %s, %zu bytes of %zu\n", windowBits, status,
                     s.msg != nullptr ? s.msg : "-", out.size(), plain.size());
        abort();
    }
}

/// With ample room both give the same codes, and take the same. Long, since each call of the
/// interface is a case of one switch over both sides' state.
void deflateByCalls(Choices choices) {
    const int level = choices.number(-2, 10);
    const int method = choices.number(7, 30) == 7 ? 7 : Z_DEFLATED;
    const int windowBits = choices.number(-17, 33);
    const int memLevel = choices.number(0, 11);
    const int strategy = choices.number(-1, 5);
    Side sides[] = {{ours}, {stock}};
    int status[2];
    const auto both = [&](const char* what, auto act) {
        for (int i = 0; i < 2; ++i) status[i] = act(sides[i].z, sides[i]);
        same(sides[0].seen(status[0]), sides[1].seen(status[1]), what);
        return status[0];
    };
    if (both("init", [&](const Zlib& z, Side& side) {
            return z.deflateInit2_(&side.stream, level, method, windowBits, memLevel, strategy,
                                   ZLIB_VERSION, sizeof(z_stream));
        }) != Z_OK)
        return;
    // For this input, and 256 KiB of earlier calls that ours may not have coded yet.
    static Data room(400000);
    Data coded;       // Since the latest reset.
    Data dictionary;  // For what follows it.
    bool fresh = true;
    int ended = Z_OK;
    for (int calls = 0; calls < 60 && !choices.empty(); ++calls) {
        const int what = choices.number(0, 31);
        const int argument = choices.byte();
        Data in = what > 12 ? plainBytes(choices) : Data();
        in.reserve(1);
        for (Side& side : sides) {
            side.stream.next_in = in.data();
            side.stream.avail_in = static_cast<uInt>(in.size());
            side.stream.next_out = room.data();
            side.stream.avail_out = static_cast<uInt>(room.size());
        }
        size_t taken = 0;
        const int code = both(text("call", what, argument).c_str(), [&](const Zlib& z, Side& side) {
            z_stream& s = side.stream;
            int result = Z_OK;
            switch (what) {
                case 0:
                    result = z.deflateReset(&s);
                    break;
                case 1: {
                    z_stream copy{};
                    result = z.deflateCopy(&copy, &s);
                    z.deflateEnd(&s);
                    if (z.deflateCopy(&s, &copy) != Z_OK) abort();
                    z.deflateEnd(&copy);
                    break;
                }
                case 2:
                    result = z.deflateParams(&s, argument % 13 - 2, argument / 16 % 7 - 1);
                    break;
                case 3:
                    result = z.deflateTune(&s, argument, 8, 16, 8);
                    break;
                case 4:
                    result = fresh && dictionary.empty()
                                 ? z.deflateSetDictionary(
                                       &s, reinterpret_cast<const Bytef*>("a dictionary"), 12)
                                 : z.deflateSetDictionary(&s, nullptr, 0);
                    break;
                case 5:
                    result = z.deflateSetHeader(&s, &side.header);
                    break;
                case 6:
                    s.next_out = nullptr;
                    result = z.deflate(&s, argument % 6);
                    s.next_out = room.data();
                    break;
                case 7:
                    s.avail_out = 0;
                    result = z.deflate(&s, argument % 6);
                    s.avail_out = static_cast<uInt>(room.size());
                    break;
                case 8:
                    result = z.deflate(&s, argument - 100);
                    break;
                case 9: {
                    z_stream moved = s;
                    result = z.deflate(&moved, Z_FINISH);
                    break;
                }
                case 10:
                    s.next_in = nullptr;
                    s.avail_in = argument % 2;
                    result = z.deflate(&s, Z_NO_FLUSH);
                    s.avail_in = 0;
                    break;
                default:
                    result = z.deflate(&s, what > 20 ? Z_NO_FLUSH : argument % 6);
            }
            const size_t size = room.size() - s.avail_out;
            side.out.insert(side.out.end(), room.begin(),
                            room.begin() + static_cast<ptrdiff_t>(size));
            taken = in.size() - s.avail_in;
            s.total_out = 0;  // Sizes differ.
            s.avail_out = 0;
            return result;
        });
        coded.insert(coded.end(), in.begin(), in.begin() + static_cast<ptrdiff_t>(taken));
        if (what == 0) {
            coded.clear();
            dictionary.clear();
            sides[0].out.clear();
            sides[1].out.clear();
            fresh = true;
            ended = Z_OK;
        } else if (what == 4) {
            if (fresh && code == Z_OK) {
                constexpr char bytes[] = "a dictionary";
                dictionary.assign(bytes, bytes + 12);
            }
        } else if (what != 3 && what != 5 && what != 1) {
            fresh = false;
        }
        if (code == Z_STREAM_END) ended = code;
    }
    if (ended == Z_STREAM_END) mustInflate(sides[0].out, coded, windowBits, dictionary);
    both("end", [](const Zlib& z, Side& side) { return z.deflateEnd(&side.stream); });
    both("after", [](const Zlib& z, Side& side) { return z.deflateEnd(&side.stream); });
}

/// Calls of inflate's side, between pieces of what deflate gives; long as above.
void inflateByCalls(Choices choices) {
    const int windowBits = choices.number(-17, 50);
    Side sides[] = {{ours}, {stock}};
    const auto both = [&](const std::string& what, auto act) {
        int status[2];
        std::string more[2];
        for (int i = 0; i < 2; ++i) status[i] = act(sides[i].z, sides[i], more[i]);
        same(sides[0].seen(status[0]) + more[0], sides[1].seen(status[1]) + more[1], what);
        return status[0];
    };
    if (both("init", [&](const Zlib& z, Side& side, std::string&) {
            return z.inflateInit2_(&side.stream, windowBits, ZLIB_VERSION, sizeof(z_stream));
        }) != Z_OK)
        return;
    bool begun = false;
    for (int calls = 0; calls < 60 && !choices.empty(); ++calls) {
        const int what = choices.number(0, 31);
        const int argument = choices.byte();
        const size_t size = std::min<size_t>(choices.rest().size(), what > 11 ? argument % 64 : 0);
        Data in(size);
        for (uint8_t& byte : in) byte = choices.byte();
        in.reserve(1);
        both(text("call", what, argument), [&](const Zlib& z, Side& side, std::string& more) {
            z_stream& s = side.stream;
            Data room(5000);
            s.next_in = in.data();
            s.avail_in = static_cast<uInt>(in.size());
            s.next_out = room.data();
            s.avail_out = static_cast<uInt>(room.size());
            int result = Z_OK;
            switch (what) {
                case 0:
                    result = z.inflateReset(&s);
                    break;
                case 1:
                    result = z.inflateReset2(&s, argument % 68 - 17);
                    break;
                case 2: {
                    z_stream copy{};
                    result = z.inflateCopy(&copy, &s);
                    z.inflateEnd(&s);
                    if (z.inflateCopy(&s, &copy) != Z_OK) abort();
                    z.inflateEnd(&copy);
                    break;
                }
                case 3:
                    // Of more bits than a byte's the stock library gives some back as input.
                    if (!begun)
                        result = z.inflatePrime(
                            &s, argument < 200 ? argument % 8 : 17 + argument % 9, argument);
                    break;
                case 4:
                    result = z.inflateSync(&s);
                    break;
                case 5:
                    result = z.inflateSyncPoint(&s);
                    break;
                case 6:
                    result = z.inflateUndermine(&s, argument % 2);
                    break;
                case 7:
                    result = z.inflateValidate(&s, argument % 2);
                    break;
                case 8:
                    result = z.inflateSetDictionary(&s, room.data(), static_cast<uInt>(argument));
                    break;
                case 9:
                    result = z.inflateGetHeader(&s, &side.header);
                    break;
                case 10: {
                    z_stream moved = s;
                    result = z.inflate(&moved, Z_NO_FLUSH);
                    break;
                }
                case 11:
                    s.next_in = nullptr;
                    s.avail_in = argument % 2;
                    if (argument > 100) s.next_out = nullptr;
                    result = z.inflate(&s, Z_NO_FLUSH);
                    s.avail_out = static_cast<uInt>(room.size());
                    s.avail_in = 0;
                    break;
                default:
                    if (argument > 200) s.avail_out = argument - 200;
                    result = z.inflate(&s, argument / 64 == 3 ? argument % 8 : Z_NO_FLUSH);
            }
            more = text(side.header.done, sum(room, room.size()));
            return result;
        });
        begun = begun || what > 9 || what == 3;
        if (what < 2) begun = false;
    }
    for (int again = 0; again < 2; ++again)
        both("end",
             [](const Zlib& z, Side& side, std::string&) { return z.inflateEnd(&side.stream); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Choices choices({data, size});
    switch (choices.byte() % 4) {
        case 0:
            deflateByCalls(choices);
            break;
        case 1:
            inflateByCalls(choices);
            break;
        default:
            inflateInPieces(choices);
    }
    return 0;
}
