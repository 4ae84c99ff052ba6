// ZFP blocks against a plain model of the method, bit by bit, and against the method's own library.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
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

uint32_t fieldOf(float v) {
    uint32_t u;
    std::memcpy(&u, &v, 4);
    return u >> 23 & 255;
}

template <class Lift>
void eachLine(std::array<int32_t, 64>& v, int stride, Lift lift) {
    for (int i = 0; i < 64; ++i)
        if (i / stride % 4 == 0) lift(v[i], v[i + stride], v[i + 2 * stride], v[i + 3 * stride]);
}

void modelEncode(const Block& block, const Params& p, Bits& out) {
    const size_t begin = out.size();
    uint32_t field = 0;
    bool zero = true;
    for (float v : block) {
        field = std::max(field, fieldOf(v));
        zero = zero && v == 0;
    }
    const int32_t emax = static_cast<int32_t>(field) - 126;
    const int32_t precision = zero ? 0 : clampedPrecision(p, emax);
    const auto pad = [&] {
        while (static_cast<int64_t>(out.size() - begin) < p.minBits) out.push_back(false);
    };
    if (precision <= 0) {
        out.push_back(false);
        return pad();
    }
    for (int i = 0; i < 9; ++i) out.push_back((2 * (emax + 127) + 1) >> i & 1);
    std::array<int32_t, 64> v;
    for (int i = 0; i < 64; ++i)
        v[i] = static_cast<int32_t>(block[i] * std::ldexp(1.0F, std::min(30 - emax, 127)));
    for (int stride : {1, 4, 16}) {
        eachLine(v, stride, [](int32_t& x, int32_t& y, int32_t& z, int32_t& w) {
            x = (x + w) >> 1, w -= x;
            z = (z + y) >> 1, y -= z;
            x = (x + z) >> 1, z -= x;
            w = (w + y) >> 1, y -= w;
            w += y >> 1, y -= w >> 1;
        });
    }
    std::array<uint32_t, 64> u;
    for (int i = 0; i < 64; ++i)
        u[i] = (static_cast<uint32_t>(v[vek::permTable[i]]) + 0xAAAAAAAAU) ^ 0xAAAAAAAAU;
    int64_t budget = std::max(0, p.maxBits - 9);
    int known = 0;
    const auto put = [&](bool bit) { return budget > 0 && (--budget, out.push_back(bit), true); };
    for (int k = 31; k >= 32 - precision && budget > 0; --k) {
        const auto bit = [&](int i) { return (u[i] >> k & 1) != 0; };
        for (int i = 0; i < known; ++i) put(bit(i));
        while (known < 64 && budget > 0) {
            bool any = false;
            for (int i = known; i < 64; ++i) any = any || bit(i);
            if (!put(any) || !any) break;
            for (; known < 63 && put(bit(known)) && !bit(known); ++known) {
            }
            ++known;
        }
    }
    pad();
}

/// Bits beyond the stream are zero; the position tells whether it passed the end.
Block modelDecode(const Bits& in, size_t& at, const Params& p) {
    const size_t begin = at;
    const auto read = [&] {
        const bool bit = at < in.size() && in[at];
        ++at;
        return bit;
    };
    Block block{};
    if (read()) {
        int32_t e = 0;
        for (int i = 0; i < 8; ++i) e |= read() << i;
        int64_t budget = std::max(0, p.maxBits - 9);
        std::array<uint32_t, 64> u{};
        int known = 0;
        const auto take = [&] { return budget > 0 && (--budget, read()); };
        for (int k = 31; k >= 32 - clampedPrecision(p, e - 127) && budget > 0; --k) {
            for (int i = 0; i < known; ++i) u[i] |= static_cast<uint32_t>(take()) << k;
            while (known < 64 && take()) {
                while (known < 63 && budget > 0 && !take()) ++known;
                u[known++] |= 1U << k;
            }
        }
        std::array<int32_t, 64> v;
        for (int i = 0; i < 64; ++i)
            v[vek::permTable[i]] = static_cast<int32_t>((u[i] ^ 0xAAAAAAAAU) - 0xAAAAAAAAU);
        for (int stride : {16, 4, 1}) {
            eachLine(v, stride, [](int32_t& xs, int32_t& ys, int32_t& zs, int32_t& ws) {
                uint32_t x = xs, y = ys, z = zs, w = ws;
                const auto half = [](uint32_t a) {
                    return static_cast<uint32_t>(static_cast<int32_t>(a) >> 1);
                };
                y += half(w), w -= half(y);
                y += w, w = 2 * w - y;
                z += x, x = 2 * x - z;
                y += z, z = 2 * z - y;
                w += x, x = 2 * x - w;
                xs = x, ys = y, zs = z, ws = w;
            });
        }
        const float scale = e > 30 ? std::ldexp(1.0F, e - 127 - 30) : 0.0F;
        for (int i = 0; i < 64; ++i) block[i] = scale * static_cast<float>(v[i]);
    }
    at = std::max<size_t>(at, begin + std::max(p.minBits, 1));
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

Block randomBlock(Random& random) {
    Block block{};
    const auto kind = random() % 6;
    const int exponent = static_cast<int>(random() % 150) - 75;
    const float slope = static_cast<float>(random() % 1000) / 500;
    for (int i = 0; i < 64; ++i) {
        const float noise = static_cast<float>(static_cast<int32_t>(random())) / 2147483648.0F;
        float v = noise;
        const int x = i % 4;
        const int y = i / 4 % 4;
        const int z = i / 16;
        const auto phase = slope * static_cast<float>(x) + 0.3F * static_cast<float>(y) +
                           0.1F * static_cast<float>(z);
        if (kind == 1) v = std::sin(phase);
        if (kind == 2) v = i == static_cast<int>(random() % 64) ? 1.0F : 0.0F;
        if (kind == 3) v = slope;
        if (kind == 4) v = 0;
        if (kind == 5) v = std::ldexp(noise, static_cast<int>(random() % 40) - 20);
        block[i] = std::ldexp(v, exponent);
    }
    return block;
}

constexpr int32_t row = 16, plane = 64;

Block decodeOne(ZfpState* state, VekStatus expected = vekStatusOk) {
    Block block;
    block.fill(-77);
    EXPECT_EQ(veksDecodeZfp444_32f(state, block.data(), row, plane), expected);
    return block;
}

}  // namespace

TEST(Zfp, StreamsAndValuesEqualTheModelAndThePeer) {
    Random random(1);
    for (size_t round = 0; round < effort(1500); ++round) {
        const Params p = randomParams(random);
        std::vector<Block> blocks(1 + random() % 12);
        Bits bits;
        for (Block& block : blocks) modelEncode(block = randomBlock(random), p, bits);
        const Bytes expected = packed(bits);
        Guarded stream(expected.size());
        State state;
        ASSERT_EQ(veksEncodeZfpInit_32f(stream.data(), static_cast<int32_t>(stream.size()), state),
                  0);
        set(state, p);
        for (const Block& block : blocks)
            ASSERT_EQ(veksEncodeZfp444_32f(block.data(), row, plane, state), vekStatusOk);
        int64_t size = 0;
        ASSERT_EQ(veksEncodeZfpGetCompressedBitSize_32f(state, &size), vekStatusOk);
        ASSERT_EQ(static_cast<size_t>(size), bits.size());
        ASSERT_EQ(veksEncodeZfpFlush_32f(state), vekStatusOk);
        ASSERT_EQ(stream.bytes(), expected) << round;
#ifdef VEK_HAS_zfp
        Bytes theirs(expected.size() + 4096);
        const std::unique_ptr<bitstream, void (*)(bitstream*)> bs(
            stream_open(theirs.data(), theirs.size()), stream_close);
        const std::unique_ptr<zfp_stream, void (*)(zfp_stream*)> zfp(zfp_stream_open(bs.get()),
                                                                     zfp_stream_close);
        ASSERT_TRUE(zfp_stream_set_params(zfp.get(), p.minBits, p.maxBits, p.maxPrec,
                                          std::max(p.minExp, -1074)));
        for (const Block& block : blocks) zfp_encode_block_float_3(zfp.get(), block.data());
        zfp_stream_flush(zfp.get());
        theirs.resize(expected.size());
        ASSERT_EQ(theirs, expected) << round;
        zfp_stream_rewind(zfp.get());
#endif
        ASSERT_EQ(veksDecodeZfpInit_32f(stream.data(), static_cast<int32_t>(stream.size()), state),
                  0);
        set(state, p);
        size_t at = 0;
        for (size_t i = 0; i < blocks.size(); ++i) {
            const Block ours = decodeOne(state);
            ASSERT_EQ(ours, modelDecode(bits, at, p)) << round << " " << i;
            int32_t taken = 0;
            ASSERT_EQ(veksDecodeZfpGetDecompressedSize_32f(state, &taken), vekStatusOk);
            ASSERT_EQ(static_cast<size_t>(taken), (at + 63) / 64 * 8);
#ifdef VEK_HAS_zfp
            Block theirBlock;
            zfp_decode_block_float_3(zfp.get(), theirBlock.data());
            ASSERT_EQ(ours, theirBlock) << round << " " << i;
#endif
        }
    }
}

TEST(Zfp, ParametersBeyondThePeersDomainFollowTheModel) {
    const Params sets[] = {{100, 5, 64, -10740},
                           {64, 9, 64, -10740},
                           {0, 0, 64, -10740},
                           {0, -50, 64, 0},
                           {1, 4171, 0, 0},
                           {70, 4171, -3, 0},
                           {500, 300, 8, -10},
                           {5000, 5000, 64, INT32_MIN},
                           {0, INT32_MAX, INT32_MAX, INT32_MAX},
                           {-5, 10, 64, -20}};
    Random random(2);
    for (const Params& p : sets) {
        for (size_t round = 0; round < effort(100); ++round) {
            Bits bits;
            Block block = randomBlock(random);
            // Magnitudes down to the denormals, where the scales saturate.
            for (float& v : block) v = round % 2 ? std::ldexp(v, -70) : v;
            for (int i = 0; i < 3; ++i) modelEncode(block, p, bits);
            const Bytes expected = packed(bits);
            Guarded stream(expected.size());
            State state;
            ASSERT_EQ(veksEncodeZfpInitLong_32f(stream.data(), static_cast<int64_t>(stream.size()),
                                                state),
                      0);
            set(state, p);
            for (int i = 0; i < 3; ++i)
                ASSERT_EQ(veksEncodeZfp444_32f(block.data(), row, plane, state), 0);
            ASSERT_EQ(veksEncodeZfpFlush_32f(state), 0);
            ASSERT_EQ(stream.bytes(), expected) << p.minBits << " " << p.maxBits << " " << round;
            ASSERT_EQ(veksDecodeZfpInitLong_32f(stream.data(), static_cast<int64_t>(stream.size()),
                                                state),
                      0);
            set(state, p);
            size_t at = 0;
            for (int i = 0; i < 3; ++i) ASSERT_EQ(decodeOne(state), modelDecode(bits, at, p));
        }
    }
}

TEST(Zfp, EveryDestinationLengthKeepsWhatFitsAndSaysNoRoom) {
    Random random(3);
    for (const Params& p : {Params{}, Params{640, 640, 64, -10740}, Params{700, 4171, 6, -10740}}) {
        std::vector<Block> blocks(5);
        Bits bits;
        for (Block& block : blocks) {
            block = randomBlock(random);
            modelEncode(block, p, bits);
        }
        const Bytes whole = packed(bits);
        for (size_t length = 1; length <= whole.size(); ++length) {
            Guarded dst(length, random() % 2 ? Guarded::Edge::End : Guarded::Edge::Start);
            State state;
            ASSERT_EQ(veksEncodeZfpInit_32f(dst.data(), static_cast<int32_t>(length), state), 0);
            set(state, p);
            VekStatus status = vekStatusOk;
            for (size_t i = 0; i < blocks.size(); ++i) {
                status = veksEncodeZfp444_32f(blocks[i].data(), row, plane, state);
                if (status != vekStatusOk) break;
            }
            const size_t words = bits.size() / 64 * 8;
            ASSERT_EQ(status, length < words ? vekStatusNoRoom : vekStatusOk) << length;
            int32_t size = 0;
            ASSERT_EQ(veksEncodeZfpGetCompressedSize_32f(state, &size), vekStatusOk);
            ASSERT_EQ(static_cast<size_t>(size), std::min(words, length / 8 * 8));
            if (status != vekStatusOk) {
                ASSERT_EQ(veksEncodeZfp444_32f(blocks[0].data(), row, plane, state),
                          vekStatusNoRoom);
            }
            const VekStatus flushed = veksEncodeZfpFlush_32f(state);
            ASSERT_EQ(flushed, length * 8 < bits.size() ? vekStatusNoRoom : vekStatusOk) << length;
            ASSERT_EQ(dst.bytes(),
                      Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length)));

            // A stream cut there decodes to the same blocks up to the one that is cut.
            ASSERT_EQ(veksDecodeZfpInit_32f(dst.data(), static_cast<int32_t>(length), state), 0);
            set(state, p);
            size_t at = 0;
            for (;;) {
                const Block expected = modelDecode(bits, at, p);
                const bool cut = at > length * 8;
                const Block block = decodeOne(state, cut ? vekStatusNoRoom : vekStatusOk);
                ASSERT_EQ(veksDecodeZfpGetDecompressedSize_32f(state, &size), vekStatusOk);
                const size_t aligned = (at + 63) / 64 * 8;
                const size_t taken = cut                         ? length
                                     : aligned <= length / 8 * 8 ? aligned
                                                                 : (at + 7) / 8;
                ASSERT_EQ(static_cast<size_t>(size), std::min(taken, length));
                if (cut || at >= bits.size()) break;
                ASSERT_EQ(block, expected) << length;
            }
        }
    }
}

TEST(Zfp, HugePaddingStopsAtTheEndOnBothSides) {
    Guarded buffer(1001);
    for (const float value : {0.0F, 1.0F}) {
        State state;
        Block block;
        block.fill(value);
        ASSERT_EQ(veksEncodeZfpInit_32f(buffer.data(), 1001, state), vekStatusOk);
        set(state, {INT32_MAX, INT32_MAX, 64, -10740});
        EXPECT_EQ(veksEncodeZfp444_32f(block.data(), row, plane, state), vekStatusNoRoom);
        ASSERT_EQ(veksDecodeZfpInit_32f(buffer.data(), 1001, state), vekStatusOk);
        set(state, {INT32_MAX, INT32_MAX, 64, -10740});
        EXPECT_EQ(decodeOne(state, vekStatusNoRoom)[0], value == 0 ? 0 : -77);
    }
    State state;
    Block block{};
    ASSERT_EQ(veksEncodeZfpInitLong_32f(buffer.data() + 100, -100, state), vekStatusOk);
    EXPECT_EQ(veksEncodeZfp444_32f(block.data(), row, plane, state), vekStatusOk);
    block.fill(1.5F);
    EXPECT_EQ(veksEncodeZfp444_32f(block.data(), row, plane, state), vekStatusNoRoom);
    ASSERT_EQ(veksDecodeZfpInitLong_32f(buffer.data() + 100, -100, state), vekStatusOk);
    decodeOne(state, vekStatusNoRoom);
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
        if (random() % 4 == 0) p.maxBits = static_cast<int32_t>(random());
        if (random() % 4 == 0) p.minExp = static_cast<int32_t>(random());
        Bits bits;
        for (size_t i = 0; i < bytes.size() * 8; ++i)
            bits.push_back((bytes[i / 8] >> i % 8 & 1) != 0);
        Guarded stream(bytes);
        State state;
        ASSERT_EQ(veksDecodeZfpInit_32f(stream.data(), static_cast<int32_t>(bytes.size()), state),
                  0);
        p.maxBits = std::max(p.maxBits, INT32_MIN + 9);
        set(state, p);
        for (size_t at = 0; at < bits.size();) {
            const Block expected = modelDecode(bits, at, p);
            const bool cut = at > bits.size();
            const Block block = decodeOne(state, cut ? vekStatusNoRoom : vekStatusOk);
            if (!cut) {
                ASSERT_EQ(bitsOf(block), bitsOf(expected)) << round;
            }
        }
    }
}

TEST(Zfp, StepsOfAnySignAndAlignmentReachTheSixteenRows) {
    Random random(5);
    const struct {
        int32_t step, planeStep;
    } cases[] = {{16, 64}, {-16, -64}, {64, 16}, {17, 71}, {-101, 23}, {1000, -16}};
    for (const auto& c : cases) {
        const Block block = randomBlock(random);
        const int32_t low = 3 * (std::min(c.step, 0) + std::min(c.planeStep, 0));
        const int32_t high = 3 * (std::max(c.step, 0) + std::max(c.planeStep, 0)) + 16;
        Guarded field(static_cast<size_t>(high - low));
        uint8_t* first = field.data() - low;
        for (int i = 0; i < 16; ++i)
            std::memcpy(first + i / 4 * c.planeStep + i % 4 * c.step, &block[i * 4], 16);
        const Bytes before = field.bytes();
        Guarded stream(2000);
        State state;
        ASSERT_EQ(veksEncodeZfpInit_32f(stream.data(), 2000, state), vekStatusOk);
        ASSERT_EQ(veksEncodeZfp444_32f(reinterpret_cast<float*>(first), c.step, c.planeStep, state),
                  0);
        ASSERT_EQ(veksEncodeZfpFlush_32f(state), vekStatusOk);
        Bits bits;
        modelEncode(block, {}, bits);
        const Bytes expected = packed(bits);
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), stream.data())) << c.step;
        ASSERT_EQ(veksDecodeZfpInit_32f(stream.data(), 2000, state), vekStatusOk);
        ASSERT_EQ(veksDecodeZfp444_32f(state, reinterpret_cast<float*>(first), c.step, c.planeStep),
                  0);
        size_t at = 0;
        const Block decoded = modelDecode(bits, at, {});
        Bytes after = before;
        for (int i = 0; i < 16; ++i)
            std::memcpy(after.data() - low + i / 4 * c.planeStep + i % 4 * c.step, &decoded[i * 4],
                        16);
        ASSERT_EQ(field.bytes(), after) << c.step << " " << c.planeStep;
    }
}

TEST(Zfp, InfinitiesAndNaNsLeaveTheirNeighboursAlone) {
    for (const float bad :
         {std::numeric_limits<float>::infinity(), std::nanf(""), -std::nanf("1")}) {
        Block odd, plain;
        plain.fill(3.25F);
        odd = plain;
        odd[13] = bad;
        Guarded stream(4000);
        State state;
        const Params p{0, 4171, 64, -10};
        ASSERT_EQ(veksEncodeZfpInit_32f(stream.data(), 4000, state), vekStatusOk);
        set(state, p);
        for (const Block* b : {&plain, &odd, &plain})
            ASSERT_EQ(veksEncodeZfp444_32f(b->data(), row, plane, state), vekStatusOk);
        ASSERT_EQ(veksEncodeZfpFlush_32f(state), vekStatusOk);
        ASSERT_EQ(veksDecodeZfpInit_32f(stream.data(), 4000, state), vekStatusOk);
        set(state, p);
        EXPECT_EQ(decodeOne(state), plain);
        decodeOne(state);
        EXPECT_EQ(decodeOne(state), plain);
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
                                      veksEncodeZfp444_32f(block.data(), row, plane, s),
                                      veksDecodeZfpSet_32f(0, 0, 0, 0, s),
                                      veksDecodeZfpSetAccuracy_32f(1, s),
                                      veksDecodeZfpGetDecompressedSize_32f(s, &size),
                                      veksDecodeZfpGetDecompressedSizeLong_32f(s, &longSize),
                                      veksDecodeZfp444_32f(s, block.data(), row, plane)};
    };
    EXPECT_EQ(all(nullptr), std::vector<VekStatus>(12, vekStatusNullPointer));
    EXPECT_EQ(all(state), std::vector<VekStatus>(12, vekStatusStateMismatch));
    EXPECT_EQ(size, 5);
    EXPECT_EQ(longSize, 5);
    EXPECT_EQ(veksEncodeZfpGetStateSize_32f(nullptr), vekStatusNullPointer);
    EXPECT_EQ(veksDecodeZfpGetStateSize_32f(nullptr), vekStatusNullPointer);
    EXPECT_EQ(veksEncodeZfpInit_32f(nullptr, 0, state), vekStatusNullPointer);
    EXPECT_EQ(veksDecodeZfpInit_32f(buffer.data(), 0, nullptr), vekStatusNullPointer);
    for (const int32_t length : {0, -1}) {
        EXPECT_EQ(veksEncodeZfpInit_32f(buffer.data(), length, state), vekStatusBadSize);
        EXPECT_EQ(veksDecodeZfpInit_32f(buffer.data(), length, state), vekStatusBadSize);
    }
    EXPECT_EQ(veksEncodeZfpInitLong_32f(buffer.data(), 0, state), vekStatusBadSize);
    EXPECT_EQ(veksDecodeZfpInitLong_32f(buffer.data(), 0, state), vekStatusBadSize);
    EXPECT_EQ(veksEncodeZfpFlush_32f(state), vekStatusStateMismatch);

    ASSERT_EQ(veksEncodeZfpInit_32f(buffer.data(), 64, state), vekStatusOk);
    EXPECT_EQ(veksEncodeZfpGetCompressedSize_32f(state, nullptr), vekStatusNullPointer);
    EXPECT_EQ(veksEncodeZfp444_32f(nullptr, row, plane, state), vekStatusNullPointer);
    EXPECT_EQ(veksDecodeZfp444_32f(state, nullptr, row, plane), vekStatusNullPointer);
    for (const int64_t expected : {0, 1, 64}) {
        veksEncodeZfpGetCompressedBitSize_32f(state, &longSize);
        EXPECT_EQ(longSize, expected);
        if (expected == 0) {
            EXPECT_EQ(veksEncodeZfp444_32f(block.data(), row, plane, state), vekStatusOk);
        }
        if (expected == 1) {
            EXPECT_EQ(veksEncodeZfpFlush_32f(state), vekStatusOk);
        }
    }
    const struct {
        double tolerance;
        int32_t minExp;
    } accuracies[] = {{0, -10740}, {-1, -10740}, {std::nan(""), -10740},
                      {1, 0},      {0.001, -10}, {1e-320, -1023}};
    for (const auto& a : accuracies) {
        veksEncodeZfpSetAccuracy_32f(a.tolerance, state);
        int32_t fields[5];
        std::memcpy(fields, state.get(), sizeof(fields));
        EXPECT_EQ(fields[4], a.minExp) << a.tolerance;
        EXPECT_EQ(fields[2], 4171);
    }
}
