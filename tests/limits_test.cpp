// Lengths at the ends of their types: inputs of 2^31 - 1 bytes, from a mapping that costs no memory
// as long as it is only read, and blocks that no longer fit the narrower tables. Minutes and
// gigabytes, so these run on their own (label "slow").

#include <sys/mman.h>

#include <new>

#include "support/test.h"

using namespace vektest;

namespace {

constexpr int32_t longest = INT32_MAX;

/// That many zeros, or room for as many bytes.
class Mapping {
 public:
    Mapping() : data_(mmap(nullptr, size_t{longest}, PROT_READ | PROT_WRITE, flags, -1, 0)) {
        if (data_ == MAP_FAILED) throw std::bad_alloc();
    }
    ~Mapping() { munmap(data_, size_t{longest}); }
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    uint8_t* data() const { return static_cast<uint8_t*>(data_); }
    bool isZeros() const {
        return data()[0] == 0 && std::memcmp(data(), data() + 1, size_t{longest} - 1) == 0;
    }

 private:
    static constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
    void* data_;
};

/// More than any encoder here makes of the zeros.
constexpr int32_t packedRoom = 48 << 20;

/// Encodes the zeros by `encode(src, dst, &dstLen)` and decodes them by `decode(src, srcLen, dst,
/// &dstLen)`. The two mappings must not live at once: there is no place for both in 32 bits.
template <class Encode, class Decode>
void expectRoundTrip(Encode encode, Decode decode) {
    Bytes packed(packedRoom);
    int32_t size = packedRoom;
    {
        const Mapping zeros;
        ASSERT_EQ(encode(zeros.data(), packed.data(), &size), vekStatusOk);
    }
    const Mapping room;
    int32_t written = longest;
    EXPECT_EQ(decode(packed.data(), size, room.data(), &written), vekStatusOk);
    EXPECT_TRUE(written == longest && room.isZeros());
}

/// One byte of about `spacing` is random, the others are zeros.
Bytes sparseBytes(size_t size, uint32_t spacing) {
    Bytes bytes(size);
    uint64_t x = 1;
    for (auto& byte : bytes) {
        x = x * 6364136223846793005U + 1442695040888963407U;
        if ((x >> 32) % spacing == 0) byte = static_cast<uint8_t>(x >> 56);
    }
    return bytes;
}

}  // namespace

TEST(Limits, Checksums) {
    const Mapping zeros;
    constexpr int32_t part = longest / 3;
    const auto inTwo = [&](auto sum, uint32_t start) {
        uint32_t whole = start, parts = start;
        EXPECT_EQ(sum(zeros.data(), longest, &whole), vekStatusOk);
        EXPECT_EQ(sum(zeros.data(), part, &parts), vekStatusOk);
        EXPECT_EQ(sum(zeros.data() + part, longest - part, &parts), vekStatusOk);
        EXPECT_EQ(whole, parts);
    };
    inTwo(veksCRC32_8u, 0x12345678);
    inTwo(veksCRC32_BZ2_8u, 0x12345678);
    inTwo(veksCRC32C_8u, 0x12345678);
    inTwo(veksAdler32_8u, 1);
}

TEST(Limits, Bzip2Runs) {
    Bytes coded(packedRoom);
    auto length = static_cast<int32_t>(coded.size());
    VekBz2RleState state;
    veksEncodeRLEInit_BZ2_8u(&state);
    {
        const Mapping zeros;
        const uint8_t* src = zeros.data();
        int32_t left = longest;
        ASSERT_EQ(veksEncodeRLE_BZ2_8u(&src, &left, coded.data(), &length, &state), vekStatusOk);
        ASSERT_EQ(left, 0);
    }
    // Whole runs of 259, and what is left.
    constexpr int32_t runs = longest / 259;
    ASSERT_EQ(state.runCount, longest % 259);
    ASSERT_EQ(length, 5 * runs + std::min(longest % 259, 4));
    for (int32_t i = 0; i < runs; ++i) ASSERT_EQ(coded[static_cast<size_t>(5 * i + 4)], 255);
    int32_t more = 1;
    veksEncodeRLEFlush_BZ2_8u(coded.data() + length, &more, &state);
    length += more;
    // All of it is one pending run behind the first byte.
    const uint8_t* src = coded.data();
    Bytes room(1 << 20);
    int64_t total = 0;
    veksDecodeRLEStateInit_BZ2_8u(&state);
    for (bool goesOn = true; goesOn;) {
        uint8_t* dst = room.data();
        auto left = static_cast<int32_t>(room.size());
        goesOn = length != 0
                     ? veksDecodeRLEState_BZ2_8u(&src, &length, &dst, &left, &state) >= vekStatusOk
                     : veksDecodeRLEStateFlush_BZ2_8u(&state, &dst, &left) != vekStatusOk;
        total += dst - room.data();
    }
    EXPECT_EQ(total, longest);
}

TEST(Limits, Bzip2ZeroRuns) {
    uint16_t symbols[40];
    uint32_t frequencies[257] = {};
    // 2^31 - 1 is 31 digits of 1; of 30 digits, all 2, the last zero is left.
    for (const int32_t room : {30, 31, 40}) {
        const Mapping zeros;
        const uint8_t* src = zeros.data();
        int32_t left = longest, count = room;
        EXPECT_EQ(veksEncodeZ1Z2_BZ2_8u16u(&src, &left, symbols, &count, frequencies),
                  room == 30 ? vekStatusDestinationFull : vekStatusOk);
        EXPECT_EQ(count, room == 30 ? 30 : 31);
        EXPECT_EQ(left, room == 30 ? 1 : 0);
        EXPECT_EQ(symbols[0], room == 30 ? 1 : 0);
    }
    const Mapping back;
    const uint16_t* from = symbols;
    int32_t count = 31, length = longest;
    EXPECT_EQ(veksDecodeZ1Z2_BZ2_16u8u(&from, &count, back.data(), &length), vekStatusOk);
    EXPECT_EQ(length, longest);
}

// The longest block that packs a link into 24 bits, longer ones, and ones whose larger work size
// does not fit an int32_t.
TEST(Limits, Bzip2LongBlocks) {
    const std::pair<size_t, uint32_t> blocks[] = {
        {size_t{1} << 24, 1}, {(size_t{1} << 24) + 1, 2}, {119304643, 3000}};
    for (const auto& [size, spacing] : blocks) {
        const Bytes block = sparseBytes(size, spacing);
        int32_t index = -1, workSize = 0;
        ASSERT_EQ(veksBWTFwdGetSize_8u(length(block), &workSize), vekStatusOk);
        Bytes column(size);
        {
            Guarded sorting(static_cast<size_t>(workSize));
            ASSERT_EQ(
                veksBWTFwd_8u(block.data(), column.data(), length(block), &index, sorting.data()),
                vekStatusOk);
        }
        Bytes work(4 * size + 1024), back(size);
        ASSERT_EQ(veksBWTInv_8u(column.data(), back.data(), length(block), index, work.data()),
                  vekStatusOk);
        ASSERT_TRUE(back == block) << size;
    }
}

TEST(Limits, DeflateMatchers) {
    constexpr uint32_t room = longest / 258 + 1000;
    Bytes lit(room);
    std::vector<uint16_t> dist(room);
    for (const uint32_t level : {1, 6})
        for (const int32_t start : {0, longest}) {
            const Mapping zeros;
            Bytes window(32768);
            std::vector<int32_t> head(32768, -32768);
            std::vector<int32_t> prev(32768, -32768);
            std::vector<VekHuffEntry> frequencies(286 + 30);
            const uint8_t* src = zeros.data();
            int32_t left = longest, position = start;
            uint32_t pairs = room;
            ASSERT_EQ(
                veksDeflateLZ77_8u(&src, &left, &position, window.data(), 32768, head.data(),
                                   prev.data(), 32768, frequencies.data(), frequencies.data() + 286,
                                   lit.data(), dist.data(), &pairs, level, 2),
                vekStatusOk);
            ASSERT_EQ(left, 0);
            ASSERT_GE(position, 0);
            int64_t total = 0;
            for (uint32_t i = 0; i < room - pairs; ++i) total += dist[i] == 0 ? 1 : lit[i] + 3;
            EXPECT_EQ(total, longest) << "level " << level << " from " << start;
        }
    const Mapping zeros;
    std::vector<uint32_t> head(65536);
    std::vector<VekHuffEntry> frequencies(286 + 30);
    ASSERT_EQ(veksDeflateLZ77FastestGetStat_8u(zeros.data(), longest, head.data(), 65536,
                                               frequencies.data(), frequencies.data() + 286),
              vekStatusOk);
    uint32_t longestMatches = 0;
    std::memcpy(&longestMatches, &frequencies[285], sizeof(longestMatches));
    EXPECT_EQ(longestMatches, (longest - 1) / 258);
}

TEST(Limits, Lz4) {
    Bytes table(16384), head(131072), chain(262144);
    uint8_t* const work = table.data();
    uint8_t* tables[] = {head.data(), chain.data()};
    for (const int way : {0, 1, 2, 3}) {
        SCOPED_TRACE(way);
        expectRoundTrip(
            [&](const uint8_t* src, uint8_t* dst, int32_t* size) {
                int32_t length = longest;
                return way == 0   ? veksEncodeLZ4_8u(src, longest, dst, size, work)
                       : way == 1 ? veksEncodeLZ4Fast_8u(src, longest, dst, size, work, longest)
                       : way == 2
                           ? veksEncodeLZ4Safe_8u(src, &length, dst, size, work)
                           : veksEncodeLZ4HC_8u(src, 0, &length, dst, size, tables, nullptr, 0, 1);
            },
            veksDecodeLZ4_8u);
    }
    // Positions up to 2^32 - 2, behind a dictionary far away.
    const Mapping zeros;
    Bytes packed(packedRoom);
    int32_t length = longest, size = packedRoom;
    EXPECT_EQ(veksEncodeLZ4DictSafe_8u(zeros.data(), longest, &length, packed.data(), &size, work,
                                       packed.data(), 65536),
              vekStatusOk);
    EXPECT_EQ(length, longest);
}

TEST(Limits, Lzo) {
    Bytes record(131096);
    for (const int32_t method : {0, 1, 2}) {
        SCOPED_TRACE(method);
        const auto number = [](int32_t* size) { return reinterpret_cast<uint32_t*>(size); };
        expectRoundTrip(
            [&](const uint8_t* src, uint8_t* dst, int32_t* size) {
                veksEncodeLZOInit_8u(method, 3, record.data());
                return veksEncodeLZO_8u(src, longest, dst, number(size), record.data());
            },
            [&](const uint8_t* src, int32_t size, uint8_t* dst, int32_t* room) {
                return veksDecodeLZOSafe_8u(src, static_cast<uint32_t>(size), dst, number(room));
            });
    }
}

TEST(Limits, Lzss) {
    int32_t size = 0;
    veksLZSSGetSize_8u(&size);
    Bytes record(static_cast<size_t>(size));
    expectRoundTrip(
        [&](const uint8_t* src, uint8_t* dst, int32_t* room) {
            veksEncodeLZSSInit_8u(record.data());
            uint8_t* const begin = dst;
            int32_t length = longest;
            VekStatus status = veksEncodeLZSS_8u(&src, &length, &dst, room, record.data());
            EXPECT_EQ(length, 0);
            if (status == vekStatusOk) status = veksEncodeLZSSFlush_8u(&dst, room, record.data());
            *room = static_cast<int32_t>(dst - begin);
            return status;
        },
        [&](const uint8_t* src, int32_t length, uint8_t* dst, int32_t* room) {
            veksDecodeLZSSInit_8u(record.data());
            const VekStatus status = veksDecodeLZSS_8u(&src, &length, &dst, room, record.data());
            *room = longest - *room;
            return status == vekStatusDestinationFull ? vekStatusOk : status;
        });
}

// A block of 2^31 - 1 bits, of which all but the first are the padding that minBits asks for.
TEST(Limits, ZfpBits) {
    int32_t size = 0;
    veksEncodeZfpGetStateSize_32f(&size);
    std::vector<uint64_t> memory(static_cast<size_t>(size) / 8 + 1);
    auto* const state = reinterpret_cast<VekZfpState*>(memory.data());
    float block[64] = {};
    const Mapping stream;
    for (const float value : {0.0F, 1.0F}) {
        block[0] = value;
        veksEncodeZfpInit_32f(stream.data(), longest, state);
        veksEncodeZfpSet_32f(longest, longest, 64, -1074, state);
        for (int i = 0; i < 2; ++i) EXPECT_EQ(veksEncodeZfp444_32f(block, 4, 16, state), 0);
        int64_t bits = 0;
        veksEncodeZfpGetCompressedBitSize_32f(state, &bits);
        EXPECT_EQ(bits, 2 * int64_t{longest});
        EXPECT_EQ(veksEncodeZfpFlush_32f(state), vekStatusOk);
        veksDecodeZfpInit_32f(stream.data(), longest, state);
        veksDecodeZfpSet_32f(longest, longest, 64, -1074, state);
        for (int i = 0; i < 2; ++i) {
            float back[64] = {2};
            EXPECT_EQ(veksDecodeZfp444_32f(state, back, 4, 16), vekStatusOk);
            EXPECT_NEAR(back[0], value, 1e-5);
        }
    }
}
