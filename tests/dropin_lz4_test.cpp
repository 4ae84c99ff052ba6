// liblz4 as programs load it, against the distribution's: the same calls, the same data, the same
// refusals. Compressed bytes may differ, so each reads what the other writes.
#define LZ4_DISABLE_DEPRECATE_WARNINGS
#define LZ4F_STATIC_LINKING_ONLY
#include <lz4.h>
#include <lz4frame.h>
#include <lz4hc.h>

#include <algorithm>
#include <cstring>
#include <deque>

#include "support/data.h"
#include "support/dropin.h"

namespace {

using namespace vektest;

struct Lz4 : Library {
    using Library::Library;
#define VEK_MEMBER(name) decltype(&LZ4_##name) name = VEK_FUNCTION(*this, LZ4_##name)
    VEK_MEMBER(versionNumber);
    VEK_MEMBER(compressBound);
    VEK_MEMBER(decoderRingBufferSize);
    VEK_MEMBER(compress_default);
    VEK_MEMBER(compress_fast);
    VEK_MEMBER(compress_fast_extState);
    VEK_MEMBER(compress_destSize);
    VEK_MEMBER(compress_HC);
    VEK_MEMBER(compress_HC_extStateHC);
    VEK_MEMBER(compress_HC_destSize);
    VEK_MEMBER(decompress_safe);
    VEK_MEMBER(decompress_safe_partial);
    VEK_MEMBER(decompress_safe_usingDict);
    VEK_MEMBER(decompress_safe_partial_usingDict);
    VEK_MEMBER(decompress_fast);
    VEK_MEMBER(decompress_fast_usingDict);
    VEK_MEMBER(createStream);
    VEK_MEMBER(freeStream);
    VEK_MEMBER(initStream);
    VEK_MEMBER(resetStream_fast);
    VEK_MEMBER(loadDict);
    VEK_MEMBER(saveDict);
    VEK_MEMBER(compress_fast_continue);
    VEK_MEMBER(createStreamHC);
    VEK_MEMBER(freeStreamHC);
    VEK_MEMBER(initStreamHC);
    VEK_MEMBER(resetStreamHC_fast);
    VEK_MEMBER(loadDictHC);
    VEK_MEMBER(saveDictHC);
    VEK_MEMBER(compress_HC_continue);
    VEK_MEMBER(compress_HC_continue_destSize);
    VEK_MEMBER(setStreamDecode);
    VEK_MEMBER(decompress_safe_continue);
    VEK_MEMBER(decompress_fast_continue);
#undef VEK_MEMBER
};

const Lz4 ours(VEK_BUILD_DIR "/lib/dropin/liblz4.so.1");
const Lz4 theirs(VEK_STOCK_LIBRARY);

char* chars(Bytes& bytes) {
    return reinterpret_cast<char*>(bytes.data());
}
int length(const Bytes& bytes) {
    return static_cast<int>(bytes.size());
}

/// Every way of coding one block, by number; the state for those that want one is uninitialised.
int encode(const Lz4& by, size_t way, const char* src, char* dst, int size, int room) {
    static LZ4_streamHC_t state;
    std::memset(&state, static_cast<int>(way), sizeof(state));
    if (way == 0) return by.compress_default(src, dst, size, room);
    if (way == 1) return by.compress_fast(src, dst, size, room, 9);
    if (way == 2) return by.compress_fast_extState(&state, src, dst, size, room, 1);
    if (way == 3) return by.compress_HC_extStateHC(&state, src, dst, size, room, 4);
    return by.compress_HC(src, dst, size, room, static_cast<int>(way) - 4);
}
constexpr size_t kWays = 18;

/// Decodes with both; a room that is just as large as needed, and one that is larger.
void expectBlock(Bytes block, const Bytes& plain) {
    for (const Lz4* by : {&ours, &theirs})
        for (size_t more : {0, 1, 70}) {
            Bytes room(plain.size() + more);
            ASSERT_EQ(by->decompress_safe(chars(block), chars(room), length(block), length(room)),
                      length(plain));
            room.resize(plain.size());
            ASSERT_TRUE(room == plain);
        }
    Bytes room(plain.size());
    room.reserve(1);
    EXPECT_EQ(ours.decompress_fast(chars(block), chars(room), length(plain)), length(block));
    EXPECT_TRUE(room == plain);
}

TEST(DropinLz4, EachReadsTheBlocksOfTheOther) {
    EXPECT_EQ(ours.versionNumber(), theirs.versionNumber());
    for (const int size : {-1, 0, 1, 15, 100000, LZ4_MAX_INPUT_SIZE, LZ4_MAX_INPUT_SIZE + 1}) {
        EXPECT_EQ(ours.compressBound(size), theirs.compressBound(size));
        EXPECT_EQ(ours.decoderRingBufferSize(size), theirs.decoderRingBufferSize(size));
    }
    Random random(1);
    for (const size_t size : {0, 1, 5, 12, 13, 14, 40, 300, 5000, 70000, 200000})
        for (const Shape& shape : shapes()) {
            if (pick(random, 0, 3) != 0) continue;
            Bytes plain = shape.make(size, 3);
            plain.reserve(1);
            for (size_t way = 0; way < kWays; ++way) {
                SCOPED_TRACE(std::string(shape.name) + " " + std::to_string(size) + " way " +
                             std::to_string(way));
                Bytes block(static_cast<size_t>(ours.compressBound(length(plain))));
                const int packed =
                    encode(ours, way, chars(plain), chars(block), length(plain), length(block));
                ASSERT_GT(packed, 0);
                block.resize(static_cast<size_t>(packed));
                expectBlock(block, plain);
                // In that many bytes it fits again, or nearly, and never goes beyond them.
                for (const int room : {packed + 8, packed / 2, 1, 0, -1}) {
                    Bytes small(static_cast<size_t>(std::max(room, 0)) + 1, 0xA5);
                    const int got =
                        encode(ours, way, chars(plain), chars(small), length(plain), room);
                    EXPECT_EQ(small.back(), 0xA5);
                    if (room > packed) {
                        EXPECT_GT(got, 0);
                    }
                    if (room < 1) {
                        EXPECT_EQ(got, 0);
                    }
                    if (got == 0) continue;
                    small.resize(static_cast<size_t>(got));
                    expectBlock(small, plain);
                }
            }
            // As much as fits.
            for (const int target : {1, 2, 20, 1000, 100000})
                for (const bool high : {false, true}) {
                    static LZ4_streamHC_t state;
                    Bytes block(static_cast<size_t>(target));
                    int taken = length(plain);
                    const int got =
                        high ? ours.compress_HC_destSize(&state, chars(plain), chars(block), &taken,
                                                         target, 7)
                             : ours.compress_destSize(chars(plain), chars(block), &taken, target);
                    ASSERT_TRUE(got > 0 && got <= target && taken <= length(plain));
                    block.resize(static_cast<size_t>(got));
                    expectBlock(block, Bytes(plain.begin(), plain.begin() + taken));
                }
        }
}

/// A match at the distance 0 is whatever a decoder makes of it.
bool hasDistance0(const Bytes& block) {
    for (size_t at = 0;;) {
        const auto token = block[at++];
        const auto number = [&](size_t nibble) {
            for (bool more = nibble == 15; more && at < block.size(); nibble += block[at++])
                more = block[at] == 255;
            return nibble;
        };
        at += number(token >> 4);
        if (at + 2 >= block.size()) return false;
        if (block[at] == 0 && block[at + 1] == 0) return true;
        at += 2;
        number(token & 15);
        if (at >= block.size()) return false;
    }
}

TEST(DropinLz4, BeginningsAndDamageAreReadAlike) {
    Random random(5);
    Bytes plain = sample(400), block(7000), dictionary = sample(900, 2);
    LZ4_stream_t* const stream = theirs.createStream();
    size_t stricter = 0;
    for (uint32_t round = 0; round < effort(20000); ++round) {
        SCOPED_TRACE(round);
        const bool withDictionary = round % 2 == 0;
        theirs.loadDict(stream, withDictionary ? chars(dictionary) : nullptr,
                        withDictionary ? length(dictionary) : 0);
        const int size = theirs.compress_fast_continue(
            stream, chars(plain) + pick(random, 0, 900), chars(block),
            static_cast<int>(pick(random, 1, 4000)), length(block), 1);
        Bytes bad(block.begin(), block.begin() + size);
        const bool partial = round % 3 == 0;
        if (!partial)
            for (size_t flips = pick(random, 0, 2); flips != 0; --flips)
                bad[pick(random, 0, bad.size() - 1)] ^=
                    static_cast<uint8_t>(1U << pick(random, 0, 7));
        const auto room = pick(random, 0, 4500);
        int codes[2];
        Bytes got[2];
        for (const Lz4* by : {&ours, &theirs}) {
            const bool stock = by == &theirs;
            got[stock] = Bytes(room + 1);
            char* const dst = chars(got[stock]);
            const auto most = static_cast<int>(room);
            codes[stock] =
                partial
                    ? by->decompress_safe_partial_usingDict(chars(bad), dst, size, most, most,
                                                            chars(dictionary),
                                                            withDictionary ? length(dictionary) : 0)
                    : by->decompress_safe_usingDict(chars(bad), dst, size, most, chars(dictionary),
                                                    withDictionary ? length(dictionary) : 0);
            ASSERT_EQ(got[stock].back(), 0);
            got[stock].resize(static_cast<size_t>(std::max(codes[stock], 0)));
        }
        // Theirs also refuses blocks whose last match is too near the end of the room.
        if (codes[1] < 0 && codes[0] >= 0) {
            ASSERT_FALSE(partial);
            ++stricter;
            continue;
        }
        ASSERT_EQ(codes[0] < 0, codes[1] < 0) << codes[0] << " " << codes[1];
        if (codes[0] >= 0) {
            ASSERT_EQ(codes[0], codes[1]);
            if (!hasDistance0(bad)) {
                ASSERT_TRUE(got[0] == got[1]);
            }
        }
    }
    EXPECT_LE(stricter, effort(20000) / 50);
    theirs.freeStream(stream);
}

/// A stream of blocks from one place to the next: behind each other, in turn in two buffers, around
/// a ring, saved elsewhere. The decoder follows with the same moves.
struct Mover {
    enum Kind { Behind, Two, Ring, Saved, Kinds };
    Kind kind;
    Bytes memory;
    size_t at = 0;

    Mover(Kind k, size_t ring)
        : kind(k),
          memory(k == Behind ? size_t{1} << 20
                 : k == Ring ? ring
                             : 1 << 17) {}

    char* next(size_t size, size_t block) {
        if (kind == Two) at = block % 2 == 0 ? 0 : memory.size() / 2 + 1;
        if (kind == Saved) at = 0;
        if (at + size > memory.size()) at = 0;
        char* const place = chars(memory) + at;
        at += size;
        return place;
    }
};

void streamThrough(const Lz4& writer, const Lz4& reader, Mover::Kind kind, bool high,
                   uint32_t seed) {
    Random random(seed);
    const size_t most = kind == Mover::Two ? 60000 : size_t{1} << pick(random, 4, 14);
    const size_t ring = static_cast<size_t>(LZ4_DECODER_RING_BUFFER_SIZE(most));
    Mover from(kind, pick(random, 2 * most, ring + most)),
        to(kind == Mover::Ring ? Mover::Ring : kind, ring);
    if (kind == Mover::Ring) to.memory.resize(from.memory.size());
    Bytes plain = sample(30000, seed), dictionary = sample(pick(random, 0, 6000), seed + 1);
    // The caller's own state, or one that the library makes.
    static LZ4_stream_t ownFast;
    static LZ4_streamHC_t ownHigh;
    const bool own = seed % 2 == 0;
    std::memset(&ownHigh, 0x77, sizeof(ownHigh));
    LZ4_stream_t* fast = own ? writer.initStream(&ownFast, sizeof(ownFast)) : writer.createStream();
    LZ4_streamHC_t* slow =
        own ? writer.initStreamHC(&ownHigh, sizeof(ownHigh)) : writer.createStreamHC();
    if (high) writer.resetStreamHC_fast(slow, 5);
    LZ4_streamDecode_t decoder{};
    const int loaded = high ? writer.loadDictHC(slow, chars(dictionary), length(dictionary))
                            : writer.loadDict(fast, chars(dictionary), length(dictionary));
    reader.setStreamDecode(&decoder, chars(dictionary) + length(dictionary) - loaded, loaded);
    Bytes savedFrom(1 << 16), savedTo(1 << 16), block(70000);
    size_t sizes = 0, packed = 0;
    for (size_t count = 0, position = 0; count < 40; ++count) {
        const size_t size = pick(random, 1, most);
        if (position + size > plain.size()) position = 0;
        char* const src = from.next(size, count);
        char* const dst = to.next(size, count);
        std::memcpy(src, plain.data() + position, size);
        const int room = length(block), n = static_cast<int>(size);
        const int got = high ? writer.compress_HC_continue(slow, src, chars(block), n, room)
                             : writer.compress_fast_continue(fast, src, chars(block), n, room, 1);
        ASSERT_GT(got, 0);
        Bytes exact(block.begin(), block.begin() + got);
        if (count % 5 == 4)
            ASSERT_EQ(reader.decompress_fast_continue(&decoder, chars(exact), dst, n), got);
        else
            ASSERT_EQ(reader.decompress_safe_continue(&decoder, chars(exact), dst, got, n), n);
        ASSERT_TRUE(std::equal(dst, dst + n, src)) << count;
        if (kind == Mover::Saved) {
            const auto keep = static_cast<int>(pick(random, 0, count % 2 == 0 ? 100 : 1 << 16));
            const int kept = high ? writer.saveDictHC(slow, chars(savedFrom), keep)
                                  : writer.saveDict(fast, chars(savedFrom), keep);
            ASSERT_LE(kept, keep);
            std::memcpy(savedTo.data(), savedFrom.data(), static_cast<size_t>(kept));
            reader.setStreamDecode(&decoder, chars(savedTo), kept);
        }
        position += size;
        sizes += size;
        packed += exact.size();
    }
    if (kind == Mover::Behind && most > 1000) {
        EXPECT_LT(packed, sizes);
    }
    if (!own) {
        writer.freeStream(fast);
        writer.freeStreamHC(slow);
    }
}

TEST(DropinLz4, StreamsOfBlocksGoFromEitherToEither) {
    for (uint32_t seed = 0; seed < effort(15); ++seed)
        for (int kind = 0; kind < Mover::Kinds; ++kind)
            for (const bool high : {false, true}) {
                SCOPED_TRACE(std::to_string(seed) + " kind " + std::to_string(kind) +
                             (high ? " high" : ""));
                streamThrough(ours, theirs, static_cast<Mover::Kind>(kind), high, seed);
                streamThrough(theirs, ours, static_cast<Mover::Kind>(kind), high, seed);
                streamThrough(ours, ours, static_cast<Mover::Kind>(kind), high, seed);
                if (HasFailure()) return;
            }
    EXPECT_EQ(ours.initStream(nullptr, sizeof(LZ4_stream_t)), nullptr);
    LZ4_streamHC_t state;
    EXPECT_EQ(ours.initStreamHC(&state, sizeof(state) - 1), nullptr);
    EXPECT_EQ(ours.initStream(reinterpret_cast<char*>(&state) + 1, sizeof(LZ4_stream_t)), nullptr);
}

}  // namespace
