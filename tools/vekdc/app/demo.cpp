// vekdc demo: the tool's own formats over generated samples, in memory.
#include <chrono>
#include <cstdio>
#include <random>
#include <thread>

#include "tools/vekdc/app/work.h"

namespace vekdc {
namespace {

constexpr size_t kSize = 8 << 20;

struct Sample {
    const char* name;
    std::vector<uint8_t> data;
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
    std::vector<uint8_t> data(kSize);
    for (uint8_t& byte : data) byte = static_cast<uint8_t>(random() >> 8);
    return data;
}

template <class Call>
double megabytesPerSecond(size_t bytes, Call&& call) {
    const auto start = std::chrono::steady_clock::now();
    call();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    return static_cast<double>(bytes) / 1e6 / took.count();
}

}  // namespace

ExitStatus demonstrate(unsigned jobs) {
    const std::vector<Sample> samples = {
        {"text", makeText()}, {"records", makeRecords()}, {"random", makeRandom()}};
    std::printf("%-8s %-6s %-8s %10s %7s %14s %14s\n", "sample", "format", "level", "bytes",
                "ratio", "compress", "decompress");
    for (const Sample& sample : samples) {
        for (const Format* format : formats()) {
            if (!format->codesAnyBytes()) continue;
            for (const int level : {0, 1, 6, 9}) {
                Settings settings;
                settings.jobs =
                    jobs == 0 ? std::max(1U, std::thread::hardware_concurrency()) : jobs;
                settings.fastest = level == 0;
                settings.level = level == 0 ? 1 : level;
                MemorySink packed;
                MemorySink back;
                const double in = megabytesPerSecond(sample.data.size(), [&] {
                    Source source(sample.data);
                    format->compress(source, packed, settings);
                });
                back.data.reserve(sample.data.size());
                const double out = megabytesPerSecond(sample.data.size(), [&] {
                    Source source(packed.data);
                    format->decompress(source, back, settings);
                });
                if (back.data != sample.data) {
                    complain(sample.name, "came back different");
                    return kFailure;
                }
                std::printf("%-8s %-6s %-8s %10zu %7s %9.0f MB/s %9.0f MB/s\n", sample.name,
                            format->name(), level == 0 ? "fastest" : std::to_string(level).c_str(),
                            packed.data.size(),
                            ratio(sample.data.size(), packed.data.size()).c_str(), in, out);
            }
        }
    }
    return kSuccess;
}

}  // namespace vekdc
