// The tool's commands beside compression: other programs, measurements, what shells complete.
#include "support/tool.h"

namespace {

using namespace vektest;

// Each line succeeds in silence. The tool is copied, so that only folders made here lie beside it.
TEST_F(Program, RunsOthersWithTheDropIns) {
    good("mkdir -p p/bin q; cp -L $(command -v vekdc) p/bin; ln -s ../p/bin/vekdc q/v");
    bad("q/v run true", "run: there are no drop-in libraries beside /.*/p/bin");
    bad("q/v run", "PROGRAM is required.*");
    for (const char* command : {
             "[ $(unset LD_LIBRARY_PATH; q/v run printenv LD_LIBRARY_PATH) = $i:$n ]",
             "[ $(LD_LIBRARY_PATH=a:b q/v run printenv LD_LIBRARY_PATH) = $i:$n:a:b ]",
             "[ \"$(q/v run echo -12 --fast --help -- x)\" = '-12 --fast --help -- x' ]",
             "echo 1 >'[x,y]'; vekdc '[x,y]'; [ $(q/v run -- vekdc -dc '[x,y].gz') = 1 ]",
             "[ \"$(q/v run -- echo run)\" = run ]; q/v run --help | grep -q PROGRAM",
             "! q/v run sh -c 'exit 7' || exit 1; q/v run sh -c 'exit 7' || [ $? = 7 ]",
             // It inherits neither what the tool does with signals nor its stand-ins for what is
             // closed.
             "diff <(grep Sig[IB] /proc/self/status) <(q/v run grep Sig[IB] /proc/self/status)",
             "q/v run sh -c '[ ! -e /proc/$$/fd/0 ]' <&-",
         })
        good("set -e; i=$PWD/p/lib/i386-linux-gnu/vekdc; n=$PWD/p/lib32/vekdc; mkdir -p $i $n; " +
             std::string(command));
    bad("q/v run q/none", "q/none: No such file or directory", 127);
    bad("q/v run /", "/: Permission denied", 126);
}

TEST_F(Program, ComparesFormatsOnFiles) {
    write("x", plain_);
    good("touch empty there.png");
    // The same file at each level: a line each with the same figures.
    const std::string csv = good("vekdc bench --format lzss --csv x");
    const std::string size = good("echo -n $(vekdc --format lzss -nc x | wc -c)");
    EXPECT_TRUE(matches(csv, "file,format[^\n]*\n(\"x\",lzss,(fastest|[1-9]|best),300000," + size +
                                 ",[0-9.]+,[0-9.]+,[0-9.]+\n){11}"))
        << csv;
    const std::string table = good("vekdc bench --format zfp --dims 50x50x30 x");
    EXPECT_TRUE(contains(table, "\nx +zfp +rate 16 +173[0-9]{3} .*\nzfp +rate 4 +###  .*14\\."))
        << table;
    bad("vekdc bench --plot there.png x", "there.png: exists already .*");
    bad("vekdc bench empty", "empty: there is nothing to measure in an empty file", 2);
    bad("vekdc bench --format lz4 --csv none", "none: No such file or directory");
    if (haveTool("gnuplot")) {
        good(
            "vekdc bench --format lzss --plot there.png -f x; vekdc bench --format lzss --plot "
            "p.svg x");
        EXPECT_TRUE(contains(text("there.png"), "^.PNG") && contains(text("p.svg"), "lzss"));
    }
}

TEST_F(Program, TellsShellsItsWords) {
    for (const char* shell : {"bash", "zsh", "fish"})
        if (haveTool(shell)) good(std::string("vekdc completion ") + shell + " | " + shell + " -n");
    good("vekdc completion zsh | grep -qF ']:NAME:(crc32 crc32c bzip2 adler32)'");
    good("touch file; mkdir folder");
    for (const auto& [words, replies] : {std::pair{"vekdc comp", "completion compress"},
                                         {"vekdc f", "file folder"},
                                         {"vekdc compress --rem", "--remove"},
                                         {"vekdc decompress --keep-p", "--keep-partial"},
                                         {"vekdc info --format l", "lz4 lzo lzss"},
                                         {"vekdc --format = z", "zfp zlib"},
                                         {"vekdc compress --output-dir f", "folder"},
                                         {"vekdc sum -a cr", "crc32 crc32c"},
                                         {"vekdc help ru", "run"},
                                         {"vekdc completion f", "fish"},
                                         {"vekdc run vekd", "vekdc"},
                                         {"vgzip comp", ""},
                                         {"vgzip --be", "--best"}})
        EXPECT_EQ(good("source <(vekdc completion bash); COMP_WORDS=(" + std::string(words) +
                       "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _vekdc $COMP_WORDS "
                       "${COMP_WORDS[COMP_CWORD]} ${COMP_WORDS[COMP_CWORD - 1]}; echo -n "
                       "$(printf '%s\\n' ${COMPREPLY[@]} | sort -u)"),
                  replies)
            << words;
    bad("vekdc completion tcsh", "SHELL: tcsh not in \\{.*");
}

}  // namespace
