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
    return encodeInPieces(encoder, plain).bytes;
}

void expectAll(const CodecResult& result, const Bytes& bytes, size_t unread = 0) {
    EXPECT_EQ(result.status, Status::Ended);
    EXPECT_EQ(result.unread, unread);
    EXPECT_TRUE(result.bytes == bytes);
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
            expectAll(encodeInPieces(encoder, plain, in, out), packed);
            ASSERT_EQ(decoder.reset(), Status::Going);
            expectAll(decodeInPieces(decoder, packed + tail, in, out), plain, tail.size());
            EXPECT_EQ(decoder.taken(), packed.size());
        }
        // The end needs no room.
        Bytes room(plain.size());
        vekdc::codec::Input in{packed.data(), packed.size()};
        vekdc::codec::Output out{room.data(), room.size()};
        decoder.reset();
        EXPECT_EQ(decoder.run(in, out), Status::Ended);
        EXPECT_TRUE(room == plain);
        expectAll(decodeInPieces(decoder, tail), {}, tail.size());
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
        expectAll(decodeInPieces(decoder, packed), plain + plain);
        EXPECT_EQ(decoder.blockCount(), 2U);
        EXPECT_EQ(decoder.level(), 9);
    }
}

TEST(Bzip2Codec, WaitsForWhatIsCutAndRefusesWhatIsDamaged) {
    const Bytes plain = sample(1500);
    Bytes packed = encode(plain);
    Bzip2Decoder decoder;
    for (size_t size = 0; size < packed.size(); ++size) {
        decoder.reset();
        const Bytes cut(packed.begin(), packed.begin() + static_cast<ptrdiff_t>(size));
        const CodecResult result = decodeInPieces(decoder, cut, 1 + size % 40);
        ASSERT_EQ(result.status, Status::Going) << size;
        ASSERT_TRUE(result.unread == 0 && (result.bytes.empty() || result.bytes == plain));
    }
    size_t harmless = 0;
    for (size_t bit = 0; bit < 8 * packed.size(); bit += effort(100) == 100 ? 1 : 50) {
        const auto flip = static_cast<uint8_t>(1U << bit % 8);
        packed[bit / 8] ^= flip;
        decoder.reset();
        const CodecResult result = decodeInPieces(decoder, packed, 1 + bit % 99, 1 + bit % 77);
        if (result.status == Status::Broken) {
            EXPECT_NE(decoder.fault().reason, nullptr);
            EXPECT_LE(decoder.fault().offset, packed.size());
            EXPECT_TRUE(result.bytes.empty() || result.bytes == plain);
            EXPECT_EQ(decodeInPieces(decoder, packed).status, Status::Broken);
        } else if (result.status == Status::Ended) {
            // Some bits are of no consequence, such as the length of a code that no symbol uses.
            EXPECT_TRUE(result.bytes == plain);
            ++harmless;
        }
        packed[bit / 8] ^= flip;
    }
    EXPECT_LT(harmless, 1000U);
}

TEST(Bzip2Codec, GoesOnOnceThereIsMemory) {
    const Bytes plain = sample(130000);
    const Bytes packed = encode(plain);
    bool failed = true;
    for (size_t limit = 0; failed; ++limit) {
        SCOPED_TRACE(limit);
        CountingMemory encoding(limit);
        CountingMemory decoding(limit);
        Bzip2Encoder encoder(1, encoding.allocator());
        Bzip2Decoder decoder(decoding.allocator());
        failed = false;
        const auto retry = [&](CountingMemory& memory, auto&& run) {
            const Status status = run();
            if (status != Status::NoMemory) return status;
            EXPECT_TRUE(memory.exhausted());
            EXPECT_EQ(run(), Status::NoMemory);
            memory.lift();
            failed = true;
            return run();
        };
        expectAll(runInPieces(plain, 9000, 9000,
                              [&](auto& in, auto& out, bool last) {
                                  return retry(encoding, [&] {
                                      return encoder.run(in, out,
                                                         last ? Directive::Finish : Directive::Go);
                                  });
                              }),
                  packed);
        expectAll(runInPieces(packed, 999, 9000,
                              [&](auto& in, auto& out, bool) {
                                  return retry(decoding, [&] { return decoder.run(in, out); });
                              }),
                  plain);
    }
}

TEST(Bzip2Codec, TakesLittleMemoryForLittleInput) {
    const Bytes plain = sample(1000);
    CountingMemory encoding;
    CountingMemory decoding;
    Bzip2Encoder encoder(9, encoding.allocator());
    Bzip2Decoder decoder(decoding.allocator());
    expectAll(decodeInPieces(decoder, encodeInPieces(encoder, plain).bytes), plain);
    EXPECT_LT(encoding.given(), 60000U);
    EXPECT_LT(decoding.given(), 80000U);
}

}  // namespace
