// LZSS: round trips however input and room are cut, the format against a plain reader of it,
// streams past the positions' limit, hostile bits, and the hash table's quality.

#include "lzss/state.h"
#include "lzss/tabulation_hash.h"
#include "support/test.h"

namespace {

using namespace vektest;

/// How much a call is given: input, and room.
struct Cut {
    size_t input = SIZE_MAX;
    size_t room = 1 << 20;
};
using Cutter = std::function<Cut()>;

const Cutter whole = [] { return Cut{}; };

/// One direction: its record, with inaccessible memory right behind it, and what came out.
struct Stream {
    Guarded record{sizeof(vek::lzss::LzssState)};
    Bytes out;

    void* state() { return record.data(); }

    /// One call, input and room in buffers of their own; advances *pAt by what was consumed.
    template <class Call>
    VekStatus step(Call call, const Bytes& input, size_t* pAt, Cut cut) {
        const size_t piece = std::min(cut.input, input.size() - *pAt);
        Guarded src(Bytes(input.data() + *pAt, input.data() + *pAt + piece));
        Guarded dst(cut.room);
        const uint8_t* from = src.data();
        uint8_t* to = dst.data();
        auto left = static_cast<int32_t>(piece);
        auto room = static_cast<int32_t>(cut.room);
        const VekStatus status = call(&from, &left, &to, &room, state());
        EXPECT_TRUE(from + left == src.data() + piece && to + room == dst.data() + cut.room);
        EXPECT_EQ(status, room == 0 ? vekStatusDestinationFull : vekStatusOk);
        EXPECT_TRUE(status != vekStatusOk || left == 0);
        *pAt += piece - static_cast<size_t>(left);
        out.insert(out.end(), dst.data(), to);
        return status;
    }
};

bool failed() {
    return testing::Test::HasFailure();
}

VekStatus flush(const uint8_t**, int32_t*, uint8_t** ppDst, int32_t* pDstLen, void* pState) {
    return veksEncodeLZSSFlush_8u(ppDst, pDstLen, pState);
}

Bytes encode(const Bytes& data, const Cutter& cutter, Stream& stream) {
    EXPECT_EQ(veksEncodeLZSSInit_8u(stream.state()), vekStatusOk);
    size_t at = 0;
    while (at < data.size() && !failed()) stream.step(veksEncodeLZSS_8u, data, &at, cutter());
    const size_t room = std::min<size_t>(cutter().room, 16);
    while (stream.step(flush, data, &at, {0, room}) != vekStatusOk && !failed()) {
    }
    return stream.out;
}

Bytes encode(const Bytes& data, const Cutter& cutter = whole) {
    Stream stream;
    return encode(data, cutter, stream);
}

Bytes decode(const Bytes& bits, const Cutter& cutter = whole) {
    Stream stream;
    // What the window holds before the first byte is the caller's memory.
    std::memset(stream.state(), 0x5A, stream.record.size());
    EXPECT_EQ(veksDecodeLZSSInit_8u(stream.state()), vekStatusOk);
    VekStatus status = vekStatusOk;
    for (size_t at = 0; (at < bits.size() || status != vekStatusOk) && !failed();)
        status = stream.step(veksDecodeLZSS_8u, bits, &at, cutter());
    return stream.out;
}

/// The format, read plainly; nothing where it is not what an encoder may write.
Bytes readPlainly(const Bytes& bits) {
    Bytes out;
    size_t bit = 0;
    const auto take = [&](int count) {
        size_t value = 0;
        for (; count > 0; --count, ++bit) value = value * 2 + (bits[bit / 8] >> (7 - bit % 8) & 1);
        return value;
    };
    while (8 * bits.size() - bit >= 9) {
        if (take(1) == 1) {
            out.push_back(static_cast<uint8_t>(take(8)));
            continue;
        }
        if (8 * bits.size() - bit < 23) break;
        const size_t distance = take(15), length = take(8) + 3;
        if (distance == 0 || distance > out.size()) return {};
        for (size_t i = 0; i < length; ++i) out.push_back(out[out.size() - distance]);
    }
    return out;
}

TEST(Lzss, RoundTripsEveryShape) {
    for (const auto& [name, data] :
         everyShape({1, 2, 3, 4, 9, 258, 259, 260, 261, 300, 5000, 32767, 32770, 150000})) {
        SCOPED_TRACE(name);
        const Bytes bits = encode(data);
        ASSERT_LT(length(bits), vekLZSSEncodeBound(length(data)));
        ASSERT_TRUE(readPlainly(bits) == data);
        ASSERT_TRUE(decode(bits) == data);
    }
}

TEST(Lzss, TokensOfAKnownInput) {
    EXPECT_EQ(encode({'a'}), (Bytes{0xB0, 0x80}));
    EXPECT_EQ(encode({'a', 'b'}), (Bytes{0xB0, 0xD8, 0x80}));
    // 300 equal bytes: a literal, matches of 258 and 39 at distance 1, two literals: 75 bits.
    EXPECT_EQ(encode(Bytes(300, 0)),
              (Bytes{0x80, 0x00, 0x00, 0xFF, 0x80, 0x00, 0x92, 0x40, 0x20, 0x00}));
    // The farthest match is 32767 back.
    for (size_t distance : {32767, 32768}) {
        Bytes data = shapes()[1].make(distance, 3);
        data.insert(data.end(), data.begin(), data.begin() + 200);
        const Bytes bits = encode(data);
        EXPECT_EQ(bits.size() < distance * 9 / 8 + 100, distance == 32767);
        ASSERT_TRUE(readPlainly(bits) == data);
    }
}

TEST(Lzss, EveryCutOfInputAndRoom) {
    Random random(5);
    // Length of the data, and the least and the most that a call is given, of input and of room.
    const size_t cuts[][5] = {{1000, 1, 1, 100, 100}, {1000, 5000, 5000, 1, 1},
                              {1000, 3, 3, 2, 2},     {1000, 2, 2, 1, 1},
                              {1000, 0, 5, 1, 5},     {1000, 0, 700, 1, 12},
                              {1000, 1, 900, 1, 900}, {400000, 1, 70000, 500, 70000}};
    for (const auto& shape : shapes()) {
        for (const auto& c : cuts) {
            SCOPED_TRACE(testing::Message() << shape.name << " cut " << &c - cuts);
            const Bytes data = shape.make(c[0] == 1000 ? effort(1000) : c[0], 11);
            const Cutter cutter = [&] {
                return Cut{pick(random, c[1], c[2]), pick(random, c[3], c[4])};
            };
            const Bytes bits = encode(data, cutter);
            ASSERT_TRUE(readPlainly(bits) == data);
            ASSERT_TRUE(decode(bits, cutter) == data);
        }
        // Room alone never changes the stream.
        const Bytes data = shape.make(effort(1000), 11);
        ASSERT_TRUE(encode(data, [] { return Cut{SIZE_MAX, 3}; }) == encode(data));
    }
}

TEST(Lzss, FlushCountsWhatItWrote) {
    Stream stream;
    auto* const record = &static_cast<vek::lzss::LzssState*>(stream.state())->encoder;
    ASSERT_EQ(veksEncodeLZSSInit_8u(record), vekStatusOk);
    for (int32_t bits = 1; bits <= 46; ++bits)
        for (int32_t room = 1; room <= 8; ++room) {
            SCOPED_TRACE(testing::Message() << bits << " bits, room " << room);
            record->bitCount = bits;
            size_t at = 0;
            // Also where the last byte fills the room, which takes more bits than there were.
            const bool full = room <= (bits + 7) / 8;
            ASSERT_EQ(stream.step(flush, {}, &at, {0, static_cast<size_t>(room)}),
                      full ? vekStatusDestinationFull : vekStatusOk);
            ASSERT_EQ(record->bitCount, full ? bits - 8 * room : bits);
        }
}

TEST(Lzss, StreamsPassTheLimitOfPositions) {
    const Bytes data = shapes()[4].make(200000, 3);
    const Bytes expected = encode(data, [] { return Cut{1000, 4000}; });
    for (uint32_t forward : {vek::lzss::rebaseLimit - 98304U, 0x7FFF8000U - 131072U}) {
        Stream stream;
        auto* const record = &static_cast<vek::lzss::LzssState*>(stream.state())->encoder;
        bool forwarded = false;
        const Cutter forwarding = [&] {
            if (record->position == 70000 && !forwarded) {
                // As if `forward` more bytes had gone before.
                for (auto* table : {record->chainTable, record->headTable})
                    for (uint32_t i = 0; i < vek::lzss::chainEntries; ++i)
                        if (table[i] != vek::lzss::emptyEntry) table[i] += forward;
                record->position += forward;
                record->displacement -= forward;
                forwarded = true;
            }
            return Cut{1000, 4000};
        };
        ASSERT_TRUE(encode(data, forwarding, stream) == expected) << forward;
        ASSERT_TRUE(forwarded);
        ASSERT_LT(record->position, 0x40000000U + 2000);
    }
    ASSERT_TRUE(decode(expected) == data);
}

TEST(Lzss, HostileBitsStayInside) {
    Random random(8);
    for (size_t round = 0; round < effort(3000) && !failed(); ++round) {
        Bytes bits(pick(random, 0, 300));
        const auto bias = random();
        for (auto& b : bits) b = static_cast<uint8_t>(random() & (round % 2 != 0 ? bias : 0xFF));
        const size_t room = pick(random, 1, 1200);
        decode(bits, [&] { return Cut{pick(random, 0, 300), room}; });
    }
}

TEST(Lzss, Arguments) {
    Stream stream;
    void* const state = stream.state();
    uint8_t bytes[4] = {};
    const uint8_t* src = bytes;
    const uint8_t* noSrc = nullptr;
    uint8_t* dst = bytes;
    uint8_t* noDst = nullptr;
    int32_t size = 0, n = 1, room = 4, none = 0, less = -1;
    const auto null = vekStatusNullPointer;
    const auto full = vekStatusDestinationFull;
    const std::pair<VekStatus, VekStatus> calls[] = {
        {veksLZSSGetSize_8u(&size), vekStatusOk},
        {veksEncodeLZSSInit_8u(state), vekStatusOk},
        {veksEncodeLZSS_8u(&noSrc, &n, &dst, &none, state), full},
        {veksEncodeLZSS_8u(&noSrc, &none, &dst, &less, state), full},
        {veksEncodeLZSS_8u(&noSrc, &none, &noDst, &room, state), vekStatusOk},
        {veksEncodeLZSS_8u(&noSrc, &n, &dst, &room, state), null},
        {veksEncodeLZSS_8u(&src, &n, &noDst, &room, state), null},
        {veksEncodeLZSSFlush_8u(&dst, &none, state), vekStatusBadSize},
        {veksEncodeLZSSFlush_8u(&dst, &room, state), vekStatusOk},
        {veksDecodeLZSSInit_8u(state), vekStatusOk},
        {veksDecodeLZSS_8u(&src, &n, &noDst, &none, state), null},
        {veksDecodeLZSS_8u(&noSrc, &n, &dst, &room, state), null},
        {veksDecodeLZSS_8u(&src, &n, &dst, &none, state), vekStatusBadSize},
        {veksDecodeLZSS_8u(&src, &less, &dst, &room, state), vekStatusOk},
    };
    for (const auto& call : calls) EXPECT_EQ(call.first, call.second) << &call - calls;
    EXPECT_EQ(size, static_cast<int32_t>(sizeof(vek::lzss::LzssState)));
    EXPECT_TRUE(src == bytes && dst == bytes && room == 4);
}

TEST(Lzss, HashSpreadsEvenly) {
    const auto& rows = vek::lzss::randVecLZSS;
    // Over all strings that differ in their last two bytes the hash fills its table as chance does:
    // 65536 balls in 32768 boxes leave exp(-2), 13.5 %, of them empty.
    std::vector<int> filled(32768);
    for (int b = 0; b < 256; ++b)
        for (int c = 0; c < 256; ++c) ++filled[rows[0][101] ^ rows[1][b] ^ rows[2][c]];
    const auto empty = std::count(filled.begin(), filled.end(), 0);
    EXPECT_LT(empty, 32768 * 15 / 100);
    EXPECT_LT(*std::max_element(filled.begin(), filled.end()), 14);
}

}  // namespace
