// liblz4 as programs load it, against the distribution's: the same calls, the same data, the same
// refusals. Compressed bytes may differ, so each reads what the other writes.
#define LZ4_DISABLE_DEPRECATE_WARNINGS
#define LZ4F_STATIC_LINKING_ONLY
#include <lz4.h>
#include <lz4frame.h>
#include <lz4hc.h>

#include "support/dropin.h"

namespace {

using namespace vektest;

// clang-format off
#define EACH_FUNCTION(X) \
    X(versionNumber) X(compressBound) X(decoderRingBufferSize) X(compress_default) \
    X(compress_fast) X(compress_fast_extState) X(compress_destSize) X(compress_HC) \
    X(compress_HC_extStateHC) X(compress_HC_destSize) X(decompress_safe) \
    X(decompress_safe_partial) X(decompress_safe_usingDict) X(decompress_safe_partial_usingDict) \
    X(decompress_fast) X(decompress_fast_usingDict) X(createStream) X(freeStream) X(initStream) \
    X(resetStream_fast) X(loadDict) X(saveDict) X(compress_fast_continue) X(createStreamHC) \
    X(freeStreamHC) X(initStreamHC) X(resetStreamHC_fast) X(loadDictHC) X(saveDictHC) \
    X(compress_HC_continue) X(compress_HC_continue_destSize) X(setStreamDecode) \
    X(decompress_safe_continue) X(decompress_fast_continue)
#define EACH_OF_FRAMES(X) \
    X(isError) X(getErrorName) X(getErrorCode) X(getBlockSize) X(compressionLevel_max) \
    X(compressBound) X(compressFrameBound) X(compressFrame) X(compressFrame_usingCDict) \
    X(createCDict) X(freeCDict) X(createCompressionContext) X(freeCompressionContext) \
    X(compressBegin_usingCDict) X(compressUpdate) X(uncompressedUpdate) X(flush) X(compressEnd) \
    X(headerSize) X(getFrameInfo) X(createDecompressionContext) X(freeDecompressionContext) \
    X(resetDecompressionContext) X(decompress_usingDict)
// clang-format on
struct Lz4 : Library {
    using Library::Library;
#define LZ4_MEMBER(name) VEK_MEMBER(name, LZ4_##name)
    EACH_FUNCTION(LZ4_MEMBER)
#define LZ4F_MEMBER(name) VEK_MEMBER(F_##name, LZ4F_##name)
    EACH_OF_FRAMES(LZ4F_MEMBER)
};

const Lz4 ours(VEK_BUILD_DIR "/lib/dropin/liblz4.so.1");
const Lz4 theirs(VEK_STOCK_LIBRARY);

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
    for (const size_t size :
         {0, 1, 5, 12, 13, 14, 15, 16, 20, 31, 40, 100, 300, 5000, 70000, 200000})
        for (const Shape& shape : shapes()) {
            if (size > 300 && pick(random, 0, 3) != 0) continue;
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
                    EXPECT_TRUE(room > packed ? got > 0 : room > 0 || got == 0) << got;
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
    Bytes plain = sample(5600), block(7000), dictionary = sample(9000, 2);
    LZ4_stream_t* const stream = theirs.createStream();
    size_t stricter = 0, looser = 0;
    for (uint32_t round = 0; round < effort(20000); ++round) {
        SCOPED_TRACE(round);
        const bool withDictionary = round % 2 == 0;
        theirs.loadDict(stream, withDictionary ? chars(dictionary) : nullptr,
                        withDictionary ? length(dictionary) : 0);
        const int size =
            theirs.compress_fast_continue(stream, chars(plain) + pick(random, 0, 900), chars(block),
                                          pick<int>(random, 1, 4000), length(block), 1);
        Bytes bad(block.begin(), block.begin() + size);
        const bool partial = round % 3 == 0;
        if (!partial)
            for (size_t flips = pick(random, 0, 2); flips != 0; --flips)
                flip(bad, pick(random, 0, 8 * bad.size() - 1));
        const auto room = pick(random, 0, 4500);
        int codes[2];
        Bytes got[2];
        for (const Lz4* by : {&ours, &theirs}) {
            const bool stock = by == &theirs;
            got[stock] = Bytes(room + 1);
            char* const dst = chars(got[stock]);
            const auto most = static_cast<int>(room);
            const int dictSize = withDictionary ? length(dictionary) : 0;
            codes[stock] = partial
                               ? by->decompress_safe_partial_usingDict(
                                     chars(bad), dst, size, most, most, chars(dictionary), dictSize)
                               : by->decompress_safe_usingDict(chars(bad), dst, size, most,
                                                               chars(dictionary), dictSize);
            ASSERT_EQ(got[stock].back(), 0);
            got[stock].resize(static_cast<size_t>(std::max(codes[stock], 0)));
        }
        // Theirs also refuses blocks whose last match is too near the end of the room.
        if (codes[1] < 0 && codes[0] >= 0) {
            ASSERT_FALSE(partial);
            ++stricter;
            continue;
        }
        // And now and then it takes a damaged block that is refused here.
        if (codes[0] < 0 && codes[1] >= 0) ++looser;
        if (codes[0] < 0) continue;
        ASSERT_EQ(codes[0], codes[1]);
        ASSERT_TRUE(got[0] == got[1] || hasDistance0(bad));
    }
    EXPECT_LE(stricter, effort(20000) / 50);
    EXPECT_LE(looser, 1 + effort(20000) / 2000);
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
    Mover from(kind, pick(random, 2 * most, ring + most)), to(kind, ring);
    if (kind == Mover::Ring) to.memory.resize(from.memory.size());
    Bytes plain = sample(100000, seed), dictionary = sample(pick(random, 0, 6000), seed + 1);
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
            const auto keep = pick<int>(random, 0, count % 2 == 0 ? 100 : 1 << 16);
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

// --- frames --------------------------------------------------------------------------------------

LZ4F_preferences_t randomPreferences(Random& random) {
    LZ4F_preferences_t prefs = LZ4F_INIT_PREFERENCES;
    LZ4F_frameInfo_t& info = prefs.frameInfo;
    info.blockSizeID = pick<LZ4F_blockSizeID_t>(random, 3, 7);
    if (info.blockSizeID == 3) info.blockSizeID = LZ4F_default;
    info.blockMode = pick<LZ4F_blockMode_t>(random, 0, 1);
    info.contentChecksumFlag = pick<LZ4F_contentChecksum_t>(random, 0, 1);
    info.blockChecksumFlag = pick<LZ4F_blockChecksum_t>(random, 0, 1);
    info.dictID = pick<unsigned>(random, 0, 1);
    prefs.compressionLevel = pick<int>(random, 0, 15) - 3;
    prefs.autoFlush = pick<unsigned>(random, 0, 1);
    return prefs;
}

TEST(DropinLz4Frames, BoundsNamesAndSizesAreTheSame) {
    for (size_t code = 0; code < 24; ++code) {
        EXPECT_EQ(ours.F_isError(-code), theirs.F_isError(-code)) << code;
        EXPECT_STREQ(ours.F_getErrorName(-code), theirs.F_getErrorName(-code));
        EXPECT_EQ(ours.F_getErrorCode(-code), theirs.F_getErrorCode(-code));
        const auto id = static_cast<LZ4F_blockSizeID_t>(code);
        EXPECT_EQ(ours.F_getBlockSize(id), theirs.F_getBlockSize(id));
    }
    EXPECT_EQ(ours.F_compressionLevel_max(), theirs.F_compressionLevel_max());
    Random random(1);
    for (int round = 0; round < 2000; ++round) {
        const LZ4F_preferences_t prefs = randomPreferences(random);
        const size_t size =
            pick(random, 0, 3) == 0 ? pick(random, 0, 9) << 16 : pick(random, 0, 300000);
        for (const LZ4F_preferences_t* p :
             {&prefs, static_cast<const LZ4F_preferences_t*>(nullptr)}) {
            ASSERT_EQ(ours.F_compressBound(size, p), theirs.F_compressBound(size, p));
            ASSERT_EQ(ours.F_compressFrameBound(size, p), theirs.F_compressFrameBound(size, p));
        }
    }
}

struct Decoded {
    Bytes bytes;
    size_t code = 1, taken = 0;
};

/// Decodes a frame in random pieces until it ends, fails, or nothing moves.
Decoded decodeFrame(const Lz4& by, const Bytes& frame, const Bytes& dictionary, uint32_t seed) {
    Random random(seed);
    LZ4F_dctx* context = nullptr;
    EXPECT_EQ(by.F_createDecompressionContext(&context, LZ4F_VERSION), 0U);
    Decoded result;
    const size_t most = size_t{1} << pick(random, frame.size() > 10000 ? 8 : 0, 19);
    LZ4F_frameInfo_t info{};
    if (seed % 3 == 0) {
        result.taken = frame.size();
        by.F_getFrameInfo(context, &info, frame.data(), &result.taken);
    }
    for (int still = 0; result.code != 0 && still < 3;) {
        const Bytes piece = part(frame, result.taken, pick(random, 0, most));
        Bytes room(pick(random, 0, most));
        size_t taken = piece.size(), given = room.size();
        result.code = by.F_decompress_usingDict(context, room.data(), &given, piece.data(), &taken,
                                                dictionary.data(), dictionary.size(), nullptr);
        if (by.F_isError(result.code) != 0) break;
        result.bytes = result.bytes + part(room, 0, given);
        result.taken += taken;
        still = taken + given == 0 && result.taken == frame.size() ? still + 1 : 0;
    }
    const bool unfinished = by.F_freeDecompressionContext(context) != 0;
    if (by.F_isError(result.code) == 0) {
        EXPECT_EQ(unfinished, result.code != 0 && result.taken != 0);
    }
    return result;
}

TEST(DropinLz4, BlocksOfOneTokenAreEmptyOrBroken) {
    char room[9];
    for (const uint8_t token : {0, 1, 0xF, 0x10}) {
        SCOPED_TRACE(int{token});
        const auto* const block = reinterpret_cast<const char*>(&token);
        for (const int most : {0, 1, 9})
            EXPECT_EQ(ours.decompress_safe(block, room, 1, most) < 0,
                      theirs.decompress_safe(block, room, 1, most) < 0)
                << most;
        const Bytes frame = {4, 0x22, 0x4D, 0x18, 0x40, 0x40, 0xC0, 1, 0, 0, 0, token, 0, 0, 0, 0};
        EXPECT_EQ(decodeFrame(ours, frame, {}, 1).code == 0,
                  decodeFrame(theirs, frame, {}, 1).code == 0);
    }
}

TEST(DropinLz4Frames, AnyOrderOfCallsMakesFramesThatBothRead) {
    Bytes dictionary = sample(500, 9);
    for (uint32_t seed = 0; seed < effort(400); ++seed) {
        SCOPED_TRACE(seed);
        std::vector<size_t> codes[2];
        for (const Lz4* by : {&ours, &theirs}) {
            Random random(seed);
            LZ4F_preferences_t prefs = randomPreferences(random);
            const bool independent = prefs.frameInfo.blockMode == LZ4F_blockIndependent;
            const Bytes plain = sample(pick(random, 1, seed % 8 == 0 ? 400000 : 4000), seed);
            if (seed % 5 == 0)
                prefs.frameInfo.contentSize = plain.size() + (seed % 25 == 0 ? 1 : 0);
            LZ4F_CDict* const digested =
                seed % 2 == 0 ? by->F_createCDict(dictionary.data(), dictionary.size()) : nullptr;
            LZ4F_cctx* context = nullptr;
            ASSERT_EQ(by->F_createCompressionContext(&context, LZ4F_VERSION), 0U);
            const auto note = [&](size_t code) {
                codes[by == &theirs].push_back(by->F_isError(code) != 0 ? code : 0);
            };
            Bytes room(by->F_compressBound(plain.size(), &prefs) + 20000), frame;
            const auto keep = [&](size_t size) {
                note(size);
                if (by->F_isError(size) == 0) frame = frame + part(room, 0, size);
            };
            note(by->F_compressUpdate(context, room.data(), room.size(), plain.data(), 1, nullptr));
            note(by->F_compressBegin_usingCDict(context, room.data(), 18, digested, &prefs));
            keep(by->F_compressBegin_usingCDict(context, room.data(), room.size(), digested,
                                                &prefs));
            size_t at = 0;
            while (at < plain.size()) {
                const size_t size = std::min(
                    plain.size() - at, pick(random, 0, pick(random, 0, 1) == 0 ? 400 : 100000));
                const size_t enough = room.size();
                const bool stored = independent && pick(random, 0, 4) == 0;
                keep((stored ? by->F_uncompressedUpdate : by->F_compressUpdate)(
                    context, room.data(), enough, plain.data() + at, size, nullptr));
                at += size;
                if (pick(random, 0, 3) == 0)
                    keep(by->F_flush(context, room.data(), room.size(), nullptr));
                if (pick(random, 0, 9) == 0) note(by->F_flush(context, room.data(), 0, nullptr));
            }
            const size_t end = by->F_compressEnd(context, room.data(), room.size(), nullptr);
            keep(end);
            by->F_freeCompressionContext(context);
            by->F_freeCDict(digested);
            if (by->F_isError(end) != 0) continue;
            const Bytes none;
            for (const Lz4* reader : {&ours, &theirs}) {
                Bytes tail = frame + Bytes{4, 34, 77};
                const Decoded got =
                    decodeFrame(*reader, tail, digested != nullptr ? dictionary : none, seed);
                ASSERT_EQ(got.code, 0U) << reader->F_getErrorName(got.code);
                ASSERT_EQ(got.taken, frame.size());
                ASSERT_TRUE(got.bytes == plain);
            }
        }
        ASSERT_EQ(codes[0], codes[1]);
    }
}

TEST(DropinLz4Frames, OneCallMakesWhatBothRead) {
    Random random(3);
    for (const size_t size : {size_t{0}, size_t{1}, size_t{700}, size_t{70000}, size_t{1500000}})
        for (int round = 0; round < 6; ++round) {
            const LZ4F_preferences_t prefs = randomPreferences(random);
            const Bytes plain = sample(size, 4);
            Bytes frame(ours.F_compressFrameBound(plain.size(), &prefs));
            EXPECT_EQ(ours.F_getErrorCode(ours.F_compressFrame(frame.data(), 4, plain.data(),
                                                               plain.size(), &prefs)),
                      LZ4F_ERROR_dstMaxSize_tooSmall);
            const size_t got = ours.F_compressFrame(frame.data(), frame.size(), plain.data(),
                                                    plain.size(), &prefs);
            ASSERT_EQ(ours.F_isError(got), 0U);
            frame.resize(got);
            for (const Lz4* reader : {&ours, &theirs})
                EXPECT_TRUE(decodeFrame(*reader, frame, {}, 1).bytes == plain);
        }
}

TEST(DropinLz4Frames, HeadersAndDamageAreReadAlike) {
    Random random(8);
    const Bytes plain = sample(3500);
    size_t atDistance0 = 0;
    for (uint32_t round = 0; round < effort(6000); ++round) {
        SCOPED_TRACE(round);
        LZ4F_preferences_t prefs = randomPreferences(random);
        prefs.frameInfo.contentSize = round % 2;
        Bytes frame(theirs.F_compressFrameBound(plain.size(), &prefs));
        frame.resize(
            theirs.F_compressFrame(frame.data(), frame.size(), plain.data(), plain.size(), &prefs));
        if (round % 50 == 0) frame = Bytes{0x50, 0x2A, 0x4D, 0x18, 12, 0, 0, 0} + Bytes(12, 7);
        for (size_t flips = pick(random, 0, 2); flips != 0; --flips)
            flip(frame, 8 * pick(random, 0, round % 2 == 0 ? 22 % frame.size() : frame.size() - 1) +
                            random() % 8);
        if (round % 5 == 0) frame.resize(pick(random, 0, frame.size()));
        // What the legacy and the unknown kinds of frames are is said before the whole header is
        // in.
        LZ4F_frameInfo_t infos[2];
        size_t codes[2], sizes[2];
        for (const Lz4* by : {&ours, &theirs}) {
            const bool stock = by == &theirs;
            LZ4F_dctx* context = nullptr;
            by->F_createDecompressionContext(&context, LZ4F_VERSION);
            std::memset(&infos[stock], 0, sizeof(infos[stock]));
            sizes[stock] = frame.size();
            codes[stock] = by->F_getErrorCode(
                by->F_getFrameInfo(context, &infos[stock], frame.data(), &sizes[stock]));
            by->F_freeDecompressionContext(context);
        }
        ASSERT_EQ(ours.F_headerSize(frame.data(), frame.size()),
                  theirs.F_headerSize(frame.data(), frame.size()));
        ASSERT_EQ(codes[0], codes[1]);
        ASSERT_EQ(sizes[0], sizes[1]);
        ASSERT_TRUE(codes[0] != 0 || std::memcmp(&infos[0], &infos[1], sizeof(infos[0])) == 0);
        // Theirs looks at a header once it has all of it.
        if (frame.size() < LZ4F_HEADER_SIZE_MAX) continue;
        const Decoded mine = decodeFrame(ours, frame, {}, round);
        const Decoded stock = decodeFrame(theirs, frame, {}, round);
        const auto error = [](const Lz4& by, size_t code) -> std::string {
            return by.F_isError(code) != 0 ? by.F_getErrorName(code) : "";
        };
        // A match at the distance 0 breaks the frame for ours. It is zeros for theirs, which only
        // a checksum notices.
        if (error(ours, mine.code) == "ERROR_decompressionFailed" &&
            (stock.code == 0 || error(theirs, stock.code) == "ERROR_contentChecksum_invalid")) {
            ++atDistance0;
            continue;
        }
        ASSERT_EQ(mine.code == 0, stock.code == 0);
        ASSERT_EQ(error(ours, mine.code), error(theirs, stock.code));
        if (mine.code != 0) continue;
        ASSERT_EQ(mine.bytes, stock.bytes);
    }
    EXPECT_LE(atDistance0, effort(6000) / 300);
}

}  // namespace
