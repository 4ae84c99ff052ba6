// The tool's bz2 format on any number of threads; files composed field by field, for what no
// encoder writes; and what is wrong with broken ones.
#include "codec/checksums.h"
#include "support/tool.h"

namespace {

using vekdc::Source;
using namespace vektest;

const vekdc::Format& bz2() {
    return format("bz2");
}

Bytes compress(const Bytes& plain, int level = 9, unsigned jobs = 1) {
    return vektest::compress(bz2(), plain, settingsOf(level, jobs));
}

/// In memory at once on one thread, and in pieces on several: the same.
Decoded decompress(const Bytes& packed) {
    Decoded outcome = decode(bz2(), packed);
    for (const unsigned jobs : {1U, 2U, 5U}) {
        Dripping reader(packed, 1 + packed.size() / (11 * jobs));
        Source pieces(reader, 100 * jobs);
        EXPECT_TRUE(decode(bz2(), pieces, settingsOf(9, jobs)) == outcome)
            << outcome.complaint << jobs;
    }
    return outcome;
}

void checkBothWays(const Bytes& plain, int level) {
    const Bytes packed = compress(plain, level);
    ASSERT_TRUE(decompress(packed) == (Decoded{plain, "", ""}));
    ASSERT_TRUE(compress(plain, level, 3) == packed);
}

TEST(Bz2Format, GoesThereAndBackOnAnyNumberOfThreads) {
    for (const auto& shape : shapes())
        for (const size_t size : {0U, 1U, 99U, 100U, 4000U, 99899U, 99900U, 99981U, 120000U}) {
            SCOPED_TRACE(std::string(shape.name) + " " + std::to_string(size));
            if (size < 90000 || effort(100) == 100) checkBothWays(shape.make(size, 3), 1);
        }
    const Bytes plain = sample(effort(900000));
    for (int level = 1; level <= 9; ++level) {
        SCOPED_TRACE(level);
        checkBothWays(plain, level);
    }
    // One run fills no block, however long it is.
    checkBothWays(Bytes(3000000, 'x') + sample(1000), 1);
}

// --- composed files ------------------------------------------------------------------------------

/// What a composed block holds, as symbols. All byte values are in use.
struct Content {
    std::vector<uint16_t> symbols = std::vector<uint16_t>(60, 7);
    int moreSelectors = 0;  ///< Than there are groups.
    size_t wander = 0;      ///< So many times up and down in the first code's description.

    Bytes plain() const {
        const Bytes inUse(256, 1);
        Bytes work(400000), block(100000);
        auto length = static_cast<int32_t>(block.size());
        if (symbols.empty() ||
            veksDecodeBlock_BZ2_16u8u(symbols.data(), static_cast<int32_t>(symbols.size()),
                                      block.data(), &length, 0, 256, inUse.data(),
                                      work.data()) != vekStatusOk)
            return {};
        Bytes out(300000);
        const uint8_t* src = block.data();
        uint8_t* dst = out.data();
        auto room = static_cast<int32_t>(out.size());
        VekBz2RleState state;
        veksDecodeRLEStateInit_BZ2_8u(&state);
        veksDecodeRLEState_BZ2_8u(&src, &length, &dst, &room, &state);
        out.resize(out.size() - static_cast<size_t>(room));
        return out;
    }
};

/// A stream of one block, with some bits of one field flipped. Both of its codes are the same:
/// symbols up to 253 are coded as themselves, in 8 bits, the last four in 9.
Bytes compose(const Content& content, const std::string& field, uint64_t flip) {
    Bytes out;
    size_t size = 0;
    const auto put = [&](const char* name, uint64_t value, unsigned count) {
        if (field == name) value ^= flip;
        while (count-- != 0) {
            if (size % 8 == 0) out.push_back(0);
            out.back() |= static_cast<uint8_t>((value >> count & 1) << (7 - size++ % 8));
        }
    };
    const uint32_t crc = vekdc::codec::kBzip2Crc.update(0, content.plain());
    put("magic", 0x425A6831, 32);
    put("block magic", 0x314159265359, 48);
    put("block CRC", crc, 32);
    put("randomised", 0, 1);
    put("index", 0, 24);
    put("rows", 0xFFFF, 16);
    for (int row = 0; row < 16; ++row) put("values", 0xFFFF, 16);
    put("tables", 2, 3);
    const size_t selectors =
        content.symbols.size() / 50 + 1 + static_cast<size_t>(content.moreSelectors);
    put("selectors", selectors, 15);
    for (size_t i = 0; i < selectors; ++i) put("selector", 0, 1);
    for (int table = 0; table < 2; ++table) {
        put("start length", 8, 5);
        for (size_t i = 0; table == 0 && i < content.wander; ++i) put("", 0b1011, 4);
        for (int symbol = 0; symbol < 254; ++symbol) put("", 0, 1);
        put("longer codes", 0b100000, 6);
    }
    for (const unsigned s : content.symbols) put("", s < 254 ? s : s + 254, s < 254 ? 8 : 9);
    put("end of block", 257 + 254, 9);
    put("end magic", 0x177245385090, 48);
    put("stream CRC", crc, 32);
    return out;
}

TEST(Bz2Format, SaysWhatIsWrongAndWhere) {
    const std::string block = ": stream 1, block 1: ";
    const std::string tables = block + "the code tables are broken";
    const std::string data = block + "the block's data are broken";
    const bool quick = effort(100) != 100;
    Content magicNumbers;
    for (int i = 0; i < 600; ++i)
        for (const uint16_t s : {0x31, 0x41, 0x59, 0x26, 0x53, 0x59})
            magicNumbers.symbols.push_back(s);
    struct Case {
        const char* field;
        uint64_t flip;
        std::string complaint;  ///< Behind its offset where it begins with a colon.
        Content content = {};
    };
    const Case cases[] = {
        {"", 0, ""},
        {"magic", 1, "0: not a bz2 file"},
        {"block magic", 1, "4: stream 1: neither a block nor the end of the stream"},
        {"block CRC", 1U << 31, "4" + block + "the block's CRC does not match"},
        {"randomised", 1,
         "4" + block +
             "the block is randomised, as by versions of bzip2 before 0.9.5; that is not "
             "supported"},
        {"index", 60, "4" + data},
        {"index", 0xFFFFFF, "4" + data},
        {"rows", 0xFFFF, block + "the block has no values"},
        {"tables", 0b010 ^ 0b001, tables},
        {"tables", 0b010 ^ 0b111, tables},
        {"selectors", 2, tables},
        {"selector", 1, tables},
        {"start length", 8, tables},
        {"start length", 8 ^ 21, tables},
        {"longer codes", 0b100000, tables},
        {"end magic", 1, ": stream 1: neither a block nor the end of the stream"},
        {"stream CRC", 1, ": stream 1: the stream's CRC does not match"},
        {"no symbols", 0, "4" + data, {{}}},
        {"too few selectors", 0, data, {std::vector<uint16_t>(60, 7), -1}},
        {"too long a run", 0, "4" + data, {std::vector<uint16_t>(17, 1)}},
        {"too many literals", 0, data, {std::vector<uint16_t>(100001, 7)}},
        {"a run without a length", 0, "4" + block + "the block's last run has no length", {{1, 0}}},
        {"end of block", 1, block + "the file ends too early", {{5}}},
        {"more selectors than groups", 0, "", {{5, 9, 200}, 20000}},
        {"as many as there can be", 0, "", {{5, 9, 255}, 32766}},
        {"a description longer than a block", 0, "", {{5}, 0, quick ? 1000U : 2200000U}},
        {"magic numbers in a block", 0, "", magicNumbers},
    };
    const Bytes before = sample(150000);
    const Bytes front = compress(before, 1);
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.field) + " " + std::to_string(c.flip));
        const Bytes plain = c.content.plain();
        const Bytes file = compose(c.content, c.field, c.flip);
        const auto [out, complaint, warning] = decompress(file);
        EXPECT_EQ(c.complaint.starts_with(':') ? complaint.substr(complaint.find(':')) : complaint,
                  c.complaint);
        // What is good in front of the fault comes out, and nothing else.
        EXPECT_TRUE(out == plain || (out.empty() && !complaint.empty()));
        EXPECT_TRUE(complaint.find("block 1") == std::string::npos || out.empty());
        const Decoded second = decompress(front + file);
        EXPECT_TRUE(second.plain == before + out);
        EXPECT_EQ(second.complaint.empty(), complaint.empty() || c.field == std::string("magic"));
    }
}

TEST(Bz2Format, StreamsFollowEachOther) {
    const Bytes a = sample(250000);
    const Bytes one = compress(a, 1);
    const Bytes none = compress({});
    EXPECT_EQ(none.size(), 14U);
    EXPECT_TRUE(decompress(none) == Decoded());
    EXPECT_TRUE(decompress(none + one + none + none + compress(a, 9) + one + none) ==
                (Decoded{a + a + a, "", ""}));
    // What cannot be another stream is ignored, what may be the start of one is not.
    const auto ignored = [&](size_t at) {
        return "byte " + std::to_string(at) + ": ignored what follows the bz2 data";
    };
    for (const Bytes& garbage :
         {bytesOf("BZh0"), bytesOf("x"), bytesOf("BZh") + one, Bytes(1500000)})
        EXPECT_TRUE(decompress(one + garbage) == (Decoded{a, "", ignored(one.size())}));
    EXPECT_TRUE(decompress(one + none + bytesOf("1AY&SY" + std::string(50, 'z'))) ==
                (Decoded{a, "", ignored(one.size() + 14)}));
    EXPECT_EQ(decompress(one + bytesOf("BZh")).complaint,
              std::to_string(one.size() + 3) + ": stream 1: the file ends too early");

    const Bytes both = one + compress(a, 3);
    const std::string table = info(bz2(), both);
    const std::string crc = vekdc::hex32(vekdc::codec::kBzip2Crc.update(0, a));
    EXPECT_TRUE(contains(table, crc + "      300000       1\n.*2 streams, " +
                                    std::to_string(both.size()) + " -> 500000 bytes"))
        << table;
}

using Bz2Program = Program;

TEST_F(Bz2Program, KeepsWhatWasGoodOnlyWhenAskedTo) {
    const Bytes plain = sample(350000);
    Bytes broken = compress(plain, 1);
    broken[broken.size() / 2] ^= 4;
    write("x", plain);
    write("broken.bz2", broken);
    const std::string message = "broken.bz2: byte [0-9]+: stream 1, block [0-9]: .*";
    for (const std::string jobs : {"1", "2"}) {
        bad("vekdc decompress -j " + jobs + " broken.bz2", message);
        EXPECT_EQ(run("vekdc decompress --keep-partial -j " + jobs + " broken.bz2").status, 1);
        good(
            "cmp -n $(stat -c %s broken) x broken && test $(stat -c %s broken) -gt 99000 && "
            "rm broken");
    }
}

}  // namespace
