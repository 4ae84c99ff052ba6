// vekdc demo: all formats over generated samples and the user's files, in memory. What is made is
// read back by the tool itself and, where it is installed, by the format's own program.
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>

#include "tools/vekdc/app/chart.h"
#include "tools/vekdc/app/measure.h"
#include "tools/vekdc/app/work.h"
#include "tools/vekdc/io/files.h"

namespace vekdc {
namespace {

constexpr size_t kSize = 2 << 20;
constexpr size_t kSide = 80;  // Of the cube of floats: about as large as the others.

// --- samples -------------------------------------------------------------------------------------

struct Sample {
    std::string name;
    std::vector<uint8_t> data;
    bool isField = false;
};

void append(std::vector<uint8_t>& to, const std::string& text) {
    to.insert(to.end(), text.begin(), text.end());
}

// Words of a small language, drawn so that few are frequent and many are rare.
std::vector<uint8_t> makeText() {
    std::minstd_rand random(1);
    std::vector<std::string> words(4000);
    for (std::string& word : words)
        for (size_t n = 2 + random() % 8; n != 0; --n)
            word += static_cast<char>("etaoinshrdlucmfw"[random() % 16]);
    std::vector<uint8_t> data;
    while (data.size() < kSize) {
        const size_t range = size_t{1} << (random() % 12);
        append(data, words[random() % range] + (random() % 12 == 0 ? ".\n" : " "));
    }
    return data;
}

std::vector<uint8_t> makeRecords() {
    std::minstd_rand random(2);
    std::vector<uint8_t> data;
    for (uint32_t id = 1; data.size() < kSize; ++id)
        append(data, std::to_string(id) + (random() % 4 == 0 ? ";closed;" : ";open;") +
                         std::to_string(random() % 90000) + ";EUR\n");
    return data;
}

std::vector<uint8_t> makeRandom() {
    std::minstd_rand random(3);
    std::vector<uint8_t> data(kSize / 2);
    for (uint8_t& byte : data) byte = static_cast<uint8_t>(random() >> 8);
    return data;
}

// A smooth field with a little noise, as measurements and simulations have.
std::vector<uint8_t> makeField() {
    std::minstd_rand random(4);
    std::vector<uint8_t> data;
    data.reserve(kSide * kSide * kSide * sizeof(float));
    const auto part = [](size_t at) { return static_cast<float>(at % kSide) / kSide; };
    for (size_t i = 0; i < kSide * kSide * kSide; ++i) {
        const float x = part(i);
        const float y = part(i / kSide);
        const float z = part(i / (kSide * kSide));
        const float noise = static_cast<float>(random() % 1000) * 1e-6F;
        const float value = x * (1 - x) * 4 + y * y * z - z * z * (1 - y) + noise;
        const auto* bytes = reinterpret_cast<const uint8_t*>(&value);
        data.insert(data.end(), bytes, bytes + sizeof value);
    }
    return data;
}

// --- the formats' own programs -------------------------------------------------------------------

struct OtherTool {
    const char* format;
    const char* program;
    const char* options;  ///< To decompress standard input to standard output.
};

constexpr std::array kOtherTools = {
    OtherTool{"gz", "gzip", "-dc"},   OtherTool{"bz2", "bzip2", "-dc"},
    OtherTool{"lz4", "lz4", "-dc"},   OtherTool{"lzo", "lzop", "-dc"},
    OtherTool{"zlib", "pigz", "-dc"}, OtherTool{"zfp", "zfp", "-q -h -z - -o -"}};

class TemporaryFile {
 public:
    explicit TemporaryFile(Bytes content)
        : path_((std::filesystem::temp_directory_path() / "vekdc-demo-XXXXXX").string()) {
        const int descriptor = mkstemp(path_.data());
        if (descriptor < 0) throw SystemFailure(path_, errno);
        const bool written = write(descriptor, content.data(), content.size()) ==
                             static_cast<ssize_t>(content.size());
        const int error = errno;
        close(descriptor);
        if (written) return;
        std::filesystem::remove(path_);
        throw SystemFailure(path_, error);
    }
    ~TemporaryFile() {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    const std::string& path() const { return path_; }

 private:
    std::string path_;
};

// Whether a command writes these bytes and ends well.
bool writes(const std::string& command, Bytes expected) {
    std::FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return false;
    std::vector<uint8_t> piece(Source::kRoom);
    bool same = true;
    size_t at = 0;
    while (const size_t count = std::fread(piece.data(), 1, piece.size(), pipe)) {
        same = same && count <= expected.size() - at &&
               std::equal(piece.begin(), piece.begin() + static_cast<ptrdiff_t>(count),
                          expected.begin() + static_cast<ptrdiff_t>(at));
        at += same ? count : 0;
    }
    return pclose(pipe) == 0 && same && at == expected.size();
}

bool isInstalled(const char* program) {
    return std::system(("command -v " + std::string(program) + " >/dev/null 2>&1").c_str()) == 0;
}

// The program that may verify a format; null where there is none here.
const OtherTool* otherToolFor(const std::string& format) {
    for (const OtherTool& other : kOtherTools)
        if (format == other.format && isInstalled(other.program)) return &other;
    return nullptr;
}

void verify(const OtherTool& other, Bytes packed, Bytes back) {
    const TemporaryFile file(packed);
    setenv("VEKDC_DEMO", file.path().c_str(), 1);  // No name is a part of what the shell reads.
    if (!writes(std::string(other.program) + " " + other.options + " <\"$VEKDC_DEMO\"", back))
        throw Failure(std::string(other.program) + " reads something else from the " +
                      other.format + " file");
}

std::vector<Sample> samplesWith(const std::vector<std::string>& paths) {
    std::vector<Sample> samples = {{"text", makeText()},
                                   {"records", makeRecords()},
                                   {"random", makeRandom()},
                                   {"field", makeField(), true}};
    for (const std::string& path : paths) samples.push_back({path, contentOf(path)});
    return samples;
}

}  // namespace

ExitStatus demonstrate(const std::vector<std::string>& paths, unsigned jobs) {
    Settings settings;
    settings.jobs = jobs;
    const std::string side = std::to_string(kSide);
    settings.own["dims"] = side + "x" + side + "x" + side;
    std::vector<Measured> rows;
    std::string alone;
    const std::vector<Sample> samples = samplesWith(paths);
    printHead();
    for (const Format* format : formats()) {
        const OtherTool* other = otherToolFor(format->name());
        if (other == nullptr) alone += (alone.empty() ? "" : ", ") + std::string(format->name());
        const auto inspect = [&](const Measured&, Bytes packed, Bytes back) {
            if (other != nullptr) verify(*other, packed, back);
        };
        for (const Sample& sample : samples) {
            if (sample.isField == format->codesAnyBytes()) continue;
            const std::vector<Measured> measured =
                measure(sample.name, sample.data, waysOf(*format, {kFastest, 1, 6, 9}, settings), 0,
                        inspect);
            for (const Measured& row : merged(measured))
                printRow(row, other == nullptr ? "" : std::string("verified by ") + other->program);
            rows.insert(rows.end(), measured.begin(), measured.end());
        }
    }
    printChart(merged(inTotal(rows)));
    std::puts(
        "\nEvery file came back the same byte for byte; fields, as closely as the rate allows.");
    if (!alone.empty()) std::printf("No other program here reads %s.\n", alone.c_str());
    return kSuccess;
}

}  // namespace vekdc
