// LZO1X: every method against both decoders and the format's own library, containers, rooms, and
// streams that lie.

#include "bytes/words.h"
#include "support/test.h"

#ifdef VEK_HAS_lzo2
#include <lzo/lzo1x.h>
#endif

namespace {

using namespace vektest;

constexpr uint32_t stateSize = 131096;

struct State {
    std::vector<uint32_t> words = std::vector<uint32_t>(stateSize / 4, 0xDEADBEEF);
    explicit State(int32_t method, uint32_t parts = 0) {
        EXPECT_EQ(veksEncodeLZOInit_8u(method, 0, words.data()), vekStatusOk);
        if (parts != 0) {
            words[0] = 1;
            words[1] = parts;
        }
    }
};

struct Result {
    VekStatus status;
    uint32_t length;
    Bytes bytes;
};

/// Encodes with `capacity` and `slack` more bytes before the guard page.
Result encode(const Bytes& data, State& state, size_t capacity, size_t slack = 0) {
    Guarded src(data);
    Guarded dst(capacity + slack);
    auto length = static_cast<uint32_t>(capacity);
    const VekStatus status = veksEncodeLZO_8u(src.data(), static_cast<uint32_t>(data.size()),
                                              dst.data(), &length, state.words.data());
    return {status, length, Bytes(dst.data(), dst.data() + length)};
}

template <class AnyState>
Bytes encode(const Bytes& data, AnyState&& state) {
    const auto bound = vekLZOEncodeBound(static_cast<uint32_t>(data.size())) + 16 * 32;
    const Result r = encode(data, state, bound);
    EXPECT_EQ(r.status, vekStatusOk);
    return r.bytes;
}

using DecodeFunction = VekStatus(const uint8_t*, uint32_t, uint8_t*, uint32_t*);

Result decode(DecodeFunction* function, const Bytes& stream, size_t capacity) {
    Guarded src(stream);
    Guarded dst(capacity);
    auto length = static_cast<uint32_t>(capacity);
    const VekStatus status =
        function(src.data(), static_cast<uint32_t>(stream.size()), dst.data(), &length);
    Bytes out = dst.bytes();
    if (length < out.size()) out.resize(length);
    return {status, length, out};
}

void expectDecodes(const Bytes& stream, const Bytes& data) {
    for (auto* function : {&veksDecodeLZO_8u, &veksDecodeLZOSafe_8u}) {
        const Result r = decode(function, stream, data.size());
        ASSERT_EQ(r.status, vekStatusOk);
        ASSERT_TRUE(r.bytes == data && r.length == data.size());
    }
}

/// What the compressors of the format's own library, if it is there, make of the data.
std::vector<Bytes> peerStreams([[maybe_unused]] const Bytes& data) {
    std::vector<Bytes> streams;
#ifdef VEK_HAS_lzo2
    EXPECT_EQ(lzo_init(), LZO_E_OK);
    std::vector<uint64_t> work(LZO1X_999_MEM_COMPRESS / 8 + 1);
    for (auto* compress : {&lzo1x_1_compress, &lzo1x_1_11_compress, &lzo1x_1_12_compress,
                           &lzo1x_1_15_compress, &lzo1x_999_compress}) {
        if (compress == &lzo1x_999_compress && data.size() > 60000) continue;
        Bytes stream(data.size() + data.size() / 16 + 67);
        lzo_uint length = stream.size();
        compress(data.data(), data.size(), stream.data(), &length, work.data());
        stream.resize(length);
        streams.push_back(stream);
    }
#endif
    return streams;
}

const Bytes endMark = {0x11, 0, 0};

/// A first run.
Bytes run(size_t n) {
    return Bytes{static_cast<uint8_t>(n + 17)} + Bytes(n, 'a');
}

/// Data that begin with a run of 68 literals, whose short form has the container's mark for its
/// first byte, and which go on as the header of a container of `parts` parts and `total` bytes, the
/// first of which ends at `end` of the stream.
Bytes lookAlike(uint8_t parts, uint32_t total, size_t end, const Bytes& rest) {
    Bytes data = shapes()[1].make(68, 2);
    data[0] = parts;
    data[1] = parts ^ 0x55;
    vek::store(&data[2], total);
    vek::store(&data[6], static_cast<uint32_t>(end - (4U * parts + 3)));
    return data + rest;
}

uint32_t partsOf(const Bytes& stream) {
    return vekLZOContainerParts(stream.data(), static_cast<uint32_t>(stream.size()));
}
uint32_t lengthOf(const Bytes& stream) {
    return vekLZOContainerLength(stream.data(), static_cast<uint32_t>(stream.size()));
}

/// Finder food: 4-byte matches far away between runs of 19 literals, the output that grows most.
Bytes worstCase(size_t size) {
    Bytes data = shapes()[1].make(size, 9);
    const Bytes words = shapes()[1].make(2800, 8);
    for (size_t i = 19, k = 0; i + 4 <= size; i += 23, k = (k + 4) % 2800)
        std::copy_n(&words[k], 4, &data[i]);
    return data;
}

TEST(Lzo, RoundTripsEveryShapeWithEveryMethod) {
    // Around the encoder's thresholds, chunk and reach, and the decoder's margins.
    const std::vector<size_t> lengths = {
        1,    2,    3,    4,     5,     13,    14,    18,    36,    37,    38,     39,
        40,   50,   64,   65,    100,   238,   239,   256,   273,   274,   275,    1000,
        2048, 4096, 8000, 33000, 49151, 49152, 49153, 49190, 65536, 98340, 131072, 150001};
    // Through all buffers, so that they are dirty; the last three make containers.
    State states[] = {State(0), State(2), State(0, 2), State(0, 7), State(0, 32)};
    const auto roundTrip = [&](const Bytes& data) {
        for (State& state : states) {
            const Bytes stream = encode(data, state);
            ASSERT_NO_FATAL_FAILURE(expectDecodes(stream, data));
#ifdef VEK_HAS_lzo2
            if (state.words[0] == 1) continue;
            Bytes out(data.size());
            lzo_uint length = out.size();
            ASSERT_EQ(lzo1x_decompress_safe(stream.data(), stream.size(), out.data(), &length, {}),
                      LZO_E_OK);
            ASSERT_TRUE(length == data.size() && out == data);
#endif
        }
    };
    for (const auto& [name, data] : everyShape(lengths)) {
        SCOPED_TRACE(name);
        ASSERT_NO_FATAL_FAILURE(roundTrip(data));
        for (const Bytes& stream : peerStreams(data))
            ASSERT_NO_FATAL_FAILURE(expectDecodes(stream, data));
    }
    ASSERT_NO_FATAL_FAILURE(roundTrip(worstCase(200000)));
}

TEST(Lzo, CompressesWhatRepeatsAndKeepsItsLimits) {
    const Bytes text = shapes()[4].make(100000, 1);
    EXPECT_EQ(encode(text, State(0)), encode(text, State(1)));
    // Reach: a copy at 49151 back is a match of method 0, one byte further it is not.
    for (size_t distance : {2048, 2049, 16384, 16385, 32768, 49151, 49152}) {
        Bytes data = shapes()[1].make(distance, 3);
        data = data + Bytes(data.begin(), data.begin() + 600) + shapes()[1].make(33, 4);
        const Bytes stream = encode(data, State(0));
        EXPECT_EQ(stream.size() < data.size() - 300, distance <= 49151) << distance;
        ASSERT_NO_FATAL_FAILURE(expectDecodes(stream, data));
    }
    // Up to 37 bytes are one run.
    for (size_t n : {1, 4, 13, 18, 37})
        for (int32_t method : {0, 2})
            EXPECT_EQ(encode(Bytes(n, 'a'), State(method)), run(n) + endMark);
}

TEST(Lzo, NoPlainStreamIsTakenForAContainer) {
    const Bytes known = lookAlike(1, 0, 0, {});
    const Bytes matched(known.begin() + 20, known.end());
    const Bytes noise = shapes()[1].make(140, 4);
    // The first part may end where the stream does, or anywhere in its literals.
    for (const Bytes& rest : {Bytes{}, matched + noise, matched + endMark + noise})
        for (const auto& [method, parts] : {std::pair{0, 1}, {0, 2}, {0, 16}, {2, 1}, {2, 16}}) {
            const auto n = static_cast<uint8_t>(parts);
            Bytes shortForm = encode(lookAlike(n, 268, 0, rest), State(method));
            ASSERT_TRUE(shortForm[0] == 0x55 && partsOf(shortForm) == 0 &&
                        lengthOf(shortForm) == 0);
            const auto end =
                std::search(shortForm.begin(), shortForm.end(), endMark.begin(), endMark.end()) -
                shortForm.begin() + 3;
            for (const uint32_t total : {0U, 268U, 0xFFFFFFFFU}) {
                SCOPED_TRACE(testing::Message() << method << " " << parts << " " << total);
                const Bytes data = lookAlike(n, total, static_cast<size_t>(end), rest);
                std::copy_n(data.begin(), 68, shortForm.begin() + 1);
                const Bytes stream = encode(data, State(method));
                EXPECT_EQ(stream,
                          (Bytes{0, 68 - 18} + Bytes(shortForm.begin() + 1, shortForm.end())));
                EXPECT_TRUE(partsOf(stream) == 0 && lengthOf(stream) == 0);
                ASSERT_NO_FATAL_FAILURE(expectDecodes(stream, data));
                // Made by others, the short form is a container of so many bytes, and no more are
                // written.
                EXPECT_TRUE(partsOf(shortForm) == n && lengthOf(shortForm) == total);
                if (total <= 268) {
                    for (auto* function : {&veksDecodeLZO_8u, &veksDecodeLZOSafe_8u})
                        EXPECT_LE(decode(function, shortForm, total).length, total);
                }
                // Cut by the room, none becomes one by an end put behind it.
                for (size_t room = 1; room < stream.size(); room += 5) {
                    State state(method);
                    const Result cut = encode(data, state, room, 5);
                    EXPECT_EQ(partsOf(cut.bytes), 0U);
                    EXPECT_TRUE(cut.status == vekStatusOk || cut.length == 0 ||
                                cut.bytes[0] != 0x55);
                }
            }
        }
    for (uint32_t size = 0; size < 11; ++size)
        EXPECT_EQ(vekLZOContainerParts(Guarded(Bytes(size, 0x55)).data(), size), 0U);
    const Bytes good = encode(Bytes(4000, 'a'), State(0, 3));
    EXPECT_TRUE(partsOf(good) == 3 && lengthOf(good) == 4000);
}

TEST(Lzo, EncoderKeepsInsideEveryRoom) {
    for (auto [method, parts] : {std::pair{0, 0U}, {2, 0U}, {0, 5U}})
        for (const auto& [name, data] : everyShape({700})) {
            const size_t whole = encode(data, State(method, parts)).size();
            for (size_t capacity = 0; capacity <= whole + 20; capacity += capacity < 40 ? 1 : 7) {
                SCOPED_TRACE(testing::Message() << name << " " << capacity);
                State state(method, parts);
                const size_t slack = 5 + 6 * parts + capacity / 255;
                const Result r = encode(data, state, capacity, slack);
                ASSERT_LE(r.length, capacity + slack);
                if (r.status == vekStatusOk) {
                    ASSERT_NO_FATAL_FAILURE(expectDecodes(r.bytes, data));
                    continue;
                }
                ASSERT_EQ(r.status, vekStatusDestinationFull);
                if (r.length == 0 || parts != 0) continue;
                // What was written, with an end put behind it, is the beginning of the data.
                const Result d = decode(&veksDecodeLZOSafe_8u, r.bytes + endMark, data.size());
                ASSERT_EQ(d.status, vekStatusOk);
                ASSERT_TRUE(std::equal(d.bytes.begin(), d.bytes.end(), data.begin()));
            }
        }
    State state(0);
    const Result exact = encode(Bytes(13, 1), state, 13, 4);
    EXPECT_TRUE(exact.status == vekStatusOk && exact.length == 17);
    EXPECT_EQ(encode(Bytes(300, 1), state, 0).length, 0U);
    // Room for the input and a 128th is less than the worst input needs.
    const Bytes worst = worstCase(100000);
    for (int32_t method : {0, 2}) {
        State fresh(method);
        const size_t capacity = worst.size() + worst.size() / 128 + 16;
        EXPECT_LE(encode(worst, fresh, capacity, 5 + capacity / 255).length, capacity + 400);
    }
}

TEST(Lzo, Arguments) {
    const auto refused = vekStatusBadArgument;
    const auto ok = vekStatusOk;
    State good(0);
    State bad[] = {State(0), State(0, 33), State(0, 33)};
    bad[0].words[0] = 3;
    bad[1].words[1] = 0;
    void* const state = good.words.data();
    uint8_t byte = 0;
    uint32_t sizes[] = {1, 1};
    uint32_t n = 7;
    for (auto [status, expected] : {
             std::pair<VekStatus, VekStatus>{veksEncodeLZOGetSize(0, 9, sizes), ok},
             {veksEncodeLZOGetSize(3, 9, sizes + 1), refused},
             {veksEncodeLZOInit_8u(-1, 0, state), refused},
             {veksEncodeLZO_8u(&byte, 1, &byte, &n, bad[0].words.data()), refused},
             {veksEncodeLZO_8u(&byte, 1, &byte, &n, bad[1].words.data()), refused},
             {veksEncodeLZO_8u(&byte, 1, &byte, &n, bad[2].words.data()), refused},
         })
        EXPECT_EQ(status, expected);
    EXPECT_TRUE(good.words == State(0).words);
    EXPECT_TRUE(sizes[0] == stateSize && sizes[1] == 0 && n == 7);
    uint32_t lengths[] = {7, 7, 7};
    EXPECT_EQ(veksEncodeLZO_8u(&byte, 0, &byte, lengths, state), ok);
    EXPECT_EQ(veksDecodeLZO_8u(&byte, 0, &byte, lengths + 1), ok);
    EXPECT_EQ(veksDecodeLZOSafe_8u(&byte, 0, &byte, lengths + 2), ok);
    EXPECT_EQ(lengths[0] + lengths[1] + lengths[2], 0U);
}

TEST(Lzo, CheckingDecoderJudgesEachStream) {
    const VekStatus broken = vekStatusLzoBrokenStream;
    const Bytes a4(4, 'a');
    const struct {
        const char* what;
        Bytes stream;
        size_t capacity;
        VekStatus status;
        Bytes out = {};
    } cases[] = {
        {"bare end", endMark, 0, 0},
        {"bare end and more", endMark + a4, 0, 0},
        {"run without end", run(4), 4, 0, a4},
        {"run beyond capacity", run(4) + endMark, 3, broken},
        {"short first run without end", run(3), 9, broken},
        {"short first run and end", run(3) + endMark, 3, 0, Bytes(3, 'a')},
        {"short first run, 2-byte match", run(3) + Bytes{0x08, 0} + endMark, 9, 0, Bytes(5, 'a')},
        {"match as far as produced", run(4) + Bytes{0x4C, 0} + endMark, 9, 0, Bytes(7, 'a')},
        {"match one further", run(4) + Bytes{0x70, 0} + endMark, 9, broken},
        {"match without end", run(4) + Bytes{0x60, 0}, 9, broken},
        {"match beyond capacity", run(4) + Bytes{0x60, 0} + endMark, 7, broken},
        {"trailing beyond capacity", run(4) + Bytes{0x41, 0, 'b'} + endMark, 7, broken},
        {"far short match too far", run(5) + Bytes{0, 0} + endMark, 99, broken},
        {"end with a length field", run(4) + Bytes{0x16, 0, 0}, 4, 0, a4},
        {"end with an extension", run(4) + Bytes{0x10, 0, 9, 0, 0}, 4, 0, a4},
        {"end with trailing bits", run(4) + Bytes{0x11, 3, 0}, 4, 0, a4},
        {"no end: distance bit 3", run(4) + Bytes{0x19, 0, 0}, 9, broken},
        {"bytes behind the end", run(6) + endMark + a4, 6, 0, Bytes(6, 'a')},
        {"first byte 16", {16, 1, 0, 0}, 9, broken},
        {"first byte 17, not bare", {17, 4, 0}, 9, broken},
        {"first byte 17, then a stream", Bytes{17, 1} + a4 + endMark, 4, broken},
        {"first byte 18", run(1) + endMark, 1, 0, {'a'}},
        {"first byte 1..15", Bytes{1} + a4 + endMark, 4, 0, a4},
        {"cut operand", run(4) + Bytes{0x20, 0}, 99, broken},
        {"cut extension", {0, 0, 0}, 99999, broken},
        {"cut distance", run(4) + Bytes{0x24, 0}, 99, broken},
        {"cut literals", {18 + 9, 'a'}, 99, broken},
        {"long run by extension", Bytes{0, 2} + Bytes(20, 'x'), 20, 0, Bytes(20, 'x')},
        {"zeros without end", Bytes(100000, 0), 4000000, broken},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Result r = decode(&veksDecodeLZOSafe_8u, c.stream, c.capacity);
        EXPECT_EQ(r.status, c.status);
        if (c.status == 0)
            expectDecodes(c.stream, c.out);
        else
            EXPECT_EQ(r.length, c.capacity);  // untouched
    }
}

TEST(Lzo, WideCopiesKeepInsideEveryRoom) {
    // The longest that the fast loop copies without another look at the room: matches near and far,
    // trailing literals, short runs and long ones; each from 60 different bytes on.
    Bytes first{60 + 17};
    for (uint8_t i = 0; i < 60; ++i) first.push_back(i);
    const Bytes letters(300, 'x');
    const Bytes shortMatch = {0x40, 0};
    for (const Bytes& last :
         {Bytes{0x3F, 60, 0}, Bytes{0x3F, 56, 0}, Bytes{0x3F, 0, 0},
          Bytes{0x3F, 63, 0, 'a', 'b', 'c'}, Bytes{0x20, 40, 60, 0}, Bytes{0xE3, 0, 'a', 'b', 'c'},
          shortMatch + Bytes{15} + Bytes(18, 'r'), shortMatch + Bytes{0, 2} + Bytes(20, 'r')}) {
        const Bytes stream = first + last + endMark + letters;
        const Result whole = decode(&veksDecodeLZOSafe_8u, stream, 1000);
        ASSERT_EQ(whole.status, vekStatusOk);
        for (size_t room = whole.length; room < whole.length + 70; ++room)
            for (auto* function : {&veksDecodeLZO_8u, &veksDecodeLZOSafe_8u}) {
                const Result r = decode(function, stream, room);
                ASSERT_TRUE(r.status == vekStatusOk && r.bytes == whole.bytes) << room;
            }
    }
}

TEST(Lzo, ExtensionsNearFourGigabytesAreRefused) {
    // 2^32 / 255 zeros wrap a 32-bit length back to a small one.
    Bytes stream = run(8) + Bytes{0x20} + Bytes(16843009 + 1, 0) + Bytes{1, 0, 0} + endMark;
    EXPECT_EQ(decode(&veksDecodeLZOSafe_8u, stream, 1000).status, vekStatusLzoBrokenStream);
    EXPECT_EQ(decode(&veksDecodeLZO_8u, stream, 1000).status, vekStatusOk);
    stream[9] = 0;
    EXPECT_EQ(decode(&veksDecodeLZOSafe_8u, stream, 1000).status, vekStatusLzoBrokenStream);
}

TEST(Lzo, HostileStreamsStayInsideTheBuffers) {
    Random random(77);
    std::vector<Bytes> streams;
    for (const auto& shape : shapes())
        for (const uint32_t parts : {0U, 3U})
            streams.push_back(encode(shape.make(3000, 8), State(0, parts)));
    size_t containers = 0;
    for (size_t round = 0; round < effort(30000); ++round) {
        Bytes stream = streams[round % streams.size()];
        if (round % 5 == 0) {
            stream.resize(pick(random, 0, 200));
            for (auto& b : stream) b = static_cast<uint8_t>(random() >> (random() % 8));
        }
        for (size_t k = pick(random, 0, 4); k != 0 && !stream.empty(); --k)
            stream[pick(random, 0, stream.size() - 1)] = static_cast<uint8_t>(random());
        if (!stream.empty()) stream.resize(pick(random, 1, stream.size()));
        // A container's own length overrules the capacity.
        const uint32_t told = lengthOf(stream);
        if (told > 1 << 20) continue;
        containers += told != 0;
        const size_t capacity = told != 0 ? told : pick(random, 0, 4000);
        const Result r = decode(&veksDecodeLZOSafe_8u, stream, capacity);
        ASSERT_TRUE(r.status == 0 || told != 0 || r.length == capacity);
        ASSERT_LE(r.length, capacity);
    }
    EXPECT_GT(containers, effort(300));
}

TEST(Lzo, TrustingDecoderStopsAtTheCapacity) {
    for (const auto& [name, data] : everyShape({2000})) {
        Bytes stream = encode(data, State(2));
        for (size_t capacity = 0; capacity <= data.size(); capacity += 13) {
            const Result r = decode(&veksDecodeLZO_8u, stream, capacity);
            ASSERT_TRUE(r.status == vekStatusOk && r.length == capacity);
            ASSERT_TRUE(std::equal(r.bytes.begin(), r.bytes.end(), data.begin()));
        }
        stream.resize(stream.size() - 5);
        ASSERT_LE(decode(&veksDecodeLZO_8u, stream, data.size()).length, data.size());
    }
}

TEST(Lzo, BrokenContainers) {
    const Bytes data = shapes()[4].make(4000, 1);
    const Bytes good = encode(data, State(0, 4));
    const auto word = [&](size_t at) { return vek::load<uint32_t>(good.data() + at); };
    const size_t second = 19 + word(7), fourth = second + word(11) + word(15);
    ASSERT_EQ(good[1], 4);
    const auto expectBroken = [&](std::vector<std::pair<size_t, uint8_t>> changes, uint32_t room,
                                  uint32_t length) {
        Bytes bad = good;
        for (auto [at, byte] : changes) bad[at] = byte;
        const Result r = decode(&veksDecodeLZOSafe_8u, bad, room);
        EXPECT_EQ(r.status, vekStatusLzoBrokenStream);
        EXPECT_EQ(r.length, length) << changes[0].first;
        EXPECT_TRUE(room < 1000 || std::equal(data.begin(), data.begin() + 1000, r.bytes.begin()));
    };
    // Parts 1 and 3 broken: the others are decoded and counted.
    expectBroken({{second, 16}, {fourth, 17}}, 4000, 2000);
    // A part length past the source breaks that part and those behind it.
    expectBroken({{14, 0x7F}}, 4000, 1000);
    // No container, and a plain stream leaves the length alone: part count, its complement, the
    // first part's end, its length, a cut header.
    for (size_t at : {size_t{1}, size_t{2}, second - 3, size_t{10}})
        expectBroken({{at, 33}}, 30, 30);
    for (size_t n = 1; n < second; ++n)
        EXPECT_EQ(decode(&veksDecodeLZOSafe_8u, {good.begin(), good.begin() + n}, 30).length, 30U);
}

}  // namespace
