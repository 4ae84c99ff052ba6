// ZFP blocks against the method's own library, bit by bit.

#include "support/test.h"

#ifdef VEK_HAS_zfp
#include <zfp.h>
#endif

using namespace vektest;

namespace {

using Block = std::array<float, 64>;

struct Params {
    int32_t minBits = 0, maxBits = 4171, maxPrec = 64, minExp = -10740;
};

/// A record that ends near an inaccessible page, at a multiple of 4 that is none of 8.
struct State {
    State() = default;
    template <class Init>
    State(Init init, Guarded& buffer, const Params& p) {
        EXPECT_EQ(init(buffer.data(), static_cast<int32_t>(buffer.size()), *this), vekStatusOk);
        EXPECT_EQ(veksEncodeZfpSet_32f(p.minBits, p.maxBits, p.maxPrec, p.minExp, *this), 0);
    }
    operator VekZfpState*() { return reinterpret_cast<VekZfpState*>(memory.data()); }
    static size_t size() {
        int32_t n = 0;
        veksEncodeZfpGetStateSize_32f(&n);
        return static_cast<size_t>(n);
    }

    Guarded memory{size() / 8 * 8 + 4};
};

int number(Random& random, int low, int high) {
    return low + static_cast<int>(random() % (high - low + 1));
}

[[maybe_unused]] Params randomParams(Random& random) {
    Params p;
    if (random() % 2) p.maxBits = number(random, 9, random() % 2 ? 80 : 2200);
    if (random() % 2)
        p.minBits = random() % 2 ? p.maxBits : number(random, 0, std::min(p.maxBits, 700));
    if (random() % 2) p.maxPrec = number(random, 1, 40);
    if (random() % 2) p.minExp = number(random, -60, 20);
    return p;
}

/// Noise, a wave, one value, equal values, zeros, or noise of many magnitudes.
[[maybe_unused]] Block randomBlock(Random& random) {
    Block block{};
    const auto kind = random() % 6;
    const int exponent = number(random, -75, 74);
    const float slope = static_cast<float>(random() % 1000) / 500;
    const size_t place = random() % 64;
    for (size_t i = 0; i < 64; ++i) {
        const float noise = static_cast<float>(static_cast<int32_t>(random())) / 2147483648.0F;
        const size_t line = i / 4;
        const float wave = std::sin(slope * static_cast<float>(i % 4) + static_cast<float>(line));
        const float spike = i == place ? 1.0F : 0.0F;
        const float values[] = {noise, wave, spike,
                                slope, 0,    std::ldexp(noise, number(random, -20, 19))};
        block[i] = std::ldexp(values[kind], exponent);
    }
    return block;
}

/// Memory for a block up to an inaccessible page, its rows at steps of any sign and alignment.
struct Field {
    const int32_t step, planeStep, low = 3 * (std::min(step, 0) + std::min(planeStep, 0));
    Guarded memory{static_cast<size_t>(3 * (std::abs(step) + std::abs(planeStep)) + 16)};

    /// One of a few, by its number modulo theirs.
    static Field& numbered(size_t i) {
        static Field fields[] = {{16, 64}, {-16, -64}, {64, 16}, {17, 71}, {-101, 23}, {1000, -16}};
        return fields[i % std::size(fields)];
    }
    /// The memory with a block in it, or none.
    Bytes image(const Block* block) const {
        Bytes bytes(memory.size(), 0x5A);
        for (int i = 0; i < 16 && block != nullptr; ++i)
            std::memcpy(&bytes[i / 4 * planeStep + i % 4 * step - low], &(*block)[4 * i], 16);
        return bytes;
    }
    /// Makes that of it; returns the block's first value.
    float* fill(const Block* block) {
        std::ranges::copy(image(block), memory.data());
        return reinterpret_cast<float*>(memory.data() - low);
    }
    VekStatus encode(const Block& block, VekZfpState* state) {
        return veksEncodeZfp444_32f(fill(&block), step, planeStep, state);
    }
};

/// Blocks coded into a buffer of `length` bytes, the last status, and whether a flush had room.
struct Coded {
    Bytes stream;
    int64_t size = 0, bits = 0;
    VekStatus status = vekStatusOk, flushed = vekStatusOk;
};

Coded encode(const std::vector<Block>& blocks, const Params& p, size_t length) {
    Guarded dst(length, length % 2 == 0 ? Guarded::Edge::End : Guarded::Edge::Start);
    State state(veksEncodeZfpInitLong_32f, dst, p);
    Coded coded;
    for (size_t i = 0; i < blocks.size() && coded.status == vekStatusOk; ++i)
        coded.status = Field::numbered(i).encode(blocks[i], state);
    EXPECT_EQ(veksEncodeZfpGetCompressedSizeLong_32f(state, &coded.size), vekStatusOk);
    EXPECT_EQ(veksEncodeZfpGetCompressedBitSize_32f(state, &coded.bits), vekStatusOk);
    EXPECT_TRUE(coded.status == vekStatusOk ||
                Field::numbered(0).encode(blocks[0], state) == vekStatusNoRoom);
    coded.flushed = veksEncodeZfpFlush_32f(state);
    coded.stream = dst.bytes();
    return coded;
}

/// The first blocks of a stream, whatever the values.
std::vector<Block> decode(const Bytes& stream, const Params& p, size_t count) {
    Guarded src(stream);
    State state(veksDecodeZfpInitLong_32f, src, p);
    std::vector<Block> blocks(count);
    for (Block& block : blocks)
        EXPECT_EQ(veksDecodeZfp444_32f(state, block.data(), 16, 64), vekStatusOk);
    return blocks;
}

#ifdef VEK_HAS_zfp
/// The method's own library, on a stream that goes on in zeros behind the given bytes.
struct Peer {
    /// Of what its domain does not hold, the nearest means the same to us.
    explicit Peer(const Params& p, Bytes stream = {}) : bytes(std::move(stream)) {
        bytes.resize(bytes.size() / 8 * 8 + 8192);
        bits = stream_open(bytes.data(), bytes.size());
        zfp = zfp_stream_open(bits);
        zfp->minbits = static_cast<uint>(std::clamp(p.minBits, 0, 40000));
        zfp->maxbits = static_cast<uint>(std::max(p.maxBits, 9));
        zfp->maxprec = static_cast<uint>(std::clamp(p.maxPrec, 0, 64));
        zfp->minexp = std::clamp(p.minExp, -1074, 16000);
    }
    ~Peer() {
        zfp_stream_close(zfp);
        stream_close(bits);
    }
    Peer(const Peer&) = delete;
    /// Returns the bits encoded so far.
    size_t encode(const Block& block) {
        zfp_encode_block_float_3(zfp, block.data());
        return static_cast<size_t>(stream_wtell(bits));
    }
    /// What is encoded, in whole words.
    Bytes stream() {
        const size_t words = (stream_wtell(bits) + 63) / 64;
        stream_flush(bits);
        return part(bytes, 0, 8 * words);
    }
    Block decode() {
        const size_t at = position();
        const int header = bytes[at / 8] | bytes[at / 8 + 1] << 8;
        const bool tiny = (header >> (at % 8 + 1) & 0xFF) <= 30;
        Block block;
        zfp_decode_block_float_3(zfp, block.data());
        for (float& v : block) {
            if (!tiny) break;
            // Our scale is a normal float or 0, and the transform at most doubles what is scaled.
            EXPECT_LT(std::abs(v), 0x1p-96F);
            v = std::copysign(0.0F, v);
        }
        return block;
    }
    size_t position() const { return static_cast<size_t>(stream_rtell(bits)); }

    Bytes bytes;
    bitstream* bits;
    zfp_stream* zfp;
};

/// Decodes to the end of the bits, or into the first block that is cut; compares with the peer.
void expectDecodes(const Bytes& stream, size_t bits, const Params& p) {
    const size_t length = stream.size();
    Guarded src(stream);
    State state(veksDecodeZfpInit_32f, src, p);
    Peer peer(p, stream);
    for (size_t i = 0; peer.position() < std::min(bits, length * 8); ++i) {
        const Block expected = peer.decode();
        const size_t at = peer.position();
        Field& field = Field::numbered(i);
        const bool cut = at > length * 8;
        ASSERT_EQ(veksDecodeZfp444_32f(state, field.fill(nullptr), field.step, field.planeStep),
                  cut ? vekStatusNoRoom : vekStatusOk);
        const Bytes now = field.memory.bytes();
        ASSERT_TRUE(now == field.image(&expected) || (cut && now == field.image(nullptr))) << at;
        int32_t size = 0;
        ASSERT_EQ(veksDecodeZfpGetDecompressedSize_32f(state, &size), vekStatusOk);
        // Whole words are taken while there are any, then bytes.
        const size_t words = (at + 63) / 64 * 8;
        const size_t taken = words <= length / 8 * 8 ? words : (at + 7) / 8;
        ASSERT_EQ(static_cast<size_t>(size), cut ? length : taken);
    }
}

TEST(Zfp, StreamsAndValuesEqualThePeers) {
    // What the peer's domain does not hold, and then random numbers that it does.
    const Params strange[] = {
        {5000, 5, 64, INT32_MIN}, {-5, 8, 64, 0}, {70, 4171, -3, 0}, {0, INT32_MAX, INT32_MAX, 99}};
    Random random(1);
    for (size_t round = 0; round < effort(2500); ++round) {
        const Params p =
            round % 5 < 3 ? randomParams(random) : strange[round / 5 % std::size(strange)];
        std::vector<Block> blocks(1 + random() % 9);
        Peer peer(p);
        size_t bits = 0;
        for (Block& block : blocks) bits = peer.encode(block = randomBlock(random));
        const Bytes whole = peer.stream();
        // Now and then to a destination of every length, which keeps what fits.
        for (size_t length = round % 100 == 0 ? 1 : whole.size(); length <= whole.size();
             ++length) {
            const Coded coded = encode(blocks, p, length);
            const size_t words = bits / 64 * 8;
            ASSERT_EQ(coded.status, length < words ? vekStatusNoRoom : vekStatusOk) << length;
            ASSERT_EQ(static_cast<size_t>(coded.size), std::min(words, length / 8 * 8));
            ASSERT_TRUE(length < words || static_cast<size_t>(coded.bits) == bits);
            ASSERT_EQ(coded.flushed, length * 8 < bits ? vekStatusNoRoom : vekStatusOk);
            const Bytes start = part(whole, 0, length);
            ASSERT_EQ(coded.stream, start) << round;
            ASSERT_NO_FATAL_FAILURE(expectDecodes(start, bits, p)) << round << " " << length;
        }
    }
}

TEST(Zfp, HostileBitsDecodeAsThePeerDoes) {
    Random random(4);
    for (size_t round = 0; round < effort(2000); ++round) {
        Bytes bytes(1 + random() % 600);
        const auto density = random() % 4;
        for (uint8_t& b : bytes) {
            b = density == 0 ? uint8_t{0xFF} : static_cast<uint8_t>(random());
            for (int i = 0; density == 1 && i < 2; ++i) b &= static_cast<uint8_t>(random());
        }
        Params p = randomParams(random);
        if (random() % 4 == 0) p.maxBits = static_cast<int32_t>(random());
        if (random() % 4 == 0) p.minExp = static_cast<int32_t>(random());
        if (random() % 8 == 0) p.minBits = INT32_MAX - static_cast<int32_t>(random() % 3);
        ASSERT_NO_FATAL_FAILURE(expectDecodes(bytes, bytes.size() * 8, p)) << round;
    }
}
#endif

}  // namespace

TEST(Zfp, TheSmallestNumbersKeepFewerBits) {
    Random random(6);
    for (int exponent = 0; exponent < 60; ++exponent) {
        Block block;
        for (float& v : block) v = static_cast<float>(random() % 2000) / 1000 - 1;
        block[7] = 1.5F;
        for (float& v : block) v = std::ldexp(v, exponent - 127);
        Bytes stream = encode({block}, Params{}, 4096).stream;
        EXPECT_EQ(stream[0], 2 * (exponent + 1) + 1);
        // A block below 2^-97 comes back as zeros.
        const Block back = decode(stream, Params{}, 1)[0];
        for (size_t i = 0; i < 64; ++i)
            EXPECT_NEAR(back[i], exponent < 30 ? 0 : block[i], std::ldexp(1.0, exponent - 150));
        // Decoded with an exponent that scales by 1, it is integers; the scale to them is finite.
        stream[0] = static_cast<uint8_t>(2 * 157 + 1);
        stream[1] |= 1;
        const Block integers = decode(stream, Params{}, 1)[0];
        for (size_t i = 0; i < 64; ++i)
            EXPECT_NEAR(integers[i], std::ldexp(block[i], std::min(156 - exponent, 127)), 64);
    }
}

TEST(Zfp, HugePaddingAndNegativeLengthsHaveNoRoom) {
    Guarded buffer(100);
    State state;
    for (const float value : {0.0F, 1.5F}) {
        Block block;
        block.fill(value);
        EXPECT_EQ(encode({block}, {INT32_MAX, INT32_MAX, 64, -10}, 1001).status, vekStatusNoRoom);
        ASSERT_EQ(veksEncodeZfpInitLong_32f(buffer.data() + 100, -100, state), vekStatusOk);
        EXPECT_EQ(Field::numbered(0).encode(block, state),
                  value == 0 ? vekStatusOk : vekStatusNoRoom);
        ASSERT_EQ(veksDecodeZfpInitLong_32f(buffer.data() + 100, -100, state), vekStatusOk);
        EXPECT_EQ(veksDecodeZfp444_32f(state, block.data(), 16, 64), vekStatusNoRoom);
    }
}

TEST(Zfp, InfinitiesAndNaNsLeaveTheirNeighboursAlone) {
    Block plain;
    plain.fill(3.25F);
    for (const float bad : {HUGE_VALF, std::nanf(""), -std::nanf("1")}) {
        Block odd = plain;
        odd[13] = bad;
        const auto blocks = decode(encode({plain, odd, plain}, {}, 4000).stream, {}, 3);
        EXPECT_TRUE(blocks[0] == plain && blocks[2] == plain) << bad;
    }
}

TEST(Zfp, ArgumentsAreCheckedAndQueriesCount) {
    State state;
    Bytes buffer(64);
    Block block{};
    int32_t size = 5;
    int64_t longSize = 5;
    for (const VekStatus status :
         {veksEncodeZfpSet_32f(0, 0, 0, 0, state), veksEncodeZfpSetAccuracy_32f(1, state),
          veksEncodeZfpGetCompressedSize_32f(state, &size),
          veksEncodeZfpGetCompressedSizeLong_32f(state, &longSize),
          veksEncodeZfpGetCompressedBitSize_32f(state, &longSize), veksEncodeZfpFlush_32f(state),
          veksEncodeZfp444_32f(block.data(), 16, 64, state),
          veksDecodeZfpSet_32f(0, 0, 0, 0, state), veksDecodeZfpSetAccuracy_32f(1, state),
          veksDecodeZfpGetDecompressedSize_32f(state, &size),
          veksDecodeZfpGetDecompressedSizeLong_32f(state, &longSize),
          veksDecodeZfp444_32f(state, block.data(), 16, 64)})
        EXPECT_EQ(status, vekStatusStateMismatch);
    EXPECT_TRUE(size == 5 && longSize == 5);
    for (const int32_t length : {0, -1}) {
        EXPECT_EQ(veksEncodeZfpInit_32f(buffer.data(), length, state), vekStatusBadSize);
        EXPECT_EQ(veksDecodeZfpInit_32f(buffer.data(), length, state), vekStatusBadSize);
    }
    EXPECT_EQ(veksEncodeZfpInitLong_32f(buffer.data(), 0, state), vekStatusBadSize);
    EXPECT_EQ(veksDecodeZfpInitLong_32f(buffer.data(), 0, state), vekStatusBadSize);

    ASSERT_EQ(veksEncodeZfpInit_32f(buffer.data(), 64, state), vekStatusOk);
    EXPECT_EQ(veksEncodeZfp444_32f(block.data(), 16, 64, state), vekStatusOk);
    EXPECT_EQ(veksEncodeZfpFlush_32f(state), vekStatusOk);
    EXPECT_EQ(veksEncodeZfpGetCompressedBitSize_32f(state, &longSize), vekStatusOk);
    EXPECT_EQ(veksEncodeZfpGetCompressedSize_32f(state, &size), vekStatusOk);
    EXPECT_TRUE(longSize == 64 && size == 8);
    EXPECT_TRUE(veksDecodeZfpGetStateSize_32f(&size) == vekStatusOk && size > 0);
    const std::pair<double, int32_t> accuracies[] = {
        {0, -10740}, {-1, -10740}, {std::nan(""), -10740}, {1, 0}, {0.001, -10}, {1e-320, -1023}};
    const auto* fields = reinterpret_cast<const int32_t*>(static_cast<VekZfpState*>(state));
    for (const auto& [tolerance, minExp] : accuracies) {
        veksEncodeZfpSetAccuracy_32f(tolerance, state);
        EXPECT_EQ(fields[4], minExp) << tolerance;
    }
}
