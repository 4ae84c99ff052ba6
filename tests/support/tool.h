// What the tests of the tool share: its formats in memory, and the built program as a user runs it.
#pragma once

#include <regex.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "support/test.h"
#include "tools/vekdc/formats/format.h"

namespace vektest {

/// Whether an extended regular expression fits some part of the text.
inline bool contains(const std::string& text, const std::string& pattern) {
    regex_t compiled;
    if (regcomp(&compiled, pattern.c_str(), REG_EXTENDED | REG_NOSUB) != 0)
        throw std::runtime_error("bad pattern " + pattern);
    const bool found = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return found;
}

/// Whether it fits all of it.
inline bool matches(const std::string& text, const std::string& pattern) {
    return contains(text, "^(" + pattern + ")$");
}

inline bool haveTool(const std::string& name) {
    return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

inline Bytes bytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

/// Gives out its bytes in pieces of at most `piece`.
class Dripping : public vekdc::Reader {
 public:
    Dripping(const Bytes& bytes, size_t piece) : bytes_(bytes), piece_(piece) {}
    size_t read(uint8_t* to, size_t room) override {
        const size_t count = std::min({room, piece_, bytes_.size() - at_});
        std::copy_n(bytes_.data() + at_, count, to);
        at_ += count;
        return count;
    }

 private:
    const Bytes& bytes_;
    size_t piece_, at_ = 0;
};

inline const vekdc::Format& format(const std::string& name) {
    return *vekdc::formatByName(name);
}

inline Bytes compress(const vekdc::Format& format, const Bytes& plain,
                      const vekdc::Settings& settings = {}) {
    vekdc::Source source(plain);
    vekdc::MemorySink sink;
    format.compress(source, sink, settings);
    return sink.data;
}

inline Bytes decompress(const vekdc::Format& format, const Bytes& packed,
                        const vekdc::Settings& settings = {}) {
    vekdc::Source source(packed);
    vekdc::MemorySink sink;
    format.decompress(source, sink, settings);
    return sink.data;
}

/// What decompressing a file comes to.
struct Decoded {
    Bytes plain;
    std::string complaint;  ///< Why it is refused, "OFFSET: REASON"; empty: it is not.
    std::string warning;
    bool operator==(const Decoded&) const = default;
};

inline Decoded decode(const vekdc::Format& format, vekdc::Source& source,
                      vekdc::Settings settings = {}) {
    Decoded decoded;
    vekdc::MemorySink sink;
    settings.warn = [&](const std::string& text) { decoded.warning += text; };
    try {
        format.decompress(source, sink, settings);
    } catch (const vekdc::FormatError& error) {
        decoded.complaint = std::to_string(error.offset) + ": " + error.what();
    }
    decoded.plain = std::move(sink.data);
    return decoded;
}

inline Decoded decode(const vekdc::Format& format, const Bytes& packed) {
    vekdc::Source source(packed);
    return decode(format, source);
}

inline std::string complaint(const vekdc::Format& format, const Bytes& packed) {
    return decode(format, packed).complaint;
}

/// Files with a pattern each of how what is said of it begins.
using Complaints = std::vector<std::pair<Bytes, std::string>>;

inline void expectComplaints(const vekdc::Format& format, const Complaints& cases) {
    for (const auto& [file, start] : cases) {
        const std::string text = complaint(format, file);
        EXPECT_TRUE(contains(text, "^(" + start + ")")) << "\"" << text << "\", not " << start;
    }
}

/// The lines that info prints.
inline std::string info(const vekdc::Format& format, const Bytes& packed,
                        const vekdc::Settings& settings = {}) {
    std::string lines;
    vekdc::Source source(packed);
    format.describe(source, settings, [&](const std::string& line) { lines += line + "\n"; });
    return lines;
}

using Options = std::map<std::string, std::string>;

/// The level as Settings::setLevel() takes it; `own` are the format's own options.
inline vekdc::Settings settingsOf(int level, unsigned jobs = 1, const Options& own = {}) {
    vekdc::Settings settings;
    settings.setLevel(level);
    settings.jobs = jobs;
    settings.name = "name";
    settings.own = own;
    return settings;
}

/// Runs the built program by bash in a folder of its own, which must hold exactly the expected
/// files afterwards: nothing half-written, no temporary.
class Program : public testing::Test {
 protected:
    struct Outcome {
        int status;
        std::string out, err;
    };

    void SetUp() override {
        root_ = std::filesystem::temp_directory_path() / "vekdc-test-XXXXXX";
        ASSERT_NE(mkdtemp(root_.data()), nullptr);
        folder_ = root_ + "/work";
        ASSERT_EQ(mkdir(folder_.c_str(), 0700), 0);
        plain_ = sample(300000);
    }
    void TearDown() override {
        EXPECT_EQ(std::system(("chmod -R u+rwx " + root_ + " && rm -rf " + root_).c_str()), 0);
    }

    /// Runs a bash command line in the folder; `vekdc` and its links are the program under test.
    Outcome run(const std::string& command) {
        const std::string script =
            "PATH=" VEK_BUILD_DIR "/bin:$PATH; cd " + folder_ + "; " + command;
        write("../script", Bytes(script.begin(), script.end()));
        const int status = std::system(
            ("bash " + root_ + "/script >" + root_ + "/out 2>" + root_ + "/err </dev/null")
                .c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), text("../out"),
                text("../err")};
    }

    /// Runs a command line that must succeed in silence on standard error.
    std::string good(const std::string& command) {
        const Outcome outcome = run(command);
        EXPECT_EQ(outcome.status, 0) << command << "\n" << outcome.err;
        EXPECT_EQ(outcome.err, "") << command;
        return outcome.out;
    }

    /// Runs one that must fail with one line that fits the pattern, and no file more or less.
    void bad(const std::string& command, const std::string& pattern, int status = 1) {
        const auto before = files();
        const Outcome outcome = run(command);
        EXPECT_EQ(outcome.status, status) << command << "\n" << outcome.err;
        EXPECT_TRUE(matches(outcome.err, "vekdc: " + pattern + "\n")) << command << "\n"
                                                                      << outcome.err;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
        EXPECT_EQ(files(), before) << command;
    }

    static std::string tool() { return VEK_BUILD_DIR "/bin/vekdc"; }
    std::string path(const std::string& name) const { return folder_ + "/" + name; }

    void write(const std::string& name, const Bytes& bytes) const {
        std::ofstream(path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }
    std::string text(const std::string& name) const {
        std::ostringstream out;
        out << std::ifstream(path(name), std::ios::binary).rdbuf();
        return out.str();
    }
    Bytes read(const std::string& name) const {
        const std::string all = text(name);
        return {all.begin(), all.end()};
    }
    std::set<std::string> files() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder_))
            names.insert(entry.path().filename());
        return names;
    }

    std::string root_, folder_;
    Bytes plain_;
};

}  // namespace vektest
