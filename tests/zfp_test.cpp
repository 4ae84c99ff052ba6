// ZFP blocks against a plain model of the method, bit by bit, and against the method's own library.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <memory>

#include "support/data.h"
#include "support/guarded.h"
#include "vekdc.h"
#include "zfp/pdczfptable.h"

#ifdef VEK_HAS_zfp
#include <zfp.h>
#endif

using namespace vektest;

namespace {

using Block = std::array<float, 64>;

/// A block's floats as they stand in memory: equality that sees signs of zeros and NaNs.
std::array<uint32_t, 64> bitsOf(const Block& block) {
    return std::bit_cast<std::array<uint32_t, 64>>(block);
}

struct Params {
    int32_t minBits = 0, maxBits = 4171, maxPrec = 64, minExp = -10740;
};

// ---- The model ---------------------------------------------------------------------------------

using Bits = std::vector<bool>;

int32_t clampedPrecision(const Params& p, int64_t emax) {
    return static_cast<int32_t>(
        std::clamp<int64_t>(std::min<int64_t>(p.maxPrec, emax - p.minExp + 8), 0, 32));
}

using Words = std::array<uint32_t, 64>;

uint32_t half(uint32_t v) {
    return static_cast<uint32_t>(static_cast<int32_t>(v) >> 1);
}

template <class Lift>
void eachLine(Words& v, std::initializer_list<size_t> strides, Lift lift) {
    for (const size_t stride : strides)
        for (size_t i = 0; i < 64; ++i)
            if (i / stride % 4 == 0)
                lift(v[i], v[i + stride], v[i + 2 * stride], v[i + 3 * stride]);
}

void modelEncode(const Block& block, const Params& p, Bits& out) {
    const size_t padded = out.size() + static_cast<size_t>(std::max(p.minBits, 1));
    uint32_t largest = 0;
    for (const uint32_t v : bitsOf(block)) largest = std::max(largest, v & 0x7FFFFFFF);
    const int32_t emax = static_cast<int32_t>(largest >> 23) - 126;
    const int32_t precision = largest == 0 ? 0 : clampedPrecision(p, emax);
    if (precision == 0) return out.resize(padded);
    for (int i = 0; i < 9; ++i) out.push_back((2 * (emax + 127) + 1) >> i & 1);
    Words v;
    for (size_t i = 0; i < 64; ++i)
        v[i] = static_cast<uint32_t>(
            static_cast<int32_t>(block[i] * std::ldexp(1.0F, std::min(30 - emax, 127))));
    eachLine(v, {1, 4, 16}, [](uint32_t& x, uint32_t& y, uint32_t& z, uint32_t& w) {
        x = half(x + w), w -= x;
        z = half(z + y), y -= z;
        x = half(x + z), z -= x;
        w = half(w + y), y -= w;
        w += half(y), y -= half(w);
    });
    int64_t budget = std::max(0, p.maxBits - 9);
    size_t known = 0;
    const auto put = [&](bool bit) { return budget > 0 && (--budget, out.push_back(bit), true); };
    for (int k = 31; k >= 32 - precision && budget > 0; --k) {
        const auto bit = [&](size_t i) {
            return (((v[vek::permTable[i]] + 0xAAAAAAAAU) ^ 0xAAAAAAAAU) >> k & 1) != 0;
        };
        for (size_t i = 0; i < known; ++i) put(bit(i));
        while (known < 64 && budget > 0) {
            bool any = false;
            for (size_t i = known; i < 64; ++i) any = any || bit(i);
            if (!put(any) || !any) break;
            while (known < 63 && put(bit(known)) && !bit(known)) ++known;
            ++known;
        }
    }
    if (out.size() < padded) out.resize(padded);
}

/// Bits beyond the stream are zero; the position tells whether it passed the end.
Block modelDecode(const Bits& in, size_t& at, const Params& p) {
    const size_t padded = at + static_cast<size_t>(std::max(p.minBits, 1));
    const auto read = [&] { return at++ < in.size() && in[at - 1]; };
    Block block{};
    if (read()) {
        int32_t e = 0;
        for (int i = 0; i < 8; ++i) e |= read() << i;
        int64_t budget = std::max(0, p.maxBits - 9);
        Words u{};
        Words v;
        size_t known = 0;
        const auto take = [&] { return budget > 0 && (--budget, read()); };
        for (int k = 31; k >= 32 - clampedPrecision(p, e - 127) && budget > 0; --k) {
            for (size_t i = 0; i < known; ++i) u[i] |= static_cast<uint32_t>(take()) << k;
            while (known < 64 && take()) {
                while (known < 63 && budget > 0 && !take()) ++known;
                u[known++] |= 1U << k;
            }
        }
        for (size_t i = 0; i < 64; ++i) v[vek::permTable[i]] = (u[i] ^ 0xAAAAAAAAU) - 0xAAAAAAAAU;
        eachLine(v, {16, 4, 1}, [](uint32_t& x, uint32_t& y, uint32_t& z, uint32_t& w) {
            y += half(w), w -= half(y);
            y += w, w = 2 * w - y;
            z += x, x = 2 * x - z;
            y += z, z = 2 * z - y;
            w += x, x = 2 * x - w;
        });
        const float scale = e > 30 ? std::ldexp(1.0F, e - 127 - 30) : 0.0F;
        for (size_t i = 0; i < 64; ++i)
            block[i] = scale * static_cast<float>(static_cast<int32_t>(v[i]));
    }
    at = std::max(at, padded);
    return block;
}

Bytes packed(const Bits& bits) {
    Bytes bytes((bits.size() + 63) / 64 * 8);
    for (size_t i = 0; i < bits.size(); ++i) bytes[i / 8] |= bits[i] << i % 8;
    return bytes;
}

// ---- The library -------------------------------------------------------------------------------

/// A record that ends at an inaccessible page, at an address that is a multiple of 4 and not of 8.
class State {
 public:
    State() : memory_(size() + 4) {}
    ZfpState* get() { return reinterpret_cast<ZfpState*>(memory_.data() + (shifted() ? 4 : 0)); }
    operator ZfpState*() { return get(); }

 private:
    static size_t size() {
        int32_t n = 0;
        EXPECT_EQ(veksEncodeZfpGetStateSize_32f(&n), vekStatusOk);
        EXPECT_TRUE(n == 560 || sizeof(void*) == 8);
        return static_cast<size_t>(n);
    }
    bool shifted() { return reinterpret_cast<uintptr_t>(memory_.data()) % 8 == 0; }
    Guarded memory_;
};

void set(ZfpState* state, const Params& p) {
    ASSERT_EQ(veksEncodeZfpSet_32f(p.minBits, p.maxBits, p.maxPrec, p.minExp, state), vekStatusOk);
}

Params randomParams(Random& random) {
    Params p;
    const auto number = [&](int low, int high) {
        return low + static_cast<int>(random() % (high - low + 1));
    };
    if (random() % 2) p.maxBits = number(9, random() % 2 ? 80 : 2200);
    if (random() % 2) p.minBits = random() % 2 ? p.maxBits : number(0, std::min(p.maxBits, 700));
    if (random() % 2) p.maxPrec = number(1, 40);
    if (random() % 2) p.minExp = number(-60, 20);
    return p;
}

/// Noise, a wave, one value, equal values, zeros, or noise of many magnitudes.
Block randomBlock(Random& random) {
    Block block{};
    const auto kind = random() % 6;
    const auto number = [&](int limit) { return static_cast<int>(random() % limit) - limit / 2; };
    const int exponent = number(150);
    const float slope = static_cast<float>(random() % 1000) / 500;
    const size_t place = random() % 64;
    for (size_t i = 0; i < 64; ++i) {
        const float noise = static_cast<float>(static_cast<int32_t>(random())) / 2147483648.0F;
        const size_t line = i / 4;
        const float wave = std::sin(slope * static_cast<float>(i % 4) + static_cast<float>(line));
        const float spike = i == place ? 1.0F : 0.0F;
        const float values[] = {noise, wave, spike, slope, 0, std::ldexp(noise, number(40))};
        block[i] = std::ldexp(values[kind], exponent);
    }
    return block;
}

/// Memory for a block that ends at an inaccessible page, its rows at steps of any sign and
/// alignment.
class Field {
 public:
    /// One of a few, by its number modulo theirs.
    static Field& numbered(size_t i) {
        static Field fields[] = {{16, 64}, {-16, -64}, {64, 16}, {17, 71}, {-101, 23}, {1000, -16}};
        return fields[i % std::size(fields)];
    }
    /// The memory with a block in it, or none.
    Bytes image(const Block* block) const {
        Bytes bytes(memory_.size(), 0x5A);
        for (int i = 0; i < 16 && block != nullptr; ++i)
            std::memcpy(&bytes[i / 4 * planeStep_ + i % 4 * step_ - low_], &(*block)[4 * i], 16);
        return bytes;
    }
    VekStatus encode(const Block& block, ZfpState* state) {
        std::ranges::copy(image(&block), memory_.data());
        return veksEncodeZfp444_32f(first(), step_, planeStep_, state);
    }
    VekStatus decode(ZfpState* state) {
        std::ranges::copy(image(nullptr), memory_.data());
        return veksDecodeZfp444_32f(state, first(), step_, planeStep_);
    }
    Bytes bytes() const { return memory_.bytes(); }

 private:
    Field(int32_t step, int32_t planeStep) : step_(step), planeStep_(planeStep) {}
    float* first() { return reinterpret_cast<float*>(memory_.data() - low_); }

    const int32_t step_, planeStep_, low_ = 3 * (std::min(step_, 0) + std::min(planeStep_, 0));
    Guarded memory_{static_cast<size_t>(3 * (std::abs(step_) + std::abs(planeStep_)) + 16)};
};

/// Blocks coded into a buffer of `length` bytes, the last status, and whether a flush had room.
struct Coded {
    Bytes stream;
    int64_t bits = 0;
    int32_t size = 0;
    VekStatus status = vekStatusOk;
    VekStatus flushed = vekStatusOk;
};

Coded encode(const std::vector<Block>& blocks, const Params& p, size_t length,
             Guarded::Edge edge = Guarded::Edge::End) {
    Guarded dst(length, edge);
    State state;
    Coded coded;
    EXPECT_EQ(veksEncodeZfpInitLong_32f(dst.data(), static_cast<int64_t>(length), state), 0);
    set(state, p);
    for (size_t i = 0; i < blocks.size() && coded.status == vekStatusOk; ++i)
        coded.status = Field::numbered(i).encode(blocks[i], state);
    EXPECT_EQ(veksEncodeZfpGetCompressedSize_32f(state, &coded.size), vekStatusOk);
    EXPECT_EQ(veksEncodeZfpGetCompressedBitSize_32f(state, &coded.bits), vekStatusOk);
    if (coded.status != vekStatusOk) {
        EXPECT_EQ(Field::numbered(0).encode(blocks[0], state), vekStatusNoRoom);
    }
    coded.flushed = veksEncodeZfpFlush_32f(state);
    coded.stream = dst.bytes();
    return coded;
}

/// Decodes to the end of the bits, or into the first block that is cut; compares with the model.
void expectDecodes(const Bytes& stream, const Bits& bits, const Params& p) {
    const size_t length = stream.size();
    Guarded src(stream);
    State state;
    ASSERT_EQ(veksDecodeZfpInit_32f(src.data(), static_cast<int32_t>(length), state), vekStatusOk);
    set(state, p);
    for (size_t i = 0, at = 0; at < std::min(bits.size(), length * 8); ++i) {
        const Block expected = modelDecode(bits, at, p);
        Field& field = Field::numbered(i);
        const bool cut = at > length * 8;
        ASSERT_EQ(field.decode(state), cut ? vekStatusNoRoom : vekStatusOk);
        const bool untouched = cut && field.bytes() == field.image(nullptr);
        ASSERT_TRUE(untouched || field.bytes() == field.image(&expected)) << length << " " << at;
        int32_t size = 0;
        ASSERT_EQ(veksDecodeZfpGetDecompressedSize_32f(state, &size), vekStatusOk);
        // Whole words are taken while there are any, then bytes.
        const size_t words = (at + 63) / 64 * 8;
        const size_t taken = words <= length / 8 * 8 ? words : (at + 7) / 8;
        ASSERT_EQ(static_cast<size_t>(size), cut ? length : taken);
    }
}

/// The first blocks of a stream, whatever the values.
std::vector<Block> decode(const Bytes& stream, const Params& p, size_t count) {
    Guarded src(stream);
    State state;
    std::vector<Block> blocks(count);
    EXPECT_EQ(veksDecodeZfpInitLong_32f(src.data(), static_cast<int64_t>(src.size()), state), 0);
    set(state, p);
    for (Block& block : blocks)
        EXPECT_EQ(veksDecodeZfp444_32f(state, block.data(), 16, 64), vekStatusOk);
    return blocks;
}

#ifdef VEK_HAS_zfp
/// The method's own library: `use` gets its stream on `bytes`.
template <class Use>
void withPeer(const Params& p, Bytes& bytes, Use use) {
    bitstream* const bits = stream_open(bytes.data(), bytes.size());
    zfp_stream* const zfp = zfp_stream_open(bits);
    zfp_stream_set_params(zfp, static_cast<uint>(p.minBits), static_cast<uint>(p.maxBits),
                          static_cast<uint>(p.maxPrec), p.minExp);
    use(zfp);
    zfp_stream_close(zfp);
    stream_close(bits);
}

/// The first `length` bytes of its stream.
Bytes peerEncode(const std::vector<Block>& blocks, const Params& p, size_t length) {
    Bytes bytes(length + 4096);
    withPeer(p, bytes, [&](zfp_stream* zfp) {
        for (const Block& block : blocks) zfp_encode_block_float_3(zfp, block.data());
        zfp_stream_flush(zfp);
    });
    bytes.resize(length);
    return bytes;
}

std::vector<Block> peerDecode(Bytes stream, const Params& p, size_t count) {
    std::vector<Block> blocks(count);
    withPeer(p, stream, [&](zfp_stream* zfp) {
        for (Block& block : blocks) zfp_decode_block_float_3(zfp, block.data());
    });
    return blocks;
}
#endif

}  // namespace

TEST(Zfp, StreamsAndValuesEqualTheModelAndThePeer) {
    // What the peer's domain does not hold, and then random numbers that it does.
    const Params strange[] = {{100, 5, 64, -10740},
                              {0, -50, 64, 0},
                              {1, 4171, 0, 0},
                              {70, 4171, -3, 0},
                              {500, 300, 8, -10},
                              {5000, 5000, 64, INT32_MIN},
                              {0, INT32_MAX, INT32_MAX, 99},
                              {-5, 10, 64, -20}};
    Random random(1);
    for (size_t round = 0; round < effort(2500); ++round) {
        const bool tame = round % 5 < 3;
        const Params p = tame ? randomParams(random) : strange[round / 5 % std::size(strange)];
        std::vector<Block> blocks(1 + random() % 9);
        Bits bits;
        for (Block& block : blocks) {
            block = randomBlock(random);
            // Magnitudes down to the denormals, where the scales saturate.
            for (float& v : block) v = round % 5 == 4 ? std::ldexp(v, -70) : v;
            modelEncode(block, p, bits);
        }
        const Bytes expected = packed(bits);
        const Coded ours = encode(blocks, p, expected.size());
        ASSERT_EQ(static_cast<size_t>(ours.bits), bits.size());
        ASSERT_EQ(ours.stream, expected) << round;
        ASSERT_NO_FATAL_FAILURE(expectDecodes(expected, bits, p)) << round;
#ifdef VEK_HAS_zfp
        if (!tame) continue;
        const Params theirs{p.minBits, p.maxBits, p.maxPrec, std::max(p.minExp, -1074)};
        ASSERT_EQ(peerEncode(blocks, theirs, expected.size()), expected) << round;
        ASSERT_EQ(peerDecode(expected, theirs, blocks.size()), decode(expected, p, blocks.size()));
#endif
    }
}

#ifdef VEK_HAS_zfp
TEST(Zfp, DiffersFromThePeerExactlyWhereItShould) {
    Random random(6);
    Block noise;
    for (float& v : noise) v = static_cast<float>(random() % 2000) / 1000 - 1;
    noise[7] = 1.5F;
    const auto sameStream = [&](const Block& block, const Params& p) {
        Coded coded = encode({block}, p, 4096);
        coded.stream.resize(static_cast<size_t>(coded.bits + 63) / 64 * 8);
        return coded.stream == peerEncode({block}, p, coded.stream.size());
    };
    const Params all{0, 4171, 64, -1074};
    // The scale to integers is a finite float for us: the smallest numbers keep fewer bits.
    for (int field = 1; field < 60; ++field) {
        Block block = noise;
        for (float& v : block) v = std::ldexp(v, field - 127);
        EXPECT_EQ(sameStream(block, all), field > 28) << field;
    }
    // The scale back is a normal float or 0.
    Bytes stream = encode({noise}, all, 4096).stream;
    for (int exponent = 0; exponent < 60; ++exponent) {
        stream[0] = static_cast<uint8_t>(exponent << 1 | 1);
        stream[1] = static_cast<uint8_t>((stream[1] & 0xFE) | exponent >> 7);
        EXPECT_EQ(decode(stream, all, 1) == peerDecode(stream, all, 1),
                  exponent < 8 || exponent > 30)
            << exponent;
    }
    // Smaller exponents mean nothing special; a block always has room for its header.
    for (const int32_t minExp : {-1073, -1074, -1075, -2000})
        EXPECT_EQ(sameStream(noise, {0, 4171, 64, minExp}), minExp >= -1074);
    for (const int32_t maxBits : {11, 10, 9, 8, 1})
        EXPECT_EQ(sameStream(noise, {0, maxBits, 64, -1074}), maxBits >= 9);
}
#endif

TEST(Zfp, EveryDestinationLengthKeepsWhatFitsAndSaysNoRoom) {
    Random random(3);
    for (const Params& p : {Params{}, Params{640, 640, 64, -10740}, Params{700, 4171, 6, -10740}}) {
        std::vector<Block> blocks(5);
        Bits bits;
        for (Block& block : blocks) modelEncode(block = randomBlock(random), p, bits);
        const Bytes whole = packed(bits);
        for (size_t length = 1; length <= whole.size(); ++length) {
            const Coded coded =
                encode(blocks, p, length, random() % 2 ? Guarded::Edge::End : Guarded::Edge::Start);
            const size_t words = bits.size() / 64 * 8;
            ASSERT_EQ(coded.status, length < words ? vekStatusNoRoom : vekStatusOk) << length;
            ASSERT_EQ(static_cast<size_t>(coded.size), std::min(words, length / 8 * 8));
            ASSERT_EQ(coded.flushed, length * 8 < bits.size() ? vekStatusNoRoom : vekStatusOk);
            const Bytes start(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
            ASSERT_EQ(coded.stream, start);
            ASSERT_NO_FATAL_FAILURE(expectDecodes(start, bits, p)) << length;
        }
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

TEST(Zfp, HostileBitsDecodeAsTheModelDoes) {
    Random random(4);
    for (size_t round = 0; round < effort(2000); ++round) {
        Bytes bytes(1 + random() % 600);
        const auto density = random() % 4;
        for (uint8_t& b : bytes) {
            b = density == 0 ? uint8_t{0xFF} : static_cast<uint8_t>(random());
            for (int i = 0; density == 1 && i < 2; ++i) b &= static_cast<uint8_t>(random());
        }
        Params p = randomParams(random);
        if (random() % 4 == 0) p.maxBits = std::max(static_cast<int32_t>(random()), INT32_MIN + 9);
        if (random() % 4 == 0) p.minExp = static_cast<int32_t>(random());
        if (random() % 8 == 0) p.minBits = INT32_MAX - static_cast<int32_t>(random() % 3);
        Bits bits;
        for (size_t i = 0; i < bytes.size() * 8; ++i)
            bits.push_back((bytes[i / 8] >> i % 8 & 1) != 0);
        ASSERT_NO_FATAL_FAILURE(expectDecodes(bytes, bits, p)) << round;
    }
}

TEST(Zfp, InfinitiesAndNaNsLeaveTheirNeighboursAlone) {
    Block plain;
    plain.fill(3.25F);
    for (const float bad : {HUGE_VALF, std::nanf(""), -std::nanf("1")}) {
        Block odd = plain;
        odd[13] = bad;
        const Params p{0, 4171, 64, -10};
        const auto blocks = decode(encode({plain, odd, plain}, p, 4000).stream, p, 3);
        EXPECT_TRUE(blocks[0] == plain && blocks[2] == plain) << bad;
    }
}

TEST(Zfp, ArgumentsAreCheckedAndQueriesCount) {
    State state;
    Bytes buffer(64);
    Block block{};
    int32_t size = 5;
    int64_t longSize = 5;
    const auto all = [&](ZfpState* s) {
        return std::vector<VekStatus>{veksEncodeZfpSet_32f(0, 0, 0, 0, s),
                                      veksEncodeZfpSetAccuracy_32f(1, s),
                                      veksEncodeZfpGetCompressedSize_32f(s, &size),
                                      veksEncodeZfpGetCompressedSizeLong_32f(s, &longSize),
                                      veksEncodeZfpGetCompressedBitSize_32f(s, &longSize),
                                      veksEncodeZfpFlush_32f(s),
                                      veksEncodeZfp444_32f(block.data(), 16, 64, s),
                                      veksDecodeZfpSet_32f(0, 0, 0, 0, s),
                                      veksDecodeZfpSetAccuracy_32f(1, s),
                                      veksDecodeZfpGetDecompressedSize_32f(s, &size),
                                      veksDecodeZfpGetDecompressedSizeLong_32f(s, &longSize),
                                      veksDecodeZfp444_32f(s, block.data(), 16, 64)};
    };
    EXPECT_EQ(all(nullptr), std::vector<VekStatus>(12, vekStatusNullPointer));
    EXPECT_EQ(all(state), std::vector<VekStatus>(12, vekStatusStateMismatch));
    EXPECT_EQ(size, 5);
    EXPECT_EQ(longSize, 5);
    for (const auto query : {veksEncodeZfpGetStateSize_32f, veksDecodeZfpGetStateSize_32f})
        EXPECT_EQ(query(nullptr), vekStatusNullPointer);
    EXPECT_EQ(veksEncodeZfpInit_32f(nullptr, 0, state), vekStatusNullPointer);
    EXPECT_EQ(veksDecodeZfpInit_32f(buffer.data(), 0, nullptr), vekStatusNullPointer);
    for (const int32_t length : {0, -1}) {
        EXPECT_EQ(veksEncodeZfpInit_32f(buffer.data(), length, state), vekStatusBadSize);
        EXPECT_EQ(veksDecodeZfpInit_32f(buffer.data(), length, state), vekStatusBadSize);
    }
    EXPECT_EQ(veksEncodeZfpInitLong_32f(buffer.data(), 0, state), vekStatusBadSize);
    EXPECT_EQ(veksDecodeZfpInitLong_32f(buffer.data(), 0, state), vekStatusBadSize);

    ASSERT_EQ(veksEncodeZfpInit_32f(buffer.data(), 64, state), vekStatusOk);
    EXPECT_EQ(veksEncodeZfpGetCompressedSize_32f(state, nullptr), vekStatusNullPointer);
    EXPECT_EQ(veksEncodeZfp444_32f(nullptr, 16, 64, state), vekStatusNullPointer);
    EXPECT_EQ(veksDecodeZfp444_32f(state, nullptr, 16, 64), vekStatusNullPointer);
    const auto bits = [&] {
        EXPECT_EQ(veksEncodeZfpGetCompressedBitSize_32f(state, &longSize), vekStatusOk);
        return longSize;
    };
    EXPECT_EQ(bits(), 0);
    EXPECT_EQ(veksEncodeZfp444_32f(block.data(), 16, 64, state), vekStatusOk);
    EXPECT_EQ(bits(), 1);
    EXPECT_EQ(veksEncodeZfpFlush_32f(state), vekStatusOk);
    EXPECT_EQ(bits(), 64);
    const std::pair<double, int32_t> accuracies[] = {
        {0, -10740}, {-1, -10740}, {std::nan(""), -10740}, {1, 0}, {0.001, -10}, {1e-320, -1023}};
    for (const auto& [tolerance, minExp] : accuracies) {
        veksEncodeZfpSetAccuracy_32f(tolerance, state);
        int32_t fields[5];
        std::memcpy(fields, state.get(), sizeof(fields));
        EXPECT_EQ(fields[4], minExp) << tolerance;
        EXPECT_EQ(fields[2], 4171);
    }
}
