// LZ4: round trips of every encoder, the decoder against a byte-by-byte twin on hostile input,
// every room, every truncation, histories of all kinds. What liblz4 makes of the blocks shows in
// the tests of the drop-in library.

#include "support/test.h"

namespace {

using namespace vektest;
using Edge = Guarded::Edge;

/// What one decoding or encoding gave.
struct Result {
    VekStatus status = 0;
    int consumed = 0, written = 0;
    Bytes out;
};

/// The decoder's twin: one byte at a time, over positions of the stream. Below `dictionary.size()`
/// a position is read from the dictionary, else from the output, whose first byte is position
/// `index`. Ours are the statuses of a decoder that looks at the room before the source.
Result decodeSlowly(const Bytes& block, size_t room, const Bytes& dictionary, size_t index) {
    Result d;
    size_t in = 0;
    const auto stop = [&](VekStatus status) {
        d.status = block.size() == 1 && status >= 0 ? 32 : status;
        d.consumed = status < 0 ? length(block) : static_cast<int>(in);
        d.written = static_cast<int>(status < 0 ? room : d.out.size());
        return d;
    };
    const auto extend = [&](uint64_t& value) {
        if (value != 15) return true;
        for (uint8_t byte = 255; byte == 255; value += byte) {
            if (in == block.size()) return false;
            byte = block[in++];
        }
        return true;
    };
    while (in + 1 < block.size()) {
        uint64_t literals = block[in] >> 4;
        uint64_t match = block[in++] & 15;
        if (!extend(literals)) return stop(32);
        if (literals > INT_MAX) return stop(-6);
        const bool full = literals > room - d.out.size();
        const bool cut = literals > block.size() - in;
        for (; literals != 0 && in < block.size() && d.out.size() < room; --literals)
            d.out.push_back(block[in++]);
        if (full) return stop(33);
        if (cut || (in != block.size() && in + 8 > block.size())) return stop(32);
        if (in == block.size() || d.out.size() == room) return stop(0);
        const size_t offset = block[in] + 256U * block[in + 1];
        in += 2;
        if (offset > index + d.out.size()) return stop(-2);
        if (!extend(match)) return stop(32);
        if (match > INT_MAX) return stop(-6);
        for (match += 4; match != 0; --match) {
            if (d.out.size() == room) return stop(33);
            const size_t from = index + d.out.size() - offset;
            if (from < dictionary.size())
                d.out.push_back(dictionary[from]);
            else
                d.out.push_back(from < index || offset == 0 ? 0 : d.out[from - index]);
        }
    }
    return stop(0);
}

/// Where a history lies: in front of the block, or in a buffer of its own.
enum class Place { None, Front, Own };

/// Ours, between guard pages on the side `edge`.
Result decode(const Bytes& block, size_t room, Place place = Place::None, const Bytes& history = {},
              size_t index = 0, Edge edge = Edge::End) {
    Guarded in(block, edge);
    Guarded own(history);
    Guarded out(index + room, edge);
    if (place == Place::Front) std::copy(history.begin(), history.end(), out.data());
    Result d{0, length(block), static_cast<int>(room), {}};
    if (place == Place::None)
        d.status = veksDecodeLZ4_8u(in.data(), length(block), out.data(), &d.written);
    else
        d.status = veksDecodeLZ4Dict_8u(in.data(), &d.consumed, out.data(), static_cast<int>(index),
                                        &d.written, place == Place::Front ? out.data() : own.data(),
                                        length(history));
    if (d.status >= 0) d.out = part(out.bytes(), index, static_cast<size_t>(d.written));
    return d;
}

/// Decoder and twin agree in statuses and counts; and in bytes, unless an offset of 0, which
/// repeats what the buffer held, may be among them.
void expectAsTwin(const Bytes& block, size_t room, Place place, const Bytes& history,
                  size_t index) {
    const Result got = decode(block, room, place, history, index);
    const Result want = decodeSlowly(block, room, history, index);
    const uint8_t zero[] = {0, 0};
    ASSERT_EQ(got.status, want.status);
    ASSERT_EQ(got.written, want.written);
    ASSERT_EQ(got.consumed, place == Place::None ? length(block) : want.consumed);
    if (want.status < 0 || std::search(block.begin(), block.end(), zero, zero + 2) != block.end())
        return;
    ASSERT_TRUE(got.out == want.out);
}

/// The work memory of all encoders, full of rubbish at first.
struct Tables {
    std::vector<uint32_t> fast = std::vector<uint32_t>(4096, 0xDEADBEEF);
    std::vector<uint32_t> hash = std::vector<uint32_t>(32768, 0xDEADBEEF);
    std::vector<uint32_t> chain = std::vector<uint32_t>(65536, 0xDEADBEEF);
    uint8_t* pair[2] = {reinterpret_cast<uint8_t*>(hash.data()),
                        reinterpret_cast<uint8_t*>(chain.data())};
    uint8_t* table() { return reinterpret_cast<uint8_t*>(fast.data()); }
    void clear() {
        veksEncodeLZ4DictHashTableInit_8u(table(), 1);
        veksEncodeLZ4HCHashTableInit_8u(pair);
    }
};

/// The arguments of all functions.
struct Call {
    const uint8_t* src;
    int* len;
    uint8_t* dst;
    int* room;
    uint8_t* table;
    uint8_t** pair;
    int index;
    const uint8_t* dict;
    int dictLen;
    int setting;  ///< Acceleration or level.
};
using Function = VekStatus(const Call&);

struct Encoder {
    const char* name;
    enum { Alone, History, HighAlone, High } kind;
    bool checksRoom;
    Function* function;
    int setting = 0;

    bool high() const { return kind == High || kind == HighAlone; }
    bool takesHistory() const { return kind == High || kind == History; }
};
VekStatus accelerated(const Call& c) {
    return veksEncodeLZ4Fast_8u(c.src, *c.len, c.dst, c.room, c.table, c.setting);
}
VekStatus high(const Call& c) {
    return veksEncodeLZ4HC_8u(c.src, c.index, c.len, c.dst, c.room, c.pair, c.dict, c.dictLen,
                              c.setting);
}
VekStatus highLimit(const Call& c) {
    return veksEncodeLZ4HCDictLimit_8u(c.src, c.index, c.len, c.dst, c.room, c.pair, c.dict,
                                       c.dictLen, c.setting, c.index % 2);
}
VekStatus stream(const Call& c) {
    return veksEncodeLZ4Dict_8u(c.src, c.index, *c.len, c.dst, c.room, c.table, c.dict, c.dictLen);
}
VekStatus safe(const Call& c) {
    return veksEncodeLZ4DictSafe_8u(c.src, c.index, c.len, c.dst, c.room, c.table, c.dict,
                                    c.dictLen);
}
const Encoder encoders[] = {
    {"plain", Encoder::Alone, false,
     [](const Call& c) { return veksEncodeLZ4_8u(c.src, *c.len, c.dst, c.room, c.table); }},
    {"safe", Encoder::Alone, true,
     [](const Call& c) { return veksEncodeLZ4Safe_8u(c.src, c.len, c.dst, c.room, c.table); }},
    {"stream", Encoder::History, false, stream},
    {"stream safe", Encoder::History, true, safe},
    {"accelerated 1", Encoder::Alone, false, accelerated, 1},
    {"accelerated 2", Encoder::Alone, false, accelerated, 2},
    {"accelerated 100", Encoder::Alone, false, accelerated, 100},
    {"accelerated most", Encoder::Alone, false, accelerated, INT_MAX},
    {"high, limit", Encoder::High, true, highLimit, 9},
    {"high 1", Encoder::HighAlone, true, high, 1},
    {"high 5", Encoder::High, true, high, 5},
    {"high 9", Encoder::HighAlone, true, high, 9}};

/// Codes a block at `index` with tables that know `history`.
Result encode(const Encoder& encoder, Tables& tables, const Bytes& block, size_t room, Place place,
              const Bytes& history = {}, size_t index = 0, Edge edge = Edge::End) {
    Guarded in(place == Place::Front ? history + block : block, edge);
    Guarded dict(history);
    Guarded out(room, edge);
    Result e{0, length(block), static_cast<int>(room), {}};
    const bool own = place == Place::Own;
    e.status =
        encoder.function({in.data() + (in.size() - block.size()), &e.consumed, out.data(),
                          &e.written, tables.table(), tables.pair, static_cast<int>(index),
                          own ? dict.data() : nullptr, own ? length(history) : 0, encoder.setting});
    if (e.status >= 0) e.out = part(out.bytes(), 0, static_cast<size_t>(e.written));
    return e;
}
Result encodeAlone(const Encoder& encoder, const Bytes& block, size_t room, Edge edge = Edge::End) {
    static Tables tables;
    if (encoder.high()) veksEncodeLZ4HCHashTableInit_8u(tables.pair);
    return encode(encoder, tables, block, room, Place::None, {}, 0, edge);
}
Bytes encodeAll(const Encoder& encoder, const Bytes& block, Edge edge = Edge::End) {
    const Result e = encodeAlone(encoder, block, vekLZ4EncodeBound(block.size()), edge);
    EXPECT_EQ(e.status, 0) << encoder.name;
    EXPECT_EQ(e.consumed, length(block)) << encoder.name;
    return e.out;
}

/// A block decodes to exactly `data` in every decoder.
void expectDecodes(const Bytes& block, const Bytes& data) {
    for (size_t room : {std::max<size_t>(data.size(), 1), data.size() + 100}) {
        const Edge edge = room % 2 == 0 ? Edge::End : Edge::Start;
        const Result d = decode(block, room, Place::None, {}, 0, edge);
        ASSERT_EQ(d.status, block.size() == 1 ? 32 : 0);
        ASSERT_TRUE(d.out == data);
    }
}

TEST(LZ4, EveryEncoderRoundTripsEveryShape) {
    std::vector<size_t> sizes{1,  2,  5,   12,  13,   14,   27,    28,    29,    30,    31,    33,
                              48, 64, 100, 270, 1000, 4097, 20000, 65535, 65536, 65600, 200000};
    if (effort(100) < 100) sizes.resize(sizes.size() - 5);
    for (const auto& [name, data] : everyShape(sizes)) {
        Bytes plain;
        for (const Encoder& encoder : encoders) {
            SCOPED_TRACE(testing::Message() << name << encoder.name);
            const Bytes block =
                encodeAll(encoder, data, data.size() % 2 == 0 ? Edge::End : Edge::Start);
            ASSERT_NO_FATAL_FAILURE(expectDecodes(block, data));
            // These share one search; a stream's has no 16-bit mode.
            if (&encoder == encoders) plain = block;
            ASSERT_TRUE(encoder.kind != Encoder::Alone || encoder.setting > 1 || block == plain);
        }
        EXPECT_TRUE(data.size() >= 30 || plain.size() == data.size() + (data.size() < 15 ? 1 : 2));
    }
}

TEST(LZ4, CheckedEncodersUseEveryRoom) {
    const size_t step = effort(100) < 100 ? 17 : 1;
    for (const auto& [name, data] : everyShape({1, 24, 40, 120, 700}))
        for (const Encoder& encoder : encoders) {
            if (!encoder.checksRoom) continue;
            const size_t enough = encodeAll(encoder, data).size();
            int before = 0;
            for (size_t room = 1; room <= enough + 9;
                 room += encoder.high() && data.size() == 700 ? 5 * step : step) {
                SCOPED_TRACE(testing::Message() << name << encoder.name << room);
                const Result e =
                    encodeAlone(encoder, data, room, room % 2 ? Edge::End : Edge::Start);
                ASSERT_EQ(e.status == 0, e.consumed == length(data));
                // Room may cut a match, so what follows differs; but more room is never much
                // worse.
                ASSERT_GE(e.consumed + 300, before);
                before = e.consumed;
                ASSERT_TRUE(!encoder.high() || (e.status == 0) == (room >= enough));
                ASSERT_TRUE(e.status == 0 || e.status == 33 || (e.status == 48 && encoder.high()));
                ASSERT_NO_FATAL_FAILURE(
                    expectDecodes(e.out, part(data, 0, static_cast<size_t>(e.consumed))));
            }
        }
    const Result e = encodeAlone(*std::rbegin(encoders), shapes()[1].make(300, 5), 100);
    EXPECT_EQ(std::pair(e.status, e.consumed), std::pair(33, 98));
}

/// A block that uses everything: literals and matches of all lengths, offsets near and far.
Bytes randomBlock(Random& random, size_t sequences, size_t history, bool hostile) {
    Bytes block;
    size_t written = history;
    const auto put = [&](size_t byte) { block.push_back(static_cast<uint8_t>(byte)); };
    const auto extend = [&](size_t value) {
        if (value < 15) return;
        for (value -= 15; value >= 255; value -= 255) put(255);
        put(value);
    };
    const auto some = [&](size_t low) {
        return pick(random, low, low + (pick(random, 0, 3) != 0 ? 14 : 700));
    };
    for (size_t left = sequences + 1; left != 0; --left) {
        const size_t literals = left == 1 ? pick(random, 5, 40) : some(written == 0 ? 1 : 0);
        const size_t match = left == 1 ? 0 : some(0);
        put(std::min<size_t>(literals, 15) << 4 | std::min<size_t>(match, 15));
        extend(literals);
        for (size_t k = 0; k < literals; ++k) put(random());
        written += literals;
        if (left == 1) break;
        size_t offset = pick(random, 1, pick(random, 0, 1) != 0 ? 40 : 65535);
        if (!hostile || pick(random, 0, 60) != 0) offset = std::min(offset, written);
        put(offset);
        put(offset >> 8);
        extend(match);
        written += match + 4;
    }
    if (hostile)
        for (size_t k = pick(random, 0, 3); k != 0; --k)
            block[pick(random, 0, block.size() - 1)] = static_cast<uint8_t>(random());
    return block;
}

TEST(LZ4, DecodersEqualTheirTwinOnHostileBlocks) {
    Random random(20);
    for (size_t round = effort(6000); round != 0; --round) {
        Bytes history(pick(random, 1, pick(random, 0, 2) == 0 ? 70000 : 60));
        for (auto& byte : history) byte = static_cast<uint8_t>(random());
        const size_t size = history.size();
        const Bytes block = randomBlock(random, pick(random, 0, 30), size, round % 4 != 0);
        const size_t whole = decodeSlowly(block, 1U << 20, history, size).out.size();
        const size_t room =
            pick(random, 0, 1) != 0 ? pick(random, 1, whole + 2) : whole + pick(random, 1, 100);
        ASSERT_NO_FATAL_FAILURE(expectAsTwin(block, room, Place::None, {}, 0));
        ASSERT_NO_FATAL_FAILURE(expectAsTwin(block, room, Place::Front, history, size));
        for (size_t index : {size, pick(random, 0, size + 50)})
            ASSERT_NO_FATAL_FAILURE(expectAsTwin(block, room, Place::Own, history, index));
    }
}

TEST(LZ4, EveryTruncationAndEveryRoomGivesItsStatus) {
    Random random(8);
    const Bytes block = randomBlock(random, 12, 0, false);
    const size_t whole = decodeSlowly(block, 1U << 20, {}, 0).out.size();
    for (size_t cut = 1; cut <= block.size(); ++cut) {
        const Bytes begun = part(block, 0, cut);
        for (size_t room : {whole, size_t{2}, cut})
            ASSERT_NO_FATAL_FAILURE(expectAsTwin(begun, room, Place::Own, {}, 0)) << cut;
    }
    for (size_t room = 1; room <= whole + 70; ++room)
        ASSERT_NO_FATAL_FAILURE(expectAsTwin(block, room, Place::Own, {}, 0)) << room;
    // Lengths of 15 + 255 * n that pass 2^32, of literals and of a match.
    for (size_t start : {1, 4}) {
        Bytes overflow = Bytes(16909330, 255) + Bytes{0};
        std::copy_n(start == 1 ? "\xF0" : "\x1F\xFF\1", start, overflow.begin());
        expectAsTwin(overflow, 99, Place::Own, {'x'}, 0);
    }
    // Offsets to the first byte and in front of it, an offset of 0, rooms that end with a match.
    for (uint8_t offset : {0, 1, 2})
        for (size_t room : {3, 5, 99})
            expectAsTwin({0x10, 'a', offset, 0, 0x50, 1, 2, 3, 4, 5}, room, Place::Own, {'x'}, 0);
}

#if UINTPTR_MAX == UINT32_MAX
/// A literal run that would end behind the address space's end, counted from the source or from the
/// output, is refused; one that ends in its last byte is only too long for the room.
TEST(LZ4, LiteralRunsEndInsideTheAddressSpace) {
    static uint8_t low[2 << 20];  // The program's own data lie in the lower half.
    Guarded high(sizeof(low));    // Mappings lie in the upper half.
    for (const bool atSource : {true, false}) {
        uint8_t* const out = atSource ? low : high.data();
        uint8_t* const in = atSource ? high.data() : low;
        uint8_t* const inEnd = in + sizeof(low);
        const uint32_t toWrap =
            0U - static_cast<uint32_t>(reinterpret_cast<uintptr_t>(atSource ? inEnd : out));
        for (const uint32_t literals : {toWrap, toWrap - 1}) {
            const uint32_t full = (literals - 15) / 255;
            ASSERT_LT(full + 2, sizeof(low));
            uint8_t* const block = inEnd - (full + 2);
            std::fill(block, inEnd, uint8_t{255});
            *block = 0xF0;
            inEnd[-1] = static_cast<uint8_t>((literals - 15) % 255);
            int room = 16;
            EXPECT_EQ(veksDecodeLZ4_8u(block, static_cast<int>(inEnd - block), out, &room),
                      literals == toWrap ? vekStatusBadSize : vekStatusDestinationFull)
                << atSource;
        }
    }
}
#endif

/// Blocks behind histories of any size, in place or in a buffer of its own at any index; and tables
/// of rubbish, which must do no harm.
TEST(LZ4, HistoriesAndTablesOfAnyKind) {
    Random random(6);
    size_t gained = 0;
    for (const Shape& shape : shapes())
        for (size_t round = effort(40); round != 0; --round) {
            const size_t longest = round % 5 == 0 ? 150000 : 66000;
            const size_t size = round % 3 == 0 ? pick(random, 1, 20) : pick(random, 20, longest);
            const size_t blockSize = pick(random, 1, 5000);
            const Bytes data = shape.make(size + blockSize, 9);
            const Bytes history = part(data, 0, size);
            const Bytes block = part(data, size, blockSize);
            const size_t index = round % 4 == 1 ? pick(random, 0, 2 * size) : size;
            const bool front = index == size && round % 8 < 4;
            const uint32_t mask = random() % 2 ? 0xFFFFFFFFU : 0x3FFFU;
            for (const Encoder& encoder : encoders) {
                if (!encoder.takesHistory()) continue;
                SCOPED_TRACE(testing::Message() << shape.name << size << encoder.name << index);
                Tables tables;
                tables.clear();
                if (round % 4 == 0) {
                    for (auto* table : {&tables.fast, &tables.hash, &tables.chain})
                        for (auto& entry : *table) entry = random() & mask;
                } else if (round % 4 < 3 && !encoder.high()) {
                    veksEncodeLZ4LoadDict_8u(tables.table(), history.data(), length(history));
                } else {
                    // What codes the history, block by block, puts it into the tables.
                    for (size_t at = 0, n = 0; at < size; at += n) {
                        n = std::min(size - at, pick(random, 1, 50000));
                        encode(encoder, tables, part(history, at, n), vekLZ4EncodeBound(n),
                               Place::Front, part(history, 0, at), at);
                    }
                }
                const Bytes coded = encode(encoder, tables, block, vekLZ4EncodeBound(blockSize),
                                           front ? Place::Front : Place::Own, history, index)
                                        .out;
                ASSERT_TRUE(decode(coded, blockSize, Place::Own, history, index).out == block);
                if (index != size) continue;
                ASSERT_TRUE(decode(coded, blockSize, Place::Front, history, index).out == block);
                const size_t alone = encodeAll(encoders[0], block).size();
                if (coded.size() < alone) gained += alone - coded.size();
            }
        }
    EXPECT_GT(gained, effort(100000));
}

TEST(LZ4, HigherLevelsAreSmaller) {
    for (size_t shape : {4U, 5U, 6U}) {
        const Bytes data = shapes()[shape].make(200000, 1);
        const auto sizeAt = [&](int level) {
            return encodeAll({"level", Encoder::HighAlone, true, high, level}, data).size();
        };
        size_t before = data.size();
        for (int level = 1; level <= 9; ++level) {
            const size_t size = sizeAt(level);
            EXPECT_LE(size, before + before / 500) << level;
            before = size;
        }
        for (auto [level, same] : {std::pair{0, 9}, {-3, 1}, {12, 9}, {INT_MIN, 1}})
            EXPECT_EQ(sizeAt(level), sizeAt(same)) << level;
    }
}

TEST(LZ4, SizesClearingAndLoading) {
    int sizes[3] = {};
    EXPECT_EQ(veksEncodeLZ4HashTableGetSize_8u(sizes), 0);
    EXPECT_EQ(veksEncodeLZ4HCHashTableGetSize_8u(sizes + 1, sizes + 2), 0);
    EXPECT_TRUE(sizes[0] == 16384 && sizes[1] == 131072 && sizes[2] == 262144);
    for (auto [length, bytes] : {std::pair{1, 8192}, {65535, 8192}, {65536, 16384}})
        for (auto* clear : {veksEncodeLZ4HashTableInit_8u, veksEncodeLZ4DictHashTableInit_8u}) {
            Tables t;
            EXPECT_EQ(clear(t.table(), length), 0);
            EXPECT_EQ(std::count(t.fast.begin(), t.fast.end(), 0U) * 4,
                      clear == veksEncodeLZ4HashTableInit_8u ? bytes : 16384);
        }
    for (int size = 1; size <= 30; ++size) {
        Tables tables;
        tables.clear();
        Guarded dict(shapes()[1].make(static_cast<size_t>(size), 1));
        ASSERT_EQ(veksEncodeLZ4LoadDict_8u(tables.table(), dict.data(), size), 0);
        EXPECT_EQ(*std::max_element(tables.fast.begin(), tables.fast.end()),
                  size <= 8 ? 0U : static_cast<uint32_t>(size - 9) / 3 * 3);
    }
}

/// Every refusal but for nulls, and that it leaves the counts alone; a bad size beats the rest.
TEST(LZ4, BadArgumentsAreRefusedInOrder) {
    struct Refusing {
        Encoder encoder;
        VekStatus index = 0;       ///< For a negative index.
        VekStatus dictionary = 0;  ///< For a dictionary of negative length.
    };
    std::vector<Refusing> all{
        {{"decode", Encoder::Alone, true,
          [](const Call& c) { return veksDecodeLZ4_8u(c.src, *c.len, c.dst, c.room); }}},
        {{"decode, dictionary", Encoder::Alone, true,
          [](const Call& c) {
              return veksDecodeLZ4Dict_8u(c.src, c.len, c.dst, c.index, c.room, c.dict, c.dictLen);
          }},
         -6,
         -6},
        {{"table", Encoder::Alone, false,
          [](const Call& c) { return veksEncodeLZ4HashTableInit_8u(c.table, *c.len); }}},
        {{"dictionary table", Encoder::Alone, false,
          [](const Call& c) { return veksEncodeLZ4DictHashTableInit_8u(c.table, *c.len); }}},
        {{"load", Encoder::Alone, false,
          [](const Call& c) { return veksEncodeLZ4LoadDict_8u(c.table, c.src, *c.len); }}}};
    for (const Encoder& e : encoders) {
        const bool history = e.high() || e.takesHistory();
        all.push_back({e, history ? -5 : 0, history ? -6 : 0});
    }
    for (int setting : {0, INT_MIN})
        all.push_back({{"slowed", Encoder::Alone, false, accelerated, setting}, -16, -16});
    Tables t;
    Bytes src(100, 'a'), dst(200);
    for (const Refusing& r : all) {
        const auto expect = [&](VekStatus status, int inLength, int room, int index, int dictLen,
                                bool noSource = false) {
            int n = inLength, m = room;
            EXPECT_EQ(
                r.encoder.function({noSource ? nullptr : src.data(), &n, dst.data(), &m, t.table(),
                                    &t.pair[0], index, src.data(), dictLen, r.encoder.setting}),
                status)
                << r.encoder.name;
            EXPECT_EQ(std::pair(n, m), std::pair(inLength, room)) << r.encoder.name;
        };
        expect(-6, 0, 9, -5, 9);
        if (r.encoder.checksRoom) expect(-6, 9, 0, -5, 9);
        if (r.index != 0) expect(r.index, 9, 99, -5, 9);
        if (r.dictionary != 0) expect(r.dictionary, 9, 99, 5, -1);
        if (r.encoder.kind == Encoder::History) expect(-6, 9, 99, 5, -1, true);
    }
    uint8_t* half[2] = {t.pair[0], nullptr};
    int n = 9, m = 99;
    EXPECT_EQ(high({src.data(), &n, dst.data(), &m, nullptr, half, 0, nullptr, 0, 9}), -8);
    EXPECT_EQ(veksEncodeLZ4HCHashTableInit_8u(half), -8);
}

}  // namespace
