// LZSS: round trips however input and room are cut, the format against a plain reader of it,
// streams past the positions' limit, hostile bits, and the hash table's quality.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "include/vekdc.h"
#include "lzss/lzss_state.h"
#include "lzss/randvec.h"
#include "support/data.h"
#include "support/guarded.h"

namespace {

using vektest::Bytes;
using vektest::Guarded;
using vektest::pick;
using vektest::Random;
using vektest::shapes;

/// A record with inaccessible memory right behind it.
struct State {
    Guarded memory{vek::lzss::stateSize};
    void* get() { return memory.data(); }
};

/// How much a call is given: input and room.
struct Cut {
    size_t input;
    size_t room;
};
using Cutter = std::function<Cut()>;

const Cutter whole = [] { return Cut{SIZE_MAX, SIZE_MAX}; };

/// Runs one direction's call over all input, each piece and room in buffers of their own.
class Stream {
 public:
    Stream() = default;
    State state;
    Bytes out;

    /// One call; returns its status and advances *pAt by what was consumed.
    template <class Call>
    VekStatus step(Call call, const Bytes& input, size_t* pAt, Cut cut) {
        const size_t piece = std::min(cut.input, input.size() - *pAt);
        Guarded src(Bytes(input.begin() + *pAt, input.begin() + *pAt + piece));
        Guarded dst(std::min<size_t>(cut.room, 9 * input.size() * 300 / 256 + 400000));
        const uint8_t* from = src.data();
        uint8_t* to = dst.data();
        auto left = static_cast<int32_t>(piece);
        auto room = static_cast<int32_t>(dst.size());
        const VekStatus status = call(&from, &left, &to, &room, state.get());
        const auto consumed = static_cast<size_t>(from - src.data());
        const auto written = static_cast<size_t>(to - dst.data());
        EXPECT_EQ(consumed + left, piece);
        EXPECT_EQ(written + room, dst.size());
        EXPECT_EQ(status, room == 0 ? vekStatusDestinationFull : vekStatusOk);
        EXPECT_TRUE(status != vekStatusOk || consumed == piece);
        *pAt += consumed;
        out.insert(out.end(), dst.data(), dst.data() + written);
        return status;
    }

    void flush(size_t room) {
        VekStatus status = vekStatusDestinationFull;
        while (status == vekStatusDestinationFull) {
            Guarded dst(room);
            uint8_t* to = dst.data();
            auto left = static_cast<int32_t>(room);
            status = veksEncodeLZSSFlush_8u(&to, &left, state.get());
            EXPECT_EQ(status, left == 0 ? vekStatusDestinationFull : vekStatusOk);
            out.insert(out.end(), dst.data(), to);
        }
    }
};

Bytes encode(const Bytes& data, const Cutter& cutter = whole) {
    Stream stream;
    EXPECT_EQ(veksEncodeLZSSInit_8u(stream.state.get()), vekStatusOk);
    for (size_t at = 0; at < data.size();) {
        Cut cut = cutter();
        if (cut.room == SIZE_MAX) cut.room = data.size() * 2 + 100;
        stream.step(veksEncodeLZSS_8u, data, &at, cut);
    }
    stream.flush(std::max<size_t>(1, std::min<size_t>(cutter().room, 16)));
    return stream.out;
}

Bytes decode(const Bytes& bits, size_t size, const Cutter& cutter = whole) {
    Stream stream;
    EXPECT_EQ(veksDecodeLZSSInit_8u(stream.state.get()), vekStatusOk);
    size_t at = 0;
    while (at < bits.size() || stream.out.size() < size) {
        Cut cut = cutter();
        if (cut.room == SIZE_MAX) cut.room = size + 100;
        const size_t before = stream.out.size() + at;
        const VekStatus status = stream.step(veksDecodeLZSS_8u, bits, &at, cut);
        if (status == vekStatusOk && at == bits.size()) break;
        if (cut.input != 0 && stream.out.size() + at == before) break;
    }
    return stream.out;
}

/// The format, read plainly; also checks what an encoder may write.
Bytes readPlainly(const Bytes& bits) {
    Bytes out;
    size_t bit = 0;
    const auto take = [&](int count) {
        uint32_t value = 0;
        for (; count > 0; --count, ++bit) value = value * 2 + (bits[bit / 8] >> (7 - bit % 8) & 1);
        return value;
    };
    while (8 * bits.size() - bit >= 9) {
        if (take(1) == 1) {
            out.push_back(static_cast<uint8_t>(take(8)));
            continue;
        }
        if (8 * bits.size() - bit < 23) break;
        const size_t distance = take(15);
        const size_t length = take(8) + 3;
        if (distance == 0 || distance > out.size()) {
            ADD_FAILURE() << "distance " << distance << " at " << out.size();
            break;
        }
        for (size_t i = 0; i < length; ++i) out.push_back(out[out.size() - distance]);
    }
    return out;
}

TEST(Lzss, RoundTripsEveryShape) {
    for (const auto& shape : shapes()) {
        for (size_t length : {1, 2, 3, 4, 9, 258, 259, 260, 261, 300, 5000, 32767, 32770, 150000}) {
            SCOPED_TRACE(testing::Message() << shape.name << " " << length);
            const Bytes data = shape.make(length, 7);
            const Bytes bits = encode(data);
            ASSERT_LE(bits.size() + 1,
                      static_cast<size_t>(vekLZSSEncodeBound(static_cast<int32_t>(length))));
            ASSERT_TRUE(readPlainly(bits) == data);
            ASSERT_TRUE(decode(bits, length) == data);
        }
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
    // The least and the most that a call is given, of input and of room.
    const size_t cuts[][4] = {{1, 1, 100, 100}, {5000, 5000, 1, 1}, {3, 3, 2, 2},    {2, 2, 1, 1},
                              {0, 5, 1, 5},     {0, 700, 1, 12},    {1, 900, 1, 900}};
    for (const auto& shape : shapes()) {
        const Bytes data = shape.make(vektest::effort(1000), 11);
        const Bytes bits = encode(data);
        for (const auto& c : cuts) {
            SCOPED_TRACE(testing::Message() << shape.name << " cut " << &c - cuts);
            const Cutter cutter = [&] {
                return Cut{pick(random, c[0], c[1]), pick(random, c[2], c[3])};
            };
            ASSERT_TRUE(decode(bits, data.size(), cutter) == data);
            const Bytes cut = encode(data, cutter);
            ASSERT_TRUE(readPlainly(cut) == data);
            ASSERT_TRUE(decode(cut, data.size()) == data);
        }
        // Room alone never changes the stream.
        ASSERT_TRUE(encode(data, [] { return Cut{SIZE_MAX, 3}; }) == bits);
    }
}

TEST(Lzss, HistorySurvivesSlidesAndLongCalls) {
    Random random(6);
    for (const auto& shape : shapes()) {
        const Bytes data = shape.make(400000, 2);
        const Bytes bits = encode(data, [&] {
            return Cut{pick(random, 1, 70000), pick(random, 500, 70000)};
        });
        SCOPED_TRACE(shape.name);
        ASSERT_TRUE(readPlainly(bits) == data);
        ASSERT_TRUE(decode(bits, data.size(), [&] {
                        return Cut{pick(random, 1, 40000), pick(random, 1, 70000)};
                    }) == data);
    }
}

TEST(Lzss, StreamsPassTheLimitOfPositions) {
    const Bytes data = shapes()[4].make(200000, 3);
    Bytes expected;
    for (uint32_t forward : {0U, vek::lzss::rebaseLimit - 98304U, 0x7FFF8000U - 131072U}) {
        Stream stream;
        ASSERT_EQ(veksEncodeLZSSInit_8u(stream.state.get()), vekStatusOk);
        for (size_t at = 0; at < data.size();) {
            if (at == 70000) {
                // As if `forward` more bytes had gone before.
                auto* record = static_cast<vek::lzss::Encoder*>(stream.state.get());
                for (auto* table : {record->chainTable, record->headTable})
                    for (uint32_t i = 0; i < vek::lzss::chainEntries; ++i)
                        if (table[i] != vek::lzss::emptyEntry) table[i] += forward;
                record->position += forward;
                record->displacement -= forward;
            }
            stream.step(veksEncodeLZSS_8u, data, &at, {1000, 4000});
        }
        stream.flush(9);
        if (forward == 0) expected = stream.out;
        ASSERT_TRUE(stream.out == expected) << forward;
        ASSERT_LT(static_cast<vek::lzss::Encoder*>(stream.state.get())->position,
                  0x40000000U + 2000);
    }
    ASSERT_TRUE(decode(expected, data.size()) == data);
}

TEST(Lzss, HostileBitsStayInside) {
    Random random(8);
    for (size_t round = 0; round < vektest::effort(3000); ++round) {
        Bytes bits(pick(random, 0, 300));
        const auto bias = static_cast<uint32_t>(random());
        for (auto& b : bits) b = static_cast<uint8_t>(random() & (round % 2 != 0 ? bias : 0xFF));
        Stream stream;
        // What the window holds before the first byte is the caller's memory.
        std::memset(stream.state.get(), 0x5A, vek::lzss::stateSize);
        ASSERT_EQ(veksDecodeLZSSInit_8u(stream.state.get()), vekStatusOk);
        size_t at = 0;
        const size_t room = pick(random, 1, 1200);
        for (int call = 0; call < 300; ++call) {
            if (stream.step(veksDecodeLZSS_8u, bits, &at, {pick(random, 0, 300), room}) ==
                    vekStatusOk &&
                at == bits.size())
                break;
        }
    }
}

TEST(Lzss, Arguments) {
    int32_t size = 0;
    State encoder;
    State decoder;
    uint8_t bytes[4] = {};
    const uint8_t* src = bytes;
    const uint8_t* noSrc = nullptr;
    uint8_t* dst = bytes;
    uint8_t* noDst = nullptr;
    int32_t n = 1;
    int32_t room = 4;
    int32_t none = 0;
    int32_t less = -1;
    const auto null = vekStatusNullPointer;
    const auto full = vekStatusDestinationFull;
    const std::pair<VekStatus, VekStatus> calls[] = {
        {veksLZSSGetSize_8u(nullptr), null},
        {veksLZSSGetSize_8u(&size), vekStatusOk},
        {veksEncodeLZSSInit_8u(nullptr), null},
        {veksEncodeLZSSInit_8u(encoder.get()), vekStatusOk},
        {veksEncodeLZSS_8u(&src, &n, &dst, &none, nullptr), null},
        {veksEncodeLZSS_8u(&noSrc, &n, &dst, &none, encoder.get()), full},
        {veksEncodeLZSS_8u(&noSrc, &none, &dst, &less, encoder.get()), full},
        {veksEncodeLZSS_8u(&noSrc, &none, &noDst, &room, encoder.get()), vekStatusOk},
        {veksEncodeLZSS_8u(&noSrc, &n, &dst, &room, encoder.get()), null},
        {veksEncodeLZSS_8u(&src, &n, &noDst, &room, encoder.get()), null},
        {veksEncodeLZSSFlush_8u(&noDst, &none, encoder.get()), null},
        {veksEncodeLZSSFlush_8u(&dst, &none, encoder.get()), vekStatusBadSize},
        {veksEncodeLZSSFlush_8u(&dst, &room, encoder.get()), vekStatusOk},
        {veksDecodeLZSSInit_8u(decoder.get()), vekStatusOk},
        {veksDecodeLZSS_8u(&src, &n, &noDst, &none, decoder.get()), null},
        {veksDecodeLZSS_8u(&noSrc, &n, &dst, &room, decoder.get()), null},
        {veksDecodeLZSS_8u(&src, &n, &dst, &none, decoder.get()), vekStatusBadSize},
        {veksDecodeLZSS_8u(&src, &less, &dst, &room, decoder.get()), vekStatusOk},
    };
    for (const auto& call : calls) EXPECT_EQ(call.first, call.second) << &call - calls;
    EXPECT_EQ(size, static_cast<int32_t>(vek::lzss::stateSize));
    EXPECT_TRUE(src == bytes && dst == bytes && room == 4);
}

TEST(Lzss, HashSpreadsEvenly) {
    const auto& rows = vek::lzss::randVecLZSS;
    for (const auto& row : rows)
        for (int a = 0; a < 256; ++a) {
            ASSERT_TRUE(row[a] >= 46 && row[a] <= 32764);
            for (int b = 0; b < a; ++b) ASSERT_NE(row[a], row[b]);
        }
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
