// The tool: its formats in memory against zlib, and the built program as a user runs it.
#include <signal.h>
#include <unistd.h>

#include "codec/checksums.h"
#include "support/tool.h"
#include "tools/vekdc/io/pipeline.h"

#ifdef VEK_HAS_zlib
#include "support/zlib_peer.h"
#endif

namespace {

using vekdc::Settings;
using namespace vektest;

// --- formats in memory --------------------------------------------------------------------------

#ifdef VEK_HAS_zlib
TEST(Formats, ZlibReadsWhatTheyWrite) {
    for (const auto& [name, plain] : everyShape({0, 1, 300, 70000, 1200000}))
        for (const int level : {0, 1, 4, 6, 9}) {
            // The longest ones show the seams between blocks; two levels are enough for that.
            if (plain.size() > 100000 && level != 0 && level != 6) continue;
            for (const unsigned jobs : {1U, 3U}) {
                SCOPED_TRACE(testing::Message() << name << " level " << level << " jobs " << jobs);
                const Settings settings = settingsOf(level, jobs);
                const Bytes gz = compress(format("gz"), plain, settings);
                EXPECT_EQ(zlibInflate(gz, 15 + kGzipMode, plain.size()), plain);
                EXPECT_EQ(decompress(format("gz"), gz), plain);
                EXPECT_LE(gz.size(), plain.size() + plain.size() / 1000 + 64);
                const Bytes zlib = compress(format("zlib"), plain, settings);
                EXPECT_EQ(zlibInflate(zlib, 15, plain.size()), plain);
            }
        }
}
#endif

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

TEST(Formats, GzMembersAndPadding) {
    const Bytes plain = sample(2000);
    const Bytes member = compress(format("gz"), plain);
    // The second one has every optional header field; its checksum is known to be good.
    const Bytes fields = {0x1F, 0x8B, 8, 30, 1, 2, 3, 4, 0, 255, 5, 0, 'x', 'y', 1, 0, 'z', 'n', 0};
    Bytes all = fields + Bytes(70000, 'c') + Bytes{0};
    const uint32_t crc = vekdc::codec::kCrc32.update(0, all);
    all = member + all + Bytes{static_cast<uint8_t>(crc), static_cast<uint8_t>(crc >> 8)} +
          part(member, 10);
    const Bytes padded = all + Bytes(5000, 0);
    EXPECT_EQ(decode(format("gz"), padded + all), (Decoded{plain + plain + plain + plain, "", ""}));
    EXPECT_EQ(decode(format("gz"), padded), (Decoded{plain + plain, "", ""}));
    EXPECT_EQ(decode(format("gz"), all + Bytes{'g', 'a'}).warning,
              "byte " + std::to_string(all.size()) + ": ignored what follows the gz data");
}

TEST(Pipeline, PassesFailuresOnInTheirTurn) {
    for (const unsigned threads : {1U, 2U, 5U}) {
        int next = 0;
        std::vector<int> seen, before(31);
        std::iota(before.begin(), before.end(), 0);
        const auto work = [](int block, unsigned) {
            if (block == 31) throw std::runtime_error("block 31");
            if (block % 7 == 0) std::this_thread::yield();
        };
        EXPECT_THROW(vekdc::orderedPipeline<int>(
                         threads, [&](int& block) { return block = next, next++ < 100; }, work,
                         [&](int block) { seen.push_back(block); }),
                     std::runtime_error);
        EXPECT_EQ(seen, before);
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
    good("vekdc compress x; mkdir folder; ln x link; ln -s x soft; mkfifo fifo; cp x.gz strange");
    bad("vekdc compress soft", "soft: Too many levels of symbolic links");
    bad("vekdc link", "link: left alone, as it has 1 other name.*", 2);
    good("rm link; ln -s x link");
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
    // What whoever runs the tests ignores, children would ignore too.
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) signal(number, SIG_DFL);
    good("mkfifo fifo");
    for (const std::string name : {"INT", "TERM", "HUP", "QUIT"}) {
        // With jobs of their own, for the tool leaves a signal alone that its caller ignores.
        const Outcome outcome =
            run("set -m; vekdc compress -o out.gz < fifo & exec 3> fifo; "
                "until [ $(ls -A | wc -l) = 2 ]; do sleep 0.01; done; [ ! -e out.gz ] || exit; "
                "kill -" +
                name + " $!; wait $!; kill -l $?");
        EXPECT_EQ(outcome.out, name + "\n") << outcome.err;
        ASSERT_EQ(files(), std::set<std::string>{"fifo"});
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
    EXPECT_TRUE(matches(good("vekdc --version"), "vekdc " VEK_PROJECT_VERSION ".*\nvekDC .*\n"));
}

// One case a fault that there was. Each succeeds, in silence.
TEST_F(Program, OldFaultsStayAway) {
    write("x", plain_);
    good("vekdc compress x; head -c 12 x.gz > cut.gz; printf 123456789 > $'a\\e[1mb\nc'");
    for (const char* command :
         {"ln -s /dev/stdout out; vekdc decompress -fo out x.gz > y; [ -L out ] && cmp x y",
          "(echo 1; vekdc decompress -fo /dev/fd/3 x.gz 3>&1) >> z; cmp <(echo 1; cat x) z",
          "ln -s /dev/null null; vekdc decompress -fo null x.gz; [ -L null ]",
          "vekdc decompress --keep-partial cut.gz 2> /dev/null; [ $? = 1 ] && [ ! -e cut ]",
          "vekdc compress -v $'a\\e[1mb\nc' 2>&1 | grep -q '^a?.1mb?c: 9 -> '",
          "vekdc sum $'a\\e[1mb\nc' | grep -q '^.cbf43926  a.*\\\\nc$'"})
        good(command);
    for (const char* option : {"--help", "--version", "compress --help"})
        bad("vekdc " + std::string(option) + " > /dev/full",
            "standard output: No space left on device");
    bad("vekdc compress -c x >&-", "standard output: Bad file descriptor");
    bad("vekdc compress -c <&-", "standard input: Bad file descriptor");
    bad("vekdc compress --format lz4 --dict . -c x", "\\.: Is a directory");
    bad("vekdc compress --format lz4 --dict absent -c x", "absent: No such file or directory");
}

// What another user than the owner of the input makes is for that user, and for nobody who could
// not read the input; a file that this user may write is written where its folder may not be.
TEST_F(Program, OutputsOfAnotherUser) {
    if (geteuid() != 0 || !haveTool("setpriv")) GTEST_SKIP() << "only root becomes another user";
    const std::string other = "setpriv --reuid 65534 --regid 65534 --clear-groups ";
    if (run(other + tool() + " --version").status != 0) GTEST_SKIP() << "it cannot run the tool";
    write("x", plain_);
    good("chmod 711 ..; mkdir -m 777 open; mkdir closed; chmod 755 . closed");
    for (const auto& [mode, expected] : {std::pair{"0644", "644"},
                                         {"0664", "644"},
                                         {"0604", "604"},
                                         {"0004", "604"},
                                         {"0755", "755"}})
        EXPECT_EQ(good("chmod " + std::string(mode) + " x; " + other + tool() +
                       " compress -fo open/y x; stat -c %a open/y"),
                  expected + std::string("\n"));
    good("chmod 644 x; echo old > closed/y; chmod 666 closed/y; " + other + tool() +
         " compress -fo closed/y x; vekdc decompress -c closed/y | cmp - x");
    EXPECT_EQ(run(other + tool() + " compress -fo closed/z x").status, 1);
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
    EXPECT_TRUE(contains(onTerminal(tool() + " -d"), "is not read from a terminal"));
    // Names cannot move the cursor, and files in the way are asked about.
    EXPECT_TRUE(
        contains(onTerminal("cp x a$(printf \"\\033\")b; " + tool() + " sum a*b"), "  a\\?b"));
    good("echo old > x.gz");
    EXPECT_TRUE(
        contains(run("echo n | script -qec '" + tool() + " x' /dev/null").out, "exists; replace"));
    EXPECT_EQ(text("x.gz"), "old\n");
    run("echo y | script -qec '" + tool() + " x' /dev/null");
    good("vekdc -t x.gz");
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
    good("vekdc sum nine > list; vekdc sum -c --quiet list");
    EXPECT_EQ(run("echo x >> nine; vekdc sum --check list; echo $?").out, "nine: FAILED\n1\n");
    bad("echo junk | vekdc sum --check", "standard input: holds no line .*");
    bad("vekdc sum --check < /dev/null", "standard input: holds no line .*");
    bad("vekdc sum absent", "absent: No such file or directory");
    // Lists as other checksum tools write and read them.
    good(R"(printf 123456789 > $'a\nb\\'; printf 123456789 > 'c (d) = e')");
    EXPECT_EQ(good("vekdc sum --tag -a CRC32C a* c\\ *"),
              "\\CRC32C (a\\nb\\\\) = e3069283\nCRC32C (c (d) = e) = e3069283\n");
    for (const char* options : {"", "--tag", "-a adler32 --tag"})
        good("vekdc sum " + std::string(options) +
             " a* c\\ * > list; sed 's/$/\\r/' list > crlf; vekdc sum --check -q list crlf");
    good("echo 'CBF43926 *c (d) = e' | vekdc sum --check -q");
    bad("(echo junk; echo cbf43926; vekdc sum a*; echo 'MD5 (x) = cbf43926') | vekdc sum --check "
        "-q",
        "standard input: 3 lines are no checksum and name", 2);
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
         {"vekdc compress --level 3 x", "vekdc compress -j 257 x", "vekdc -T1Ki x",
          "vekdc sum -a md5 x", "vekdc compress -c -o y x", "vekdc compress -k --remove x",
          "vekdc compress -o y x x", "vekdc -nN x", "vekdc -c --output-dir d x"})
        bad(command, ".*\\(see vekdc --help\\)");
    for (const auto& [command, complaint] :
         {std::pair{"vekdc compres x", "compres is neither .* did you mean compress\\?"},
          {"vekdc decompres x", "decompres is neither .* did you mean decompress\\?"},
          {"vekdc qqqqqq", "qqqqqq is neither a command nor a file"},
          {"vekdc help tset", "tset is no command; did you mean test\\?"},
          {"vekdc -0 x", "-0 is no level; they are -1 to -9"},
          {"vekdc -c -12 x", "-12 is no level; .*"},
          {"vekdc --format rar x", "there is no format rar, only .*"},
          {"vekdc --format '' x", "--format takes a name, .*"},
          {"vekdc -o '' x", "--output takes a name, which is empty here"},
          {"vekdc -S '' x", "--suffix takes a name, .*"},
          {"vekdc -S a/b x", "--suffix takes no name with a slash"}})
        bad(command, complaint + std::string(" \\(see vekdc --help\\)"));
    for (const auto& [command, complaint] :
         {std::pair{"vekdc -c --dict x x", "--dict is an option of lz4, not of gz"},
          {"vekdc -c --format lz4 --rsyncable x", "--rsyncable is an option of gz, not of lz4"},
          {"vekdc -o y.lz4 --crc32 x", "--crc32 is an option of lzo, not of lz4"},
          {"vekdc --fast=3 -c x", "--fast is an option of lz4, not of gz"},
          {"vgzip -o y.bz2 x", "the output's suffix is that of bz2; use --format .*"},
          {"vekdc -dc < x", "byte 0: not in any format that vekdc knows"}})
        bad(command, "(x|standard input): " + std::string(complaint));
}

// What users of gzip and its like have in their fingers. Each line succeeds in silence, with x
// there when it begins.
TEST_F(Program, Habits) {
    for (
        const char* command : {
            // Without a command.
            "vekdc x; vekdc -t x.gz; vekdc -dc x.gz | cmp - x; vekdc -l x.gz | grep -q crc-32",
            "vekdc -k9 x; vekdc -fd x.gz; vekdc -z -c x | vekdc -d | cmp - x",
            "[ $(vekdc -nc --best x | wc -c) -lt $(vekdc -9c < x | wc -c) ]",
            "cmp <(vekdc -nc --fast x) <(vekdc -1 --no-name --to-stdout x)",
            "cmp <(vekdc -nc --fastest -9 x) <(vekdc -n9c x)",
            "vekdc --format lz4 --fast 1k -c x | cmp - <(vekdc compress --format lz4 --fast=1024 "
            "-c x)",
            "for n in 1 5; do vekdc --format lz4 -9 --fast=$n -c x; done | cmp - <(vekdc --format "
            "lz4 -1 -c x; vekdc --format lz4 -1 --fast=5 -c x)",
            "[ $(vekdc --format lz4 --fast=5 -c x | wc -c) -gt $(vekdc --format lz4 -1c x | wc -c) "
            "]",
            "vekdc --rm x; [ ! -e x ]; vekdc -d --rm x.gz; [ ! -e x.gz ]; [ -e x ]",
            "vekdc -T2 -S .Z9 x; mv x y; vekdc -d -S .z9 x.Z9; cmp x y",
            "tar -I vekdc -cf t.tgz x; cp x y; rm x; tar -I vekdc -xf t.tgz; cmp x y",
            "vekdc help | grep -q -- --output-dir; vekdc help help | grep -q -- -T; vekdc help sum "
            "| grep -q -- --check",
            "vekdc -h | grep -q 'vekdc decompress'; vekdc -V | grep -q vekDC",
            "cp x -- -9; vekdc -- -9; vekdc -c -- -9.gz | vekdc -dc | vekdc -d | cmp - x",
            // By the names of links.
            "cp x y; vgzip x; [ ! -e x ]; vgzcat x.gz | cmp - y; vgunzip x.gz; [ ! -e x.gz ]",
            "cp x y; vbzip2 x; vbzcat x | cmp - y; vbunzip2 x; vbzip2 -k x; vbzcat x.bz2 | cmp - "
            "y; rm x; vbunzip2 x.bz2; cmp x y",
            "vbzip2 -1 -T2 x; cp x.bz2 z.tbz2; vekdc -tT2 z.tbz2; vekdc -d -T2 x.bz2 z.tbz2; cmp x "
            "z.tar",
            "vlz4 x; [ -e x ]; vlz4cat x.lz4 | cmp - x; mv x y; vunlz4 x.lz4; cmp x y",
            // Names, formats and numbers.
            "vekdc --format gzip -o y x; vekdc --format .GZ -o - x | vekdc -d | cmp - x",
            "vekdc -o X.BZ2 x; head -c 3 X.BZ2 | grep -q BZh; vekdc -d X.BZ2; cmp X x",
            "vekdc --format gz -o y.bz2 x; vekdc -l y.bz2 | grep -q gzip",
            "for s in 64K 64k 64KiB 65536 1M 1mib; do vekdc --format lz4 --block-size $s -c x; "
            "done "
            "| vekdc -t",
            // Links, folders and what is not compressed.
            "ln -s x l; ln x h; vekdc -f l; vekdc -f h; vekdc -dc l.gz h.gz | cmp - <(cat x x)",
            "vekdc -cdf x | cmp - x; (vekdc -c x | vgzcat -f; vgzcat -f < x) | cmp - <(cat x x)",
            "mkdir -p d/e; cp x d/a; cp x d/e/b; ln -s ../x d/l; vekdc -r d/.; "
            "[ \"$(cd d; echo * e/*)\" = 'a a.gz e l e/b e/b.gz' ]; rm d/a d/e/b; vekdc -dr d; "
            "cmp d/e/b x; cmp d/a x",
            "mkdir -p d/e; cp x d/e/b; vekdc -nr --output-dir o/p d x; cmp o/p/x.gz o/p/d/e/b.gz; "
            "vekdc -dr --output-dir q o/p/d; cmp q/d/e/b x",
            // Zeros take no room.
            "(cat x; head -c 9000000 /dev/zero; cat x; head -c 5000000 /dev/zero) > y; vekdc y; "
            "vekdc -d -o z y.gz; cmp y z; [ $(du -k z | cut -f 1) -lt 1000 ]; "
            "vekdc -fd --no-sparse y.gz; cmp y z; [ $(du -k y | cut -f 1) -gt 9000 ]",
            // Behind a change at the front, the same comes out.
            "for i in 1 2 3 4; do cat x; done > y; vekdc -nc --rsyncable y > a; "
            "vekdc -nc --rsyncable -j 3 y | cmp a; vekdc -dc a | cmp - y; "
            "end() { tail -c $(($(wc -c < a) * 3 / 4)) | head -c -8; }; "
            "(echo; cat y) | vekdc -nc --rsyncable | end | cmp - <(end < a)",
            // Names and times that are stored.
            "touch -d @1000000000 x; vekdc -o y.gz x; touch y.gz; mv x z; vekdc -dN y.gz; cmp x z; "
            "[ $(stat -c %Y x) = 1000000000 ]",
            "vekdc -n -o y.gz x; vekdc -dN y.gz; cmp x y",
            "mkdir d; cp x d/a; echo b > d/b; vekdc --format lzo -c d/a d/b > d/y.lzo; "
            "vekdc -dc d/y.lzo | cmp - <(cat x d/b); for o in -N -f; do rm d/[ab]; "
            "vekdc -d $o d/y.lzo; cmp d/a x; grep -q b d/b; [ ! -e d/y ]; done",
            "vekdc --format lzo -nc x x | vekdc -d | cmp - <(cat x x); vekdc --format lzo -o y.lzo "
            "x; vekdc -d y.lzo; cmp x y",
        }) {
        write("x", plain_);
        good("set -e; " + std::string(command));
        good("rm -rf -- *");
    }
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
