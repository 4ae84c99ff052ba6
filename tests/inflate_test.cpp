// The inflate decoder and its table builder.
//
// Blocks come from a small writer here, which makes codes of any shape, and whole streams from the
// peers when they are there. Each is decoded in one call and in pieces down to single bytes, into
// one buffer and through circular windows, between guard pages; the fast and the careful paths meet
// in these comparisons, for good data and for damaged data alike.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>

#include "support/data.h"
#include "support/deflate_reader.h"
#include "support/guarded.h"
#include "vekdc.h"

#ifdef VEK_HAS_zlib
#include <zlib.h>
#endif
#ifdef VEK_HAS_libdeflate
#include <libdeflate.h>
#endif

namespace {

using vektest::BitSource;
using vektest::Bytes;
using vektest::effort;
using vektest::Guarded;
using vektest::pick;
using vektest::Random;

constexpr std::array<uint16_t, 29> lengthBase = {3,  4,  5,  6,   7,   8,   9,   10,  11, 13,
                                                 15, 17, 19, 23,  27,  31,  35,  43,  51, 59,
                                                 67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr uint32_t lengthExtra(uint32_t i) {
    return i < 8 || i == 28 ? 0 : i / 4 - 1;
}
constexpr uint32_t distExtra(uint32_t i) {
    return i < 4 ? 0 : i / 2 - 1;
}
constexpr uint32_t distBase(uint32_t i) {
    return i < 4 ? i + 1 : ((2 + (i & 1)) << distExtra(i)) + 1;
}

/// One block's data in some code, and what it decodes to behind `history`.
class Block {
 public:
    Block(std::vector<uint16_t> litLens, std::vector<uint16_t> distLens, Bytes history = {})
        : litLens_(std::move(litLens)), distLens_(std::move(distLens)), out_(std::move(history)) {
        historySize_ = out_.size();
        litCodes_ = codesOf(litLens_);
        distCodes_ = codesOf(distLens_);
    }

    static Block fixed(Bytes history = {}) {
        std::vector<uint16_t> lens(288, 8);
        std::fill(lens.begin() + 144, lens.begin() + 256, uint16_t{9});
        std::fill(lens.begin() + 256, lens.begin() + 280, uint16_t{7});
        Block block(lens, std::vector<uint16_t>(32, 5), std::move(history));
        block.fixed_ = true;
        return block;
    }

    void bits(uint32_t value, uint32_t count) {
        for (uint32_t i = 0; i < count; ++i, ++nBits_) {
            if (nBits_ % 8 == 0) data_.push_back(0);
            data_.back() = static_cast<uint8_t>(data_.back() | ((value >> i) & 1) << (nBits_ % 8));
        }
    }
    void lit(uint32_t symbol) { code(litCodes_[symbol], litLens_[symbol]); }
    void dist(uint32_t symbol) { code(distCodes_[symbol], distLens_[symbol]); }
    void literal(uint8_t byte) {
        lit(byte);
        out_.push_back(byte);
    }
    void match(uint32_t lengthSymbol, uint32_t moreLength, uint32_t distSymbol, uint32_t moreDist) {
        lit(257 + lengthSymbol);
        bits(moreLength, lengthExtra(lengthSymbol));
        dist(distSymbol);
        bits(moreDist, distExtra(distSymbol));
        const uint32_t distance = distBase(distSymbol) + moreDist;
        for (uint32_t n = lengthBase[lengthSymbol] + moreLength; n != 0; --n) {
            out_.push_back(out_[out_.size() - distance]);
        }
    }
    void end() { lit(256); }

    /// Up to `count` symbols of those that have codes, then the end.
    void fillRandomly(Random& random, size_t count) {
        std::vector<uint32_t> lits;
        std::vector<uint32_t> lengths;
        std::vector<uint32_t> dists;
        for (uint32_t i = 0; i < litLens_.size(); ++i) {
            if (litLens_[i] == 0) continue;
            if (i < 256) lits.push_back(i);
            if (i > 256 && i < 286) lengths.push_back(i - 257);
        }
        for (uint32_t i = 0; i < distLens_.size() && i < 30; ++i) {
            if (distLens_[i] != 0) dists.push_back(i);
        }
        for (; count != 0; --count) {
            const bool wantsMatch = pick(random, 0, 2) == 0;
            if (wantsMatch && !lengths.empty() && !dists.empty()) {
                const uint32_t length = lengths[pick(random, 0, lengths.size() - 1)];
                const uint32_t d = dists[pick(random, 0, dists.size() - 1)];
                const auto extra = static_cast<uint32_t>(random()) & ((1U << distExtra(d)) - 1);
                if (distBase(d) + extra > out_.size()) continue;
                match(length, static_cast<uint32_t>(random()) & ((1U << lengthExtra(length)) - 1),
                      d, extra);
            } else if (!lits.empty()) {
                literal(static_cast<uint8_t>(lits[pick(random, 0, lits.size() - 1)]));
            }
        }
        end();
    }

    VekStatus build(InflateState& state) const {
        if (fixed_) {
            state.tableKind = 0;
            return vekStatusOk;
        }
        std::vector<uint16_t> lens = litLens_;
        lens.insert(lens.end(), distLens_.begin(), distLens_.end());
        return veksInflateBuildHuffTable(lens.data(), static_cast<uint32_t>(litLens_.size()),
                                         static_cast<uint32_t>(distLens_.size()), &state);
    }

    const Bytes& data() const { return data_; }
    size_t sizeBits() const { return nBits_; }
    Bytes history() const { return {out_.begin(), out_.begin() + static_cast<long>(historySize_)}; }
    Bytes output() const { return {out_.begin() + static_cast<long>(historySize_), out_.end()}; }

 private:
    static std::vector<uint32_t> codesOf(const std::vector<uint16_t>& lens) {
        std::vector<uint32_t> codes(lens.size());
        uint32_t next = 0;
        for (uint16_t len = 1; len <= 15; ++len, next <<= 1) {
            for (size_t i = 0; i < lens.size(); ++i) {
                if (lens[i] == len) codes[i] = next++;
            }
        }
        return codes;
    }
    void code(uint32_t code, uint32_t len) {
        while (len != 0) bits(code >> --len & 1, 1);
    }

    std::vector<uint16_t> litLens_, distLens_;
    std::vector<uint32_t> litCodes_, distCodes_;
    Bytes data_, out_;
    size_t nBits_ = 0, historySize_ = 0;
    bool fixed_ = false;
};

/// Lengths of a random complete code of `used` of `size` symbols, among them `needed`, that reaches
/// exactly `longest` bits where `used` permits.
std::vector<uint16_t> randomLens(Random& random, size_t size, size_t used, unsigned longest,
                                 size_t needed) {
    std::vector<uint16_t> leaves = {0};
    while (leaves.size() < used) {
        size_t at = leaves.size() - 1;  // The deepest, until deep enough.
        if (leaves[at] >= longest) {
            do at = pick(random, 0, leaves.size() - 1);
            while (leaves[at] >= longest);
        }
        const auto deeper = static_cast<uint16_t>(leaves[at] + 1);
        leaves[at] = deeper;
        leaves.push_back(deeper);
    }
    std::vector<size_t> symbols(size);
    std::iota(symbols.begin(), symbols.end(), size_t{0});
    std::shuffle(symbols.begin(), symbols.end(), random);
    std::iter_swap(std::find(symbols.begin(), symbols.end(), needed), symbols.begin());
    std::vector<uint16_t> lens(size);
    for (size_t i = 0; i < used; ++i) lens[symbols[i]] = leaves[i];
    return lens;
}

/// How data is cut up: the most bytes of a piece of input and of output (0: all at once), and the
/// circular window's size (0: everything stays in one output buffer).
struct Cut {
    size_t in, out, window;
};

constexpr uint8_t kUntouched = 0xA5;

/// Feeds blocks' data in random pieces, each between guard pages, and collects what comes out.
class Pieces {
 public:
    Pieces(Cut cut, size_t inSize, size_t outSize, Bytes history = {}, uint32_t seed = 1)
        : cut_(cut),
          random_(seed),
          in_(cut.in != 0 ? cut.in : inSize),
          whole_(cut.window == 0 ? history.size() + outSize : 2 * cut.out + 1),
          window_(cut.window) {
        if (cut.window == 0) {
            if (!history.empty()) std::memcpy(whole_.data(), history.data(), history.size());
            at_ = history.size();
            outCapacity_ = whole_.size();
        } else {
            keep(history.data(), history.size());
            outCapacity_ = whole_.size();
        }
        historySize_ = at_;
    }

    void attach(InflateState& state) {
        state.window = cut_.window != 0 ? window_.data() : nullptr;
        state.windowSize = static_cast<uint32_t>(cut_.window);
    }

    bool stored(const uint8_t* bytes, size_t count) {
        if (cut_.window == 0 && count > outCapacity_ - at_) return false;
        while (count != 0) {
            const size_t n = std::min(count, outCapacity_ - at_);
            std::memcpy(whole_.data() + at_, bytes, n);
            produced(n);
            bytes += n;
            count -= n;
        }
        return true;
    }

    bool coded(BitSource& in, InflateState& state) {
        int32_t mode = 1;
        for (int idle = 0; idle < 100; ++idle) {
            const auto left = static_cast<size_t>(in.end - in.src);
            const size_t inPiece = cut_.in != 0 ? std::min(left, pick(random_, 0, cut_.in)) : left;
            const size_t room = outCapacity_ - at_;
            const size_t outPiece =
                cut_.out != 0 ? std::min(room, pick(random_, 0, cut_.out)) : room;
            uint8_t* piece = in_.data() + in_.size() - inPiece;
            if (inPiece != 0) std::memcpy(piece, in.src, inPiece);
            const uint8_t* src = piece;
            auto srcLen = static_cast<uint32_t>(inPiece);
            uint8_t* dst = whole_.data() + at_;
            auto dstLen = static_cast<uint32_t>(outPiece);
            // What stands behind the output is not the decoder's. (Filling costs too much byte by
            // byte.)
            const bool watched = inPiece >= 32;
            if (watched && outPiece != 0) std::memset(dst, kUntouched, outPiece);
            status_ = veksInflate_8u(&src, &srcLen, &in.code, &in.nBits, winIdx_, &dst, &dstLen,
                                     static_cast<uint32_t>(at_), &mode, &state);
            const auto consumed = static_cast<size_t>(src - piece);
            const auto written = static_cast<size_t>(dst - (whole_.data() + at_));
            for (size_t i = 0; watched && i < std::min<size_t>(dstLen, 256); ++i) {
                EXPECT_EQ(dst[i], kUntouched) << i << " bytes behind the output";
            }
            EXPECT_EQ(srcLen, inPiece - consumed);
            EXPECT_EQ(dstLen, outPiece - written);
            EXPECT_TRUE(in.nBits == 32 || in.code >> in.nBits == 0);
            in.src += consumed;
            produced(written);
            if (status_ != vekStatusOk) return false;
            if (mode == 0) return true;
            EXPECT_TRUE(mode != 1 || srcLen == 0);
            EXPECT_TRUE(mode == 1 || mode == 2);
            if (consumed != 0 || written != 0) idle = 0;
            const bool dry = in.src == in.end && written < outPiece;
            if (dry) return false;
        }
        return false;
    }

    VekStatus status() const { return status_; }
    Bytes output() {
        Bytes all = out_;
        all.insert(all.end(), whole_.data() + historySize_, whole_.data() + at_);
        return all;
    }

 private:
    void produced(size_t count) {
        at_ += count;
        // A full buffer moves to the window; now and then one that is not full, too.
        if (cut_.window == 0 || (at_ != outCapacity_ && pick(random_, 0, 3) != 0)) return;
        out_.insert(out_.end(), whole_.data(), whole_.data() + at_);
        keep(whole_.data(), at_);
        at_ = 0;
    }
    void keep(const uint8_t* bytes, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            if (winIdx_ == cut_.window) winIdx_ = 0;
            window_.data()[winIdx_++] = bytes[i];
        }
    }

    Cut cut_;
    Random random_;
    Guarded in_, whole_, window_;
    uint32_t winIdx_ = 0;
    size_t at_ = 0, historySize_ = 0, outCapacity_ = 0;
    Bytes out_;
    VekStatus status_ = vekStatusOk;
};

const std::vector<Cut> cuts = {{0, 0, 0},         {1, 1, 0},          {1, 0, 0},
                               {0, 1, 0},         {7, 9, 0},          {40, 300, 0},
                               {4096, 4096, 0},   {3, 5, 32768},      {30, 61, 40000},
                               {500, 700, 32768}, {4096, 4096, 65536}};

void decodeBlock(const Block& block, const Cut& cut, uint32_t seed) {
    SCOPED_TRACE(testing::Message() << "in " << cut.in << " out " << cut.out << " window "
                                    << cut.window << " seed " << seed);
    auto state = std::make_unique<InflateState>();
    ASSERT_EQ(block.build(*state), vekStatusOk);
    const Bytes expected = block.output();
    Pieces pieces(cut, block.data().size(), expected.size(), block.history(), seed);
    pieces.attach(*state);
    BitSource in{block.data().data(), block.data().data() + block.data().size()};
    EXPECT_TRUE(pieces.coded(in, *state));
    EXPECT_EQ(pieces.status(), vekStatusOk);
    EXPECT_TRUE(pieces.output() == expected);
    EXPECT_EQ(static_cast<size_t>(in.src - block.data().data()) * 8 - in.nBits, block.sizeBits());
}

// Codes of every shape: both layouts, long sub-tables, few symbols, no or one distance code.
TEST(Inflate, RandomCodesInPieces) {
    Random random(20);
    for (size_t round = 0; round < effort(60); ++round) {
        const unsigned litLongest = static_cast<unsigned>(pick(random, 2, 15));
        const unsigned distLongest = static_cast<unsigned>(pick(random, 1, 15));
        const size_t litSize = pick(random, 257, 286);
        const size_t most = std::min<size_t>(litSize, size_t{1} << litLongest);
        const size_t litUsed = pick(random, std::min<size_t>(most, litLongest + 1), most);
        const size_t distUsed = distLongest == 1
                                    ? pick(random, 0, 2)
                                    : pick(random, std::min<size_t>(30, distLongest + 1),
                                           std::min<size_t>(30, size_t{1} << distLongest));
        auto distLens = distUsed == 0 ? std::vector<uint16_t>(pick(random, 0, 30))
                                      : randomLens(random, 30, distUsed, distLongest, 0);
        if (distUsed == 1) distLens[0] = 1;
        Block block(randomLens(random, litSize, litUsed, litLongest, 256), distLens,
                    vektest::shapes()[4].make(pick(random, 0, 1) * 32768, 1));
        block.fillRandomly(random, pick(random, 0, 1) * 1500 + 60);
        for (const Cut& cut : cuts) decodeBlock(block, cut, static_cast<uint32_t>(round));
        if (testing::Test::HasFailure()) FAIL() << "round " << round;
    }
}

TEST(Inflate, FixedCodeEverySymbol) {
    Random random(21);
    Block block = Block::fixed(vektest::shapes()[1].make(32768, 3));
    for (uint32_t i = 0; i < 256; ++i) block.literal(static_cast<uint8_t>(i));
    for (uint32_t length = 0; length < 29; ++length) {
        for (uint32_t d = 0; d < 30; ++d) {
            block.match(length, (1U << lengthExtra(length)) - 1, d, (1U << distExtra(d)) - 1);
        }
    }
    block.fillRandomly(random, 100);
    for (const Cut& cut : cuts) decodeBlock(block, cut, 1);
}

// A short match at every distance up to 40 and length up to 60, with the output ending right there.
TEST(Inflate, OverlapsAtTheEndOfTheOutput) {
    for (uint32_t d = 0; d < 11; ++d) {
        for (uint32_t extra = 0; extra < 1U << distExtra(d); ++extra) {
            for (uint32_t length = 0; length < 20; ++length) {
                for (const uint32_t before : {0U, 1U, 17U}) {
                    Block block = Block::fixed(vektest::shapes()[1].make(64, d));
                    for (uint32_t i = 0; i < before; ++i) block.literal(static_cast<uint8_t>(i));
                    block.match(length, 0, d, extra);
                    block.end();
                    for (int i = 0; i < 3; ++i) block.bits(0x12345678, 32);
                    auto state = std::make_unique<InflateState>();
                    ASSERT_EQ(block.build(*state), vekStatusOk);
                    Pieces pieces({0, 0, 0}, block.data().size(), block.output().size(),
                                  block.history());
                    BitSource in{block.data().data(), block.data().data() + block.data().size()};
                    ASSERT_TRUE(pieces.coded(in, *state));
                    ASSERT_TRUE(pieces.output() == block.output());
                }
            }
        }
    }
}

struct Arguments {
    const uint8_t* src = nullptr;
    uint32_t srcLen = 0, code = 0, nBits = 0, winIdx = 0;
    uint8_t* dst = nullptr;
    uint32_t dstLen = 0, dstIdx = 0;
    int32_t mode = 1;

    VekStatus call(InflateState& state) {
        return veksInflate_8u(&src, &srcLen, &code, &nBits, winIdx, &dst, &dstLen, dstIdx, &mode,
                              &state);
    }
};

TEST(Inflate, RefusedArgumentsChangeNothing) {
    auto state = std::make_unique<InflateState>();
    const Bytes source = {0x4B, 0x04, 0x00};
    Bytes room(8, 0xEE);
    uint32_t len = 3, code = 5, bits = 33, dstLen = 8;
    int32_t mode = 1;
    const uint8_t* src = source.data();
    uint8_t* dst = room.data();
    const uint8_t* noSrc = nullptr;
    uint8_t* noDst = nullptr;
    state->windowSize = 4;
    const auto refused = [&](VekStatus expected, const uint8_t** s, uint32_t* l, uint32_t* c,
                             uint32_t* b, uint32_t winIdx, uint8_t** d, uint32_t* dl, int32_t* m,
                             InflateState* st) {
        EXPECT_EQ(veksInflate_8u(s, l, c, b, winIdx, d, dl, 0, m, st), expected);
        EXPECT_TRUE(len == 3 && code == 5 && dstLen == 8 && mode == 1 && src == source.data() &&
                    dst == room.data() && room == Bytes(8, 0xEE));
    };
    // With bits at 33 and winIdx at 9: nulls come first.
    constexpr VekStatus null = vekStatusNullPointer;
    refused(null, nullptr, &len, &code, &bits, 9, &dst, &dstLen, &mode, state.get());
    refused(null, &noSrc, &len, &code, &bits, 9, &dst, &dstLen, &mode, state.get());
    refused(null, &src, nullptr, &code, &bits, 9, &dst, &dstLen, &mode, state.get());
    refused(null, &src, &len, nullptr, &bits, 9, &dst, &dstLen, &mode, state.get());
    refused(null, &src, &len, &code, nullptr, 9, &dst, &dstLen, &mode, state.get());
    refused(null, &src, &len, &code, &bits, 9, nullptr, &dstLen, &mode, state.get());
    refused(null, &src, &len, &code, &bits, 9, &noDst, &dstLen, &mode, state.get());
    refused(null, &src, &len, &code, &bits, 9, &dst, nullptr, &mode, state.get());
    refused(null, &src, &len, &code, &bits, 9, &dst, &dstLen, nullptr, state.get());
    refused(null, &src, &len, &code, &bits, 9, &dst, &dstLen, &mode, nullptr);
    refused(vekStatusBadSize, &src, &len, &code, &bits, 4, &dst, &dstLen, &mode, state.get());
    bits = 32;
    refused(vekStatusBadSize, &src, &len, &code, &bits, 5, &dst, &dstLen, &mode, state.get());
}

TEST(Inflate, StopsReportTheirMode) {
    auto state = std::make_unique<InflateState>();
    Block block = Block::fixed({'x', 'y'});
    block.literal('a');
    block.match(2, 0, 1, 0);  // 5 bytes, 2 back
    block.end();
    const Bytes data = block.data();
    Bytes room(16, 0xEE);

    // No room: the literal is decoded, and waits.
    Arguments args;
    args.src = data.data();
    args.srcLen = static_cast<uint32_t>(data.size());
    args.dst = room.data() + 2;
    args.dstIdx = 2;
    room[0] = 'x';
    room[1] = 'y';
    args.code = 0xFFFFFF00;  // Bits above the valid ones do not count.
    EXPECT_EQ(args.call(*state), vekStatusOk);
    EXPECT_EQ(args.mode, 2);
    EXPECT_EQ(state->savedStep, 6U);
    EXPECT_EQ(state->savedValue, 'a');
    // Room for the literal and two bytes of the match.
    args.dstLen = 3;
    EXPECT_EQ(args.call(*state), vekStatusOk);
    EXPECT_EQ(args.mode, 2);
    EXPECT_EQ(state->savedStep, 5U);
    EXPECT_EQ(state->savedValue, 3U);
    EXPECT_EQ(state->savedDistance, 2U);
    EXPECT_EQ(args.dstLen, 0U);
    // Room enough: the end of the block, and the bits behind it are left.
    args.dstIdx = 5;
    args.dstLen = 11;
    EXPECT_EQ(args.call(*state), vekStatusOk);
    EXPECT_EQ(args.mode, 0);
    EXPECT_EQ(args.dstLen, 8U);
    EXPECT_EQ(data.size() * 8 - block.sizeBits(), args.srcLen * 8 + args.nBits);
    EXPECT_EQ(std::string(room.begin(), room.begin() + 8), "xyayayay");

    // Input that ends: at a symbol (mode 1), and inside one, before each of its parts.
    Block parts = Block::fixed(Bytes(100, 'z'));
    parts.match(10, 1, 11, 3);  // 8 + 1 + 5 + 4 bits
    const struct {
        uint32_t nBits;
        int32_t mode;
        uint32_t step, value, extra, distance;
    } stops[] = {{0, 1, 0, 0, 0, 0},    {6, 1, 0, 0, 0, 0},   {7, 2, 2, 15, 1, 0},
                 {8, 2, 3, 16, 0, 0},   {12, 2, 3, 16, 0, 0}, {13, 2, 4, 16, 4, 49},
                 {16, 2, 4, 16, 4, 49}, {17, 2, 5, 16, 0, 52}};
    for (const auto& stop : stops) {
        SCOPED_TRACE(stop.nBits);
        Bytes out(101, 'z');
        Arguments a;
        a.src = data.data();
        a.code = 0;
        std::memcpy(&a.code, parts.data().data(), 3);
        a.nBits = stop.nBits;
        a.dst = out.data() + 100;
        a.dstIdx = 100;
        EXPECT_EQ(a.call(*state), vekStatusOk);
        EXPECT_EQ(a.mode, stop.mode);
        if (stop.mode != 2) {
            EXPECT_EQ(a.nBits, stop.nBits);
            continue;
        }
        EXPECT_EQ(state->savedStep, stop.step);
        EXPECT_EQ(state->savedValue, stop.value);
        EXPECT_EQ(state->savedDistance, stop.step > 3 ? stop.distance : state->savedDistance);
        EXPECT_EQ(state->savedExtraBits, stop.extra == 0 ? state->savedExtraBits : stop.extra);
    }

    // A call that resumed and runs dry between symbols stays resumable, and step 1 is taken back.
    Arguments dry;
    dry.src = data.data();
    dry.dst = room.data();
    dry.dstLen = 1;
    dry.mode = 2;
    state->savedStep = 6;
    state->savedValue = 'q';
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(dry.call(*state), vekStatusOk);
        EXPECT_EQ(dry.mode, 2);
        EXPECT_EQ(state->savedStep, 1U);
    }
    EXPECT_EQ(room[0], 'q');
}

TEST(Inflate, CorruptData) {
    Bytes window(16, 'w');
    const struct {
        const char* name;
        void (*write)(Block&);
        const uint8_t* window;
        VekStatus status;
    } cases[] = {
        {"symbol 286", [](Block& b) { b.lit(286); }, nullptr, vekStatusSourceDataError},
        {"symbol 287", [](Block& b) { b.lit(287); }, nullptr, vekStatusSourceDataError},
        {"distance 30", [](Block& b) { b.lit(257), b.dist(30); }, nullptr,
         vekStatusSourceDataError},
        {"distance 31", [](Block& b) { b.lit(257), b.dist(31); }, nullptr,
         vekStatusSourceDataError},
        {"far, no window", [](Block& b) { b.lit(257), b.dist(3); }, nullptr,
         vekStatusSourceDataError},
        {"within the window", [](Block& b) { b.lit(257), b.dist(8), b.bits(0, 3); }, window.data(),
         vekStatusOk},  // 17 = 1 literal and the window
        {"beyond the window", [](Block& b) { b.lit(257), b.dist(8), b.bits(1, 3); }, window.data(),
         vekStatusSourceDataError},
    };
    for (const auto& c : cases) {
        for (const size_t room : {0, 400}) {  // Careful and, with room to spare, fast.
            SCOPED_TRACE(testing::Message() << c.name << " room " << room);
            auto state = std::make_unique<InflateState>();
            state->window = c.window;
            state->windowSize = c.window != nullptr ? 16 : 0;
            state->savedStep = 77;
            Block block = Block::fixed();
            block.literal('L');
            c.write(block);
            for (int i = 0; i < 40; ++i) block.lit(0);
            Bytes out(1 + room, 0xEE);
            Arguments a;
            a.src = block.data().data();
            a.srcLen = static_cast<uint32_t>(block.data().size());
            a.dst = out.data();
            a.dstLen = static_cast<uint32_t>(out.size());
            a.winIdx = 5 * (c.window != nullptr);
            a.mode = 17;
            EXPECT_EQ(a.call(*state), c.status);
            EXPECT_EQ(out[0], 'L');
            if (c.status == vekStatusOk) continue;
            EXPECT_EQ(a.mode, 17);
            EXPECT_EQ(a.dst, out.data() + 1);
            EXPECT_EQ(state->savedStep, 77U);
        }
    }
    // Records in an impossible state.
    auto state = std::make_unique<InflateState>();
    Bytes out(64);
    const auto status = [&](uint32_t kind, int32_t mode, uint32_t step) {
        Arguments a;
        a.src = out.data();
        a.srcLen = 32;
        a.dst = out.data() + 32;
        a.dstLen = 32;
        a.mode = mode;
        state->tableKind = kind;
        state->savedStep = step;
        return a.call(*state);
    };
    EXPECT_EQ(status(3, 1, 1), vekStatusSourceDataError);
    EXPECT_EQ(status(2, 1, 1), vekStatusSourceDataError);  // Empty tables.
    EXPECT_EQ(status(1, 1, 1), vekStatusSourceDataError);
    state->litBits = 12;
    EXPECT_EQ(status(2, 1, 1), vekStatusSourceDataError);
    for (const uint32_t step : {0U, 7U, 0xFFFFFFFFU}) {
        EXPECT_EQ(status(0, 2, step), vekStatusSourceDataError);
    }
}

TEST(InflateTables, Statuses) {
    auto state = std::make_unique<InflateState>();
    const auto build = [&](const std::vector<std::pair<size_t, uint16_t>>& lits, uint32_t nLit,
                           const std::vector<uint16_t>& dists) {
        std::vector<uint16_t> lens(nLit + dists.size());
        for (const auto& [symbol, len] : lits) lens[symbol] = len;
        std::copy(dists.begin(), dists.end(), lens.begin() + nLit);
        return veksInflateBuildHuffTable(lens.data(), nLit, static_cast<uint32_t>(dists.size()),
                                         state.get());
    };
    constexpr VekStatus bad = vekStatusSourceDataError;
    const std::vector<uint16_t> fives(30, 5);
    EXPECT_EQ(build({{256, 1}}, 257, {}), vekStatusOk);
    EXPECT_EQ(state->tableKind, 2U);
    EXPECT_EQ(state->distBits, 0U);
    EXPECT_EQ(build({{256, 1}}, 288, fives), vekStatusOk);
    EXPECT_EQ(state->distBits, 5U);
    EXPECT_EQ(build({{256, 1}, {0, 1}}, 257, {0, 0, 1}), vekStatusOk);
    EXPECT_EQ(build({{256, 1}, {0, 1}}, 257, std::vector<uint16_t>(30)), vekStatusOk);
    EXPECT_EQ(build({}, 288, fives), bad);                       // no codes
    EXPECT_EQ(build({{0, 1}, {1, 1}}, 257, {}), bad);            // no end of block
    EXPECT_EQ(build({{0, 1}}, 256, {}), bad);                    // too few lengths
    EXPECT_EQ(build({{256, 2}}, 257, {}), bad);                  // incomplete
    EXPECT_EQ(build({{256, 1}, {0, 1}, {1, 2}}, 257, {}), bad);  // over-subscribed
    EXPECT_EQ(build({{256, 1}, {0, 16}}, 257, {}), bad);         // length 16
    EXPECT_EQ(build({{256, 1}, {0, 65535}}, 257, {}), bad);
    EXPECT_EQ(build({{256, 1}}, 257, {2}), bad);
    EXPECT_EQ(build({{256, 1}}, 257, {1, 1, 1}), bad);
    EXPECT_EQ(build({{256, 1}}, 257, std::vector<uint16_t>(29, 5)), bad);
    EXPECT_EQ(build({{256, 1}}, 257, {1, 17}), bad);
    EXPECT_EQ(build({}, 289, {}), vekStatusBadSize);
    EXPECT_EQ(build({}, 288, std::vector<uint16_t>(31)), vekStatusBadSize);
    const uint16_t lens[1] = {};
    EXPECT_EQ(veksInflateBuildHuffTable(nullptr, 289, 0, state.get()), vekStatusNullPointer);
    EXPECT_EQ(veksInflateBuildHuffTable(lens, 289, 0, nullptr), vekStatusNullPointer);
    // The bit string that no code has is corrupt, in either layout.
    for (const bool twoLevel : {false, true}) {
        std::vector<uint16_t> dists(30);
        for (size_t i = 0; twoLevel && i < 12; ++i)
            dists[i] = static_cast<uint16_t>(i < 11 ? i + 1 : 11);
        ASSERT_EQ(build({{256, 1}}, 257, dists), vekStatusOk);
        ASSERT_EQ(state->tableKind, twoLevel ? 1U : 2U);
        const Bytes ones(64, 0xFF);
        Bytes out(64, 0xEE);
        Arguments a;
        a.src = ones.data();
        a.srcLen = 64;
        a.dst = out.data();
        a.dstLen = 64;
        EXPECT_EQ(a.call(*state), bad);
        EXPECT_EQ(out, Bytes(64, 0xEE));
    }
}

// The layouts are part of the interface: entries read the way their description says.
TEST(InflateTables, Layouts) {
    auto state = std::make_unique<InflateState>();
    const auto at16 = [&](size_t at) { return state->tables[at] | state->tables[at + 1] << 8; };
    std::vector<uint16_t> lens(288 + 30, 8);
    std::fill(lens.begin() + 144, lens.begin() + 256, uint16_t{9});
    std::fill(lens.begin() + 256, lens.begin() + 280, uint16_t{7});
    std::fill(lens.begin() + 288, lens.end(), uint16_t{5});
    ASSERT_EQ(veksInflateBuildHuffTable(lens.data(), 288, 30, state.get()), vekStatusOk);
    EXPECT_EQ(state->tableKind, 2U);
    EXPECT_EQ(state->litBits, 9U);
    EXPECT_EQ(state->distBits, 5U);
    EXPECT_EQ(at16(0), 0x00F7);         // end of block
    EXPECT_EQ(at16(2 * 0x40), 0x0087);  // 0000001: symbol 257
    EXPECT_EQ(at16(2 * (0x40 + 0x80)), 0x0087);
    EXPECT_EQ(at16(2 * 0x0C), 0x0008);   // 00110000: literal 0
    EXPECT_EQ(at16(2 * 0x1FF), 0xFF09);  // literal 255
    EXPECT_EQ(at16(2 * 0xA3), 0xFF88);   // 11000101: symbol 285
    EXPECT_EQ(at16(2 * 0x63), 0x0008);   // 11000110: symbol 286, bare
    EXPECT_EQ(state->tables[1024 + 16], 0x05);
    EXPECT_EQ(state->tables[1024 + 1], 0x75);
    EXPECT_EQ(at16(1024 + 1024 + 2 * 1), 257);
    EXPECT_EQ(state->tables[1024 + 15], 0x00);  // 11110: not a code

    // Lengths 1, 2, .. 14, 15, 15: one sub-table each.
    std::fill(lens.begin(), lens.end(), uint16_t{0});
    for (size_t i = 0; i < 16; ++i) {
        lens[i < 15 ? 250 + i : 286] = lens[288 + i] = static_cast<uint16_t>(i < 15 ? i + 1 : 15);
    }
    ASSERT_EQ(veksInflateBuildHuffTable(lens.data(), 288, 30, state.get()), vekStatusOk);
    EXPECT_EQ(state->tableKind, 1U);
    EXPECT_EQ(at16(1536) & 0xFF, 0x01);  // literal 250
    EXPECT_EQ(state->tables[0], 250);
    EXPECT_EQ(state->tables[1536 + 0x3F], 0x67);  // end of block
    EXPECT_EQ(state->tables[1536 + 1023], 15);    // link to the first sub-table
    EXPECT_EQ(state->tables[1023], 0);
    EXPECT_EQ(state->tables[2560], 0x8B);  // its first half: symbol 260
    EXPECT_EQ(state->tables[2560 + 15], 0x8B);
    EXPECT_EQ(state->tables[2560 + 16], 0x8C);
    EXPECT_EQ(state->tables[1024 + 16], 4);     // symbol 261: length 7
    EXPECT_EQ(state->tables[2560 + 31], 0x7F);  // symbol 286: invalid
    EXPECT_EQ(state->tables[5632 + 1023], 15);
    EXPECT_EQ(at16(3072 + 2 * 1023), 0);
    EXPECT_EQ(state->tables[6656 + 31], 0x6F);  // distance symbol 15: 6 extra bits
    EXPECT_EQ(at16(5120 + 2 * 31), 193);
}

/// Whole streams made by a peer.
struct Stream {
    std::string name;
    Bytes raw;
    Bytes data;
    size_t window;
};

std::vector<Stream> peerStreams() {
    std::vector<Stream> streams;
#ifdef VEK_HAS_zlib
    Random random(22);
    for (const auto& shape : vektest::shapes()) {
        for (int level = 0; level <= 9; ++level) {
            for (const int strategy :
                 {Z_DEFAULT_STRATEGY, Z_FILTERED, Z_HUFFMAN_ONLY, Z_RLE, Z_FIXED}) {
                if (strategy != Z_DEFAULT_STRATEGY && level != 6) continue;
                const int windowBits = level % 3 == 2 ? 9 : 15;
                Bytes raw =
                    shape.make(pick(random, 0, 1) * 70000 + 900, static_cast<uint32_t>(level));
                z_stream z{};
                if (deflateInit2(&z, level, Z_DEFLATED, -windowBits, 8, strategy) != Z_OK) abort();
                Bytes data(deflateBound(&z, raw.size()));
                z.next_in = raw.data();
                z.avail_in = static_cast<uInt>(raw.size());
                z.next_out = data.data();
                z.avail_out = static_cast<uInt>(data.size());
                if (deflate(&z, Z_FINISH) != Z_STREAM_END) abort();
                data.resize(z.total_out);
                deflateEnd(&z);
                streams.push_back({std::string("zlib ") + shape.name + " level " +
                                       std::to_string(level) + " strategy " +
                                       std::to_string(strategy),
                                   std::move(raw), std::move(data), size_t{1} << windowBits});
            }
        }
    }
#endif
#ifdef VEK_HAS_libdeflate
    for (const auto& shape : vektest::shapes()) {
        for (const int level : {1, 5, 8, 12}) {
            Bytes raw = shape.make(30000, static_cast<uint32_t>(level));
            auto* compressor = libdeflate_alloc_compressor(level);
            Bytes data(libdeflate_deflate_compress_bound(compressor, raw.size()));
            data.resize(libdeflate_deflate_compress(compressor, raw.data(), raw.size(), data.data(),
                                                    data.size()));
            libdeflate_free_compressor(compressor);
            streams.push_back(
                {std::string("libdeflate ") + shape.name + " level " + std::to_string(level),
                 std::move(raw), std::move(data), 32768});
        }
    }
#endif
    return streams;
}

/// What a stream gives, cut up in some way.
struct Result {
    bool good;
    Bytes output;
    size_t consumedBits;
};

Result decodeStream(const Bytes& data, size_t room, const Cut& cut, uint32_t seed) {
    auto state = std::make_unique<InflateState>();
    Pieces pieces(cut, data.size(), room, {}, seed);
    pieces.attach(*state);
    BitSource in{data.data(), data.data() + data.size()};
    const bool good = vektest::readDeflate(in, *state, pieces);
    return {good, pieces.output(), static_cast<size_t>(in.src - data.data()) * 8 - in.nBits};
}

TEST(Inflate, PeerStreamsInPieces) {
    Random random(23);
    for (const Stream& stream : peerStreams()) {
        SCOPED_TRACE(stream.name);
        const size_t tiny = pick(random, 0, 3);  // Single bytes take long: for a quarter.
        for (const Cut& cut :
             {Cut{0, 0, 0}, Cut{1, 1, 0}, Cut{1, 1, stream.window}, Cut{33, 270, stream.window},
              Cut{3000, 4096, stream.window + 1000}, Cut{4096, 4096, 0}}) {
            if (cut.in == 1 && tiny != 0) continue;
            SCOPED_TRACE(testing::Message() << cut.in << ' ' << cut.out << ' ' << cut.window);
            const Result result = decodeStream(stream.data, stream.raw.size(), cut, 1);
            ASSERT_TRUE(result.good);
            ASSERT_TRUE(result.output == stream.raw);
            ASSERT_EQ((result.consumedBits + 7) / 8, stream.data.size());
        }
    }
}

// Damaged blocks behave the same however they are cut: what was good before the damage comes out,
// and nothing else is touched.
TEST(Inflate, DamagedStreamsInPieces) {
    Random random(24);
    for (size_t round = 0; round < effort(400); ++round) {
        const auto litLongest = static_cast<unsigned>(pick(random, 3, 15));
        const size_t most = std::min<size_t>(286, size_t{1} << litLongest);
        Block block =
            round % 4 == 0
                ? Block::fixed()
                : Block(randomLens(random, 286, pick(random, std::min<size_t>(most, 16), most),
                                   litLongest, 256),
                        randomLens(random, 30, 30, static_cast<unsigned>(pick(random, 5, 15)), 0));
        Bytes data;
        if (round % 2 == 0) {
            block.fillRandomly(random, 200);
            data = block.data();
            for (int flips = 0; flips < 4; ++flips) {
                data[pick(random, 0, data.size() - 1)] ^=
                    static_cast<uint8_t>(1U << pick(random, 0, 7));
            }
            data.insert(data.end(), 40, 0x5A);
        } else {
            data = vektest::shapes()[1].make(500, static_cast<uint32_t>(round));
        }
        const size_t room = pick(random, 0, 1) * pick(random, 0, 3000) + pick(random, 0, 30);
        auto state = std::make_unique<InflateState>();
        ASSERT_EQ(block.build(*state), vekStatusOk);
        Bytes expected;
        VekStatus status = vekStatusOk;
        for (const Cut& cut : {Cut{1, 1, 0}, Cut{0, 0, 0}, Cut{20, 0, 0}, Cut{100, 100, 0},
                               Cut{0, 9, 0}, Cut{50, 600, 32768}, Cut{300, 350, 300}}) {
            SCOPED_TRACE(testing::Message() << "round " << round << " in " << cut.in << " out "
                                            << cut.out << " window " << cut.window);
            // With a window all of which counts as history, damaged data reaches further.
            Pieces pieces(cut, data.size(), room, {}, static_cast<uint32_t>(round));
            pieces.attach(*state);
            BitSource in{data.data(), data.data() + data.size()};
            pieces.coded(in, *state);
            if (cut.window != 0) continue;
            if (cut.in == 1) {
                expected = pieces.output();
                status = pieces.status();
            }
            ASSERT_TRUE(pieces.output() == expected);
            ASSERT_EQ(pieces.status(), status);
        }
    }
}

}  // namespace
