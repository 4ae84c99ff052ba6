// Bzip2's Huffman stage: tables and choices against the format's rules, round trips at every cut,
// and descriptions and codes that no encoder writes.

#include "support/test.h"

using namespace vektest;

namespace {

using Symbols = std::vector<uint16_t>;

/// A record of the size that its query gives, rounded up so that it is aligned at its buffer's
/// edge.
template <class State>
struct Record {
    explicit Record(int32_t size) : bytes((static_cast<size_t>(size) + 7) & ~size_t{7}) {}
    State* get() { return reinterpret_cast<State*>(bytes.data()); }
    Guarded bytes;
};

struct Accumulator {
    uint32_t code = 0;
    int32_t count = 0;
};

/// A block's symbols, end of block last, drawn with falling frequencies.
Symbols makeSymbols(size_t count, int32_t alphaSize, double skew, uint32_t seed) {
    Random random(seed);
    std::geometric_distribution<int> draw(skew);
    Symbols symbols(count);
    for (auto& s : symbols) s = static_cast<uint16_t>(std::min(draw(random), alphaSize - 2));
    symbols.back() = static_cast<uint16_t>(alphaSize - 1);
    return symbols;
}

/// The coded block: description, then codes, then three bytes of whatever follows in a stream.
Bytes encode(const Symbols& symbols, int32_t alphaSize, Accumulator start, size_t room = 0) {
    std::vector<uint32_t> frequencies(static_cast<size_t>(alphaSize));
    for (const uint16_t s : symbols) ++frequencies[s];
    const auto len = static_cast<int32_t>(symbols.size());
    int32_t size = 0;
    EXPECT_EQ(veksEncodeHuffGetSize_BZ2_16u8u(len, &size), vekStatusOk);
    Record<VekBz2HuffEncState> state(size);
    EXPECT_EQ(veksEncodeHuffInit_BZ2_16u8u(alphaSize, frequencies.data(), symbols.data(), len,
                                           state.get()),
              vekStatusOk);
    Guarded out(room != 0 ? room : symbols.size() * 3 + 40000);
    Accumulator bits = start;
    auto written = static_cast<int32_t>(out.size());
    if (veksPackHuffContext_BZ2_16u8u(&bits.code, &bits.count, out.data(), &written, state.get()) !=
        vekStatusOk)
        return {};
    const uint16_t* src = symbols.data();
    int32_t left = len;
    auto more = static_cast<int32_t>(out.size()) - written;
    if (more == 0) return {};
    if (veksEncodeHuff_BZ2_16u8u(&bits.code, &bits.count, &src, &left, out.data() + written, &more,
                                 state.get()) != vekStatusOk)
        return {};
    EXPECT_EQ(left, 0);
    Bytes coded(out.data(), out.data() + written + more);
    for (; bits.count > 0; bits.count -= 8, bits.code <<= 8)
        coded.push_back(static_cast<uint8_t>(bits.code >> 24));
    coded.insert(coded.end(), 3, 0x55);
    return coded;
}

/// A reader that is given input and room in pieces.
struct Reader {
    Reader(int32_t alphaSize, int32_t symbols) : state(sizeFor(symbols)) {
        EXPECT_EQ(veksDecodeHuffInit_BZ2_8u16u(alphaSize, state.get()), vekStatusOk);
    }

    static int32_t sizeFor(int32_t symbols) {
        int32_t size = 0;
        EXPECT_EQ(veksDecodeHuffGetSize_BZ2_8u16u(symbols, &size), vekStatusOk);
        return size;
    }

    /// Feeds pieces of `in` to `step` while it asks for more.
    template <class Step>
    VekStatus feed(const Bytes& in, size_t& at, Random& random, size_t most, Step step) {
        for (;;) {
            Guarded piece(part(in, at, pick(random, 1, most)));
            const uint8_t* src = piece.data();
            auto left = static_cast<int32_t>(piece.size());
            const VekStatus status = step(&src, &left);
            at += static_cast<size_t>(src - piece.data());
            if (status != vekStatusSourceIncomplete || at == in.size()) return status;
        }
    }

    VekStatus unpack(const Bytes& in, size_t& at, Random& random, size_t most) {
        return feed(in, at, random, most, [&](const uint8_t** src, int32_t* left) {
            return veksUnpackHuffContext_BZ2_8u16u(&bits.code, &bits.count, src, left, state.get());
        });
    }

    VekStatus decode(const Bytes& in, size_t& at, Random& random, size_t mostIn, size_t mostOut,
                     Symbols* out) {
        for (;;) {
            const VekStatus status =
                feed(in, at, random, mostIn, [&](const uint8_t** src, int32_t* left) {
                    Guarded room(2 * pick(random, 1, mostOut));
                    auto* dst = reinterpret_cast<uint16_t*>(room.data());
                    auto written = static_cast<int32_t>(room.size() / 2);
                    const VekStatus result = veksDecodeHuff_BZ2_8u16u(
                        &bits.code, &bits.count, src, left, dst, &written, state.get());
                    out->insert(out->end(), dst, dst + written + (result == vekStatusOk ? 1 : 0));
                    return result;
                });
            if (status != vekStatusDestinationFull) return status;
            if (at == in.size()) return vekStatusSourceIncomplete;
        }
    }

    /// Whether the decoder refuses a record without tables, and takes nothing.
    bool refusesToDecode() {
        Guarded in(Bytes(4096, 0x5A));
        Guarded room(2 * 100);
        const uint8_t* src = in.data();
        auto left = static_cast<int32_t>(in.size());
        int32_t written = 100;
        const Accumulator before = bits;
        const VekStatus status = veksDecodeHuff_BZ2_8u16u(&bits.code, &bits.count, &src, &left,
                                                          reinterpret_cast<uint16_t*>(room.data()),
                                                          &written, state.get());
        return status == vekStatusError && src == in.data() && written == 100 &&
               bits.count == before.count && bits.code == before.code;
    }

    Record<VekBz2HuffDecState> state;
    Accumulator bits;
};

/// Writes bits as text, for descriptions that the encoder would never make.
Bytes fromBits(const std::string& text) {
    Bytes out((text.size() + 7) / 8 + 8);
    for (size_t i = 0; i < text.size(); ++i)
        if (text[i] == '1') out[i / 8] = static_cast<uint8_t>(out[i / 8] | (0x80 >> (i % 8)));
    return out;
}

std::string binary(uint32_t value, int bits) {
    std::string text;
    for (int i = bits - 1; i >= 0; --i) text += ((value >> i) & 1) != 0 ? '1' : '0';
    return text;
}

}  // namespace

TEST(Bzip2Huffman, BlocksComeBackAtEveryCut) {
    Random random(21);
    struct Block {
        Symbols symbols;
        int32_t alphaSize;
    };
    std::vector<Block> blocks;
    for (const auto& [count, alphaSize, skew] : {std::tuple<size_t, int32_t, double>{1, 2, .5},
                                                 {49, 3, .5},
                                                 {50, 5, .3},
                                                 {51, 258, .01},
                                                 {199, 20, .2},
                                                 {200, 20, .2},
                                                 {600, 30, .1},
                                                 {1200, 60, .05},
                                                 {2400, 258, .02},
                                                 {20000, 258, .3},
                                                 {60000, 100, .05}})
        blocks.push_back({makeSymbols(count, alphaSize, skew, 3), alphaSize});
    // Frequencies that want codes of more than seventeen bits.
    Symbols fibonacci(1, 24);
    for (uint32_t s = 0, a = 1, b = 1; s < 24; ++s, b += std::exchange(a, b))
        fibonacci.insert(fibonacci.begin(), a, static_cast<uint16_t>(s));
    blocks.push_back({fibonacci, 25});
    for (const auto& [symbols, alphaSize] : blocks)
        for (size_t round = 0; round < effort(symbols.size() < 5000 ? 30 : 6); ++round) {
            Accumulator start{static_cast<uint32_t>(random()), pick<int32_t>(random, 0, 32)};
            const Bytes coded = encode(symbols, alphaSize, start);
            ASSERT_FALSE(coded.empty());
            // A reader finds the bits that were pending, then the block.
            Reader reader(alphaSize, static_cast<int32_t>(symbols.size()));
            size_t at = static_cast<size_t>(start.count) / 8;
            const int rest = start.count % 8;
            if (rest != 0)
                reader.bits = {static_cast<uint32_t>(coded[at++]) << (24 + rest), 8 - rest};
            const size_t most = round % 3 == 0 ? 1 : round % 3 == 1 ? 100 : coded.size();
            ASSERT_EQ(reader.unpack(coded, at, random, most), vekStatusOk);
            Symbols back;
            ASSERT_EQ(
                reader.decode(coded, at, random, most, round % 2 == 0 ? symbols.size() : 77, &back),
                vekStatusOk);
            ASSERT_EQ(back, symbols) << symbols.size();
        }
}

TEST(Bzip2Huffman, TableCountFollowsTheSymbolCount) {
    const std::pair<size_t, unsigned> wanted[] = {{199, 2},  {200, 3},  {599, 3},
                                                  {600, 4},  {1199, 4}, {1200, 5},
                                                  {2399, 5}, {2400, 6}, {90000, 6}};
    for (const auto& [symbols, tables] : wanted) {
        const Bytes coded = encode(makeSymbols(symbols, 50, .1, 1), 50, {});
        EXPECT_EQ(coded[0] >> 5, tables);
        const unsigned groups = ((coded[0] & 31U) << 10) | (coded[1] << 2U) | (coded[2] >> 6U);
        EXPECT_EQ(groups, (symbols + 49) / 50);
    }
}

TEST(Bzip2Huffman, ARoomThatIsTooSmallLeavesEverythingForARepeat) {
    const Symbols symbols = makeSymbols(700, 40, .1, 9);
    const Bytes whole = encode(symbols, 40, {});
    const size_t exact = whole.size() - 3;
    for (const size_t room : {size_t{1}, size_t{50}, exact / 2, exact - 5})
        EXPECT_TRUE(encode(symbols, 40, {}, room).empty());
    EXPECT_EQ(encode(symbols, 40, {}, exact), whole);
}

TEST(Bzip2Huffman, BrokenDescriptionsAreRefused) {
    const std::string counts = binary(2, 3) + binary(1, 15);
    const std::string sound = counts + "0" + binary(1, 5) + "000" + binary(1, 5) + "000";
    const struct {
        const char* what;
        std::string bits;
        VekStatus wanted;
    } cases[] = {
        {"one table", binary(1, 3) + binary(1, 15), vekStatusSourceDataError},
        {"seven tables", binary(7, 3) + binary(1, 15), vekStatusSourceDataError},
        {"no selector", binary(2, 3) + binary(0, 15), vekStatusSourceDataError},
        {"a selector beyond the tables", counts + "110", vekStatusSourceDataError},
        {"a starting length of 0", counts + "0" + binary(0, 5), vekStatusSourceDataError},
        {"a starting length of 21", counts + "0" + binary(21, 5), vekStatusSourceDataError},
        {"a length below 1", counts + "0" + binary(1, 5) + "11", vekStatusSourceDataError},
        {"a length above 20", counts + "0" + binary(20, 5) + "10", vekStatusSourceDataError},
        {"three codes of one bit", sound, vekStatusSourceDataError},
        {"an incomplete code", counts + "0" + binary(2, 5) + "000" + binary(2, 5) + "000",
         vekStatusOk},
    };
    Random random(2);
    for (const auto& c : cases) {
        Reader reader(3, 50);
        size_t at = 0;
        EXPECT_EQ(reader.unpack(fromBits(c.bits), at, random, 100), c.wanted) << c.what;
        EXPECT_EQ(reader.refusesToDecode(), c.wanted != vekStatusOk) << c.what;
    }
}

TEST(Bzip2Huffman, NothingIsDecodedBeforeTheDescriptionIsRead) {
    const Symbols symbols = makeSymbols(700, 40, .1, 9);
    const Bytes coded = encode(symbols, 40, {});
    Random random(6);
    Reader whole(40, 700);
    size_t size = 0;
    ASSERT_EQ(whole.unpack(coded, size, random, 1), vekStatusOk);
    for (size_t cut = 0; cut < size; ++cut) {
        Reader reader(40, 700);
        // Whatever a record holds behind what Init sets, it is no table.
        std::fill(reader.state.bytes.data(), reader.state.bytes.data() + reader.state.bytes.size(),
                  uint8_t{0xA5});
        ASSERT_EQ(veksDecodeHuffInit_BZ2_8u16u(40, reader.state.get()), vekStatusOk);
        size_t at = 0;
        if (cut != 0) {
            ASSERT_EQ(reader.unpack(part(coded, 0, cut), at, random, cut),
                      vekStatusSourceIncomplete);
        }
        ASSERT_TRUE(reader.refusesToDecode()) << "after " << cut << " bytes";
        // The refusal leaves the record as it was.
        ASSERT_EQ(reader.unpack(coded, at, random, coded.size()), vekStatusOk);
    }
    // Nor with the tables of a block before, once the next description has begun.
    size_t at = 0;
    whole.bits = {};
    ASSERT_EQ(whole.unpack(part(coded, 0, 1), at, random, 1), vekStatusSourceIncomplete);
    EXPECT_TRUE(whole.refusesToDecode());
}

TEST(Bzip2Huffman, CodesThatNobodyHasAndGroupsThatNobodyChoseStopTheDecoder) {
    Random random(3);
    // Three codes of two bits, one group: 11 is no code; a 51st symbol has no group.
    const std::string description =
        binary(2, 3) + binary(1, 15) + "0" + binary(2, 5) + "000" + binary(2, 5) + "000";
    const std::pair<std::string, size_t> streams[] = {{"0011", 1}, {std::string(120, '0'), 50}};
    for (const auto& [codes, symbols] : streams) {
        Reader reader(3, 50);
        const Bytes in = fromBits(description + codes);
        size_t at = 0;
        ASSERT_EQ(reader.unpack(in, at, random, 1), vekStatusOk);
        Symbols out;
        EXPECT_EQ(reader.decode(in, at, random, 100, 500, &out), vekStatusError);
        EXPECT_EQ(out, Symbols(symbols, 0));
    }
}

TEST(Bzip2Huffman, HostileBitsStayInside) {
    Random random(4);
    for (size_t round = 0; round < effort(300); ++round) {
        const auto alphaSize = pick<int32_t>(random, 1, 258);
        Bytes in = round % 2 == 0 ? shapes()[1].make(20000, static_cast<uint32_t>(round))
                                  : encode(makeSymbols(10000, std::max(alphaSize, 2), .05, 5),
                                           std::max(alphaSize, 2), {});
        for (size_t flips = pick(random, 0, 5); flips != 0; --flips)
            in[pick(random, 0, in.size() - 1)] ^= static_cast<uint8_t>(1 << (random() % 8));
        Reader reader(alphaSize, 32767 * 50);
        size_t at = 0;
        if (reader.unpack(in, at, random, in.size()) != vekStatusOk) {
            ASSERT_TRUE(reader.refusesToDecode());
            continue;
        }
        if (at == in.size()) continue;
        Symbols out;
        const VekStatus status = reader.decode(in, at, random, in.size(), 20000, &out);
        ASSERT_TRUE(status == vekStatusOk || status == vekStatusError ||
                    status == vekStatusSourceIncomplete);
        // The end of block ends it, and comes nowhere else.
        const auto end = std::find(out.begin(), out.end(), alphaSize - 1);
        ASSERT_EQ(out.end() - end, status == vekStatusOk ? 1 : 0);
        ASSERT_TRUE(std::all_of(out.begin(), out.end(), [&](int s) { return s < alphaSize; }));
    }
}

TEST(Bzip2Huffman, RefusedCallsTouchNothing) {
    Record<VekBz2HuffEncState> enc(20000);
    Record<VekBz2HuffDecState> dec(20000);
    veksDecodeHuffInit_BZ2_8u16u(5, dec.get());
    uint32_t frequencies[258] = {1, 1, 1};
    uint16_t symbols[3] = {0, 1, 2};
    const uint16_t* src16 = symbols;
    uint8_t byte = 9;
    const uint8_t* src8 = &byte;
    uint32_t code = 0;
    int32_t bits = 0, tooMany = 33, one = 1, zero = 0, size = 77;
    const struct {
        VekStatus found, wanted;
    } calls[] = {
        {veksEncodeHuffGetSize_BZ2_16u8u(0, &size), vekStatusBadSize},
        {veksEncodeHuffInit_BZ2_16u8u(0, frequencies, symbols, 3, enc.get()), vekStatusBadSize},
        {veksEncodeHuffInit_BZ2_16u8u(259, frequencies, symbols, 3, enc.get()), vekStatusBadSize},
        {veksEncodeHuffInit_BZ2_16u8u(2, frequencies, symbols, 3, enc.get()), vekStatusBadSize},
        {veksPackHuffContext_BZ2_16u8u(&code, &bits, &byte, &one, enc.get()), vekStatusError},
        {veksPackHuffContext_BZ2_16u8u(&code, &tooMany, &byte, &one, enc.get()), vekStatusBadSize},
        {veksEncodeHuff_BZ2_16u8u(&code, &bits, &src16, &one, &byte, &zero, enc.get()),
         vekStatusBadSize},
        {veksDecodeHuffInit_BZ2_8u16u(0, dec.get()), vekStatusBadSize},
        {veksUnpackHuffContext_BZ2_8u16u(&code, &bits, &src8, &zero, dec.get()), vekStatusBadSize},
        {veksDecodeHuff_BZ2_8u16u(&code, &bits, &src8, &one, symbols, &zero, dec.get()),
         vekStatusBadSize},
        {veksDecodeHuff_BZ2_8u16u(&code, &tooMany, &src8, &one, symbols, &one, dec.get()),
         vekStatusBadSize},
    };
    for (const auto& call : calls) EXPECT_EQ(call.found, call.wanted) << "call " << (&call - calls);
    EXPECT_TRUE(size == 77 && byte == 9);
    *reinterpret_cast<int32_t*>(dec.bytes.data()) = 3;
    EXPECT_EQ(veksUnpackHuffContext_BZ2_8u16u(&code, &bits, &src8, &one, dec.get()),
              vekStatusError);
    ASSERT_EQ(veksEncodeHuffGetSize_BZ2_16u8u(51, &size), vekStatusOk);
    EXPECT_TRUE(sizeof(void*) != 4 || size == 7768) << size;
    ASSERT_EQ(veksDecodeHuffGetSize_BZ2_8u16u(51, &size), vekStatusOk);
    EXPECT_EQ(size, 9326);
}
