// ZFP fields as codecs: in pieces, cut short, damaged, and out of memory. What the tool's tests
// exchange with the method's own tool goes through the same codecs.

#include "codec/zfp_field_decoder.h"
#include "codec/zfp_field_encoder.h"
#include "support/codecs.h"

namespace {

using namespace vekdc::codec;
using namespace vektest;
using Bytes = vektest::Bytes;

struct Field {
    ZfpDims dims;
    ZfpParameters parameters;
    Bytes plain{}, packed{};
};

/// Waves, noise and zeros in every mode; the fourth has a header that ends inside a byte, and the
/// last two have several chunks.
const std::vector<Field>& fields() {
    static const std::vector<Field> made = [] {
        std::vector<Field> fields = {{{9, 6, 5}, ZfpParameters::ofRate(8)},
                                     {{7, 21, 1}, ZfpParameters::ofPrecision(13)},
                                     {{1, 2, 3}, ZfpParameters::ofAccuracy(1e-3)},
                                     {{9, 6, 5}, {1, 200, 20, -10}},
                                     {{50, 1, 1}, {70, 900, 64, -8}},
                                     {{1, 1, 1}, {32768, 32768, 64, 0}},
                                     {{260, 257, 9}, ZfpParameters::ofAccuracy(1e-2)},
                                     {{1021, 601, 1}, ZfpParameters::ofRate(7.3)}};
        for (Field& field : fields) {
            field.plain = vektest::field(field.dims.values());
            ZfpFieldEncoder encoder(field.dims, field.parameters);
            field.packed = codeInPieces(encoder, field.plain).bytes;
        }
        return fields;
    }();
    return made;
}

/// A field's stream up to the byte with its last bit, found by where a decoder ends.
size_t endOf(const Bytes& packed) {
    ZfpFieldDecoder decoder;
    const CodecResult result = codeInPieces(decoder, packed);
    EXPECT_EQ(result.status, Status::Ended);
    EXPECT_EQ(result.unread, decoder.padding());
    return packed.size() - result.unread;
}

TEST(CodecZfp, PiecesOfAnySizeGiveTheSameAndNothingBehindIsTaken) {
    const Bytes behind(11, 0xEE);
    for (const Field& field : fields()) {
        ASSERT_EQ(field.packed.size() % 8, 0U);
        ZfpFieldEncoder encoder(field.dims, field.parameters);
        ZfpFieldDecoder decoder;
        const Bytes decoded = codeInPieces(decoder, field.packed).bytes;
        ASSERT_EQ(decoded.size(), field.plain.size());
        const bool large = field.plain.size() > 1 << 16;
        for (const size_t piece : {large ? 100003 : 1, large ? 4099 : 3, 1 << 30}) {
            const size_t room = piece == 3 ? 1 : std::min<size_t>(piece, 1 << 16);
            encoder.reset();
            const CodecResult packed = codeInPieces(encoder, field.plain + behind, piece, room);
            expectAll(packed, field.packed, behind.size());
            decoder.reset();
            const CodecResult again = codeInPieces(decoder, field.packed + behind, piece, room);
            expectAll(again, decoded, behind.size() + decoder.padding());
        }
    }
}

TEST(CodecZfp, CutStreamsGoOnAndDamageIsBrokenOrHarmless) {
    // A changed side may promise a vast field, for which there is no memory.
    Supply memory{SIZE_MAX, 1 << 20};
    for (size_t i = 0; i < 6; ++i) {
        const Bytes& packed = fields()[i].packed;
        survivesDamage([&] { return ZfpFieldDecoder(allocator(memory)); },
                       part(packed, 0, endOf(packed)));
    }
    EXPECT_TRUE(memory.refused);
}

TEST(CodecZfp, HeadersStateWhatTheyWereGiven) {
    Random random(5);
    for (size_t i = 0; i < 3000; ++i) {
        ZfpParameters p;
        if (random() % 2) p.maxBits = pick<int32_t>(random, 9, 1 << pick(random, 4, 15));
        if (random() % 2) p.minBits = random() % 2 ? p.maxBits : 1;
        if (random() % 2) p.maxPrec = pick<int32_t>(random, 1, 64);
        if (random() % 2) p.minExp = pick<int32_t>(random, 0, 1 << pick(random, 0, 14)) - 1074;
        if (!p.valid()) continue;
        uint64_t words[kZfpHeaderWords] = {};
        const ZfpDims dims{static_cast<uint32_t>(i % 70 + 1), 65536, 3};
        const unsigned bits = putZfpHeader(dims, p, words);
        ZfpHeaderReader reader;
        Input in{reinterpret_cast<const uint8_t*>(words), sizeof(words)};
        ASSERT_EQ(reader.run(in), Status::Ended);
        EXPECT_EQ(sizeof(words) - in.left, (bits + 7) / 8);
        EXPECT_TRUE(reader.header().parameters == p && reader.header().bits == bits);
        EXPECT_EQ(reader.header().dims.blocks(), dims.blocks());
    }
}

TEST(CodecZfp, MemoryThatFailsAndFieldsThatDoNotFit) {
    const Field& field = fields()[0];
    ZfpFieldDecoder decoder;
    goesOnOnceThereIsMemory(
        [&](auto from) { return ZfpFieldEncoder(field.dims, field.parameters, from); }, field.plain,
        field.packed);
    goesOnOnceThereIsMemory([](auto from) { return ZfpFieldDecoder(from); }, field.packed,
                            codeInPieces(decoder, field.packed).bytes);
    ZfpFieldEncoder encoder(field.dims, field.parameters);
    const Bytes shorter(field.plain.begin(), field.plain.end() - 4);
    EXPECT_EQ(codeInPieces(encoder, shorter, 100).status, Status::Broken);
    EXPECT_EQ(encoder.fault().offset, shorter.size());
    for (const ZfpDims& dims : {ZfpDims{0, 1, 1}, ZfpDims{1, 1, 65537}}) {
        ZfpFieldEncoder none(dims, {});
        EXPECT_EQ(codeInPieces(none, {}).status, Status::Broken);
    }
}

}  // namespace
