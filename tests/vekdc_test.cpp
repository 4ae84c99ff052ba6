// The tool: its formats in memory against zlib, and the built program as a user runs it.
#include <signal.h>
#include <unistd.h>

#include "codec/checksums.h"
#include "support/tool.h"
#include "tools/vekdc/io/pipeline.h"

#ifdef VEK_HAS_zlib
#include <zlib.h>
#endif

namespace {

using vekdc::Settings;
using vekdc::Source;
using namespace vektest;

// --- formats in memory --------------------------------------------------------------------------

#ifdef VEK_HAS_zlib
constexpr int kGzipMode = 16;

Bytes zlibInflate(const Bytes& packed, int windowBits, size_t size) {
    z_stream stream{};
    if (inflateInit2(&stream, windowBits) != Z_OK) throw std::runtime_error("inflateInit2");
    Bytes out(size + 1);
    stream.next_in = const_cast<Bytef*>(packed.data());
    stream.avail_in = static_cast<uInt>(packed.size());
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    const int status = inflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    inflateEnd(&stream);
    if (status != Z_STREAM_END || stream.avail_in != 0) throw std::runtime_error("zlib refuses it");
    return out;
}

struct ZlibWay {
    int level, windowBits, memory, strategy, flush;
};

Bytes zlibDeflate(const Bytes& plain, const ZlibWay& way, size_t piece) {
    z_stream stream{};
    if (deflateInit2(&stream, way.level, Z_DEFLATED, way.windowBits, way.memory, way.strategy) !=
        Z_OK)
        throw std::runtime_error("deflateInit2");
    Bytes out(deflateBound(&stream, static_cast<uLong>(plain.size())) +
              20 * (plain.size() / piece + 1) + 64);
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    stream.next_in = const_cast<Bytef*>(plain.data());
    for (size_t left = plain.size(); left > piece; left -= piece) {
        stream.avail_in = static_cast<uInt>(piece);
        deflate(&stream, way.flush);
    }
    stream.avail_in = static_cast<uInt>(plain.data() + plain.size() - stream.next_in);
    const int status = deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    if (status != Z_STREAM_END) throw std::runtime_error("deflate");
    return out;
}

TEST(Formats, ReadWhatZlibWrites) {
    const ZlibWay ways[] = {
        {0, 15, 8, Z_DEFAULT_STRATEGY, Z_NO_FLUSH},
        {1, 15, 9, Z_DEFAULT_STRATEGY, Z_FULL_FLUSH},
        {6, 15, 8, Z_DEFAULT_STRATEGY, Z_NO_FLUSH},
        {9, 9, 1, Z_DEFAULT_STRATEGY, Z_SYNC_FLUSH},
        {6, 12, 4, Z_FILTERED, Z_PARTIAL_FLUSH},
        {6, 15, 8, Z_HUFFMAN_ONLY, Z_BLOCK},
        {6, 15, 8, Z_RLE, Z_NO_FLUSH},
        {6, 15, 8, Z_FIXED, Z_SYNC_FLUSH},
    };
    for (const auto& shape : shapes()) {
        for (const size_t size : {size_t{0}, size_t{1}, size_t{300}, size_t{150000}}) {
            const Bytes plain = shape.make(size, 7);
            for (ZlibWay way : ways) {
                SCOPED_TRACE(shape.name + std::to_string(size) + " bytes, strategy " +
                             std::to_string(way.strategy));
                EXPECT_EQ(decompress(format("zlib"), zlibDeflate(plain, way, 33333)), plain);
                way.windowBits += kGzipMode;
                EXPECT_EQ(decompress(format("gz"), zlibDeflate(plain, way, 5000)), plain);
            }
        }
    }
}

TEST(Formats, ZlibReadsWhatTheyWrite) {
    for (const auto& shape : shapes()) {
        for (const size_t size :
             {size_t{0}, size_t{1}, size_t{300}, size_t{70000}, size_t{1200000}}) {
            const Bytes plain = shape.make(size, 8);
            for (const int level : {0, 1, 4, 6, 9}) {
                // The longest ones show the seams between blocks; two levels are enough for that.
                if (size > 100000 && level != 0 && level != 6) continue;
                for (const unsigned jobs : {1U, 3U}) {
                    SCOPED_TRACE(shape.name + std::to_string(size) + " bytes, level " +
                                 std::to_string(level) + ", jobs " + std::to_string(jobs));
                    const Settings settings = settingsOf(level, jobs);
                    const Bytes gz = compress(format("gz"), plain, settings);
                    EXPECT_EQ(zlibInflate(gz, 15 + kGzipMode, size), plain);
                    EXPECT_EQ(decompress(format("gz"), gz), plain);
                    EXPECT_LE(gz.size(), plain.size() + plain.size() / 1000 + 64);
                    const Bytes zlib = compress(format("zlib"), plain, settings);
                    EXPECT_EQ(zlibInflate(zlib, 15, size), plain);
                }
            }
        }
    }
}
#endif

TEST(Formats, AllDamageIsRefusedOrHarmless) {
    // A gz header's time stamp, hints and text flag, and bits that only pad, say nothing.
    EXPECT_LT(damage(format("gz"), compress(format("gz"), sample(1500))), 80U);
#ifdef VEK_HAS_zlib
    // Adler-32 lets some changes of small data pass, for zlib as for us.
    const auto others = [](const Bytes& packed) { return zlibInflate(packed, 15, 1500); };
    EXPECT_LT(damage(format("zlib"), compress(format("zlib"), sample(1500)), others), 80U);
#endif
}

TEST(Formats, SayWhatIsWrongAndWhere) {
    const auto gz = [](uint8_t method, uint8_t flags, const Bytes& rest) {
        return Bytes{0x1F, 0x8B, method, flags, 0, 0, 0, 0, 0, 3} + rest;
    };
    expectComplaints(format("gz"), {{bytesOf("PK"), "0: not a gz"},
                                    {gz(7, 0, {}), "2: .*method"},
                                    {gz(8, 0x40, {}), "3: reserved"},
                                    {gz(8, 2, {1, 2}), "10: .*header's checksum"},
                                    {gz(8, 0, {7}), "11: .*block type"},
                                    {gz(8, 0, {1, 1, 0, 0, 0}), "11: .*stored"},
                                    {gz(8, 0, {3, 0, 1, 0, 0, 0, 0, 0, 0, 0}), "12: .*CRC-32"},
                                    {gz(8, 0, {3, 0, 0, 0, 0, 0, 1, 0, 0, 0}), "16: .*length"}});
    expectComplaints(format("zlib"),
                     {{{0x78, 0x9C, 0x03, 0x02, 0x00, 0x00, 0x00}, "4: invalid deflate data"},
                      {{0x78, 0xBB, 0, 0, 0, 1}, "1: .*preset dictionary"},
                      {{0x88, 0x1C, 3, 0, 0, 0, 0, 1}, "0: .*32 KiB"},
                      {{0x78, 0x9D, 3, 0, 0, 0, 0, 1}, "0: not a zlib"},
                      {{0x78, 0x9C, 3, 0, 0, 0, 0, 2}, "4: .*Adler-32"},
                      {{0x78, 0x9C, 0xFD, 0xFF, 0xFF, 0xFF}, "5: .*too many symbols"}});
}

// Every optional header field, in every combination, in members one behind the other.
TEST(Formats, GzHeaderFieldsMembersAndPadding) {
    const Bytes plain = sample(2000);
    const Bytes body = compress(format("gz"), plain);
    const Bytes data(body.begin() + 10, body.end());
    Bytes all;
    Bytes expected;
    for (uint8_t flags = 0; flags < 32; ++flags) {
        Bytes header = {0x1F, 0x8B, 8, flags, 1, 2, 3, 4, 0, 255};
        if ((flags & 4) != 0) header = header + Bytes{5, 0, 'x', 'y', 1, 0, 'z'};
        if ((flags & 8) != 0) header = header + Bytes{'n', 'a', 'm', 'e', 0};
        if ((flags & 16) != 0) header = header + Bytes(70000, 'c') + Bytes{0};
        if ((flags & 2) != 0) {
            const uint32_t crc = vekdc::codec::kCrc32.update(0, header);
            header = header + Bytes{static_cast<uint8_t>(crc), static_cast<uint8_t>(crc >> 8)};
        }
        all = all + header + data;
        expected = expected + plain;
        EXPECT_EQ(decompress(format("gz"), all), expected) << "flags " << +flags;
    }
    const Bytes padded = all + Bytes(5000, 0);
    EXPECT_EQ(decode(format("gz"), padded), (Decoded{expected, "", ""}));
    EXPECT_EQ(decode(format("gz"), padded + all), (Decoded{expected + expected, "", ""}));
    EXPECT_EQ(decode(format("gz"), all + Bytes{'g', 'a'}).warning,
              "byte " + std::to_string(all.size()) + ": ignored what follows the gz data");
}

TEST(Checks, CombinationEqualsTheWhole) {
    const Bytes bytes = sample(3000);
    const vekdc::Bytes whole(bytes);
    for (const auto* checksum : {&vekdc::codec::kCrc32, &vekdc::codec::kAdler32}) {
        const auto sum = [&](vekdc::Bytes part) {
            return checksum->update(checksum->initial, part);
        };
        for (size_t cut = 0; cut <= bytes.size(); cut += 5) {
            EXPECT_EQ(checksum->combine(sum(whole.first(cut)), sum(whole.subspan(cut)),
                                        bytes.size() - cut),
                      sum(whole));
        }
    }
    // Lengths beyond 32 bits: by halves.
    const uint32_t crc = 0x12345678;
    EXPECT_EQ(
        vekdc::codec::crc32Combine(crc, 0, 6ULL << 32),
        vekdc::codec::crc32Combine(vekdc::codec::crc32Combine(crc, 0, 5ULL << 32), 0, 1ULL << 32));
}

TEST(Pipeline, KeepsOrderAndPassesFailuresOn) {
    for (const unsigned threads : {1U, 2U, 5U}) {
        for (const int last : {100, 31}) {
            int next = 0;
            std::vector<int> seen;
            const auto run = [&] {
                vekdc::orderedPipeline<int>(
                    threads, [&](int& block) { return block = next, next++ < 100; },
                    [&](int& block, unsigned) {
                        if (block == last) throw std::runtime_error("block 31");
                        if (block % 7 == 0) std::this_thread::yield();
                        block *= 3;
                    },
                    [&](int& block) { seen.push_back(block); });
            };
            if (last == 100) {
                run();
            } else {
                EXPECT_THROW(run(), std::runtime_error);
            }
            ASSERT_EQ(seen.size(), static_cast<size_t>(last));
            for (int i = 0; i < last; ++i) EXPECT_EQ(seen[static_cast<size_t>(i)], 3 * i);
        }
    }
}

// --- the program --------------------------------------------------------------------------------

TEST_F(Program, FilesGoThereAndBack) {
    using Names = std::set<std::string>;
    write("x", plain_);
    good("chmod 640 x; touch -d '2001-02-03 04:05:06.7 UTC' x");
    good("vekdc compress x");
    EXPECT_EQ(files(), (Names{"x", "x.gz"}));
    EXPECT_EQ(good("stat -c '%a %y' x.gz"), good("stat -c '%a %y' x"));
    good("vekdc compress --format zlib -9 --remove x");
    EXPECT_EQ(files(), (Names{"x.gz", "x.zz"}));
    good("vekdc decompress x.zz");
    EXPECT_EQ(read("x"), plain_);
    EXPECT_EQ(good("stat -c '%a %y' x.gz"), good("stat -c '%a %y' x"));
    good("echo old > x; vekdc decompress --force --remove x.gz");
    EXPECT_EQ(read("x"), plain_);
    good("vekdc compress -o y.zlib x; vekdc decompress -o z y.zlib; cmp x z");
    good("vekdc compress < x | vekdc decompress | cmp - x");
    good("vekdc compress --fastest - < x | vekdc test");
    good("vekdc compress -c x z > two.gz; vekdc decompress --stdout two.gz | cmp - <(cat x z)");
    good("vekdc compress -o t.tgz x; vekdc decompress t.tgz; cmp t.tar x");
    good("vekdc compress -k -1 -j 3 -o j.gz z; vekdc test j.gz");
    good("touch empty; vekdc compress empty; vekdc test empty.gz");
    good("mkfifo fifo; (cat x > fifo &); vekdc compress -c fifo | vekdc decompress -o f; cmp f x");
    good("vekdc compress -o /dev/null x");
}

TEST_F(Program, GzipAndPigzAgree) {
    write("x", plain_);
    for (const std::string other : {"gzip", "pigz"}) {
        if (!haveTool(other)) continue;
        good("other() { " + other + R"( "$@"; }
            for o in --fastest -1 -6 -9 '-j 4' --no-name; do
                vekdc compress -c x $o > a.gz && other -t a.gz && other -dc a.gz | cmp - x || exit
            done
            for o in -1 -6 -9 -n; do
                other -c $o x > b.gz; vekdc test b.gz && vekdc decompress -c b.gz | cmp - x || exit
            done
            (other -c x; vekdc compress -c x) | vekdc decompress | cmp - <(cat x x))");
        EXPECT_EQ(good(other + " -l a.gz | awk 'NR == 2 { print $2 }'"), "300000\n");
    }
    if (haveTool("pigz"))
        good(R"(pigz -zc x | vekdc decompress --format zlib | cmp - x &&
                vekdc compress --format zlib -c x | pigz -dc | cmp - x)");
}

TEST_F(Program, RefusesWhatItMustNotDo) {
    write("x", plain_);
    good("vekdc compress x; mkdir folder; ln x link; mkfifo fifo; cp x.gz strange");
    bad("vekdc compress x", "x.gz: File exists");
    bad("vekdc decompress x.gz", "x: File exists");
    bad("vekdc compress -o link x", "x: input and output are the same file");
    bad("vekdc compress --force -o x x", "x: input and output are the same file");
    bad("vekdc compress --stdout < x >> x", "standard input: input and output are the same file");
    bad("vekdc compress folder", "folder: Is a directory");
    bad("vekdc compress -o folder x", "folder: Is a directory");
    bad("vekdc compress absent", "absent: No such file or directory");
    bad("vekdc compress -o absent/y x", "absent/y: No such file or directory");
    bad("vekdc compress /proc/self/mem --stdout | cat; exit ${PIPESTATUS[0]}",
        "/proc/self/mem: Input/output error");
    bad("vekdc compress fifo", "fifo: not a regular file.*");
    bad("vekdc compress x.gz", "x.gz: already has a suffix.*");
    bad("vekdc decompress strange", "strange: unknown suffix.*");
    bad("vekdc decompress x -c", "x: byte 0: not in any format that vekdc knows");
    bad("vekdc decompress < /dev/null", "standard input: byte 0: the file is empty");
    if (geteuid() != 0) {
        good("cp x secret; chmod 0 secret");
        bad("vekdc compress secret", "secret: Permission denied");
    }
    // One bad file does not keep the others from being done.
    const Outcome outcome = run("cp x y; vekdc compress absent y");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(files().count("y.gz"), 1U);
}

TEST_F(Program, BrokenFilesLeaveNothing) {
    write("x", plain_);
    good(
        "vekdc compress x; rm x; head -c 5000 x.gz > cut.gz; cp x.gz bit.gz; printf '\\x55' | dd "
        "of=bit.gz bs=1 seek=4000 conv=notrunc status=none");
    good("head -c -6 x.gz > crc.gz; printf 'abcdef' >> crc.gz; (cat x.gz; echo more) > tail.gz");
    for (const std::string task : {"decompress", "test", "info"})
        bad("vekdc " + task + " cut.gz > /dev/null", "cut.gz: byte 5000: the file ends too early");
    bad("vekdc decompress --remove bit.gz", "bit.gz: byte [0-9]+: .*");
    bad("vekdc decompress crc.gz", "crc.gz: byte [0-9]+: the CRC-32 does not match");
    bad("vekdc test tail.gz", "tail.gz: byte [0-9]+: ignored what follows the gz data", 2);
    const Outcome warned =
        run("vekdc decompress --remove tail.gz; echo $?; vekdc test --quiet tail.gz; echo $?");
    EXPECT_EQ(warned.out, "2\n2\n");
    EXPECT_EQ(read("tail"), plain_);  // And the input is kept.
    const Outcome partial = run("vekdc decompress --keep-partial cut.gz");
    EXPECT_EQ(partial.status, 1);
    const Bytes kept = read("cut");
    EXPECT_GT(kept.size(), 1000U);
    EXPECT_TRUE(std::equal(kept.begin(), kept.end(), plain_.begin()));
}

TEST_F(Program, FullDisksClosedPipesAndLimits) {
    write("x", plain_);
    good("vekdc compress x");
    bad("vekdc compress -c x > /dev/full", "standard output: No space left on device");
    bad("vekdc decompress -o /dev/full x.gz", "/dev/full: No space left on device");
    bad("vekdc sum x > /dev/full", "standard output: No space left on device");
    bad("vekdc info x.gz > /dev/full", "standard output: No space left on device");
    bad("ulimit -f 20; vekdc decompress -o y x.gz", "y: File too large");
    EXPECT_EQ(
        run("vekdc decompress -c x.gz | head -c 10 > /dev/null; exit ${PIPESTATUS[0]}").status,
        128 + SIGPIPE);
    bad("trap '' PIPE; vekdc decompress -c x.gz | head -c 10 > /dev/null; exit ${PIPESTATUS[0]}",
        "standard output: Broken pipe");
}

TEST_F(Program, ASignalRemovesTheTemporary) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0) {
            signal(number, SIG_DFL);  // The tool leaves a signal alone that its caller ignores.
            dup2(ends[0], STDIN_FILENO);
            close(ends[0]);
            close(ends[1]);
            const std::string out = path("out.gz");
            execl(tool().c_str(), "vekdc", "compress", "-o", out.c_str(), nullptr);
            _exit(127);
        }
        close(ends[0]);
        while (files().empty()) usleep(1000);
        EXPECT_EQ(files().count("out.gz"), 0U);
        kill(child, number);
        int status = 0;
        waitpid(child, &status, 0);
        close(ends[1]);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number);
        EXPECT_TRUE(files().empty());
    }
}

TEST_F(Program, ProgressAndReports) {
    write("x", plain_);
    good("vekdc compress x");
    const std::string drawn = run("vekdc test --progress x.gz").err;
    EXPECT_TRUE(
        contains(drawn, "x\\.gz +[0-9]+% \\[#* *\\]  [0-9.]+ [kMGT]?B/s  [0-9]+:[0-9][0-9] left"))
        << drawn;
    EXPECT_TRUE(drawn.ends_with("\r\x1b[K"));
    EXPECT_TRUE(
        contains(run("vekdc test --progress < <(cat x.gz)").err, "standard input  [0-9.]+ kB  "));
    EXPECT_EQ(run("vekdc test --progress --quiet x.gz").err, "");
    EXPECT_TRUE(matches(run("vekdc test -v x.gz").err, "x.gz: good\n"));
    EXPECT_TRUE(matches(run("vekdc decompress -vo y x.gz").err,
                        "x.gz: [0-9]+ -> " + std::to_string(plain_.size()) + " bytes, .*/s\n"));
    const std::string info = good(
        "cat x.gz x.gz > m.gz; touch -d '2001-02-03 04:05:06 UTC' x; vekdc compress -fo n.gz x; "
        "cat n.gz >> m.gz; vekdc info m.gz");
    const std::string crc = vekdc::hex32(vekdc::codec::kCrc32.update(0, plain_));
    EXPECT_TRUE(contains(info, crc + "  2001-02-03 04:05:06 .*3 members")) << info;
    EXPECT_TRUE(contains(good("vekdc compress --format zlib -c x | vekdc info"),
                         "uncompressed " + std::to_string(plain_.size())));
    EXPECT_TRUE(contains(good("vekdc --version"), "vekDC"));
}

TEST_F(Program, Terminals) {
    if (run("script -qec true /dev/null && echo made").out.find("made") == std::string::npos)
        GTEST_SKIP() << "no pseudo-terminals on this machine, or no script command";
    write("x", plain_);
    const auto onTerminal = [&](const std::string& command) {
        return run("script -qec '" + command + "' /dev/null").out;
    };
    EXPECT_TRUE(contains(onTerminal(tool() + " compress -c x"), "is not written to a terminal"));
    EXPECT_FALSE(contains(onTerminal(tool() + " compress -fc x"), "is not written to a terminal"));
    // Progress shows by itself there, once the work has gone on for a moment.
    const std::string slow = "(cat x; sleep 0.5; cat x) | " + tool() + " compress -o y.gz";
    EXPECT_TRUE(contains(onTerminal(slow), "standard input  [0-9.]+ kB  "));
    EXPECT_FALSE(contains(onTerminal(slow + " --force --quiet"), "standard input"));
}

TEST_F(Program, Sums) {
    good("printf 123456789 > nine");
    EXPECT_EQ(good("vekdc sum nine"), "cbf43926  nine\n");
    EXPECT_EQ(good("vekdc sum -a crc32c - < nine"), "e3069283  -\n");
    EXPECT_EQ(good("vekdc sum -a bzip2 nine"), "fc891918  nine\n");
    EXPECT_EQ(good("vekdc sum --algorithm adler32 nine nine"), "091e01de  nine\n091e01de  nine\n");
    good("vekdc sum nine > list; vekdc sum --check --quiet list");
    EXPECT_EQ(run("echo x >> nine; vekdc sum --check list; echo $?").out, "nine: FAILED\n1\n");
    bad("echo junk | vekdc sum --check", "standard input: a line is not .*");
    bad("vekdc sum absent", "absent: No such file or directory");
}

TEST_F(Program, LevelsMeanWhatTheySay) {
    write("x", shapes()[4].make(300000, 4));
    const auto size = [&](const std::string& options) {
        return std::stoul(good("vekdc compress -c " + options + " x | wc -c"));
    };
    EXPECT_EQ(good("vekdc compress -c x | cksum"), good("vekdc compress -6 -c x | cksum"));
    EXPECT_EQ(size("-1 -9"), size("-9"));
    EXPECT_LT(size("-9"), size("-1"));
    EXPECT_LT(size("-1"), size("--fastest"));
    EXPECT_LT(size("--fastest"), 300000);
    EXPECT_LT(size("-6 -j 3"), size("-6") * 101 / 100 + 50);
}

TEST_F(Program, CommandLineMistakes) {
    write("x", plain_);
    for (const char* command :
         {"vekdc", "vekdc squash x", "vekdc compress --level 3 x", "vekdc compress -j 257 x",
          "vekdc compress --format rar x", "vekdc sum -a md5 x", "vekdc compress -c -o y x",
          "vekdc compress -k --remove x", "vekdc compress -o y x x"})
        bad(command, ".*\\(see vekdc --help\\)");
}

// What a job may take in all: buffers, tables and stacks, of a long input.
TEST_F(Program, MemoryIsBounded) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer takes more";
#endif
    good("head -c 30000000 /dev/zero > long; vekdc compress -9 long");
    for (const auto& [command, jobs] : {std::pair{"compress -c -9 long", 1},
                                        {"compress -c -1 -j 3 long", 3},
                                        {"decompress -c long.gz", 1}})
        good("ulimit -s 512 -d " + std::to_string(16384 * jobs) + "; vekdc " + command +
             " > /dev/null");
    bad("ulimit -d 400; vekdc compress -c long > /dev/null", ".*(out of memory|bad_alloc)");
}

}  // namespace
