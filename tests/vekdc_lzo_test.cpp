// The tool's lzo and lzss formats: in memory, against lzop where it is installed, and what they say
// of broken files.
#include "codec/checksums.h"
#include "support/tool.h"

namespace {

using vekdc::Settings;
using namespace vektest;

/// Numbers of so many bytes each, the highest or the lowest byte first.
template <int bytes = 4, class... Numbers>
Bytes bigs(Numbers... values) {
    Bytes out;
    for (const auto value : {static_cast<uint64_t>(values)...})
        for (int i = bytes; i-- > 0;) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return out;
}
template <int bytes = 4, class... Numbers>
Bytes littles(Numbers... values) {
    Bytes out;
    for (const auto value : {static_cast<uint64_t>(values)...})
        for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return out;
}
uint32_t adler(const Bytes& bytes) {
    return vekdc::codec::kAdler32.update(1, bytes);
}
uint32_t crc(const Bytes& bytes) {
    return vekdc::codec::kCrc32.update(0, bytes);
}

/// A part of an lzo file of any fields, with good checksums.
struct LzoPart {
    uint32_t version = 0x1040, needed = 0x0940, method = 1, flags = 1, filter = 0;
    std::string name = "a";
    Bytes extra;

    Bytes header() const {
        const bool isNew = version >= 0x0940;
        Bytes out = bigs<2>(version, 0x20A0);
        if (isNew) out = out + bigs<2>(needed);
        out = out + bigs<1>(method);
        if (isNew) out = out + bigs<1>(5);
        out = out + bigs(flags);
        if ((flags & 0x800) != 0) out = out + bigs(filter);
        out = out + bigs(0100644, 981173106);
        if (isNew) out = out + bigs(0);
        out = out + bigs<1>(name.size()) + bytesOf(name);
        const auto sum = [&](const Bytes& of) {
            return bigs((flags & 0x1000) != 0 ? crc(of) : adler(of));
        };
        out = out + sum(out);
        const Bytes field = bigs(extra.size()) + extra;
        if ((flags & 0x40) != 0) out = out + field + sum(field);
        return Bytes{0x89, 'L', 'Z', 'O', 0, 0x0D, 0x0A, 0x1A, 0x0A} + out;
    }

    /// The data stored, or, when there is one, as a stream. `sums` is what the checksums are of.
    Bytes block(const Bytes& sums, const Bytes& stream = {}) const {
        const Bytes& coded = stream.empty() ? sums : stream;
        Bytes out = bigs(sums.size(), coded.size());
        if ((flags & 1) != 0) out = out + bigs(adler(sums));
        if ((flags & 0x100) != 0) out = out + bigs(crc(sums));
        if (!stream.empty() && (flags & 2) != 0) out = out + bigs(adler(stream));
        if (!stream.empty() && (flags & 0x200) != 0) out = out + bigs(crc(stream));
        return out + coded;
    }

    static Bytes end() { return Bytes(4, 0); }
};

/// 104 bytes: a literal, then itself again and again.
const Bytes kRepeated(104, 'r');
const Bytes kRepeatedStream = {21, 'r', 'r', 'r', 'r', 32, 67, 0, 0, 17, 0, 0};

TEST(LzoAndLzss, GoThereAndBackOnAnyNumberOfThreadsInAnyPieces) {
    for (const char* name : {"lzo", "lzss"}) {
        const vekdc::Format& f = format(name);
        const size_t block = f.name() == std::string("lzo") ? 256 << 10 : 1 << 20;
        for (const size_t size :
             {size_t{0}, size_t{1}, size_t{3}, size_t{300}, block - 1, block, 2 * block + 77}) {
            const Bytes plain = sample(size);
            for (const int level : {0, 6, 9}) {
                SCOPED_TRACE(name + std::to_string(size) + " level " + std::to_string(level));
                const Bytes packed = compress(f, plain, settingsOf(level));
                ASSERT_TRUE(compress(f, plain, settingsOf(level, 3)) == packed);
                ASSERT_TRUE(decompress(f, packed) == plain);
                EXPECT_LE(packed.size(), plain.size() + 64 + 16 * (size / block + 1));
                EXPECT_EQ(vekdc::formatByStart(packed), &f);
                Dripping reader(packed, size / 500 + 1);
                vekdc::Source source(reader, 32);
                ASSERT_TRUE(decode(f, source).plain == plain);
            }
        }
        // Among them blocks that lzo stores: those have no checksums of a stream.
        for (const auto& shape : shapes()) {
            const Bytes plain = shape.make(70000, 2);
            const Settings settings = settingsOf(6, 1, {{"block-checksums", ""}});
            ASSERT_TRUE(decompress(f, compress(f, plain, settings)) == plain) << shape.name;
        }
    }
    for (const auto& shape : shapes()) {
        if (shape.name == std::string("fibonacci")) continue;  // More repetitions than are sought.
        size_t most = SIZE_MAX;
        for (const int level : {1, 6, 7, 8, 9}) {
            const Bytes packed = compress(format("lzo"), shape.make(70000, 2), settingsOf(level));
            EXPECT_LE(packed.size(), most) << shape.name << level;
            most = packed.size() + packed.size() / 500;
        }
    }
}

TEST(LzoAndLzss, PartsFollowEachOther) {
    for (const char* name : {"lzo", "lzss"}) {
        const vekdc::Format& f = format(name);
        const Bytes plain = sample(3000);
        const Bytes packed = compress(f, plain, settingsOf(6));
        const Bytes three = packed + compress(f, {}, settingsOf(6)) + packed;
        EXPECT_EQ(decode(f, three + Bytes(70000, 0)), (Decoded{plain + plain, "", ""}));
        EXPECT_EQ(decode(f, three + Bytes{'j'}),
                  (Decoded{plain + plain, "",
                           "byte " + std::to_string(three.size()) + ": ignored what follows the " +
                               name + " data"}));
        EXPECT_TRUE(contains(info(f, three),
                             "3 parts, " + std::to_string(three.size()) + " -> 6000 bytes"));
    }
}

TEST(Lzo, ReadsEveryKindOfHeaderAndBlock) {
    const Bytes hello = bytesOf("hello");
    for (const uint32_t version : {0x0900U, 0x0940U, 0x1040U, 0x7FFFU})
        for (uint32_t mask = 0; mask < 128; ++mask) {
            LzoPart part;
            part.version = version;
            part.method = 1 + mask % 3;
            part.name = std::string(mask, 'n');
            part.extra = Bytes(mask * 3000, 'x');
            part.flags = 0x03000000;
            const uint32_t flags[] = {1, 0x100, 2, 0x200, 0x1000, 0x40, 0x2430};
            for (size_t i = 0; i < std::size(flags); ++i)
                if ((mask >> i & 1) != 0) part.flags |= flags[i];
            const Bytes file = part.header() + part.block(hello) +
                               part.block(kRepeated, kRepeatedStream) + part.end();
            ASSERT_EQ(decompress(format("lzo"), file), hello + kRepeated) << version << mask;
        }
}

// The library's decoders take a stream that begins so for a container of their own, and go by the
// lengths in it, here nothing or beyond all room; in a file it is a run of 68 literals.
TEST(Lzo, AStreamThatLooksLikeTheLibrarysContainerIsNone) {
    for (const uint8_t length : {0x00, 0x7F}) {
        Bytes literals = {2, 2 ^ 0x55, length, length, length, length, 65, 0, 0, 0};
        literals.resize(68, 'l');
        const Bytes stream = Bytes{0x55} + literals + Bytes{32, 20, 0, 0, 17, 0, 0};
        const Bytes plain = literals + Bytes(53, 'l');
        const LzoPart part;
        EXPECT_EQ(decompress(format("lzo"), part.header() + part.block(plain, stream) + part.end()),
                  plain);
    }
}

TEST(Lzo, SaysWhatIsWrongAndWhere) {
    const LzoPart part;
    const Bytes hello = bytesOf("hello"), start = part.header() + part.block(hello);
    const auto field = [](const LzoPart& of, uint32_t LzoPart::*member, uint32_t value) {
        LzoPart changed = of;
        changed.*member = value;
        return changed.header() + LzoPart::end();
    };
    const auto lengths = [](uint32_t plain, uint32_t coded) { return bigs(plain, coded); };
    const auto flipped = [](Bytes bytes, size_t at) {
        flip(bytes, 8 * at);
        return bytes;
    };
    LzoPart checked;
    checked.flags = 0x303;
    const Bytes coded = checked.header() + checked.block(kRepeated, kRepeatedStream);
    LzoPart extra;
    extra.flags = 0x41;
    extra.extra = hello;
    const Bytes unchecked = field(part, &LzoPart::flags, 0);
    const Bytes bare(unchecked.begin(), unchecked.end() - 4);
    LzoPart filtered = part;
    filtered.flags |= 0x800;
    const std::string first = "part 1, block 1: the ", second = "part 1, block 2: the ";
    expectComplaints(
        format("lzo"),
        {{bytesOf("PKxx"), "0: not an lzo file"},
         {{0x89, 'L'}, "2: the file ends too early"},
         {field(part, &LzoPart::version, 0x08FF), "9: part 1: unknown version"},
         {field(part, &LzoPart::needed, 0x1041), "13: part 1: needs a reader"},
         {field(part, &LzoPart::method, 0x80), "15: part 1: unknown compression method 128$"},
         {field(part, &LzoPart::flags, 0x4000), "17: part 1: reserved flags"},
         {field(filtered, &LzoPart::filter, 17), "21: part 1: unknown filter 17$"},
         {flipped(part.header(), 20), "35: part 1: the header's checksum"},
         {flipped(extra.header(), 45), "48: part 1: the extra field's checksum"},
         {start + lengths((64 << 20) + 1, 5), "56: " + second + "block is larger than 64 MiB"},
         {start + lengths(0xFFFFFFFF, 5), "56: " + second + "block is larger than 64 MiB"},
         {start + lengths(5, 6), "60: " + second + "compressed length"},
         {start + lengths(5, 0), "60: " + second + "compressed length"},
         {start + lengths(64 << 20, 16), "60: " + second + "compressed length"},
         {start + lengths(64 << 20, 64 << 20), "64: the file ends too early"},
         {flipped(coded, 47), "47: " + first + "Adler-32 does"},
         {flipped(coded, 51), "51: " + first + "CRC-32 does"},
         {flipped(coded, 55), "55: " + first + "Adler-32 of the compressed data"},
         {flipped(coded, 59), "59: " + first + "CRC-32 of the compressed data"},
         {flipped(start, start.size() - 1), "47: " + first + "Adler-32 does"},
         {bare + lengths(105, 12) + kRepeatedStream, "47: " + first + "block's data are broken"},
         {bare + lengths(104, 12) + flipped(kRepeatedStream, 8),
          "47: " + first + "block's data are broken"},
         {start + part.end() + flipped(start, start.size() - 1),
          std::to_string(start.size() + 4 + 47) + ": part 2, block 1: the Adler-32 does"},
         {start, "56: the file ends too early"}});
    EXPECT_THROW(compress(format("lzo"), {},
                          settingsOf(6, 1, {{"no-checksum", ""}, {"block-checksums", ""}})),
                 vekdc::Failure);
}

TEST(Lzss, SaysWhatIsWrongAndWhere) {
    const auto sumOf = [](const Bytes& bytes) {
        return ~vekdc::codec::kCrc32c.update(0xFFFFFFFF, bytes);
    };
    const auto header = [&](uint8_t version, uint8_t bits, uint64_t length) {
        const Bytes out =
            Bytes{0x89, 'L', 'Z', 'S', 'S', 0x0D, 0x0A, 0x1A, version, bits} + littles<8>(length);
        return out + littles(sumOf(out));
    };
    const auto block = [&](size_t size, const Bytes& coded, uint32_t sum) {
        return littles(size, coded.size(), sum) + coded;
    };
    const auto end = [](uint64_t length) { return Bytes(4, 0) + littles<8>(length); };
    const Bytes good = header(1, 12, ~uint64_t{0});
    const Bytes plain = Bytes(9, 'a');
    // A literal and a match of 8 at distance 1; then the same with one more literal begun.
    const Bytes coded = {0xB0, 0x80, 0x00, 0x82, 0x80};
    const uint32_t sum = sumOf(plain);
    ASSERT_EQ(decompress(format("lzss"), good + block(9, coded, sum) + end(9)), plain);
    const std::string first = "part 1, block 1: the ";
    expectComplaints(
        format("lzss"),
        {{bytesOf("PKxx"), "0: not an lzss file"},
         {header(2, 12, 0), "8: part 1: unknown version"},
         {header(1, 12, 0) + end(0), "$"},
         {Bytes(good.begin(), good.end() - 1) + Bytes{0} + end(0),
          "18: part 1: the header's check"},
         {header(1, 11, 0), "9: part 1: unknown block size"},
         {header(1, 25, 0), "9: part 1: unknown block size"},
         {good + block(4097, coded, sum), "22: " + first + "block is larger than the file allows"},
         {good + block(4, coded, sum), "26: " + first + "compressed length"},
         {good + block(4096, coded, sum), "26: " + first + "compressed length"},
         {good + block(9, coded, sum + 1), "30: " + first + "CRC-32C"},
         {good + block(10, coded, sum), "34: " + first + "block's data"},
         {good + block(8, coded, sum), "34: " + first + "block's data"},
         {good + block(9, coded + Bytes(3, 0xFF), sum), "34: " + first + "block's data"},
         {good + block(9, plain, sum) + end(18), "47: part 1: the length does not match"},
         {good + block(9, plain, sum) + block(9, plain, sum), "51: part 1, block 2: the CRC-32C"},
         {header(1, 12, 8) + block(9, plain, sum) + end(9), "10: part 1: the length in the header"},
         {good + block(9, plain, sum), "43: the file ends too early"}});
}

using LzoProgram = Program;

TEST_F(LzoProgram, LzopReadsWhatItWritesAndTheReverse) {
    if (!haveTool("lzop")) GTEST_SKIP() << "no lzop";
    write("x", sample(700000));
    good("touch -d '2001-02-03 04:05:06 UTC' x; chmod 640 x; touch empty; head -c 262144 x > one");
    good(R"(for f in x empty one; do
            for o in --fastest -1 -6 -7 -9 '-j 3' --crc32 --no-checksum --block-checksums \
                     '--crc32 --block-checksums' --no-name; do
                vekdc compress --format lzo -c $o $f > a.lzo && lzop -qt a.lzo &&
                    lzop -dc a.lzo | cmp - $f || exit
            done
            for o in -1 -2 -3 -4 -5 -6 -7 -8 -9 -F -CC --crc32 '--crc32 -F' --filter=1 \
                     '--filter=16 -9' -P; do
                lzop -c $o $f > b.lzo; vekdc test b.lzo && vekdc decompress -c b.lzo | cmp - $f ||
                    exit
            done
        done
        lzop < x | vekdc decompress | cmp - x && vekdc compress --format lzo < x | lzop -d | cmp - x &&
        (lzop -c x; lzop -c one; vekdc compress --format lzo -c x) | vekdc decompress |
            cmp - <(cat x one x))");
    // Name, time stamp and permissions are where lzop looks for them.
    good(
        "vekdc compress -o c.lzo x; chmod 600 c.lzo; mkdir d; cd d; lzop -qx ../c.lzo; cmp x ../x");
    EXPECT_EQ(good("cd d; stat -c '%a %Y %n' *"), "640 981173106 x\n");
    EXPECT_TRUE(contains(good("vekdc info c.lzo"), "LZO1X-1/5 +2001-02-03 04:05:06  adler32  x\n"));
}

TEST_F(LzoProgram, FilesPipesAndBrokenFiles) {
    write("x", sample(2500000));
    for (const std::string f : {"lzo", "lzss"}) {
        const std::string with = "f=" + f + "; ";
        good(with + "vekdc compress --format $f x; vekdc decompress -o y x.$f; cmp x y; rm y");
        good(with + "vekdc compress --format $f -j 2 < x | vekdc decompress | cmp - x");
        good(with +
             "head -c -9 x.$f > cut; head -c 20 x.$f > begun; "
             "(head -c 600000 x.$f; echo; tail -c +600001 x.$f) > more");
        for (const std::string task : {"decompress -c", "test", "decompress -o y"}) {
            bad("vekdc " + task + " cut > /dev/null", "cut: byte [0-9]+: the file ends too early");
            bad("vekdc " + task + " begun > /dev/null", "begun: byte 20: the file ends too early");
            bad("vekdc " + task + " more > /dev/null", "more: byte [0-9]+: part 1, block .*");
        }
        bad("vekdc info more > /dev/null", "more: byte .*block.*");
#ifndef __SANITIZE_ADDRESS__
        good(with +
             "head -c 40000000 /dev/zero > long; ulimit -s 512 -d 16384; "
             "vekdc compress -c --format $f long > packed; vekdc test packed");
#endif
    }
}

}  // namespace
