// The byte-level stages of a bzip2 block: run-length coding, move-to-front, symbol maps, zero runs.

#include <list>

#include "support/test.h"

using namespace vektest;

namespace {

/// The run code of a whole block, by its definition.
Bytes runCode(const Bytes& in) {
    Bytes out;
    for (size_t i = 0; i < in.size();) {
        size_t n = 1;
        while (n < 259 && i + n < in.size() && in[i + n] == in[i]) ++n;
        out.insert(out.end(), std::min<size_t>(n, 4), in[i]);
        if (n >= 4) out.push_back(static_cast<uint8_t>(n - 4));
        i += n;
    }
    return out;
}

/// Encodes with rooms and input pieces of random size.
Bytes encodeRuns(const Bytes& in, Random& random, size_t most, Bytes* inUse) {
    VekBz2RleState state;
    EXPECT_EQ(veksEncodeRLEInit_BZ2_8u(&state), vekStatusOk);
    Bytes out;
    for (size_t at = 0; at < in.size();) {
        Guarded piece(part(in, at, pick(random, 1, most)));
        Guarded room(pick(random, 1, most));
        const uint8_t* src = piece.data();
        auto srcLen = static_cast<int32_t>(piece.size());
        auto written = static_cast<int32_t>(room.size());
        const VekStatus status = veksEncodeRLE_BZ2_8u(&src, &srcLen, room.data(), &written, &state);
        EXPECT_EQ(status, srcLen != 0 ? vekStatusDestinationFull : vekStatusOk);
        out.insert(out.end(), room.data(), room.data() + written);
        at += static_cast<size_t>(src - piece.data());
    }
    Guarded last(1);
    int32_t written = 1;
    EXPECT_EQ(veksEncodeRLEFlush_BZ2_8u(last.data(), &written, &state), vekStatusOk);
    out.insert(out.end(), last.data(), last.data() + written);
    inUse->resize(256);
    EXPECT_EQ(veksRLEGetInUseTable_8u(inUse->data(), &state), vekStatusOk);
    return out;
}

Bytes decodeRuns(const Bytes& in, Random& random, size_t most) {
    Guarded source(in);
    VekBz2RleState state;
    EXPECT_EQ(veksDecodeRLEStateInit_BZ2_8u(&state), vekStatusOk);
    const uint8_t* src = source.data();
    auto srcLen = static_cast<int32_t>(in.size());
    Bytes out;
    bool more = true;
    while (more) {
        Guarded room(pick(random, 1, most));
        uint8_t* dst = room.data();
        auto dstLen = static_cast<int32_t>(room.size());
        if (srcLen != 0) {
            const VekStatus status =
                veksDecodeRLEState_BZ2_8u(&src, &srcLen, &dst, &dstLen, &state);
            EXPECT_TRUE(status == vekStatusOk || status == vekStatusDestinationFull);
        } else {
            more = veksDecodeRLEStateFlush_BZ2_8u(&state, &dst, &dstLen) != vekStatusOk;
        }
        out.insert(out.end(), room.data(), dst);
        EXPECT_EQ(static_cast<size_t>(dst - room.data()) + static_cast<size_t>(dstLen),
                  room.size());
    }
    return out;
}

Bytes fromRepeats(const std::vector<std::pair<uint8_t, size_t>>& runs) {
    Bytes out;
    for (const auto& [value, length] : runs) out.insert(out.end(), length, value);
    return out;
}

}  // namespace

TEST(Bzip2Runs, EveryInputAtEverySplitIsTheRunCodeAndComesBack) {
    Random random(11);
    std::vector<Bytes> inputs;
    for (const Shape& shape : shapes())
        for (uint32_t round = 0; round < effort(10); ++round)
            inputs.push_back(shape.make(pick(random, 4, 2000), round));
    // Runs around every limit.
    for (const size_t length :
         {1, 3, 4, 5, 7, 258, 259, 260, 262, 263, 264, 518, 519, 777, 778, 3000})
        for (const Bytes& in :
             {fromRepeats({{'a', length}}), fromRepeats({{'x', 1}, {'a', length}, {'b', 2}}),
              fromRepeats({{'a', length}, {0, 4}, {'a', length}})})
            inputs.push_back(in);
    for (const Bytes& in : inputs)
        for (const size_t most : {3, 40, 5000}) {
            SCOPED_TRACE(testing::Message() << "input " << &in - inputs.data() << " by " << most);
            Bytes inUse;
            const Bytes coded = encodeRuns(in, random, most, &inUse);
            ASSERT_EQ(coded, runCode(in));
            for (unsigned v = 0; v < 256; ++v)
                ASSERT_EQ(inUse[v], std::count(coded.begin(), coded.end(), v) != 0 ? 1 : 0) << v;
            // The last three bytes of an input begin no run: a block that ends in a bare count of a
            // run is still whole.
            ASSERT_TRUE(coded.size() < 4 || decodeRuns(coded, random, most) == in);
        }
}

TEST(Bzip2Runs, StatesAndStatusesAtTheStops) {
    const Bytes seven(7, 'a');
    VekBz2RleState state;
    Guarded room(5);
    for (const int32_t capacity : {4, 5}) {
        veksEncodeRLEInit_BZ2_8u(&state);
        const uint8_t* src = seven.data();
        int32_t left = 7, written = capacity;
        EXPECT_EQ(veksEncodeRLE_BZ2_8u(&src, &left, room.data(), &written, &state),
                  capacity == 4 ? vekStatusDestinationFull : vekStatusOk);
        EXPECT_TRUE(written == 4 && left == (capacity == 4 ? 3 : 0) && state.runCount == 7 - left);
    }
    int32_t written = 1;
    EXPECT_EQ(veksEncodeRLEFlush_BZ2_8u(room.data(), &written, &state), vekStatusOk);
    EXPECT_TRUE(room.data()[0] == 3 && state.symbol == 'a');

    // Two runs of one symbol are joined into one pending run.
    const Bytes coded = {'a', 'a', 'a', 'a', 255, 'a', 'a', 'a', 'a', 10, 'b', 'b', 'b'};
    Guarded one(1);
    uint8_t* dst = one.data();
    const uint8_t* src = coded.data();
    int32_t left = length(coded), free = 1;
    veksDecodeRLEStateInit_BZ2_8u(&state);
    EXPECT_EQ(veksDecodeRLEState_BZ2_8u(&src, &left, &dst, &free, &state),
              vekStatusDestinationFull);
    EXPECT_TRUE(state.runCount == 272 && left == 3);
}

TEST(Bzip2Mtf, BothDirectionsEqualTheListOverAnyCut) {
    Random random(13);
    for (const Shape& shape : shapes()) {
        const Bytes in = shape.make(5000, 3);
        std::list<uint8_t> list;
        for (int v = 255; v >= 0; --v) list.push_front(static_cast<uint8_t>(v));
        Bytes expected;
        for (const uint8_t byte : in) {
            const auto at = std::find(list.begin(), list.end(), byte);
            expected.push_back(static_cast<uint8_t>(std::distance(list.begin(), at)));
            list.splice(list.begin(), list, at);
        }
        VekMtfState forward, inverse;
        veksMTFInit_8u(&forward);
        veksMTFInit_8u(&inverse);
        Bytes coded(in.size()), back(in.size());
        for (size_t at = 0; at < in.size();) {
            const size_t n = pick(random, 1, in.size() - at);
            ASSERT_EQ(
                veksMTFFwd_8u(in.data() + at, coded.data() + at, static_cast<int32_t>(n), &forward),
                vekStatusOk);
            ASSERT_EQ(veksMTFInv_8u(coded.data() + at, back.data() + at, static_cast<int32_t>(n),
                                    &inverse),
                      vekStatusOk);
            at += n;
        }
        ASSERT_EQ(coded, expected) << shape.name;
        ASSERT_EQ(back, in) << shape.name;
        unsigned position = 0;
        for (const uint8_t value : list) {
            ASSERT_EQ(inverse.table[position], value);
            ASSERT_EQ(forward.table[value], position++);
        }
    }
}

TEST(Bzip2Mtf, AStateThatIsNoPermutationStaysInside) {
    Guarded state(Bytes(sizeof(VekMtfState), 7));
    Guarded data(shapes()[1].make(1000, 5));
    auto* table = reinterpret_cast<VekMtfState*>(state.data());
    EXPECT_EQ(veksMTFFwd_8u(data.data(), data.data(), 1000, table), vekStatusOk);
    EXPECT_EQ(veksMTFInv_8u(data.data(), data.data(), 1000, table), vekStatusOk);
}

TEST(Bzip2Maps, ReduceAndExpandAreInverses) {
    Bytes inUse(256, 0);
    inUse[10] = inUse[200] = inUse[255] = 1;
    Bytes block = {10, 200, 255, 10};
    int32_t size = 0;
    ASSERT_EQ(veksReduceDictionary_8u_I(inUse.data(), block.data(), 4, &size), vekStatusOk);
    EXPECT_EQ(size, 3);
    EXPECT_EQ(block, (Bytes{0, 1, 2, 0}));
    EXPECT_EQ(veksExpandDictionary_8u_I(inUse.data(), block.data(), 4, 4), vekStatusError);
    EXPECT_EQ(block, (Bytes{0, 1, 2, 0}));
    ASSERT_EQ(veksExpandDictionary_8u_I(inUse.data(), block.data(), 4, 3), vekStatusOk);
    EXPECT_EQ(block, (Bytes{10, 200, 255, 10}));
}

TEST(Bzip2ZeroRuns, RoundTripAndFrequencies) {
    Random random(14);
    for (size_t round = 0; round < effort(400); ++round) {
        Bytes in(pick(random, 1, 3000));
        const size_t zeros = pick(random, 0, 100);
        for (auto& b : in)
            b = pick(random, 0, 100) < zeros ? uint8_t{0} : static_cast<uint8_t>(random());
        if (round % 5 == 0) in.insert(in.begin() + in.size() / 2, pick(random, 1, 100000), 0);
        std::vector<uint16_t> symbols(in.size());
        std::vector<uint32_t> frequencies(257);
        const uint8_t* src = in.data();
        auto srcLen = static_cast<int32_t>(in.size());
        auto count = static_cast<int32_t>(symbols.size());
        ASSERT_EQ(
            veksEncodeZ1Z2_BZ2_8u16u(&src, &srcLen, symbols.data(), &count, frequencies.data()),
            vekStatusOk);
        symbols.resize(static_cast<size_t>(count));
        std::vector<uint32_t> counted(257);
        for (const uint16_t s : symbols) ++counted[s];
        ASSERT_EQ(frequencies, counted);
        Guarded back(in.size());
        const uint16_t* from = symbols.data();
        auto room = static_cast<int32_t>(in.size());
        ASSERT_EQ(veksDecodeZ1Z2_BZ2_16u8u(&from, &count, back.data(), &room), vekStatusOk);
        ASSERT_EQ(count, 0);
        ASSERT_EQ(back.bytes(), in);
    }
}

TEST(Bzip2ZeroRuns, EveryRoomGivesAPrefixInsideTheRoom) {
    for (const Bytes& in :
         {fromRepeats({{0, 1}, {1, 1}}), fromRepeats({{0, 7}, {1, 1}}),
          fromRepeats({{5, 2}, {0, 100}, {6, 1}, {0, 3}}), fromRepeats({{0, 63}})}) {
        for (size_t room = 1; room <= in.size() + 1; ++room) {
            Guarded symbols(2 * room);
            std::vector<uint32_t> frequencies(257);
            const uint8_t* src = in.data();
            auto left = static_cast<int32_t>(in.size());
            auto count = static_cast<int32_t>(room);
            const VekStatus status =
                veksEncodeZ1Z2_BZ2_8u16u(&src, &left, reinterpret_cast<uint16_t*>(symbols.data()),
                                         &count, frequencies.data());
            EXPECT_EQ(status, left != 0 ? vekStatusDestinationFull : vekStatusOk);
            ASSERT_LE(static_cast<size_t>(count), room);
            ASSERT_GE(count, 1) << "no progress in a room of " << room;
            Bytes back(in.size());
            const auto* from = reinterpret_cast<const uint16_t*>(symbols.data());
            auto backLen = static_cast<int32_t>(back.size());
            EXPECT_EQ(veksDecodeZ1Z2_BZ2_16u8u(&from, &count, back.data(), &backLen), vekStatusOk);
            back.resize(static_cast<size_t>(backLen));
            EXPECT_EQ(back, Bytes(in.begin(), in.end() - left)) << "room " << room;
        }
    }
}

TEST(Bzip2ZeroRuns, RunsBeyondTheRoomAreRefusedWhole) {
    const std::vector<uint16_t> endless(200, 1);
    for (const size_t digits : {5, 31, 32, 33, 64, 200}) {
        Guarded room(40);
        const uint16_t* src = endless.data();
        auto left = static_cast<int32_t>(digits);
        int32_t written = 40;
        EXPECT_EQ(veksDecodeZ1Z2_BZ2_16u8u(&src, &left, room.data(), &written),
                  vekStatusDestinationFull);
        EXPECT_EQ(written, 0);
        EXPECT_EQ(left, 0);
    }
    // Zeros that fill the room, then a value: the zeros stand, the value is left.
    const uint16_t symbols[] = {1, 0, 3};
    Guarded room(4);
    const uint16_t* src = symbols;
    int32_t left = 3, written = 4;
    EXPECT_EQ(veksDecodeZ1Z2_BZ2_16u8u(&src, &left, room.data(), &written),
              vekStatusDestinationFull);
    EXPECT_EQ(written, 4);
    EXPECT_EQ(left, 1);
}

TEST(Bzip2Stages, RecordsHaveTheirSizes) {
    for (auto* query : {veksMTFGetSize_8u, veksRLEGetSize_BZ2_8u}) {
        int32_t size = 0;
        EXPECT_TRUE(query(&size) == vekStatusOk && size > 0);
    }
}

TEST(Bzip2Stages, RefusedCallsTouchNothing) {
    uint8_t byte = 9, out = 9;
    uint16_t symbol = 9;
    const uint8_t* src = &byte;
    const uint16_t* symbols = &symbol;
    uint8_t* dst = &out;
    int32_t one = 1, zero = 0;
    uint32_t frequencies[257] = {};
    VekBz2RleState rle;
    VekMtfState mtf;
    veksEncodeRLEInit_BZ2_8u(&rle);
    veksMTFInit_8u(&mtf);
    const VekStatus calls[] = {
        veksEncodeRLE_BZ2_8u(&src, &zero, &out, &one, &rle),
        veksEncodeRLE_BZ2_8u(&src, &one, &out, &zero, &rle),
        veksEncodeRLEFlush_BZ2_8u(&out, &zero, &rle),
        veksDecodeRLEState_BZ2_8u(&src, &zero, &dst, &one, &rle),
        veksMTFFwd_8u(&byte, &out, 0, &mtf),
        veksReduceDictionary_8u_I(&byte, &out, 0, &one),
        veksExpandDictionary_8u_I(&byte, &out, 1, 0),
        veksEncodeZ1Z2_BZ2_8u16u(&src, &one, &symbol, &zero, frequencies),
        veksDecodeZ1Z2_BZ2_16u8u(&symbols, &one, &out, &zero),
    };
    for (const VekStatus& found : calls) EXPECT_EQ(found, vekStatusBadSize) << &found - calls;
    EXPECT_TRUE(out == 9 && symbol == 9 && one == 1 && zero == 0 && src == &byte);
}
