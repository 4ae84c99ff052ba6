// The inflate decoder and its table builder.
//
// Blocks come from a small writer here, which makes codes of any shape, and whole streams from the
// peers when they are there. Each is decoded in one call and in pieces down to single bytes, into
// one buffer and through circular windows, between guard pages; the fast and the careful paths meet
// in these comparisons, for good data and for damaged data alike.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <tuple>

#include "bytes/words.h"
#include "support/data.h"
#include "support/deflate_ranges.h"
#include "support/deflate_reader.h"
#include "support/features.h"
#include "support/guarded.h"
#include "vekdc.h"

#ifdef VEK_HAS_zlib
#include <zlib.h>
#endif
#ifdef VEK_HAS_libdeflate
#include <libdeflate.h>
#endif

using namespace vektest;

namespace {

constexpr VekStatus corrupt = vekStatusSourceDataError;

using Lens = std::vector<uint16_t>;

/// The canonical code of some lengths, first bit lowest.
struct Code {
    explicit Code(Lens lengths) : lens(std::move(lengths)), codes(lens.size()) {
        uint32_t next = 0;
        for (uint16_t len = 1; len <= 15; ++len, next <<= 1) {
            for (size_t i = 0; i < lens.size(); ++i) {
                if (lens[i] == len) codes[i] = vek::reverseBits(next++, len);
            }
        }
    }
    Lens lens;
    std::vector<uint32_t> codes;
};

/// The lengths of the fixed code.
Lens fixedLens() {
    Lens lens(288, 8);
    std::fill(lens.begin() + 144, lens.begin() + 256, uint16_t{9});
    std::fill(lens.begin() + 256, lens.begin() + 280, uint16_t{7});
    return lens;
}

/// One block's data in some code, and behind `history` what it decodes to.
struct Block {
    Block(Lens litLens, Lens distLens, const Bytes& history)
        : lits(std::move(litLens)),
          dists(std::move(distLens)),
          out(history),
          historySize(static_cast<long>(history.size())) {}
    /// In the fixed code, which alone has 32 distances.
    explicit Block(const Bytes& history) : Block(fixedLens(), Lens(32, 5), history) {}

    void bits(uint32_t value, uint32_t count) {
        for (uint32_t i = 0; i < count; ++i, ++nBits) {
            if (nBits % 8 == 0) data.push_back(0);
            data.back() = static_cast<uint8_t>(data.back() | ((value >> i) & 1) << (nBits % 8));
        }
    }
    void lit(uint32_t symbol) { bits(lits.codes[symbol], lits.lens[symbol]); }
    void dist(uint32_t symbol) { bits(dists.codes[symbol], dists.lens[symbol]); }
    void literal(uint32_t byte) {
        lit(byte);
        out.push_back(static_cast<uint8_t>(byte));
    }
    /// A match, if the history reaches so far; of `moreLength` and `moreDist` the symbols' extra
    /// bits count.
    void match(uint32_t lengthCode, uint32_t moreLength, uint32_t distCode, uint32_t moreDist) {
        const Range length = findLength(ofCode(lengthCode));
        const Range far = findDistance(ofCode(distCode));
        moreLength %= 1U << length.extra;
        moreDist %= 1U << far.extra;
        const size_t distance = far.base + moreDist;
        if (distance > out.size()) return;
        lit(257 + lengthCode);
        bits(moreLength, length.extra);
        dist(distCode);
        bits(moreDist, far.extra);
        for (uint32_t n = length.base + moreLength; n != 0; --n) {
            out.push_back(out[out.size() - distance]);
        }
    }
    void end() { lit(256); }

    /// Up to `count` symbols of those that have codes, every third a match.
    void fillRandomly(Random& random, size_t count) {
        Lens coded, codedDists;
        for (uint16_t i = 0; i < lits.lens.size() && i < 286; ++i) {
            if (lits.lens[i] != 0 && i != 256) coded.insert(coded.end(), i < 256 ? 1 : 4, i);
        }
        for (uint16_t i = 0; i < dists.lens.size() && i < 30; ++i) {
            if (dists.lens[i] != 0) codedDists.push_back(i);
        }
        for (; count != 0 && !coded.empty(); --count) {
            const uint32_t symbol = coded[pick(random, 0, coded.size() - 1)];
            if (symbol < 256) {
                literal(symbol);
            } else if (!codedDists.empty()) {
                const auto more = static_cast<uint32_t>(random());
                match(symbol - 257, more >> 16, codedDists[pick(random, 0, codedDists.size() - 1)],
                      more);
            }
        }
    }

    VekStatus build(VekInflateState& state) const {
        state.tableKind = 0;
        if (dists.lens.size() == 32) return vekStatusOk;
        Lens lens = lits.lens;
        lens.insert(lens.end(), dists.lens.begin(), dists.lens.end());
        return veksInflateBuildHuffTable(lens.data(), static_cast<uint32_t>(lits.lens.size()),
                                         static_cast<uint32_t>(dists.lens.size()), &state);
    }

    Code lits, dists;
    Bytes data, out;
    long historySize;
    size_t nBits = 0;
};

/// Lengths of a random complete code with `longest` bits at most and, if there are symbols enough,
/// at least; with 0, of one symbol or none. Of symbols that have a code, `needed` is one.
Lens randomLens(Random& random, size_t size, unsigned longest, size_t needed) {
    Lens lens(1);
    const size_t most = std::min(size, size_t{1} << longest);
    const size_t used = pick(random, std::min<size_t>(most, longest + 1), most);
    while (lens.size() < used) {
        size_t at = lens.size() - 1;  // The deepest, until deep enough.
        while (lens[at] >= longest) at = pick(random, 0, lens.size() - 1);
        const uint16_t deeper = ++lens[at];
        lens.push_back(deeper);
    }
    lens.resize(size);
    while (lens[needed] == 0 && longest != 0) std::shuffle(lens.begin(), lens.end(), random);
    if (longest == 0) lens[needed] = static_cast<uint16_t>(pick(random, 0, 1));
    return lens;
}

/// Lengths 1, 2, .. 14, 15, 15 of the symbols from `first` on.
Lens skewedLens(size_t size, size_t first) {
    Lens lens(size);
    for (size_t i = 0; i < 16; ++i) lens[first + i] = static_cast<uint16_t>(i < 15 ? i + 1 : 15);
    return lens;
}

/// One call's arguments.
struct Call {
    const uint8_t* src;
    uint32_t srcLen;
    uint8_t* dst;
    uint32_t dstLen;
    uint32_t code = 0, nBits = 0, winIdx = 0, dstIdx = 0;
    int32_t mode = 1;

    Call(std::span<const uint8_t> source, std::span<uint8_t> room)
        : src(source.data()),
          srcLen(static_cast<uint32_t>(source.size())),
          dst(room.data()),
          dstLen(static_cast<uint32_t>(room.size())) {}
    bool operator==(const Call&) const = default;

    /// Makes it, on any level of instructions, with null for the pointer numbered `null`.
    VekStatus operator()(VekInflateState& state, int null = -1) {
        static Random levels(26);
        const FeatureLimit limit(pick(levels, 0, 1) != 0 ? ~uint64_t{0} : 0);
        const auto at = [null](int i, auto* p) { return i == null ? nullptr : p; };
        return veksInflate_8u(at(0, &src), at(1, &srcLen), at(2, &code), at(3, &nBits), winIdx,
                              at(4, &dst), at(5, &dstLen), dstIdx, at(6, &mode), at(7, &state));
    }
};

/// How data is cut up: the most bytes of a piece of input and of output (0: all at once), and the
/// circular window's size (0: everything stays in one output buffer). With a window and no limit of
/// the output, that is the window itself.
struct Cut {
    size_t in, out, window;
};

/// Feeds blocks' data in random pieces, each between guard pages, and collects what comes out.
class Pieces {
 public:
    Pieces(Cut cut, size_t inSize, size_t outSize, const Bytes& history = {}, size_t seed = 1)
        : cut_(cut),
          random_(static_cast<uint32_t>(seed)),
          in_(cut.in != 0 ? cut.in : inSize),
          whole_(cut.window == 0 ? history.size() + outSize : 2 * cut.out + 1),
          window_(cut.window) {
        stored(history.data(), history.size());
    }

    bool stored(const uint8_t* bytes, size_t count) {
        for (; count != 0 && !room().empty(); --count) {
            room()[0] = *bytes++;
            produced(1);
        }
        return count == 0;
    }

    bool coded(BitSource& in, VekInflateState& state) {
        state.window = cut_.window != 0 ? window_.data() : nullptr;
        state.windowSize = static_cast<uint32_t>(cut_.window);
        const auto piece = [&](size_t all, size_t most) {
            return most != 0 ? std::min(all, pick(random_, 0, most)) : all;
        };
        int32_t mode = 1;
        for (int idle = 0; idle < 100; ++idle) {
            const size_t inPiece = piece(static_cast<size_t>(in.end - in.src), cut_.in);
            const std::span src(in_.data() + in_.size() - inPiece, inPiece);
            const std::span dst(room().data(), piece(room().size(), cut_.out));
            std::copy_n(in.src, inPiece, src.data());
            Bytes expected;
            if (inPlace()) expected.assign(dst.begin(), dst.end());
            Call call(src, dst);
            call.code = in.code;
            call.nBits = in.nBits;
            call.winIdx = winIdx_;
            call.dstIdx = static_cast<uint32_t>(at_);
            call.mode = mode;
            status = call(state);
            // In the window, what stands behind the output is still history.
            EXPECT_TRUE(!inPlace() || std::equal(call.dst, dst.data() + dst.size(),
                                                 expected.data() + (call.dst - dst.data())));
            in.code = call.code;
            in.nBits = call.nBits;
            mode = call.mode;
            in.src += inPiece - call.srcLen;
            produced(dst.size() - call.dstLen);
            EXPECT_EQ(call.src + call.srcLen, src.data() + src.size());
            EXPECT_EQ(call.dst + call.dstLen, dst.data() + dst.size());
            EXPECT_TRUE(in.nBits == 32 || in.code >> in.nBits == 0);
            if (status != vekStatusOk) return false;
            if (mode == 0) return true;
            EXPECT_TRUE(mode == 2 || (mode == 1 && call.srcLen == 0));
            if (call.srcLen != inPiece || call.dstLen != dst.size()) idle = 0;
            if (in.src == in.end && call.dstLen != 0) return false;
        }
        return false;
    }

    /// The history and all that came out behind it.
    Bytes output() {
        Bytes all = out_;
        all.insert(all.end(), whole_.data(), whole_.data() + at_);
        return all;
    }

    VekStatus status = vekStatusOk;

 private:
    bool inPlace() const { return cut_.window != 0 && cut_.out == 0; }
    std::span<uint8_t> room() {
        if (inPlace()) return {window_.data() + winIdx_, window_.size() - winIdx_};
        return {whole_.data() + at_, whole_.size() - at_};
    }

    void produced(size_t count) {
        if (inPlace()) {
            out_.insert(out_.end(), window_.data() + winIdx_, window_.data() + winIdx_ + count);
            winIdx_ = static_cast<uint32_t>((winIdx_ + count) % cut_.window);
            return;
        }
        at_ += count;
        // A full buffer moves to the window; now and then one that is not full, too.
        if (cut_.window == 0 || (at_ != whole_.size() && pick(random_, 0, 3) != 0)) return;
        out_.insert(out_.end(), whole_.data(), whole_.data() + at_);
        for (size_t i = 0; i < at_; ++i) {
            if (winIdx_ == cut_.window) winIdx_ = 0;
            window_.data()[winIdx_++] = whole_.data()[i];
        }
        at_ = 0;
    }

    Cut cut_;
    Random random_;
    Guarded in_, whole_, window_;
    size_t at_ = 0;
    uint32_t winIdx_ = 0;
    Bytes out_;
};

const std::vector<Cut> cuts = {
    {0, 0, 0},           {1, 1, 0},       {1, 0, 0},      {0, 1, 0},       {7, 9, 0},
    {40, 300, 0},        {4096, 4096, 0}, {3, 5, 32768},  {30, 61, 40000}, {500, 700, 32768},
    {4096, 4096, 65536}, {0, 0, 32768},   {300, 0, 40000}};

void decodeBlock(const Block& block, const Cut& cut, size_t seed) {
    SCOPED_TRACE(testing::Message() << "in " << cut.in << " out " << cut.out << " window "
                                    << cut.window << " seed " << seed);
    auto state = std::make_unique<VekInflateState>();
    ASSERT_EQ(block.build(*state), vekStatusOk);
    const Bytes history(block.out.begin(), block.out.begin() + block.historySize);
    const size_t behind = block.data.size() - (block.nBits + 7) / 8;
    Pieces pieces(cut, block.data.size(), block.out.size() - history.size() + 4 * behind, history,
                  seed);
    BitSource in{block.data.data(), block.data.data() + block.data.size()};
    EXPECT_TRUE(pieces.coded(in, *state));
    EXPECT_EQ(pieces.status, vekStatusOk);
    EXPECT_TRUE(pieces.output() == block.out);
    EXPECT_EQ(static_cast<size_t>(in.src - block.data.data()) * 8 - in.nBits, block.nBits);
}

// Codes of every shape: both layouts, long sub-tables, few symbols, no or one distance code; blocks
// that are too short for the kernels' packed tables, and long enough for pairs of literals.
TEST(Inflate, RandomCodesInPieces) {
    Random random(20);
    for (size_t round = 0; round < effort(60); ++round) {
        const auto litLongest = static_cast<unsigned>(pick(random, 2, 15));
        const auto distLongest = static_cast<unsigned>(pick(random, 0, 15));
        const bool skewed = round % 6 == 5;
        Block block(skewed ? skewedLens(286, 250)
                           : randomLens(random, pick(random, 257, 286), litLongest, 256),
                    randomLens(random, pick(random, distLongest + 1, 30), distLongest, 0),
                    shapes()[4].make(pick(random, 0, 1) * 32768, 1));
        constexpr size_t sizes[] = {60, 1500, 6000};
        block.fillRandomly(random, sizes[round % 3]);
        if (skewed) block.literal(250);  // The end in one lookup with a literal.
        block.end();
        // What follows is another's, and gives the kernels room to run past the end.
        block.data.resize(block.data.size() + round % 2 * 4000, 0x5A);
        for (const Cut& cut : cuts) {
            if (round % 3 != 2 || cut.in == 0 || cut.in > 100) decodeBlock(block, cut, round);
        }
        if (testing::Test::HasFailure()) FAIL() << "round " << round;
    }
}

TEST(Inflate, FixedCodeEverySymbol) {
    Random random(21);
    Block block(shapes()[1].make(32768, 3));
    for (uint32_t i = 0; i < 256; ++i) block.literal(i);
    for (uint32_t i = 0; i < 29 * 30; ++i) block.match(i / 30, ~0U, i % 30, ~0U);
    block.fillRandomly(random, 100);
    block.end();
    for (const Cut& cut : cuts) decodeBlock(block, cut, 1);
}

TEST(Inflate, RefusedArgumentsChangeNothing) {
    auto state = std::make_unique<VekInflateState>();
    state->windowSize = 4;
    const Bytes source = {1, 2, 3};
    Bytes room(8, 0xEE);
    // Nulls come first; then either size is too large.
    for (int null = 0; null < 12; ++null) {
        Call call(source, room);
        call.nBits = null == 10 ? 32 : 33;
        call.winIdx = null == 11 ? 4 : 5;
        if (null == 8) call.src = nullptr;
        if (null == 9) call.dst = nullptr;
        const Call before = call;
        EXPECT_EQ(call(*state, null), null < 10 ? vekStatusNullPointer : vekStatusBadSize) << null;
        EXPECT_TRUE(call == before && room == Bytes(8, 0xEE));
    }
}

TEST(Inflate, StopsReportTheirMode) {
    auto state = std::make_unique<VekInflateState>();
    Bytes room = {'x', 'y', 0, 0, 0, 0, 0, 0, 0, 0};
    Block block({'x', 'y'});
    block.literal('a');
    block.match(2, 0, 1, 0);  // 5 bytes, 2 back
    block.end();

    // No room, in which the literal is decoded and waits; some; enough.
    Call call(block.data, {room.data() + 2, 0});
    call.code = 0xFFFFFF00;  // Bits above the valid ones do not count.
    for (const auto& [dstIdx, dstLen, mode, step, value, left] :
         {std::tuple{2U, 0U, 2, 6U, uint32_t{'a'}, 0U}, {2, 3, 2, 5, 3, 0}, {5, 5, 0, 5, 3, 2}}) {
        call.dstIdx = dstIdx;
        call.dstLen = dstLen;
        EXPECT_EQ(call(*state), vekStatusOk);
        EXPECT_EQ(std::tuple(call.mode, state->savedStep, state->savedValue, call.dstLen),
                  std::tuple(mode, step, value, left));
    }
    EXPECT_EQ(state->savedDistance, 2U);
    EXPECT_EQ(block.data.size() * 8 - block.nBits, call.srcLen * 8 + call.nBits);
    EXPECT_EQ(std::string(room.begin(), room.begin() + 8), "xyayayay");

    // Input that ends: at a symbol (mode 1), which leaves the record as it was, and inside one,
    // before each of its parts. What the next step does not need is not looked at.
    Block parts(Bytes(100, 'z'));
    parts.match(10, 1, 11, 3);  // 8 + 1 + 5 + 4 bits
    constexpr uint32_t old = 99;
    for (const auto& [nBits, mode, step, value, extra, distance] :
         {std::tuple{0U, 1, old, old, old, old},
          {6, 1, old, old, old, old},
          {7, 2, 2, 15, 1, old},
          {8, 2, 3, 16, old, old},
          {12, 2, 3, 16, old, old},
          {13, 2, 4, 16, 4, 49},
          {16, 2, 4, 16, 4, 49},
          {17, 2, 5, 16, old, 52}}) {
        SCOPED_TRACE(nBits);
        Call c({parts.data.data(), 0}, {parts.out.data() + 100, 0});
        std::memcpy(&c.code, parts.data.data(), 3);
        c.nBits = nBits;
        c.dstIdx = 100;
        state->savedStep = state->savedValue = state->savedExtraBits = state->savedDistance = old;
        EXPECT_EQ(c(*state), vekStatusOk);
        EXPECT_EQ(std::tuple(c.mode, state->savedStep, state->savedValue),
                  std::tuple(mode, step, value));
        EXPECT_TRUE(extra == old || state->savedExtraBits == extra);
        EXPECT_TRUE(distance == old || state->savedDistance == distance);
        EXPECT_TRUE(mode == 2 || c.nBits == nBits);
    }

    // Four bits that only invalid distances begin with may not be all: the code has five. In the
    // fixed tables, and in those built of the same lengths.
    for (const bool built : {false, true}) {
        Lens lens = fixedLens();
        lens.resize(288 + 30, 5);
        auto record = std::make_unique<VekInflateState>();
        if (built) {
            ASSERT_EQ(veksInflateBuildHuffTable(lens.data(), 288, 30, record.get()), vekStatusOk);
        }
        const Bytes more = {1};
        Call c({more.data(), 0}, room);
        c.code = 15U << 7 | 1U << 6;  // length 3
        c.nBits = 11;
        EXPECT_EQ(c(*record), vekStatusOk);
        EXPECT_EQ(std::tuple(c.mode, record->savedStep, record->savedValue, c.nBits),
                  std::tuple(2, 3U, 3U, 4U));
        c.srcLen = 1;
        EXPECT_EQ(c(*record), corrupt);
    }

    // A call that resumed and runs dry between symbols stays resumable, and step 1 is taken back.
    Call dry({block.data.data(), 0}, {room.data(), 1});
    dry.mode = 2;
    state->savedStep = 6;
    state->savedValue = 'q';
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(dry(*state), vekStatusOk);
        EXPECT_EQ(std::tuple(dry.mode, state->savedStep), std::tuple(2, 1U));
    }
    EXPECT_EQ(room[0], 'q');
}

TEST(Inflate, CorruptData) {
    Bytes window(16, 'w');
    constexpr uint32_t none = 99;
    const struct {
        uint32_t lit, dist, extra;  // Distance symbols 0 to 3 have no extra bits, 8 has three.
        VekStatus status;
    } cases[] = {
        {286, none, 0, corrupt}, {287, none, 0, corrupt},
        {257, 30, 0, corrupt},   {257, 31, 0, corrupt},
        {257, 3, 0, corrupt},    {257, 8, 0, vekStatusOk},  // 17 = 1 literal and the window
        {257, 8, 1, corrupt},
    };
    for (const auto& c : cases) {
        for (const size_t room : {1, 401}) {  // Careful and, with room to spare, fast.
            SCOPED_TRACE(testing::Message() << c.lit << ' ' << c.dist << " room " << room);
            const bool windowed = c.dist == 8;
            auto state = std::make_unique<VekInflateState>();
            state->window = windowed ? window.data() : nullptr;
            state->windowSize = 16;
            state->savedStep = 77;
            Block block({});
            block.literal('L');
            block.lit(c.lit);
            if (c.dist != none) block.dist(c.dist);
            if (windowed) block.bits(c.extra, 3);
            for (int i = 0; i < 40; ++i) block.lit(0);
            Bytes out(room, 0xEE);
            Call call(block.data, out);
            call.winIdx = windowed ? 5 : 0;
            call.mode = 17;
            EXPECT_EQ(call(*state), c.status);
            EXPECT_EQ(out[0], 'L');
            if (c.status == vekStatusOk) continue;
            EXPECT_EQ(std::tuple(call.mode, call.dst, call.dstLen, state->savedStep),
                      std::tuple(17, out.data() + 1, room - 1, 77U));
        }
    }
    // Kinds of distances that do not exist, in tables of the caller's own making.
    for (const uint8_t kind : {0xD1, 0xE1, 0xF1}) {
        for (const bool twoLevel : {false, true}) {
            for (const size_t room : {5, 401, 20000}) {  // Careful, fast, and packed.
                auto state = std::make_unique<VekInflateState>();
                const Lens dists = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 11};
                Lens lens(286);
                lens[256] = lens[257] = 1;
                const auto nDists = static_cast<uint32_t>(twoLevel ? dists.size() : 1);
                lens.insert(lens.end(), dists.begin(), dists.begin() + nDists);
                ASSERT_EQ(veksInflateBuildHuffTable(lens.data(), 286, nDists, state.get()),
                          vekStatusOk);
                ASSERT_EQ(state->tableKind, twoLevel ? 1U : 2U);
                for (size_t i = 0; i < (twoLevel ? 1024U : 2U); ++i)
                    if (i % 2 == 0) state->tables[twoLevel ? 5632 + i : 4 + i] = kind;
                Bytes whole(40000 + room, 0xEE);
                Bytes source(5000, 0);
                source[0] = 1;  // length 3, distance code 0, of whose extra bits none is set
                Call call(source, {whole.data() + 40000, room});
                call.dstIdx = 40000;
                EXPECT_EQ(call(*state), kind == 0xD1 ? vekStatusOk : corrupt)
                    << int{kind} << ' ' << twoLevel << ' ' << room;
                EXPECT_EQ(call.dstLen == room, kind != 0xD1);
            }
        }
    }
    // Records in an impossible state, or with empty tables.
    auto state = std::make_unique<VekInflateState>();
    const Bytes zeros(32);
    Bytes out(32);
    constexpr uint32_t records[][3] = {{3, 0, 1}, {2, 0, 1}, {1, 0, 1},  {2, 12, 1},
                                       {0, 0, 0}, {0, 0, 7}, {0, 0, ~0U}};
    for (const auto& [kind, litBits, step] : records) {
        Call call(zeros, out);
        call.mode = step == 1 ? 1 : 2;
        state->tableKind = kind;
        state->litBits = litBits;
        state->savedStep = step;
        EXPECT_EQ(call(*state), corrupt) << kind << ' ' << step;
    }
}

using SomeLens = std::vector<std::pair<size_t, uint16_t>>;

/// Builds tables of the lengths given of single literal/length symbols, and those of distances.
VekStatus build(VekInflateState& state, const SomeLens& lits, uint32_t nLit, const Lens& dists) {
    Lens lens(nLit);
    for (const auto& [symbol, len] : lits) lens[symbol] = len;
    lens.insert(lens.end(), dists.begin(), dists.end());
    return veksInflateBuildHuffTable(lens.data(), nLit, static_cast<uint32_t>(dists.size()),
                                     &state);
}

TEST(InflateTables, Statuses) {
    auto state = std::make_unique<VekInflateState>();
    const struct {
        SomeLens lits;
        uint32_t nLit;
        Lens dists;
        VekStatus status;
        uint32_t distBits;
    } cases[] = {
        {{{256, 1}}, 257, {}, vekStatusOk, 0},
        {{{256, 1}}, 288, Lens(30, 5), vekStatusOk, 5},
        {{{256, 1}, {0, 1}}, 257, {0, 0, 1}, vekStatusOk, 1},
        {{{256, 1}, {0, 1}}, 257, Lens(30), vekStatusOk, 0},
        {{}, 288, Lens(30, 5), corrupt, 0},                 // no codes
        {{{0, 1}, {1, 1}}, 257, {}, corrupt, 0},            // no end of block
        {{{0, 1}}, 256, {}, corrupt, 0},                    // too few lengths
        {{{256, 2}}, 257, {}, corrupt, 0},                  // incomplete
        {{{256, 1}, {0, 1}, {1, 2}}, 257, {}, corrupt, 0},  // over-subscribed
        {{{256, 1}, {0, 16}}, 257, {}, corrupt, 0},         // length 16
        {{{256, 1}, {0, 65535}}, 257, {}, corrupt, 0},      // likewise
        {{{256, 1}}, 257, {2}, corrupt, 0},                 // of distances
        {{{256, 1}}, 257, {1, 1, 1}, corrupt, 0},           // likewise
        {{{256, 1}}, 257, Lens(29, 5), corrupt, 0},         // not quite the fixed code
        {{{256, 1}}, 257, {1, 17}, corrupt, 0},             // length 17
        {{}, 289, {}, vekStatusBadSize, 0},
        {{}, 288, Lens(31), vekStatusBadSize, 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(build(*state, c.lits, c.nLit, c.dists), c.status) << &c - cases;
        EXPECT_TRUE(c.status != vekStatusOk || state->distBits == c.distBits) << &c - cases;
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
        EXPECT_EQ(Call(Bytes(64, 0xFF), out)(*state), corrupt);
        EXPECT_EQ(out, Bytes(64, 0xEE));
    }
}

// The layouts are part of the interface: entries read the way their description says.
TEST(InflateTables, Layouts) {
    auto state = std::make_unique<VekInflateState>();
    const auto check = [&](const auto& bytes) {  // of the table area, each behind its place
        for (const auto& [at, byte] : bytes) EXPECT_EQ(state->tables[at], byte) << at;
    };
    Lens lens = fixedLens();
    lens.resize(288 + 30, 5);
    ASSERT_EQ(veksInflateBuildHuffTable(lens.data(), 288, 30, state.get()), vekStatusOk);
    EXPECT_TRUE(state->tableKind == 2 && state->litBits == 9 && state->distBits == 5);
    // The end of block, symbol 257, literal 255, symbols 285 and (bare) 286; distance symbols 0 and
    // 16, and one that does not exist; the base of symbol 16.
    constexpr uint32_t single[][2] = {{0, 0xF7},     {0x80, 0x87},  {0x3FE, 9}, {0x3FF, 0xFF},
                                      {0x146, 0x88}, {0x147, 0xFF}, {0xC6, 8},  {1040, 5},
                                      {1025, 0x75},  {1039, 0xE5},  {2051, 1}};
    check(single);

    // One sub-table each.
    lens = skewedLens(288, 250);
    std::swap(lens[265], lens[286]);
    const Lens dists = skewedLens(30, 0);
    lens.insert(lens.end(), dists.begin(), dists.end());
    ASSERT_EQ(veksInflateBuildHuffTable(lens.data(), 288, 30, state.get()), vekStatusOk);
    EXPECT_EQ(state->tableKind, 1U);
    // Literal 250, the end of block, the link to the first sub-table; there symbol 260 takes half,
    // then 261 of length 7; symbol 286 is invalid. The link of distances; symbol 15, 6 extra bits.
    constexpr uint32_t twoLevel[][2] = {
        {1536, 1},    {0, 250},  {1599, 0x67}, {2559, 15}, {1023, 0},    {2560, 0x8B}, {2575, 0x8B},
        {2576, 0x8C}, {1040, 4}, {2591, 0x7F}, {6655, 15}, {6687, 0x6F}, {5118, 0},    {5182, 193}};
    check(twoLevel);
}

#if defined(VEK_HAS_zlib) && defined(VEK_HAS_libdeflate)
Bytes zlibStream(Bytes& raw, int level, int strategy, int windowBits) {
    z_stream z{};
    deflateInit2(&z, level, Z_DEFLATED, -windowBits, 8, strategy);
    Bytes data(deflateBound(&z, raw.size()));
    z.next_in = raw.data();
    z.avail_in = static_cast<uInt>(raw.size());
    z.next_out = data.data();
    z.avail_out = static_cast<uInt>(data.size());
    EXPECT_EQ(deflate(&z, Z_FINISH), Z_STREAM_END);
    data.resize(z.total_out);
    deflateEnd(&z);
    return data;
}

Bytes libdeflateStream(const Bytes& raw, int level) {
    auto* compressor = libdeflate_alloc_compressor(level);
    Bytes data(libdeflate_deflate_compress_bound(compressor, raw.size()));
    data.resize(
        libdeflate_deflate_compress(compressor, raw.data(), raw.size(), data.data(), data.size()));
    libdeflate_free_compressor(compressor);
    return data;
}

TEST(Inflate, PeerStreamsInPieces) {
    Random random(23);
    const auto check = [&](const Bytes& raw, const Bytes& data, size_t window) {
        const size_t tiny = pick(random, 0, 3);  // Single bytes take long: for a quarter.
        for (const Cut& cut :
             {Cut{0, 0, 0}, Cut{1, 1, 0}, Cut{1, 1, window}, Cut{33, 270, window},
              Cut{3000, 4096, window + 1000}, Cut{4096, 4096, 0}, Cut{3000, 0, window}}) {
            if (cut.in == 1 && tiny != 0) continue;
            SCOPED_TRACE(testing::Message() << cut.in << ' ' << cut.out << ' ' << cut.window);
            auto state = std::make_unique<VekInflateState>();
            Pieces pieces(cut, data.size(), raw.size());
            BitSource in{data.data(), data.data() + data.size()};
            ASSERT_TRUE(readDeflate(in, *state, pieces));
            ASSERT_TRUE(pieces.output() == raw);
            ASSERT_TRUE(in.src == in.end && in.nBits < 8);
        }
    };
    for (const Shape& shape : shapes()) {
        for (int level = 0; level <= 13; ++level) {
            SCOPED_TRACE(testing::Message() << shape.name << " level " << level);
            Bytes raw = shape.make(pick(random, 0, 1) * 70000 + 900, static_cast<uint32_t>(level));
            // The strategies follow the levels: Z_FILTERED, Z_HUFFMAN_ONLY, Z_RLE, Z_FIXED.
            const int bits = level % 3 == 2 ? 9 : 15;
            const int strategy = level > 9 ? level - 9 : Z_DEFAULT_STRATEGY;
            check(raw, zlibStream(raw, level > 9 ? 6 : level, strategy, bits), size_t{1} << bits);
            raw.resize(raw.size() / 2);
            check(raw, libdeflateStream(raw, std::min(level, 12)), 32768);
        }
    }
}
#endif

// Damaged blocks behave the same however they are cut: what was good before the damage comes out,
// and nothing else is touched.
TEST(Inflate, DamagedStreamsInPieces) {
    Random random(24);
    for (size_t round = 0; round < effort(400); ++round) {
        Block block({});
        if (round % 4 != 0) {
            block =
                Block(randomLens(random, 286, static_cast<unsigned>(pick(random, 3, 15)), 256),
                      randomLens(random, 30, static_cast<unsigned>(pick(random, 5, 15)), 0), {});
        }
        const bool large = round % 8 == 2;
        Bytes data = shapes()[1].make(500, static_cast<uint32_t>(round));
        if (round % 2 == 0) {
            block.fillRandomly(random, large ? 5000 : 200);
            block.end();
            data = block.data;
            for (int flips = 0; flips < 4; ++flips) {
                data[pick(random, 0, data.size() - 1)] ^=
                    static_cast<uint8_t>(1U << pick(random, 0, 7));
            }
            data.insert(data.end(), 40, 0x5A);
        }
        const size_t room = large
                                ? pick(random, 10000, 50000)
                                : pick(random, 0, 1) * pick(random, 0, 3000) + pick(random, 0, 30);
        auto state = std::make_unique<VekInflateState>();
        ASSERT_EQ(block.build(*state), vekStatusOk);
        std::pair<VekStatus, Bytes> expected;
        for (const Cut& cut : {Cut{1, 1, 0}, Cut{0, 0, 0}, Cut{20, 0, 0}, Cut{100, 100, 0},
                               Cut{0, 9, 0}, Cut{50, 600, 32768}, Cut{300, 350, 300}}) {
            SCOPED_TRACE(testing::Message() << "round " << round << " in " << cut.in << " out "
                                            << cut.out << " window " << cut.window);
            // With a window all of which counts as history, damaged data reaches further.
            Pieces pieces(cut, data.size(), room, {}, round);
            BitSource in{data.data(), data.data() + data.size()};
            pieces.coded(in, *state);
            if (cut.window != 0) continue;
            if (cut.in == 1) expected = {pieces.status, pieces.output()};
            ASSERT_TRUE(std::pair(pieces.status, pieces.output()) == expected);
        }
    }
}

}  // namespace
