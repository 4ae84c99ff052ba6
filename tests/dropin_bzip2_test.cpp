// libbz2 as programs load it, against the distribution's: the same calls, the same codes, the same
// data. Compressed bytes may differ, so each reads what the other writes.
#include <bzlib.h>

#include "support/dropin.h"

namespace {

using namespace vektest;

// clang-format off
#define EACH_FUNCTION(X) \
    X(bzCompressInit) X(bzCompress) X(bzCompressEnd) X(bzDecompressInit) X(bzDecompress) \
    X(bzDecompressEnd) X(bzBuffToBuffCompress) X(bzBuffToBuffDecompress) X(bzReadOpen) X(bzRead) \
    X(bzReadGetUnused) X(bzReadClose) X(bzWriteOpen) X(bzWrite) X(bzWriteClose64) X(bzopen) \
    X(bzread) X(bzwrite) X(bzclose) X(bzerror) X(bzlibVersion)
// clang-format on
struct Bz2 : Library {
    using Library::Library;
#define BZ2_MEMBER(name) VEK_MEMBER(name, BZ2_##name)
    EACH_FUNCTION(BZ2_MEMBER)
};

const Bz2 ours(VEK_BUILD_DIR "/lib/dropin/libbz2.so.1.0");
const Bz2 theirs(VEK_STOCK_LIBRARY);

Bytes pack(const Bz2& by, Bytes plain, int level = 1) {
    auto size = static_cast<unsigned>(plain.size() + plain.size() / 50 + 700);
    plain.reserve(1);  // The interface refuses null.
    Bytes packed(size);
    EXPECT_EQ(by.bzBuffToBuffCompress(chars(packed), &size, chars(plain),
                                      static_cast<unsigned>(plain.size()), level, 0, 30),
              BZ_OK);
    packed.resize(size);
    return packed;
}

void takeFrom(bz_stream& stream, Supply& memory) {
    stream.opaque = &memory;
    stream.bzalloc = Supply::give;
    stream.bzfree = Supply::take;
}

void setEnds(bz_stream& stream, Bytes& in, Bytes& out) {
    stream.next_in = chars(in);
    stream.avail_in = static_cast<unsigned>(in.size());
    stream.next_out = chars(out);
    stream.avail_out = static_cast<unsigned>(out.size());
}

/// What came out of a stream, the last code, and all codes.
struct Outcome {
    Bytes bytes;
    int code = BZ_OK;
    std::vector<int> codes;
    uint64_t taken = 0;
};

/// Decodes in random pieces, of the same sizes for the same seed, until the code is not BZ_OK, or
/// nothing moves any more.
Outcome unpack(const Bz2& by, const Bytes& packed, uint32_t seed, int small = 0) {
    Random random(seed);
    Supply memory;
    bz_stream stream{};
    takeFrom(stream, memory);
    EXPECT_EQ(by.bzDecompressInit(&stream, 0, small), BZ_OK);
    const size_t most = size_t{1} << pick(random, packed.size() < 10000 ? 0 : 10, 18);
    Outcome outcome;
    for (size_t at = 0, still = 0; outcome.code == BZ_OK && still < 3;) {
        Bytes piece = part(packed, at, pick(random, 0, most));
        Bytes room(pick(random, 0, most));
        setEnds(stream, piece, room);
        outcome.code = by.bzDecompress(&stream);
        at += piece.size() - stream.avail_in;
        room.resize(room.size() - stream.avail_out);
        const bool moved = piece.size() != stream.avail_in || !room.empty();
        still = moved || at != packed.size() ? 0 : still + 1;
        outcome.bytes.insert(outcome.bytes.end(), room.begin(), room.end());
    }
    outcome.taken = static_cast<uint64_t>(stream.total_in_hi32) << 32 | stream.total_in_lo32;
    EXPECT_EQ(static_cast<uint64_t>(stream.total_out_hi32) << 32 | stream.total_out_lo32,
              outcome.bytes.size());
    if (outcome.code == BZ_STREAM_END) {
        EXPECT_EQ(by.bzDecompress(&stream), BZ_SEQUENCE_ERROR);
    }
    EXPECT_EQ(by.bzDecompressEnd(&stream), BZ_OK);
    EXPECT_EQ(by.bzDecompressEnd(&stream), BZ_PARAM_ERROR);
    return outcome;
}

size_t refusals = 0;

void expectSame(const Bytes& packed, uint32_t seed, int small = 0, bool isDamaged = false) {
    const Outcome mine = unpack(ours, packed, seed, small);
    const Outcome stock = unpack(theirs, packed, seed, small);
    // A table of more codes than there can be is refused here, theirs reads on as long as it can;
    // and what cannot be a code is seen some bits later here.
    const bool refused = isDamaged && (mine.code == BZ_DATA_ERROR || mine.code == BZ_OK);
    EXPECT_TRUE(mine.code == stock.code || refused) << mine.code << " " << stock.code;
    if (mine.code != stock.code) ++refusals;
    if (mine.code != BZ_STREAM_END) {
        // How much of a broken block comes out may differ.
        const size_t count = std::min(mine.bytes.size(), stock.bytes.size());
        EXPECT_TRUE(part(mine.bytes, 0, count) == part(stock.bytes, 0, count));
        return;
    }
    EXPECT_EQ(mine.taken, stock.taken);
    EXPECT_TRUE(mine.bytes == stock.bytes);
}

TEST(DropinBzip2, EachReadsWhatTheOtherWrites) {
    EXPECT_STREQ(ours.bzlibVersion(), theirs.bzlibVersion());
    std::vector<Sample> samples = everyShape({1, 99, 100, 4000, 99900});
    for (const Bytes& plain :
         {Bytes(), sample(effort(900000)), Bytes(effort(2000000), 'y') + sample(99)})
        samples.push_back({"sample", plain});
    uint32_t seed = 0;
    for (const auto& [name, plain] : samples)
        for (const int level : {1, 9}) {
            SCOPED_TRACE(name + " level " + std::to_string(level));
            const Bytes packed[] = {pack(ours, plain, level), pack(theirs, plain, level)};
            EXPECT_LE(packed[0].size(), packed[1].size() + packed[1].size() / 200 + 4);
            for (const Bytes& stream : packed) {
                expectSame(stream + Bytes{'B', 'Z', 'h', '9'}, ++seed, level == 1 ? 1 : 0);
                EXPECT_TRUE(unpack(ours, stream, ++seed).bytes == plain);
            }
        }
}

TEST(DropinBzip2, DamageIsToldAlike) {
    Random random(7);
    const Bytes plain = sample(3000) + Bytes(3000, 'z');
    const Bytes packed = pack(theirs, plain);
    for (uint32_t round = 0; round < effort(4000); ++round) {
        SCOPED_TRACE(round);
        Bytes bad = packed;
        for (size_t flips = pick(random, 1, 3); flips != 0; --flips)
            flip(bad, 8 * pick(random, 0, round % 3 == 0 ? 40 : bad.size() - 1) + random() % 8);
        if (round % 4 == 0) bad.resize(pick(random, 0, bad.size()));
        expectSame(bad, round, 0, true);
        if (HasFailure()) break;
    }
    EXPECT_LE(refusals, effort(4000) / 50);
}

TEST(DropinBzip2, AnyOrderOfCallsReturnsTheSame) {
    for (uint32_t seed = 0; seed < effort(2000); ++seed) {
        SCOPED_TRACE(seed);
        Outcome outcomes[2];
        Bytes fed;
        for (const Bz2* by : {&ours, &theirs}) {
            Random random(seed);
            bz_stream stream{};
            Supply memory;
            takeFrom(stream, memory);
            Outcome& outcome = outcomes[by == &theirs];
            const int level = pick<int>(random, 0, 3), factor = seed % 9 == 0 ? 251 : 0;
            outcome.codes.push_back(by->bzCompressInit(&stream, level, 0, factor));
            if (outcome.codes.back() != BZ_OK) continue;
            Bytes input = sample(pick(random, 1, 90), seed);
            fed.clear();
            const auto step = [&](int action, size_t most) {
                Bytes room(most);
                const char* const from = stream.next_in;
                stream.next_out = chars(room);
                stream.avail_out = static_cast<unsigned>(room.size());
                const int code = by->bzCompress(&stream, action);
                fed.insert(fed.end(), from, static_cast<const char*>(stream.next_in));
                outcome.bytes = outcome.bytes + part(room, 0, room.size() - stream.avail_out);
                outcome.codes.push_back(static_cast<int>(stream.next_in - from));
                outcome.codes.push_back(code);
            };
            // Either any calls, or a sound order of them.
            const bool wild = seed % 2 == 0;
            const auto busy = [&] {
                return outcome.codes.back() == BZ_FLUSH_OK || outcome.codes.back() == BZ_FINISH_OK;
            };
            int action = BZ_RUN;
            stream.next_in = chars(input);
            for (size_t calls = pick(random, 1, 30); calls != 0; --calls) {
                // Either too little for whatever there is, or enough: sizes differ.
                const size_t room = pick(random, 0, 3) == 0 ? pick(random, 0, 4) : 9000;
                if (wild || !busy()) {
                    action = pick<int>(random, 0, wild ? 3 : 1);
                    stream.next_in = chars(input);
                    stream.avail_in = pick<unsigned>(random, 0, input.size());
                }
                step(action, room);
            }
            if (!wild) {
                const size_t agreed = outcome.codes.size();
                for (const int last : {BZ_FLUSH, BZ_FINISH}) do
                        step(last, 1 << 20);
                    while (busy());
                EXPECT_EQ(outcome.codes.back(), BZ_STREAM_END);
                outcome.codes.resize(agreed);
                EXPECT_TRUE(unpack(ours, outcome.bytes, seed).bytes == fed);
            }
            by->bzCompressEnd(&stream);
        }
        ASSERT_EQ(outcomes[0].codes, outcomes[1].codes);
    }
}

TEST(DropinBzip2, WhatCannotBeIsRefusedAlike) {
    std::vector<int> codes[2];
    for (const Bz2* by : {&ours, &theirs}) {
        const auto note = [&](int code) { codes[by == &theirs].push_back(code); };
        bz_stream stream{};
        for (const auto& [verbosity, small] : {std::pair{5, 0}, {-1, 0}, {0, 2}, {0, -1}, {0, 1}})
            note(by->bzDecompressInit(&stream, verbosity, small));
        bz_stream copied = stream;
        note(by->bzDecompress(&copied));
        note(by->bzDecompressEnd(&copied));
        note(by->bzDecompressEnd(&stream));
        note(by->bzDecompressInit(nullptr, 0, 0));
        note(by->bzCompressInit(nullptr, 1, 0, 0));
        note(by->bzCompress(&stream, BZ_RUN));
        note(by->bzCompressEnd(nullptr));
        Supply none{0};
        takeFrom(stream, none);
        note(by->bzCompressInit(&stream, 9, 0, 0));
        note(by->bzDecompressInit(&stream, 0, 0));

        Bytes plain = sample(300), packed = pack(theirs, plain), room(plain.size());
        for (size_t size : {size_t{0}, packed.size() / 2, packed.size() - 1, packed.size()})
            for (size_t most : {size_t{0}, size_t{1}, plain.size(), plain.size() - 1}) {
                auto length = static_cast<unsigned>(most);
                note(by->bzBuffToBuffDecompress(chars(room), &length, chars(packed),
                                                static_cast<unsigned>(size), 0, 0));
                note(static_cast<int>(length));
            }
        for (unsigned most : {0U, 1U, 20U}) {
            note(by->bzBuffToBuffCompress(chars(room), &most, chars(plain), 300, 1, 0, 0));
            note(by->bzBuffToBuffCompress(chars(room), &most, chars(plain), 300, 1, 5, 0));
            note(by->bzBuffToBuffCompress(chars(room), &most, chars(plain), 300, 10, 0, 0));
            note(by->bzBuffToBuffCompress(chars(room), &most, nullptr, 300, 1, 0, 0));
        }
    }
    EXPECT_EQ(codes[0], codes[1]);
}

/// Handles on files: streams one behind the other, read as programs do it, and every wrong turn.
/// Long, since each turn depends on what those before left in the handle.
TEST(DropinBzip2, HandlesReturnTheSame) {
    Bytes plain = sample(2000 + effort(60000));
    const int size = length(plain);
    const std::string path = testing::TempDir() + "dropin_bzip2_" VEK_VARIANT_NAME;
    std::vector<int> codes[2];
    for (const Bz2* by : {&ours, &theirs}) {
        auto& list = codes[by == &theirs];
        int error = 0;
        const auto note = [&](auto... values) {
            (list.push_back(static_cast<int>(values)), ...);
            list.push_back(error);
        };
        FILE* file = std::fopen(path.c_str(), "w+b");
        ASSERT_NE(file, nullptr);
        for (int stream = 0; stream < 3; ++stream) {
            BZFILE* handle = by->bzWriteOpen(&error, file, 1 + stream, 0, 0);
            Bytes bytes = plain;
            for (const int count : {0, 1, -1, 1000, size - 1001}) {
                by->bzWrite(&error, handle, chars(bytes), count);
                note();
            }
            note(by->bzRead(&error, handle, chars(bytes), 10));
            by->bzWrite(&error, handle, nullptr, 10);
            note();
            by->bzWrite(&error, handle, chars(bytes), 0);
            unsigned in = 1, inHigh = 1, out = 1, outHigh = 1;
            by->bzWriteClose64(&error, handle, stream == 2, &in, &inHigh, &out, &outHigh);
            note(in, inHigh, outHigh);
        }
        std::rewind(file);
        Bytes unused;
        for (int stream = 0; stream < 3; ++stream) {
            BZFILE* handle =
                by->bzReadOpen(&error, file, 0, stream & 1, unused.data(), length(unused));
            note();
            void* rest = nullptr;
            int restLength = 0;
            const auto getUnused = [&] {
                by->bzReadGetUnused(&error, handle, &rest, &restLength);
                note();
            };
            getUnused();
            Bytes room(3001);
            for (size_t all = 0, got = 0;; all += got) {
                got = static_cast<size_t>(by->bzRead(&error, handle, chars(room), length(room)));
                note(got);
                if (error == BZ_STREAM_END) {
                    EXPECT_EQ(all + got, plain.size());
                }
                if (error != BZ_OK) break;
            }
            if (error == BZ_STREAM_END) {
                getUnused();
                const auto* const from = static_cast<const uint8_t*>(rest);
                unused = Bytes(from, from + restLength);
                getUnused();
            }
            by->bzWriteClose64(&error, handle, 0, nullptr, nullptr, nullptr, nullptr);
            note();
            by->bzReadClose(&error, handle);
            note();
        }
        note(by->bzReadOpen(&error, nullptr, 0, 0, nullptr, 0) == nullptr);
        note(by->bzReadOpen(&error, file, 0, 0, &error, BZ_MAX_UNUSED + 1) == nullptr);
        std::fclose(file);

        BZFILE* handle = by->bzopen(path.c_str(), "w0");
        note(by->bzwrite(handle, chars(plain), size));
        note(by->bzread(handle, chars(plain), 10));
        EXPECT_STREQ(by->bzerror(handle, &error), "SEQUENCE_ERROR");
        note(by->bzwrite(handle, chars(plain), 0));
        by->bzclose(handle);
        handle = by->bzopen(path.c_str(), "rs");
        Bytes back(plain.size() + 10);
        note(by->bzread(handle, chars(back), length(back)));
        note(by->bzread(handle, chars(back), 1));
        EXPECT_STREQ(by->bzerror(handle, &error), "OK");
        by->bzclose(handle);
        by->bzclose(nullptr);
        EXPECT_EQ(by->bzopen((path + "/none").c_str(), "r"), nullptr);
        EXPECT_EQ(by->bzopen(path.c_str(), nullptr), nullptr);
    }
    EXPECT_EQ(codes[0], codes[1]);
    std::remove(path.c_str());
}

}  // namespace
