// The codecs of LZ4 frames, of lzop's container and of the one for LZSS: in pieces of any size,
// cut, damaged, and out of memory. What they write and read is held against other programs' in the
// tests of the tool.

#include "codec/lz4_frame_decoder.h"
#include "codec/lz4_frame_encoder.h"
#include "codec/lzop_decoder.h"
#include "codec/lzop_encoder.h"
#include "codec/lzss_decoder.h"
#include "codec/lzss_encoder.h"
#include "support/codecs.h"
#include "support/guarded.h"
#include "vekdc.h"

namespace {

using namespace vekdc::codec;
using namespace vektest;
using vektest::Bytes;

const Bytes kDictionary = sample(70000);

/// A pair of codecs with their options.
template <class Encoder, class Decoder>
struct Pair {
    const char* name;
    std::function<Encoder(const Allocator&)> encoder;
    Bytes dictionary;

    Decoder decoder(const Allocator& allocator) const {
        Decoder made(allocator);
        if constexpr (requires { made.setDictionary({}); }) made.setDictionary(dictionary);
        return made;
    }
};
using Lz4Pair = Pair<Lz4FrameEncoder, Lz4FrameDecoder>;

Lz4FrameOptions options(int level, unsigned code, bool linked, bool dictionary) {
    Lz4FrameOptions chosen;
    chosen.coding = {level, 1, !linked};
    chosen.blockCode = code;
    chosen.linked = linked;
    if (dictionary) chosen.dictionary = kDictionary;
    chosen.dictionaryId = dictionary ? 77 : 0;
    return chosen;
}

/// Calls `check` with each pair.
template <class Check>
void forAll(Check&& check) {
    for (const int level : {1, 4})
        for (const bool linked : {false, true})
            for (const bool dictionary : {false, true})
                check(Lz4Pair{"lz4",
                              [=](const Allocator& allocator) {
                                  return Lz4FrameEncoder(options(level, 4, linked, dictionary),
                                                         allocator);
                              },
                              dictionary ? kDictionary : Bytes()});
    for (const uint8_t deep : {0, 7})
        check(Pair<LzopEncoder, LzopDecoder>{"lzop",
                                             [=](const Allocator& allocator) {
                                                 LzopOptions chosen;
                                                 chosen.flags |= kLzopCrcOfStream;
                                                 chosen.deep = deep;
                                                 return LzopEncoder(chosen, allocator);
                                             },
                                             {}});
    check(Pair<LzssEncoder, LzssDecoder>{
        "lzss",
        [](const Allocator& allocator) { return LzssEncoder(kLzssUnknown, allocator); },
        {}});
}

TEST(CodecLz, PiecesOfAnySizeGiveTheSame) {
    forAll([](const auto& pair) {
        auto encoder = pair.encoder({});
        auto decoder = pair.decoder({});
        // The last one has linked blocks outgrow the memory that their history is kept in.
        for (const size_t size : {0U, 1U, 2000U, 65536U, 300000U, 1300000U}) {
            SCOPED_TRACE(pair.name + std::to_string(size));
            const Bytes plain = sample(size);
            const Bytes packed = codeInPieces(encoder, plain).bytes;
            const size_t few = size / 3000 + 1;
            encoder.reset();
            const CodecResult again = codeInPieces(encoder, plain, few, few + 5);
            expectAll(again, packed);
            encoder.reset();
            // Room for next to nothing, for some blocks and part of one, for all.
            const size_t all = packed.size() + 4;
            for (const auto& [piece, room] : {std::pair{few, few},
                                              {all, size_t{150000}},
                                              {all / 5 + 1, size_t{150000}},
                                              {all, size + 70000}}) {
                decoder.reset();
                const CodecResult back =
                    codeInPieces(decoder, packed + Bytes{1, 2, 3, 4}, piece, room);
                expectAll(back, plain, 4);
                EXPECT_EQ(decoder.info().plain, size);
                ASSERT_EQ(codeInPieces(decoder, {}).status, Status::Ended);
            }
        }
    });
}

TEST(CodecLz, CutsAndDamageAreNoticed) {
    forAll([](const auto& pair) {
        SCOPED_TRACE(pair.name);
        const Bytes plain = sample(1500);
        auto encoder = pair.encoder({});
        const Bytes packed = codeInPieces(encoder, plain).bytes;
        // Another distance may be as good.
        EXPECT_LT(survivesDamage([&] { return pair.decoder({}); }, packed, &plain), 100U);
    });
}

TEST(CodecLz, EveryFailureOfMemoryCanBeMadeGood) {
    const Bytes plain = sample(200000);
    forAll([&](const auto& pair) {
        SCOPED_TRACE(pair.name);
        auto reference = pair.encoder({});
        const Bytes packed = codeInPieces(reference, plain).bytes;
        goesOnOnceThereIsMemory(pair.encoder, plain, packed);
        goesOnOnceThereIsMemory([&](auto from) { return pair.decoder(from); }, packed, plain);
    });
}

TEST(CodecLz, FlushedDataCanBeDecodedAtOnce) {
    forAll([](const auto& pair) {
        auto encoder = pair.encoder({});
        auto decoder = pair.decoder({});
        const Bytes plain = sample(100000);
        Bytes packed, back;
        size_t at = 0;
        for (const Directive directive :
             {Directive::Block, Directive::SyncFlush, Directive::FullFlush, Directive::Finish}) {
            // Nothing to flush gives nothing.
            for (const size_t size : {25000U, 0U}) {
                Bytes room(200000);
                Input in{plain.data() + at, size};
                Output out{room.data(), room.size()};
                const Status status = encoder.run(in, out, directive);
                EXPECT_EQ(status == Status::Ended, directive == Directive::Finish);
                room.resize(room.size() - out.left);
                EXPECT_EQ(room.empty(), size == 0);
                const CodecResult result = codeInPieces(decoder, room);
                EXPECT_EQ(result.status, status);
                back = back + result.bytes;
                at += size;
                EXPECT_EQ(back.size(), at);
            }
        }
        EXPECT_TRUE(back == plain) << pair.name;
    });
}

TEST(CodecLz, AHeaderThatLiesIsAnError) {
    Lz4FrameOptions chosen;
    const Bytes plain = sample(1000);
    for (const uint64_t size : {999U, 1000U, 1001U}) {
        chosen.contentSize = size;
        Lz4FrameEncoder lz4({});
        lz4.reset(chosen);
        LzssEncoder lzss(size);
        const Status expected = size == 1000 ? Status::Ended : Status::Broken;
        EXPECT_EQ(codeInPieces(lz4, plain).status, expected);
        EXPECT_EQ(codeInPieces(lzss, plain).status, expected);
    }
    // A frame that holds more than it says is decoded to its end, whatever the room.
    Lz4FrameEncoder encoder({});
    Bytes packed = codeInPieces(encoder, plain).bytes;
    const Bytes stated = {0x6C, 0x70, 10, 0, 0, 0, 0, 0, 0, 0};
    packed.erase(packed.begin() + 4, packed.begin() + 7);
    packed.insert(packed.begin() + 4, static_cast<uint8_t>(lz4Hash(stated) >> 8));
    packed.insert(packed.begin() + 4, stated.begin(), stated.end());
    for (const size_t room : {1U, 10U, 999U, 5000U}) {
        Lz4FrameDecoder decoder;
        const CodecResult result = codeInPieces(decoder, packed, packed.size(), room);
        EXPECT_EQ(result.status, Status::Broken);
        EXPECT_TRUE(result.bytes == plain) << room;
        EXPECT_EQ(decoder.fault().offset, packed.size() - 4);  // In front of the checksum.
    }
}

TEST(CodecLz, ADictionaryCanBeGivenWhenItIsAskedFor) {
    Lz4FrameEncoder encoder(options(1, 4, true, true));
    const Bytes plain = part(kDictionary, 20500, 3000);  // text
    const Bytes packed = codeInPieces(encoder, plain).bytes;
    EXPECT_LT(packed.size(), 100U);
    for (const size_t piece : {size_t{1}, packed.size()}) {
        Lz4FrameDecoder decoder;
        const CodecResult result =
            runInPieces(packed, piece, 5000, [&](Input& in, Output& out, bool) {
                const Status status = decoder.run(in, out);
                if (status != Status::NeedsDictionary) return status;
                EXPECT_EQ(decoder.info().dictionaryId, 77U);
                decoder.setDictionary(kDictionary);
                return decoder.run(in, out);
            });
        expectAll(result, plain);
    }
}

TEST(CodecLz, SkippedAndLegacyFramesEndWhereTheyDo) {
    const Bytes skipped = {0x5A, 0x2A, 0x4D, 0x18, 3, 0, 0, 0, 'x', 'y', 'z'};
    // Two blocks of two literals each, and the next frame.
    const Bytes block = {3, 0, 0, 0, 0x20, 'a', 'b'};
    const Bytes legacy = Bytes{0x02, 0x21, 0x4C, 0x18} + block + block;
    for (const size_t piece : {1U, 3U, 100U}) {
        Lz4FrameDecoder decoder;
        const CodecResult nothing = codeInPieces(decoder, skipped + legacy, piece);
        EXPECT_EQ(nothing.status, Status::Ended);
        EXPECT_EQ(nothing.unread, legacy.size());
        decoder.reset();
        const CodecResult all = codeInPieces(decoder, legacy + skipped, piece);
        EXPECT_EQ(all.status, Status::Ended);
        EXPECT_EQ(all.bytes, (Bytes{'a', 'b', 'a', 'b'}));
        EXPECT_EQ(all.unread + decoder.overrun(), skipped.size());
        for (size_t cut = 4; cut <= legacy.size(); ++cut) {
            decoder.reset();
            const Bytes begun = part(legacy, 0, cut);
            EXPECT_EQ(codeInPieces(decoder, begun, piece).status, Status::Going);
            EXPECT_EQ(decoder.mayEnd(), cut % block.size() == 4) << cut;
        }
    }
}

TEST(LzoDeep, KeepsInsideItsBuffersAndGoesBack) {
    // Around the lengths that a run, an extension and a match's reach change at; the container's
    // mark would be the first byte of a run of 68.
    for (const size_t size : {1,   3,   4,   7,   18,  19,   37,   67,    68,    69,
                              237, 238, 239, 273, 274, 2100, 3100, 16500, 50000, 150000}) {
        for (const auto& shape : vektest::shapes()) {
            for (int level = 7; level <= 9; ++level) {
                SCOPED_TRACE(testing::Message() << shape.name << size << " level " << level);
                vektest::Guarded data(shape.make(size, 3));
                vektest::Guarded stream(vekLZOEncodeBound(static_cast<uint32_t>(size)));
                LzoDeepEncoder encoder(level);
                size_t written = 0;
                ASSERT_TRUE(encoder.encode({data.data(), size}, stream.data(), written));
                EXPECT_NE(stream.data()[0], 0x55);
                vektest::Guarded back(size);
                auto length = static_cast<uint32_t>(size);
                ASSERT_EQ(veksDecodeLZOSafe_8u(stream.data(), static_cast<uint32_t>(written),
                                               back.data(), &length),
                          vekStatusOk);
                ASSERT_TRUE(length == size && back.bytes() == data.bytes());
            }
        }
    }
}

}  // namespace
