// Codecs of the deflate formats: raw streams, gzip members, zlib streams.

#include "codec/gzip.h"
#include "codec/zlib.h"
#include "support/codecs.h"
#include "support/zlib_peer.h"

namespace {

using namespace vekdc::codec;
using namespace vektest;
using vektest::Bytes;
using View = vekdc::codec::Bytes;

template <class Encoder>
Bytes encode(Encoder& encoder, const Bytes& plain, Directive directive = Directive::Finish) {
    Bytes out(static_cast<size_t>(DeflateEncoder::bound(plain.size())) + 100);
    Input in{plain.data(), plain.size()};
    Output room{out.data(), out.size()};
    EXPECT_EQ(encoder.run(in, room, directive),
              directive == Directive::Finish ? Status::Ended : Status::Going);
    EXPECT_EQ(in.left, 0U);
    out.resize(out.size() - room.left);
    return out;
}

const std::vector<DeflateOptions>& ways() {
    static const std::vector<DeflateOptions> all = [] {
        std::vector<DeflateOptions> made;
        for (int level = kDeflateFastest; level <= kDeflateBest; ++level) made.push_back({level});
        for (const auto strategy : {DeflateStrategy::HuffmanOnly, DeflateStrategy::RunLength,
                                    DeflateStrategy::FixedCodes})
            made.push_back({6, strategy});
        for (unsigned bits = 8; bits < 15; ++bits)
            made.push_back({bits % 2 != 0 ? 9 : 1, {}, bits});
        return made;
    }();
    return all;
}

// Whole, in small pieces, with flushes and changes of level: zlib reads it with a window no larger
// than stated, and what does not compress hardly grows.
TEST(DeflateEncoder, ZlibReadsEveryWay) {
    Random random(45);
    for (const DeflateOptions& options : ways()) {
        DeflateEncoder encoder(options);
        // zlib itself has no window of 256 bytes.
        const int window = -static_cast<int>(std::max(options.windowBits, 9U));
        for (size_t i = 0; i < 2 * shapes().size(); ++i) {
            const Shape& shape = shapes()[i / 2];
            // Short streams have a search of their own.
            const Bytes in = shape.make(pick(random, 0, i % 2 != 0 ? 4400 : effort(120000)), 3);
            SCOPED_TRACE(std::string(shape.name) + ", level " + std::to_string(options.level) +
                         ", window " + std::to_string(window));
            encoder.reset();
            const Bytes whole = encode(encoder, in);
            DeflateEncoder fresh(options);
            ASSERT_EQ(encode(fresh, in), whole) << "a reset forgot the options";
            ASSERT_EQ(zlibInflate(whole, window, in.size()), in);
            EXPECT_LE(whole.size(), in.size() + 5 * (in.size() / 16384 + 1));
            EXPECT_EQ(encoder.totalIn(), in.size());
            EXPECT_EQ(encoder.totalOut(), whole.size());
            Bytes history(size_t{1} << options.windowBits);
            history.resize(encoder.copyHistory(history.data()));
            EXPECT_EQ(history, part(in, in.size() - history.size()));
            EXPECT_TRUE(!history.empty() || in.empty() || options.level < 1 ||
                        options.strategy == DeflateStrategy::RunLength);
            const size_t most = pick(random, 1, 1 + in.size() / 5);
            encoder.reset();
            const CodecResult result =
                runInPieces(in, most, pick(random, 1, 3000), [&](auto& from, auto& to, bool last) {
                    const auto directive = static_cast<Directive>(random() % 4);
                    if (!last && random() % 8 == 0)
                        encoder.tune(static_cast<int>(random() % 11) - 1, DeflateStrategy::Usual);
                    return encoder.run(from, to, last ? Directive::Finish : directive);
                });
            encoder.tune(options.level, options.strategy);
            ASSERT_EQ(result.status, Status::Ended);
            ASSERT_EQ(zlibInflate(result.bytes, window, in.size()), in);
        }
    }
}

TEST(DeflateEncoder, ByteByByteIsWhole) {
    for (const int level : {kDeflateFastest, kDeflateStored, 6}) {
        DeflateEncoder encoder({level});
        const Bytes in = shapes()[4].make(70001, 1);
        const Bytes whole = encode(encoder, in);
        encoder.reset();
        const CodecResult result = codeInPieces(encoder, in, 1, 1);
        EXPECT_EQ(result.status, Status::Ended);
        EXPECT_EQ(zlibInflate(result.bytes, -15, in.size()), in);
        EXPECT_LE(result.bytes.size(), whole.size() + whole.size() / 50);
        Input nothing{nullptr, 0};
        Output none{nullptr, 0};
        EXPECT_EQ(encoder.run(nothing, none, Directive::Go), Status::Ended);
    }
}

// Small inputs show how codes and headers are cut to what occurs.
TEST(DeflateEncoder, SmallInputsAreSmall) {
    size_t sums[2] = {};
    for (const Shape& shape : shapes())
        for (const size_t size : {0, 1, 40, 300, 1000, 5000}) {
            const Bytes in = shape.make(size, 9);
            DeflateEncoder encoder({9});
            sums[0] += encode(encoder, in).size();
            sums[1] += zlibDeflate(in, {-15, Z_DEFAULT_STRATEGY, Z_NO_FLUSH, 6, 1}).size();
        }
    EXPECT_LE(sums[0], sums[1]);
    // Tables of offsets have matches of three bytes alone, which no search for longer ones sees.
    for (const int level : {1, 3, 6, 9})
        for (const uint32_t size : {2048, 16384}) {
            std::vector<uint32_t> offsets(size / 4);
            for (uint32_t i = 0; i < offsets.size(); ++i) offsets[i] = 100000 + 16 * i;
            Bytes in(size);
            std::memcpy(in.data(), offsets.data(), size);
            DeflateEncoder encoder({level});
            const size_t theirs =
                zlibDeflate(in, {-15, Z_DEFAULT_STRATEGY, Z_NO_FLUSH, level}).size();
            EXPECT_LE(encode(encoder, in).size(), theirs + theirs / 10)
                << size << " at level " << level;
        }
}

// Blocks end where the data changes and only there; one that would need codes too long is coded
// all the same; and more effort is never larger.
TEST(DeflateEncoder, BlocksFollowTheData) {
    Random random(48);
    const Bytes text = shapes()[4].make(60000, 7);
    const Bytes noise = shapes()[1].make(60000, 7);
    Bytes steep;  // Bytes as frequent as Fibonacci's numbers.
    for (size_t a = 1, b = 1; a < 50000; b += std::exchange(a, b))
        steep.insert(steep.end(), a, static_cast<uint8_t>(b));
    std::shuffle(steep.begin(), steep.end(), random);
    struct Case {
        Bytes in;
        std::array<uint64_t, 3> least;  // Blocks: stored, fixed, dynamic.
        uint64_t most;
    };
    const Case cases[] = {{text, {0, 0, 1}, 4},
                          {noise, {1, 0, 0}, 3},
                          {text + noise + text, {1, 0, 2}, 11},
                          {noise + text + noise, {2, 0, 1}, 11},
                          {steep, {0, 0, 1}, 4},
                          {Bytes(5, 'x'), {0, 1, 0}, 1},
                          // However many bytes these are, few pairs make few blocks.
                          {Bytes(250000, 'x'), {0, 0, 1}, 1}};
    for (const Case& c : cases) {
        size_t before = c.in.size() + 100;
        for (int level = 1; level <= kDeflateBest; ++level) {
            SCOPED_TRACE(std::to_string(&c - cases) + " level " + std::to_string(level));
            DeflateEncoder encoder({level});
            const Bytes out = encode(encoder, c.in);
            ASSERT_EQ(zlibInflate(out, -15, c.in.size()), c.in);
            InflateDecoder decoder;
            EXPECT_EQ(codeInPieces(decoder, out).bytes, c.in);
            const auto& blocks = decoder.blocks();
            for (size_t kind = 0; kind < 3; ++kind) EXPECT_GE(blocks[kind], c.least[kind]) << kind;
            EXPECT_LE(blocks[0] + blocks[1] + blocks[2], c.most);
            EXPECT_LE(out.size(), before + before / 1000);
            before = out.size();
        }
    }
}

TEST(DeflateEncoder, FlushesEndAsTheyPromise) {
    const Bytes text = shapes()[4].make(5000, 2);
    const Bytes marker = {0, 0, 0xFF, 0xFF};
    const auto inflatesTo = [&](const Bytes& part, size_t size, const Bytes& history) {
        InflateDecoder decoder;
        EXPECT_EQ(decoder.setHistory(history), Status::Going);
        const CodecResult result = codeInPieces(decoder, part);
        EXPECT_EQ(result.unread, 0U);
        return result.status == Status::Going && result.bytes.size() == size;
    };
    for (const int level : {kDeflateFastest, kDeflateStored, 1, 9}) {
        DeflateEncoder encoder({level});
        // An empty stream has its marker too, but only one.
        EXPECT_EQ(encode(encoder, {}, Directive::SyncFlush), Bytes(1, 0) + marker);
        EXPECT_EQ(encode(encoder, {}, Directive::SyncFlush), Bytes());
        const Bytes first = encode(encoder, text, Directive::SyncFlush);
        EXPECT_TRUE(inflatesTo(first, text.size(), {}));
        EXPECT_TRUE(std::equal(marker.begin(), marker.end(), first.end() - 4));
        const Bytes second = encode(encoder, text, Directive::FullFlush);
        EXPECT_TRUE(inflatesTo(second, text.size(), text));
        EXPECT_TRUE(level < 1 || second.size() < first.size() / 3) << second.size();
        // Nothing behind a full flush refers to what came before.
        const Bytes third = encode(encoder, text, Directive::Block);
        EXPECT_EQ(third.size(), (encoder.totalOut() - first.size() - second.size() - 5));
        EXPECT_LT(encoder.pendingBits(), 8U);
        EXPECT_EQ(encode(encoder, {}, Directive::Block), Bytes());
        EXPECT_TRUE(encoder.prime(2, 10));
        const Bytes rest = encode(encoder, {});
        InflateDecoder alone;
        EXPECT_EQ(codeInPieces(alone, third + rest).bytes, text);
        EXPECT_EQ(zlibInflate(Bytes(1, 0) + marker + first + second + third + rest, -15, 15000),
                  text + text + text);
    }
}

TEST(DeflateEncoder, RefersToItsHistory) {
    // A part that repeats its history shows whether it was found: its size is a few bytes then.
    for (const size_t size : {1, 3, 4, 300, 32768, 50000}) {
        const Bytes history = shapes()[1].make(size, 46);
        const size_t kept = std::min<size_t>(size, 32768);
        const Bytes window = part(history, size - kept);
        // In full reach, and from where the first byte is a window's length behind.
        const Bytes in = part(window, kept - std::min<size_t>(kept, 300)) + window;
        for (int level = kDeflateFastest; level <= 9; ++level) {
            DeflateEncoder encoder({level});
            encode(encoder, in, Directive::SyncFlush);  // a part before, to be forgotten
            EXPECT_EQ(encoder.setHistory(history), Status::Going);
            const Bytes out = encode(encoder, in);
            ASSERT_EQ(zlibInflate(out, -15, in.size(), window), in) << size << " level " << level;
            EXPECT_TRUE(size != 300 || level < 1 || out.size() < 20) << out.size();
        }
    }
}

// The text is moved down, tables are lowered, and streams copied, between any pieces, flushes and
// levels; what may be referred to is always the latest input.
TEST(DeflateEncoder, TheTextMovesOnUnseen) {
    Random random(49);
    const Bytes text = shapes()[4].make(90000, 8);
    const Bytes plain = text + shapes()[1].make(70000, 8) + Bytes(200000, 'a') + text +
                        shapes()[4].make(150000, 9) + text;
    for (const unsigned bits : {9U, 12U, 15U})
        for (const int level : {1, 3, 5, 6, 9}) {
            const size_t window = size_t{1} << bits;
            const Bytes history = part(plain, 0, pick(random, 0, 60000));
            const Bytes in = part(plain, history.size());
            const bool tuned = random() % 2 != 0;
            SCOPED_TRACE(testing::Message() << "level " << level << ", window " << bits << ", "
                                            << history.size() << (tuned ? ", tuned" : ""));
            DeflateEncoder encoders[2] = {DeflateEncoder({level, {}, bits}), DeflateEncoder()};
            EXPECT_EQ(encoders[0].setHistory(history), Status::Going);
            Bytes out(static_cast<size_t>(DeflateEncoder::bound(in.size())) + 40000);
            Output room{out.data(), out.size()};
            for (size_t at = 0, turn = 0; at < in.size();) {
                DeflateEncoder& encoder = encoders[turn];
                const size_t size = std::min(in.size() - at, pick(random, 1, 2U << random() % 18));
                const bool last = at + size == in.size();
                Input piece{in.data() + at, size};
                const auto directive = static_cast<Directive>(random() % 3 != 0 ? 0 : random() % 5);
                encoder.run(piece, room, last ? Directive::Finish : directive);
                ASSERT_EQ(piece.left, 0U);
                at += size;
                Bytes kept(window);
                kept.resize(encoder.copyHistory(kept.data()));
                ASSERT_TRUE(std::equal(kept.rbegin(), kept.rend(),
                                       plain.rend() - static_cast<ptrdiff_t>(history.size() + at)));
                if (random() % 3 == 0) {
                    turn = 1 - turn;
                    ASSERT_EQ(encoders[turn].copyFrom(encoder), Status::Going);
                    encoder.reset();
                }
                if (tuned) encoders[turn].tune(static_cast<int>(random() % 9) + 1, {});
            }
            out.resize(out.size() - room.left);
            const Bytes before = part(history, history.size() - std::min(window, history.size()));
            ASSERT_EQ(zlibInflate(out, -static_cast<int>(bits), in.size(), before), in);
        }
}

TEST(DeflateEncoder, NoPeriodHidesTheHistory) {
    for (const size_t period : {256, 4096, 10000, 16384, 32512}) {
        const Bytes block = shapes()[1].make(period, 47);
        Bytes in;
        while (in.size() < (1U << 20)) in.insert(in.end(), block.begin(), block.end());
        for (const int level : {3, 6, 9}) {
            if (level != 6 && effort(100) < 50) continue;
            DeflateEncoder encoder({level});
            const Bytes out = codeInPieces(encoder, in, 128 << 10).bytes;
            ASSERT_EQ(zlibInflate(out, -15, in.size()), in);
            EXPECT_LE(out.size(), period + in.size() / 100) << period << " at level " << level;
            // Behind history, as parts on threads are.
            const Bytes before = part(in, 32768, 32768);
            const Bytes rest = part(in, 65536);
            encoder.reset();
            EXPECT_EQ(encoder.setHistory(before), Status::Going);
            const Bytes part = encode(encoder, rest);
            ASSERT_EQ(zlibInflate(part, -15, rest.size(), before), rest);
            EXPECT_LE(part.size(), rest.size() / 100) << period << " at level " << level;
        }
    }
}

// --- decoding -----------------------------------------------------------------------------------

template <class Decoder>
void decodesInAnyPieces(int windowBits) {
    const Bytes behind = {1, 2, 3};
    const Bytes plain = sample(84000);
    for (const auto& [strategy, flush] : {std::pair{Z_DEFAULT_STRATEGY, Z_NO_FLUSH},
                                          {Z_DEFAULT_STRATEGY, Z_SYNC_FLUSH},
                                          {Z_FIXED, Z_PARTIAL_FLUSH},
                                          {Z_HUFFMAN_ONLY, Z_NO_FLUSH}}) {
        const Bytes packed = zlibDeflate(plain, {windowBits, strategy, flush, 6, 1});
        Decoder decoder;
        for (const size_t inPiece : {1, 2, 17, 4096, 1 << 20})
            for (const size_t outPiece : {1, 257, 5000, 140000, 1 << 20}) {
                if (inPiece < 4096 && (outPiece == 1 || outPiece > 5000)) continue;
                SCOPED_TRACE(testing::Message() << inPiece << " in, " << outPiece << " out");
                decoder.reset();
                expectAll(codeInPieces(decoder, packed + behind, inPiece, outPiece), plain,
                          behind.size());
                ASSERT_EQ(decoder.totalIn(), packed.size());
            }
    }
}

TEST(InflateDecoder, AnyPieces) {
    decodesInAnyPieces<InflateDecoder>(-15);
    decodesInAnyPieces<GzipDecoder>(15 + kGzipMode);
    decodesInAnyPieces<ZlibDecoder>(15);
}

TEST(InflateDecoder, DamageAndTruncation) {
    const Bytes plain = shapes()[4].make(600, 3) + shapes()[1].make(100, 3);
    for (const int strategy : {Z_DEFAULT_STRATEGY, Z_FIXED})
        survivesDamage([] { return InflateDecoder(); }, zlibDeflate(plain, {-15, strategy}));
    // A gzip header's time stamp, hints and text flag, and bits that only pad, say nothing.
    EXPECT_LT(
        survivesDamage([] { return GzipDecoder(); }, zlibDeflate(plain, {15 + kGzipMode}), &plain),
        80U);
    EXPECT_LT(survivesDamage([] { return ZlibDecoder(); }, zlibDeflate(plain, {}), &plain), 80U);
}

// --- formats ------------------------------------------------------------------------------------

GzipField fieldOf(Bytes& bytes, bool present) {
    return {present, bytes.data(), present ? bytes.size() : 0, bytes.size()};
}

TEST(Gzip, EveryHeaderFieldThereAndBack) {
    Bytes texts[] = {Bytes(300, 'x'), {'n', 'a', 'm', 'e'}, Bytes(300, 'c')};
    const Bytes plain = shapes()[4].make(1000, 1);
    for (unsigned flags = 0; flags < 32; ++flags) {
        const GzipHeader header = {(flags & 1) != 0,
                                   (flags & 2) != 0,
                                   0x12345678,
                                   2,
                                   7,
                                   fieldOf(texts[0], (flags & 4) != 0),
                                   fieldOf(texts[1], (flags & 8) != 0),
                                   fieldOf(texts[2], (flags & 16) != 0)};
        GzipEncoder encoder;
        encoder.setHeader(header);
        const CodecResult packed = codeInPieces(encoder, plain, 100, 1 + flags);
        ASSERT_EQ(zlibInflate(packed.bytes, 15 + kGzipMode, plain.size()), plain);
        for (const size_t piece : {1, 50, 5000}) {
            Bytes kept[3] = {Bytes(300), Bytes(9), Bytes(50)};  // One just fits, one does not.
            GzipHeader read;
            read.extra = {false, kept[0].data(), 0, kept[0].size()};
            read.name = {false, kept[1].data(), 0, kept[1].size()};
            read.comment = {false, kept[2].data(), 0, kept[2].size()};
            GzipDecoder decoder;
            decoder.headerTo(&read);
            ASSERT_EQ(codeInPieces(decoder, packed.bytes, piece).bytes, plain);
            EXPECT_EQ(decoder.flags(), flags);
            EXPECT_EQ(std::tuple(read.text, read.summed, read.modified, read.hints, read.system),
                      std::tuple(header.text, header.summed, header.modified, 2, 7));
            const GzipField* const fields[] = {&read.extra, &read.name, &read.comment};
            for (size_t i = 0; i < 3; ++i) {
                EXPECT_EQ(fields[i]->present, (flags & 4U << i) != 0);
                ASSERT_EQ(fields[i]->size, fields[i]->present ? texts[i].size() : 0);
                const size_t there = std::min(fields[i]->size, kept[i].size());
                EXPECT_EQ(part(kept[i], 0, there), part(texts[i], 0, there));
            }
        }
    }
}

TEST(Zlib, DictionariesAndWindows) {
    const Bytes dictionary = shapes()[4].make(3000, 1);
    const Bytes plain(dictionary.begin() + 500, dictionary.end());
    for (unsigned bits = 9; bits <= 15; ++bits) {
        ZlibEncoder encoder({6, {}, bits});
        EXPECT_EQ(encoder.setDictionary(dictionary), Status::Going);
        const Bytes packed = encode(encoder, plain);
        EXPECT_EQ(zlibInflate(packed, static_cast<int>(bits), plain.size(), dictionary), plain);
        EXPECT_TRUE(bits < 12 || packed.size() < 50);
        ZlibDecoder decoder;
        Input in{packed.data(), packed.size()};
        Bytes out(plain.size());
        Output room{out.data(), out.size()};
        EXPECT_EQ(decoder.run(in, room), Status::NeedsDictionary);
        EXPECT_EQ(decoder.setDictionary(plain), Status::NeedsDictionary);
        EXPECT_EQ(decoder.setDictionary(dictionary), Status::Going);
        EXPECT_EQ(decoder.run(in, room), Status::Ended);
        EXPECT_EQ(out, plain);
        EXPECT_EQ(decoder.windowBits(), bits);
    }
}

// A copy made anywhere ends as the original does.
template <class Codec, class... Options>
void copiesGoOn(const Bytes& input, const Options&... options) {
    for (const size_t cut : {size_t{0}, size_t{5}, input.size() / 3, input.size() - 1}) {
        Codec codec(options...), copy(options...);
        Bytes room(input.size() / 7);
        Input in{input.data(), cut};
        Output out{room.data(), room.size()};
        run(codec, in, out, false);
        EXPECT_EQ(copy.copyFrom(codec), Status::Going);
        const Bytes rest(in.next, input.data() + input.size());
        const CodecResult expected = codeInPieces(codec, rest);
        expectAll(codeInPieces(copy, rest), expected.bytes);
        EXPECT_EQ(expected.status, Status::Ended) << cut;
    }
}

TEST(Copies, GoOnAsTheOriginal) {
    const Bytes plain = shapes()[4].make(400000, 6);
    for (const DeflateOptions& options : ways()) copiesGoOn<GzipEncoder>(plain, options);
    copiesGoOn<ZlibDecoder>(zlibDeflate(plain, {15, 0, Z_NO_FLUSH, 6, 1}));
}

// Every allocation may fail: the call says so, and where it may go on it does.
TEST(Memory, FailuresAreSurvived) {
    const Bytes plain = shapes()[4].make(100000, 6);
    for (const int level : {kDeflateFastest, kDeflateStored, 6})
        for (size_t limit = 0;; ++limit) {
            Supply memory{limit};
            DeflateEncoder encoder({level}, allocator(memory));
            if (codeInPieces(encoder, plain, 30000, 1000).status == Status::Ended) break;
            EXPECT_TRUE(memory.refused);
        }
    const Bytes few = part(plain, 0, 900);
    DeflateEncoder encoder;
    goesOnOnceThereIsMemory([](const Allocator& supply) { return DeflateEncoder({}, supply); }, few,
                            encode(encoder, few));
    const Bytes packed = zlibDeflate(plain, {-15, 0, Z_NO_FLUSH, 6, 1});
    Supply none{0};
    InflateDecoder decoder(allocator(none));
    EXPECT_EQ(codeInPieces(decoder, packed, 100, 100).status, Status::NoMemory);
    // Decoded by one call a stream takes none.
    decoder.reset();
    EXPECT_EQ(codeInPieces(decoder, packed, packed.size(), plain.size()).bytes, plain);
}

}  // namespace
