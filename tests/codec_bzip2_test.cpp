// bzip2 streams in pieces, flushed, cut short, damaged and out of memory. What they hold is tested
// with the tool's files, against the format's own library.
#include "codec/bzip2_decoder.h"
#include "codec/bzip2_encoder.h"
#include "support/codecs.h"

namespace {

using namespace vektest;
using vekdc::codec::Bzip2Decoder;
using vekdc::codec::Bzip2Encoder;
using vekdc::codec::Directive;
using vekdc::codec::Status;

Bytes encode(const Bytes& plain, int level = 1) {
    Bzip2Encoder encoder(level);
    return codeInPieces(encoder, plain).bytes;
}

TEST(Bzip2Codec, ComesToTheSameInAnyPieces) {
    Bzip2Encoder encoder(1);
    Bzip2Decoder decoder;
    const Bytes tail(9, 'B');
    for (const Bytes& plain : {Bytes(), Bytes(1, 'x'), Bytes(259, 0), sample(5000),
                               sample(effort(210000)), Bytes(effort(3000000), 'x') + sample(20)}) {
        SCOPED_TRACE(plain.size());
        const Bytes packed = encode(plain);
        for (const auto& [in, out] : {std::pair<size_t, size_t>{1, 1}, {1, 999}, {301, 7}}) {
            if (plain.size() > 1000000 && in == 1) continue;
            ASSERT_EQ(encoder.reset(), Status::Going);
            expectAll(codeInPieces(encoder, plain, in, out), packed);
            ASSERT_EQ(decoder.reset(), Status::Going);
            expectAll(codeInPieces(decoder, packed + tail, in, out), plain, tail.size());
            EXPECT_EQ(decoder.taken(), packed.size());
        }
        // The end needs no room.
        Bytes room(plain.size());
        vekdc::codec::Input in{packed.data(), packed.size()};
        vekdc::codec::Output out{room.data(), room.size()};
        decoder.reset();
        EXPECT_EQ(decoder.run(in, out), Status::Ended);
        EXPECT_TRUE(room == plain);
        expectAll(codeInPieces(decoder, tail), {}, tail.size());
    }
}

TEST(Bzip2Codec, FlushesEndBlocks) {
    const Bytes plain = sample(3000);
    for (const Directive flush : {Directive::Block, Directive::SyncFlush, Directive::FullFlush}) {
        Bzip2Encoder encoder;
        const auto run = [&](const Bytes& input, Directive directive, size_t outPiece) {
            return runInPieces(input, 100, outPiece, [&](auto& in, auto& out, bool last) {
                return encoder.run(in, out, last ? directive : Directive::Go);
            });
        };
        Bytes packed = run({}, flush, 10).bytes;
        EXPECT_EQ(packed.size(), 4U);
        packed = packed + run(plain, flush, 1).bytes + run({}, flush, 10).bytes;
        // All but the last bits: more than any header, and no more than the rest brings.
        EXPECT_GT(packed.size(), 500U);
        packed = packed + run(plain, Directive::Finish, 4000).bytes;
        Bzip2Decoder decoder;
        expectAll(codeInPieces(decoder, packed), plain + plain);
        EXPECT_EQ(decoder.blockCount(), 2U);
        EXPECT_EQ(decoder.level(), 9);
    }
}

TEST(Bzip2Codec, WaitsForWhatIsCutAndRefusesWhatIsDamaged) {
    const Bytes plain = sample(1500);
    // Some bits are of no consequence, such as the length of a code that no symbol uses.
    EXPECT_LT(survivesDamage([] { return Bzip2Decoder(); }, encode(plain), &plain), 1000U);
}

TEST(Bzip2Codec, GoesOnOnceThereIsMemory) {
    const Bytes plain = sample(130000), packed = encode(plain);
    goesOnOnceThereIsMemory([](auto from) { return Bzip2Encoder(1, from); }, plain, packed);
    goesOnOnceThereIsMemory([](auto from) { return Bzip2Decoder(from); }, packed, plain);
}

TEST(Bzip2Codec, TakesLittleMemoryForLittleInput) {
    const Bytes plain = sample(1000);
    Supply encoding, decoding;
    Bzip2Encoder encoder(9, allocator(encoding));
    Bzip2Decoder decoder(allocator(decoding));
    expectAll(codeInPieces(decoder, codeInPieces(encoder, plain).bytes), plain);
    EXPECT_LT(encoding.given, 60000U);
    EXPECT_LT(decoding.given, 80000U);
}

}  // namespace
