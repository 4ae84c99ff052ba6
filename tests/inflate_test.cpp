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

constexpr uint32_t lengthExtra(uint32_t i) {
    return i < 8 || i == 28 ? 0 : i / 4 - 1;
}
constexpr uint32_t lengthBase(uint32_t i) {
    return i < 8 ? i + 3 : i == 28 ? 258 : ((4 + i % 4) << lengthExtra(i)) + 3;
}
constexpr uint32_t distExtra(uint32_t i) {
    return i < 4 ? 0 : i / 2 - 1;
}
constexpr uint32_t distBase(uint32_t i) {
    return i < 4 ? i + 1 : ((2 + i % 2) << distExtra(i)) + 1;
}

using Lens = std::vector<uint16_t>;

/// The lengths of the fixed code.
Lens fixedLens() {
    Lens lens(288, 8);
    std::fill(lens.begin() + 144, lens.begin() + 256, uint16_t{9});
    std::fill(lens.begin() + 256, lens.begin() + 280, uint16_t{7});
    return lens;
}

/// One block's data in some code, and what it decodes to behind `history`.
class Block {
 public:
    Block(Lens litLens, Lens distLens, Bytes history = {})
        : litLens_(std::move(litLens)), distLens_(std::move(distLens)), out_(std::move(history)) {
        historySize_ = out_.size();
        litCodes_ = codesOf(litLens_);
        distCodes_ = codesOf(distLens_);
    }

    static Block fixed(Bytes history = {}) {
        Block block(fixedLens(), Lens(32, 5), std::move(history));
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
        for (uint32_t n = lengthBase(lengthSymbol) + moreLength; n != 0; --n) {
            out_.push_back(out_[out_.size() - distance]);
        }
    }
    void end() { lit(256); }

    /// Up to `count` symbols of those that have codes, then the end.
    void fillRandomly(Random& random, size_t count) {
        std::vector<uint32_t> lits, lengths, dists;
        for (uint32_t i = 0; i < litLens_.size() && i < 286; ++i) {
            if (litLens_[i] == 0 || i == 256) continue;
            i < 256 ? lits.push_back(i) : lengths.push_back(i - 257);
        }
        for (uint32_t i = 0; i < distLens_.size() && i < 30; ++i) {
            if (distLens_[i] != 0) dists.push_back(i);
        }
        for (; count != 0; --count) {
            if (pick(random, 0, 2) == 0 && !lengths.empty() && !dists.empty()) {
                const uint32_t length = lengths[pick(random, 0, lengths.size() - 1)];
                const uint32_t d = dists[pick(random, 0, dists.size() - 1)];
                const auto noise = static_cast<uint32_t>(random());
                const uint32_t far = noise & ((1U << distExtra(d)) - 1);
                if (distBase(d) + far > out_.size()) continue;
                match(length, noise >> 16 & ((1U << lengthExtra(length)) - 1), d, far);
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
        Lens lens = litLens_;
        lens.insert(lens.end(), distLens_.begin(), distLens_.end());
        return veksInflateBuildHuffTable(lens.data(), static_cast<uint32_t>(litLens_.size()),
                                         static_cast<uint32_t>(distLens_.size()), &state);
    }

    const Bytes& data() const { return data_; }
    size_t sizeBits() const { return nBits_; }
    Bytes history() const { return {out_.begin(), out_.begin() + static_cast<long>(historySize_)}; }
    Bytes output() const { return {out_.begin() + static_cast<long>(historySize_), out_.end()}; }

 private:
    static std::vector<uint32_t> codesOf(const Lens& lens) {
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

    Lens litLens_, distLens_;
    std::vector<uint32_t> litCodes_, distCodes_;
    Bytes data_, out_;
    size_t nBits_ = 0, historySize_ = 0;
    bool fixed_ = false;
};

/// Lengths of a random complete code of `used` of `size` symbols, among them `needed`, that reaches
/// exactly `longest` bits where `used` permits.
Lens randomLens(Random& random, size_t size, size_t used, unsigned longest, size_t needed) {
    Lens leaves = {0};
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
    Lens lens(size);
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
        if (cut.window != 0) {
            keep(history.data(), history.size());
        } else if (!history.empty()) {
            std::memcpy(whole_.data(), history.data(), at_ = history.size());
        }
        historySize_ = at_;
    }

    void attach(InflateState& state) {
        state.window = cut_.window != 0 ? window_.data() : nullptr;
        state.windowSize = static_cast<uint32_t>(cut_.window);
    }

    bool stored(const uint8_t* bytes, size_t count) {
        if (cut_.window == 0 && count > whole_.size() - at_) return false;
        while (count != 0) {
            const size_t n = std::min(count, whole_.size() - at_);
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
            const size_t room = whole_.size() - at_;
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
            EXPECT_TRUE(mode == 2 || (mode == 1 && srcLen == 0));
            if (consumed != 0 || written != 0) idle = 0;
            if (in.src == in.end && written < outPiece) return false;
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
        if (cut_.window == 0 || (at_ != whole_.size() && pick(random_, 0, 3) != 0)) return;
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
    size_t at_ = 0, historySize_ = 0;
    Bytes out_;
    VekStatus status_ = vekStatusOk;
};

const std::vector<Cut> cuts = {{0, 0, 0},         {1, 1, 0},          {1, 0, 0},
                               {0, 1, 0},         {7, 9, 0},          {40, 300, 0},
                               {4096, 4096, 0},   {3, 5, 32768},      {30, 61, 40000},
                               {500, 700, 32768}, {4096, 4096, 65536}};

/// Decodes the block's first `size` bits (0: all).
void decodeBlock(const Block& block, const Cut& cut, uint32_t seed, size_t size = 0) {
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
    EXPECT_EQ(static_cast<size_t>(in.src - block.data().data()) * 8 - in.nBits,
              size != 0 ? size : block.sizeBits());
}

// Codes of every shape: both layouts, long sub-tables, few symbols, no or one distance code; blocks
// that are too short for the kernels' packed tables, and long enough for pairs of literals.
TEST(Inflate, RandomCodesInPieces) {
    Random random(20);
    for (size_t round = 0; round < effort(60); ++round) {
        const auto litLongest = static_cast<unsigned>(pick(random, 2, 15));
        const auto distLongest = static_cast<unsigned>(pick(random, 1, 15));
        const size_t litSize = pick(random, 257, 286);
        const size_t most = std::min<size_t>(litSize, size_t{1} << litLongest);
        const size_t litUsed = pick(random, std::min<size_t>(most, litLongest + 1), most);
        const size_t distUsed = distLongest == 1
                                    ? pick(random, 0, 2)
                                    : pick(random, std::min<size_t>(30, distLongest + 1),
                                           std::min<size_t>(30, size_t{1} << distLongest));
        auto distLens = distUsed == 0 ? Lens(pick(random, 0, 30))
                                      : randomLens(random, 30, distUsed, distLongest, 0);
        if (distUsed == 1) distLens[0] = 1;
        Block block(randomLens(random, litSize, litUsed, litLongest, 256), distLens,
                    vektest::shapes()[4].make(pick(random, 0, 1) * 32768, 1));
        constexpr size_t sizes[] = {60, 1500, 6000};
        block.fillRandomly(random, sizes[round % 3]);
        for (const Cut& cut : cuts) {
            if (round % 3 != 2 || cut.in == 0 || cut.in > 100)
                decodeBlock(block, cut, static_cast<uint32_t>(round));
        }
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
        for (uint32_t i = 0; i < (20U << distExtra(d)) * 3; ++i) {
            Block block = Block::fixed(vektest::shapes()[1].make(64, d));
            constexpr int before[] = {0, 1, 17};
            for (int n = before[i % 3]; n != 0; --n) block.literal(static_cast<uint8_t>(n));
            block.match(i / 3 % 20, 0, d, i / 60);
            block.end();
            const size_t size = block.sizeBits();
            for (int n = 0; n < 3; ++n) block.bits(0x12345678, 32);
            decodeBlock(block, {0, 0, 0}, 1, size);
            if (testing::Test::HasFailure()) FAIL() << "distance " << d << " case " << i;
        }
    }
}

/// One call's arguments.
struct Call {
    const uint8_t* src;
    uint32_t srcLen;
    uint8_t* dst;
    uint32_t dstLen;
    uint32_t code = 0, nBits = 0, winIdx = 0, dstIdx = 0;
    int32_t mode = 1;

    Call(const Bytes& source, uint8_t* output, size_t room)
        : src(source.data()),
          srcLen(static_cast<uint32_t>(source.size())),
          dst(output),
          dstLen(static_cast<uint32_t>(room)) {}
    bool operator==(const Call&) const = default;

    VekStatus operator()(InflateState& state) {
        return veksInflate_8u(&src, &srcLen, &code, &nBits, winIdx, &dst, &dstLen, dstIdx, &mode,
                              &state);
    }
};

TEST(Inflate, RefusedArgumentsChangeNothing) {
    auto state = std::make_unique<InflateState>();
    state->windowSize = 4;
    const Bytes source = {1, 2, 3};
    Bytes room(8, 0xEE);
    const auto refused = [&](int null, uint32_t nBits, uint32_t winIdx) {
        Call c(source, room.data(), 8);
        c.nBits = nBits;
        if (null == 8) c.src = nullptr;
        if (null == 9) c.dst = nullptr;
        const Call before = c;
        const auto at = [null](int i, auto* p) { return i == null ? nullptr : p; };
        const VekStatus status =
            veksInflate_8u(at(0, &c.src), at(1, &c.srcLen), at(2, &c.code), at(3, &c.nBits), winIdx,
                           at(4, &c.dst), at(5, &c.dstLen), 0, at(6, &c.mode), at(7, state.get()));
        EXPECT_TRUE(c == before && room == Bytes(8, 0xEE));
        return status;
    };
    // Nulls come first.
    for (int null = 0; null < 10; ++null) EXPECT_EQ(refused(null, 33, 9), vekStatusNullPointer);
    EXPECT_EQ(refused(-1, 33, 4), vekStatusBadSize);
    EXPECT_EQ(refused(-1, 32, 5), vekStatusBadSize);
}

TEST(Inflate, StopsReportTheirMode) {
    auto state = std::make_unique<InflateState>();
    Block block = Block::fixed({'x', 'y'});
    block.literal('a');
    block.match(2, 0, 1, 0);  // 5 bytes, 2 back
    block.end();
    Bytes room = {'x', 'y', 0, 0, 0, 0, 0, 0, 0, 0};

    // No room, in which the literal is decoded and waits; some; enough.
    Call call(block.data(), room.data() + 2, 0);
    call.code = 0xFFFFFF00;  // Bits above the valid ones do not count.
    const struct {
        uint32_t dstIdx, dstLen;
        int32_t mode;
        uint32_t step, value, left;
    } outputs[] = {{2, 0, 2, 6, 'a', 0}, {2, 3, 2, 5, 3, 0}, {5, 5, 0, 5, 3, 2}};
    for (const auto& o : outputs) {
        call.dstIdx = o.dstIdx;
        call.dstLen = o.dstLen;
        EXPECT_EQ(call(*state), vekStatusOk);
        EXPECT_EQ(call.mode, o.mode);
        EXPECT_EQ(state->savedStep, o.step);
        EXPECT_EQ(state->savedValue, o.value);
        EXPECT_EQ(call.dstLen, o.left);
    }
    EXPECT_EQ(state->savedDistance, 2U);
    EXPECT_EQ(block.data().size() * 8 - block.sizeBits(), call.srcLen * 8 + call.nBits);
    EXPECT_EQ(std::string(room.begin(), room.begin() + 8), "xyayayay");

    // Input that ends: at a symbol (mode 1), and inside one, before each of its parts. What a step
    // does not need is as it was.
    Block parts = Block::fixed(Bytes(100, 'z'));
    parts.match(10, 1, 11, 3);  // 8 + 1 + 5 + 4 bits
    constexpr uint32_t old = 99;
    const struct {
        uint32_t nBits;
        int32_t mode;
        uint32_t step, value, extra, distance;
    } inputs[] = {{0, 1, old, old, old, old}, {6, 1, old, old, old, old}, {7, 2, 2, 15, 1, old},
                  {8, 2, 3, 16, old, old},    {12, 2, 3, 16, old, old},   {13, 2, 4, 16, 4, 49},
                  {16, 2, 4, 16, 4, 49},      {17, 2, 5, 16, old, 52}};
    for (const auto& i : inputs) {
        SCOPED_TRACE(i.nBits);
        Bytes out(101, 'z');
        Call c(parts.data(), out.data() + 100, 0);
        c.srcLen = 0;
        std::memcpy(&c.code, parts.data().data(), 3);
        c.nBits = i.nBits;
        c.dstIdx = 100;
        state->savedStep = state->savedValue = state->savedExtraBits = state->savedDistance = old;
        EXPECT_EQ(c(*state), vekStatusOk);
        EXPECT_EQ(c.mode, i.mode);
        EXPECT_EQ(state->savedStep, i.step);
        EXPECT_EQ(state->savedValue, i.value);
        EXPECT_EQ(state->savedExtraBits, i.extra == old ? state->savedExtraBits : i.extra);
        EXPECT_EQ(state->savedDistance, i.distance == old ? state->savedDistance : i.distance);
        EXPECT_EQ(c.nBits, i.mode == 1 ? i.nBits : c.nBits);
    }

    // A call that resumed and runs dry between symbols stays resumable, and step 1 is taken back.
    Call dry(block.data(), room.data(), 1);
    dry.srcLen = 0;
    dry.mode = 2;
    state->savedStep = 6;
    state->savedValue = 'q';
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(dry(*state), vekStatusOk);
        EXPECT_EQ(dry.mode, 2);
        EXPECT_EQ(state->savedStep, 1U);
    }
    EXPECT_EQ(room[0], 'q');
}

TEST(Inflate, CorruptData) {
    Bytes window(16, 'w');
    constexpr uint32_t none = 99;
    const struct {
        uint32_t lit, dist, extra;  // Distance symbols 0 to 3 have no extra bits, 8 has three.
        bool windowed;
        VekStatus status;
    } cases[] = {
        {286, none, 0, false, vekStatusSourceDataError},
        {287, none, 0, false, vekStatusSourceDataError},
        {257, 30, 0, false, vekStatusSourceDataError},
        {257, 31, 0, false, vekStatusSourceDataError},
        {257, 3, 0, false, vekStatusSourceDataError},
        {257, 8, 0, true, vekStatusOk},  // 17 = 1 literal and the window
        {257, 8, 1, true, vekStatusSourceDataError},
    };
    for (const auto& c : cases) {
        for (const size_t room : {1, 401}) {  // Careful and, with room to spare, fast.
            SCOPED_TRACE(testing::Message() << c.lit << ' ' << c.dist << " room " << room);
            auto state = std::make_unique<InflateState>();
            state->window = c.windowed ? window.data() : nullptr;
            state->windowSize = c.windowed ? 16 : 0;
            state->savedStep = 77;
            Block block = Block::fixed();
            block.literal('L');
            block.lit(c.lit);
            if (c.dist != none) block.dist(c.dist);
            if (c.dist == 8) block.bits(c.extra, 3);
            for (int i = 0; i < 40; ++i) block.lit(0);
            Bytes out(room, 0xEE);
            Call call(block.data(), out.data(), room);
            call.winIdx = c.windowed ? 5 : 0;
            call.mode = 17;
            EXPECT_EQ(call(*state), c.status);
            EXPECT_EQ(out[0], 'L');
            if (c.status == vekStatusOk) continue;
            EXPECT_EQ(call.mode, 17);
            EXPECT_EQ(call.dst, out.data() + 1);
            EXPECT_EQ(state->savedStep, 77U);
        }
    }
    // Records in an impossible state, or with empty tables.
    auto state = std::make_unique<InflateState>();
    const Bytes zeros(32);
    Bytes out(32);
    const struct {
        uint32_t kind, litBits, step;
    } records[] = {{3, 0, 1}, {2, 0, 1}, {1, 0, 1}, {2, 12, 1}, {0, 0, 0}, {0, 0, 7}, {0, 0, ~0U}};
    for (const auto& r : records) {
        Call call(zeros, out.data(), 32);
        call.mode = r.step == 1 ? 1 : 2;
        state->tableKind = r.kind;
        state->litBits = r.litBits;
        state->savedStep = r.step;
        EXPECT_EQ(call(*state), vekStatusSourceDataError) << r.kind << ' ' << r.step;
    }
}

/// Builds tables of the lengths given of single literal/length symbols, and those of distances.
VekStatus build(InflateState& state, const std::vector<std::pair<size_t, uint16_t>>& lits,
                uint32_t nLit, const Lens& dists) {
    Lens lens(nLit + dists.size());
    for (const auto& [symbol, len] : lits) lens[symbol] = len;
    std::copy(dists.begin(), dists.end(), lens.begin() + nLit);
    return veksInflateBuildHuffTable(lens.data(), nLit, static_cast<uint32_t>(dists.size()),
                                     &state);
}

TEST(InflateTables, Statuses) {
    auto state = std::make_unique<InflateState>();
    constexpr VekStatus bad = vekStatusSourceDataError;
    const struct {
        std::vector<std::pair<size_t, uint16_t>> lits;
        uint32_t nLit;
        Lens dists;
        VekStatus status;
        uint32_t distBits;
    } cases[] = {
        {{{256, 1}}, 257, {}, vekStatusOk, 0},
        {{{256, 1}}, 288, Lens(30, 5), vekStatusOk, 5},
        {{{256, 1}, {0, 1}}, 257, {0, 0, 1}, vekStatusOk, 1},
        {{{256, 1}, {0, 1}}, 257, Lens(30), vekStatusOk, 0},
        {{}, 288, Lens(30, 5), bad, 0},                 // no codes
        {{{0, 1}, {1, 1}}, 257, {}, bad, 0},            // no end of block
        {{{0, 1}}, 256, {}, bad, 0},                    // too few lengths
        {{{256, 2}}, 257, {}, bad, 0},                  // incomplete
        {{{256, 1}, {0, 1}, {1, 2}}, 257, {}, bad, 0},  // over-subscribed
        {{{256, 1}, {0, 16}}, 257, {}, bad, 0},         // length 16
        {{{256, 1}, {0, 65535}}, 257, {}, bad, 0},      // likewise
        {{{256, 1}}, 257, {2}, bad, 0},                 // of distances
        {{{256, 1}}, 257, {1, 1, 1}, bad, 0},           // likewise
        {{{256, 1}}, 257, Lens(29, 5), bad, 0},         // not quite the fixed code
        {{{256, 1}}, 257, {1, 17}, bad, 0},             // length 17
        {{}, 289, {}, vekStatusBadSize, 0},
        {{}, 288, Lens(31), vekStatusBadSize, 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(build(*state, c.lits, c.nLit, c.dists), c.status) << &c - cases;
        EXPECT_EQ(state->distBits, c.status == vekStatusOk ? c.distBits : state->distBits);
    }
    const uint16_t lens[1] = {};
    EXPECT_EQ(veksInflateBuildHuffTable(nullptr, 289, 0, state.get()), vekStatusNullPointer);
    EXPECT_EQ(veksInflateBuildHuffTable(lens, 289, 0, nullptr), vekStatusNullPointer);

    // The bit string that no code has is corrupt, in either layout.
    for (const bool twoLevel : {false, true}) {
        const Lens dists = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 11};
        ASSERT_EQ(build(*state, {{256, 1}}, 257, twoLevel ? dists : Lens(30)), vekStatusOk);
        ASSERT_EQ(state->tableKind, twoLevel ? 1U : 2U);
        Bytes out(64, 0xEE);
        EXPECT_EQ(Call(Bytes(64, 0xFF), out.data(), 64)(*state), bad);
        EXPECT_EQ(out, Bytes(64, 0xEE));
    }
}

// The layouts are part of the interface: entries read the way their description says.
TEST(InflateTables, Layouts) {
    auto state = std::make_unique<InflateState>();
    const auto check = [&](size_t size, const std::vector<int>& pairs) {
        for (size_t i = 0; i < pairs.size(); i += 2) {
            const uint8_t* at = &state->tables[pairs[i]];
            EXPECT_EQ(at[0] | (size == 2 ? at[1] << 8 : 0), pairs[i + 1]) << pairs[i];
        }
    };
    Lens lens = fixedLens();
    lens.resize(288 + 30, 5);
    ASSERT_EQ(veksInflateBuildHuffTable(lens.data(), 288, 30, state.get()), vekStatusOk);
    EXPECT_TRUE(state->tableKind == 2 && state->litBits == 9 && state->distBits == 5);
    // The end of block, symbol 257 (twice), literals 0 and 255, symbols 285 and (bare) 286;
    // distance symbols 0 and 16, and one that is no code.
    check(2, {0, 0xF7, 0x80, 0x87, 0x180, 0x87, 0x18, 8, 0x3FE, 0xFF09, 0x146, 0xFF88, 0xC6, 8});
    check(1, {1024 + 16, 0x05, 1024 + 1, 0x75, 1024 + 15, 0x00});
    check(2, {2048 + 2 * 1, 257});

    // Lengths 1, 2, .. 14, 15, 15: one sub-table each.
    std::fill(lens.begin(), lens.end(), uint16_t{0});
    for (size_t i = 0; i < 16; ++i) {
        lens[i < 15 ? 250 + i : 286] = lens[288 + i] = static_cast<uint16_t>(i < 15 ? i + 1 : 15);
    }
    ASSERT_EQ(veksInflateBuildHuffTable(lens.data(), 288, 30, state.get()), vekStatusOk);
    EXPECT_EQ(state->tableKind, 1U);
    // Literal 250, the end of block, the link to the first sub-table; there symbol 260 takes half,
    // then 261 of length 7; symbol 286 is invalid. The link of distances; symbol 15, 6 extra bits.
    check(1, {1536, 1, 0,         250,  1536 + 0x3F, 0x67, 1536 + 1023, 15,
              1023, 0, 2560,      0x8B, 2560 + 15,   0x8B, 2560 + 16,   0x8C,
              1040, 4, 2560 + 31, 0x7F, 5632 + 1023, 15,   6656 + 31,   0x6F});
    check(2, {3072 + 2 * 1023, 0, 5120 + 2 * 31, 193});
}

#ifdef VEK_HAS_zlib
Bytes zlibStream(Bytes& raw, int level, int strategy, int windowBits) {
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
    return data;
}
#endif

#ifdef VEK_HAS_libdeflate
Bytes libdeflateStream(const Bytes& raw, int level) {
    auto* compressor = libdeflate_alloc_compressor(level);
    Bytes data(libdeflate_deflate_compress_bound(compressor, raw.size()));
    data.resize(
        libdeflate_deflate_compress(compressor, raw.data(), raw.size(), data.data(), data.size()));
    libdeflate_free_compressor(compressor);
    return data;
}
#endif

TEST(Inflate, PeerStreamsInPieces) {
    Random random(23);
    [[maybe_unused]] const auto check = [&](const Bytes& raw, const Bytes& data, size_t window) {
        const size_t tiny = pick(random, 0, 3);  // Single bytes take long: for a quarter.
        for (const Cut& cut : {Cut{0, 0, 0}, Cut{1, 1, 0}, Cut{1, 1, window}, Cut{33, 270, window},
                               Cut{3000, 4096, window + 1000}, Cut{4096, 4096, 0}}) {
            if (cut.in == 1 && tiny != 0) continue;
            SCOPED_TRACE(testing::Message() << cut.in << ' ' << cut.out << ' ' << cut.window);
            auto state = std::make_unique<InflateState>();
            Pieces pieces(cut, data.size(), raw.size());
            pieces.attach(*state);
            BitSource in{data.data(), data.data() + data.size()};
            ASSERT_TRUE(vektest::readDeflate(in, *state, pieces));
            ASSERT_TRUE(pieces.output() == raw);
            ASSERT_TRUE(in.src == in.end && in.nBits < 8);
        }
    };
    for (const auto& shape : vektest::shapes()) {
        for (int level = 0; level <= 13; ++level) {
            SCOPED_TRACE(testing::Message() << shape.name << " level " << level);
            Bytes raw = shape.make(pick(random, 0, 1) * 70000 + 900, static_cast<uint32_t>(level));
#ifdef VEK_HAS_zlib
            // The strategies follow the levels: Z_FILTERED, Z_HUFFMAN_ONLY, Z_RLE, Z_FIXED.
            const int bits = level % 3 == 2 ? 9 : 15;
            const int strategy = level > 9 ? level - 9 : Z_DEFAULT_STRATEGY;
            check(raw, zlibStream(raw, level > 9 ? 6 : level, strategy, bits), size_t{1} << bits);
#endif
#ifdef VEK_HAS_libdeflate
            raw = shape.make(30000, static_cast<uint32_t>(level));
            if (level % 4 == 1) check(raw, libdeflateStream(raw, std::min(level, 12)), 32768);
#endif
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
            block.fillRandomly(random, round % 8 == 2 ? 5000 : 200);
            data = block.data();
            for (int flips = 0; flips < 4; ++flips) {
                data[pick(random, 0, data.size() - 1)] ^=
                    static_cast<uint8_t>(1U << pick(random, 0, 7));
            }
            data.insert(data.end(), 40, 0x5A);
        } else {
            data = vektest::shapes()[1].make(500, static_cast<uint32_t>(round));
        }
        const size_t room = round % 8 == 2
                                ? pick(random, 10000, 50000)
                                : pick(random, 0, 1) * pick(random, 0, 3000) + pick(random, 0, 30);
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
