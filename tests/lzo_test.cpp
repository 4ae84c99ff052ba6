// LZO1X: every method against both decoders and the format's own library, containers, rooms, and
// streams that lie.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "include/vekdc.h"
#include "support/data.h"
#include "support/guarded.h"

#ifdef VEK_HAS_lzo2
#include <lzo/lzo1x.h>
#endif

namespace {

using vektest::Bytes;
using vektest::Guarded;
using vektest::pick;
using vektest::Random;
using vektest::shapes;

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

Bytes encode(const Bytes& data, State& state) {
    const Result r = encode(data, state, vekLZOEncodeBound(static_cast<uint32_t>(data.size())));
    EXPECT_EQ(r.status, vekStatusOk);
    return r.bytes;
}

Bytes encode(const Bytes& data, int32_t method) {
    State state(method);
    return encode(data, state);
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

/// Lengths around the encoder's thresholds, chunk and reach, and the decoder's margins.
std::vector<size_t> lengths() {
    return {1,    2,    3,    4,     5,     13,    14,    18,    36,    37,    38,     39,
            40,   50,   64,   65,    100,   238,   239,   256,   273,   274,   275,    1000,
            2048, 4096, 8000, 33000, 49151, 49152, 49153, 49190, 65536, 98340, 131072, 150001};
}

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

const Bytes endMark = {0x11, 0, 0};

/// Finder food: 4-byte matches far away between runs of 19 literals, the output that grows most.
Bytes worstCase(size_t size) {
    Random random(9);
    Bytes data;
    std::vector<uint32_t> words(700);
    for (auto& w : words) w = static_cast<uint32_t>(random());
    size_t i = 0;
    while (data.size() < size) {
        for (int k = 0; k < 19; ++k) data.push_back(static_cast<uint8_t>(random()));
        const uint32_t w = words[i++ % words.size()];
        for (int k = 0; k < 4; ++k) data.push_back(static_cast<uint8_t>(w >> (8 * k)));
    }
    return data;
}

TEST(Lzo, RoundTripsEveryShapeWithEveryMethod) {
    for (int32_t method : {0, 2}) {
        State state(method);  // one table through all buffers: it may be dirty
        for (const auto& shape : shapes()) {
            for (size_t length : lengths()) {
                SCOPED_TRACE(testing::Message()
                             << shape.name << " " << length << " method " << method);
                const Bytes data = shape.make(length, static_cast<uint32_t>(length));
                ASSERT_NO_FATAL_FAILURE(expectDecodes(encode(data, state), data));
            }
        }
        const Bytes worst = worstCase(200000);
        ASSERT_NO_FATAL_FAILURE(expectDecodes(encode(worst, state), worst));
    }
}

TEST(Lzo, CompressesWhatRepeatsAndKeepsItsLimits) {
    const Bytes text = shapes()[4].make(100000, 1);
    EXPECT_EQ(encode(text, 0), encode(text, 1));
    // Reach: a copy at 49151 back is a match of method 0, one byte further it is not.
    for (size_t distance : {2048, 2049, 16384, 16385, 32768, 49151, 49152}) {
        Bytes data = shapes()[1].make(distance, 3);
        data = data + Bytes(data.begin(), data.begin() + 600) + shapes()[1].make(33, 4);
        const Bytes stream = encode(data, 0);
        EXPECT_EQ(stream.size() < data.size() - 300, distance <= 49151) << distance;
        ASSERT_NO_FATAL_FAILURE(expectDecodes(stream, data));
    }
    // Up to 37 bytes are one run.
    for (size_t n : {1, 4, 13, 18, 37}) {
        for (int32_t method : {0, 2}) {
            const Bytes data(n, 7);
            const Bytes expected = Bytes{static_cast<uint8_t>(n + 17)} + data + endMark;
            EXPECT_EQ(encode(data, method), expected);
        }
    }
}

TEST(Lzo, EncoderKeepsInsideEveryRoom) {
    for (int32_t method : {0, 2}) {
        for (const auto& shape : shapes()) {
            const Bytes data = shape.make(700, 5);
            const size_t whole = encode(data, method).size();
            for (size_t capacity = 0; capacity <= whole + 20; capacity += capacity < 40 ? 1 : 7) {
                SCOPED_TRACE(testing::Message() << shape.name << " " << capacity);
                State state(method);
                const size_t slack = 5 + capacity / 255;
                const Result r = encode(data, state, capacity, slack);
                ASSERT_LE(r.length, capacity + slack);
                if (r.status == vekStatusOk) {
                    ASSERT_NO_FATAL_FAILURE(expectDecodes(r.bytes, data));
                    continue;
                }
                ASSERT_EQ(r.status, vekStatusDestinationFull);
                if (r.length == 0) continue;
                // What was written, with an end put behind it, is the beginning of the data.
                const Result d = decode(&veksDecodeLZOSafe_8u, r.bytes + endMark, data.size());
                ASSERT_EQ(d.status, vekStatusOk);
                ASSERT_TRUE(std::equal(d.bytes.begin(), d.bytes.end(), data.begin()));
            }
        }
    }
    State state(0);
    const Result exact = encode(Bytes(13, 1), state, 13, 4);
    EXPECT_EQ(exact.status, vekStatusOk);
    EXPECT_EQ(exact.length, 17U);
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
    uint32_t size = 1;
    uint32_t none = 1;
    State state(0);
    State bad[3] = {State(0), State(0, 33), State(0, 33)};
    bad[0].words[0] = 3;
    bad[1].words[1] = 0;
    uint8_t byte = 0;
    uint32_t n = 7;
    uint32_t zero = 7;
    void* const record = state.words.data();
    const auto null = vekStatusNullPointer;
    const auto refused = vekStatusBadArgument;
    const std::pair<VekStatus, VekStatus> calls[] = {
        {veksEncodeLZOGetSize(0, 9, &size), vekStatusOk},
        {veksEncodeLZOGetSize(3, 9, &none), refused},
        {veksEncodeLZOGetSize(3, 9, nullptr), null},
        {veksEncodeLZOInit_8u(-1, 0, record), refused},
        {veksEncodeLZOInit_8u(3, 0, nullptr), null},
        {veksEncodeLZO_8u(nullptr, 0, &byte, &n, record), null},
        {veksEncodeLZO_8u(&byte, 1, &byte, &n, nullptr), null},
        {veksEncodeLZO_8u(&byte, 1, &byte, &n, bad[0].words.data()), refused},
        {veksEncodeLZO_8u(&byte, 1, &byte, &n, bad[1].words.data()), refused},
        {veksEncodeLZO_8u(&byte, 1, &byte, &n, bad[2].words.data()), refused},
        {veksEncodeLZO_8u(&byte, 0, &byte, &zero, record), vekStatusOk},
    };
    for (const auto& call : calls) EXPECT_EQ(call.first, call.second) << &call - calls;
    for (auto* function : {&veksDecodeLZO_8u, &veksDecodeLZOSafe_8u}) {
        EXPECT_EQ(function(nullptr, 0, &byte, &n), null);
        EXPECT_EQ(function(&byte, 1, &byte, nullptr), null);
        EXPECT_EQ(function(&byte, 0, &byte, &zero), vekStatusOk);
    }
    EXPECT_TRUE(state.words == State(0).words);
    EXPECT_EQ(size, stateSize);
    EXPECT_EQ(none + zero, 0U);
    EXPECT_EQ(n, 7U);
}

struct StreamCase {
    const char* what;
    Bytes stream;
    size_t capacity;
    VekStatus status;
    Bytes out;
};

Bytes run(size_t n) {
    return Bytes{static_cast<uint8_t>(n + 17)} + Bytes(n, 'a');
}

TEST(Lzo, CheckingDecoderJudgesEachStream) {
    const VekStatus broken = vekStatusLzoBrokenStream;
    const Bytes a4(4, 'a');
    const Bytes a6(6, 'a');
    const std::vector<StreamCase> cases = {
        {"bare end", endMark, 0, 0, {}},
        {"bare end and more", endMark + a4, 0, 0, {}},
        {"run and end", run(4) + endMark, 4, 0, a4},
        {"run without end", run(4), 4, 0, a4},
        {"run beyond capacity", run(4) + endMark, 3, broken, {}},
        {"short first run without end", run(3), 9, broken, {}},
        {"short first run and end", run(3) + endMark, 3, 0, Bytes(3, 'a')},
        {"short first run, 2-byte match", run(3) + Bytes{0x08, 0} + endMark, 9, 0, Bytes(5, 'a')},
        {"match as far as produced", run(4) + Bytes{0x40 | (3 << 2), 0} + endMark, 9, 0,
         Bytes(7, 'a')},
        {"match one further", run(4) + Bytes{0x60 | (4 << 2), 0} + endMark, 9, broken, {}},
        {"match without end", run(4) + Bytes{0x60, 0}, 9, broken, {}},
        {"match beyond capacity", run(4) + Bytes{0x60, 0} + endMark, 7, broken, {}},
        {"match to capacity, trailing beyond",
         run(4) + Bytes{0x41, 0, 'b'} + endMark,
         7,
         broken,
         {}},
        {"far short match too far", run(5) + Bytes{0, 0} + endMark, 99, broken, {}},
        {"end with a length field", run(4) + Bytes{0x16, 0, 0}, 4, 0, a4},
        {"end with an extension", run(4) + Bytes{0x10, 0, 9, 0, 0}, 4, 0, a4},
        {"end with trailing bits", run(4) + Bytes{0x11, 3, 0}, 4, 0, a4},
        {"no end: distance bit 3", run(4) + Bytes{0x19, 0, 0}, 9, broken, {}},
        {"bytes behind the end", run(6) + endMark + a4, 6, 0, a6},
        {"first byte 16", Bytes{16, 1, 0, 0}, 9, broken, {}},
        {"first byte 17, not bare", Bytes{17, 4, 0}, 9, broken, {}},
        {"first byte 1..15", Bytes{1, 'a', 'a', 'a', 'a'} + endMark, 4, 0, a4},
        {"cut operand", run(4) + Bytes{0x20, 0}, 99, broken, {}},
        {"cut extension", Bytes{0, 0, 0}, 99999, broken, {}},
        {"cut distance", run(4) + Bytes{0x24, 0}, 99, broken, {}},
        {"cut literals", Bytes{18 + 9, 'a'}, 99, broken, {}},
        {"long run by extension", Bytes{0, 2} + Bytes(20, 'x'), 20, 0, Bytes(20, 'x')},
        {"zeros without end", Bytes(100000, 0), 4000000, broken, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Result r = decode(&veksDecodeLZOSafe_8u, c.stream, c.capacity);
        EXPECT_EQ(r.status, c.status);
        if (c.status == 0) {
            EXPECT_TRUE(r.bytes == c.out);
            const Result trusted = decode(&veksDecodeLZO_8u, c.stream, c.capacity);
            EXPECT_EQ(trusted.status, vekStatusOk);
            EXPECT_TRUE(trusted.bytes == c.out);
        } else {
            EXPECT_EQ(r.length, c.capacity);  // untouched
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
    for (const auto& shape : shapes()) streams.push_back(encode(shape.make(3000, 8), 0));
    for (size_t round = 0; round < vektest::effort(30000); ++round) {
        Bytes stream = streams[round % streams.size()];
        if (round % 5 == 0) {
            stream.resize(pick(random, 0, 200));
            for (auto& b : stream) b = static_cast<uint8_t>(random() >> (random() % 8));
        }
        for (size_t k = pick(random, 0, 4); k != 0 && !stream.empty(); --k)
            stream[pick(random, 0, stream.size() - 1)] = static_cast<uint8_t>(random());
        if (!stream.empty()) stream.resize(pick(random, 1, stream.size()));
        // A container's own length overrules the capacity; those have a test of their own.
        if (!stream.empty() && stream[0] == 0x55) stream[0] = 0x54;
        const size_t capacity = pick(random, 0, 4000);
        const Result r = decode(&veksDecodeLZOSafe_8u, stream, capacity);
        ASSERT_TRUE(r.status == 0 || r.length == capacity);
        ASSERT_LE(r.length, capacity);
    }
}

TEST(Lzo, TrustingDecoderStopsAtTheCapacity) {
    for (const auto& shape : shapes()) {
        const Bytes data = shape.make(2000, 6);
        Bytes stream = encode(data, 2);
        for (size_t capacity = 0; capacity <= data.size(); capacity += 13) {
            const Result r = decode(&veksDecodeLZO_8u, stream, capacity);
            ASSERT_TRUE(r.status == vekStatusOk && r.length == capacity);
            ASSERT_TRUE(std::equal(r.bytes.begin(), r.bytes.end(), data.begin()));
        }
        stream.resize(stream.size() - 5);
        ASSERT_LE(decode(&veksDecodeLZO_8u, stream, data.size()).length, data.size());
    }
}

Bytes encodeParts(const Bytes& data, uint32_t parts) {
    State state(0, parts);
    const Result r =
        encode(data, state, vekLZOEncodeBound(static_cast<uint32_t>(data.size())) + 16 * parts);
    EXPECT_EQ(r.status, vekStatusOk);
    return r.bytes;
}

TEST(Lzo, ContainersRoundTrip) {
    for (uint32_t parts : {2U, 3U, 7U, 32U}) {
        for (size_t length : {1, 5, 31, 32, 33, 1000, 70000}) {
            for (const auto& shape : shapes()) {
                SCOPED_TRACE(testing::Message() << shape.name << " " << parts << " " << length);
                const Bytes data = shape.make(length, 2);
                const Bytes stream = encodeParts(data, parts);
                ASSERT_EQ(stream[1], parts);
                ASSERT_NO_FATAL_FAILURE(expectDecodes(stream, data));
            }
        }
    }
    // Any room: full, or decodable.
    const Bytes data = shapes()[4].make(3000, 1);
    const size_t whole = encodeParts(data, 5).size();
    for (size_t capacity = 0; capacity <= whole; ++capacity) {
        State state(0, 5);
        const Result r = encode(data, state, capacity, 5 * 6 + capacity / 255);
        ASSERT_TRUE(r.status == vekStatusOk || r.status == vekStatusDestinationFull);
        if (r.status != vekStatusOk) continue;
        ASSERT_NO_FATAL_FAILURE(expectDecodes(r.bytes, data));
    }
}

TEST(Lzo, BrokenContainers) {
    const Bytes data = shapes()[4].make(4000, 1);
    const Bytes good = encodeParts(data, 4);
    const auto word = [&](size_t at) {
        uint32_t v;
        std::memcpy(&v, good.data() + at, 4);
        return v;
    };
    const size_t second = 19 + word(7);
    const size_t fourth = second + word(11) + word(15);
    // Parts 1 and 3 broken: the others are decoded and counted.
    Bytes bad = good;
    bad[second] = 16;
    bad[fourth] = 17;
    Result r = decode(&veksDecodeLZOSafe_8u, bad, data.size());
    EXPECT_EQ(r.status, vekStatusLzoBrokenStream);
    EXPECT_EQ(r.length, 2000U);
    EXPECT_TRUE(std::equal(r.bytes.begin(), r.bytes.begin() + 1000, data.begin()));
    // A part length past the source breaks that part and those behind it.
    bad = good;
    bad[14] = 0x7F;
    r = decode(&veksDecodeLZOSafe_8u, bad, data.size());
    EXPECT_EQ(r.status, vekStatusLzoBrokenStream);
    EXPECT_EQ(r.length, 1000U);
    // No container: part count, its complement, the first part's end, a cut header.
    for (size_t at : {size_t{1}, size_t{2}, second - 3, size_t{10}}) {
        bad = good;
        bad[at] = 33;
        r = decode(&veksDecodeLZOSafe_8u, bad, 30);
        EXPECT_EQ(r.status, vekStatusLzoBrokenStream);
        EXPECT_EQ(r.length, 30U) << "a plain stream leaves the length alone";
    }
    for (size_t n = 1; n < second; ++n)
        EXPECT_EQ(decode(&veksDecodeLZOSafe_8u, {good.begin(), good.begin() + n}, 30).length, 30U);
}

#ifdef VEK_HAS_lzo2
TEST(Lzo, FormatsOwnLibraryReadsAndWritesTheSame) {
    ASSERT_EQ(lzo_init(), LZO_E_OK);
    using Compress = int (*)(const lzo_bytep, lzo_uint, lzo_bytep, lzo_uintp, lzo_voidp);
    const std::pair<Compress, size_t> compressors[] = {
        {&lzo1x_1_compress, LZO1X_1_MEM_COMPRESS},
        {&lzo1x_1_11_compress, LZO1X_1_11_MEM_COMPRESS},
        {&lzo1x_1_12_compress, LZO1X_1_12_MEM_COMPRESS},
        {&lzo1x_1_15_compress, LZO1X_1_15_MEM_COMPRESS},
        {&lzo1x_999_compress, LZO1X_999_MEM_COMPRESS}};
    std::vector<uint64_t> work(LZO1X_999_MEM_COMPRESS / 8 + 1);
    for (const auto& shape : shapes()) {
        for (size_t length : {1, 3, 17, 40, 300, 5000, 60000, 200000}) {
            SCOPED_TRACE(testing::Message() << shape.name << " " << length);
            const Bytes data = shape.make(length, 4);
            for (int32_t method : {0, 2}) {
                const Bytes stream = encode(data, method);
                Bytes out(length);
                lzo_uint outLength = length;
                ASSERT_EQ(lzo1x_decompress_safe(stream.data(), stream.size(), out.data(),
                                                &outLength, nullptr),
                          LZO_E_OK);
                ASSERT_EQ(outLength, length);
                ASSERT_TRUE(out == data);
            }
            for (const auto& [compress, workSize] : compressors) {
                if (compress == &lzo1x_999_compress && length > 60000) continue;
                Bytes stream(length + length / 16 + 67);
                lzo_uint streamLength = stream.size();
                ASSERT_EQ(compress(data.data(), length, stream.data(), &streamLength, work.data()),
                          LZO_E_OK);
                stream.resize(streamLength);
                ASSERT_NO_FATAL_FAILURE(expectDecodes(stream, data));
            }
        }
    }
}
#endif

}  // namespace
