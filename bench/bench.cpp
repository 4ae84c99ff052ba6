// Runs what a benchmark program registers; see bench.h.

#include "bench.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "support/data.h"

namespace vekbench {

namespace {

constexpr size_t generatedSize = 2 << 20;

std::vector<Input> readFolder(const std::filesystem::path& folder) {
    std::vector<Input> inputs;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const auto name = entry.path().filename().string();
        if (!entry.is_regular_file() || entry.path().extension() == ".md") continue;
        std::ifstream in(entry.path(), std::ios::binary);
        inputs.push_back({name, {std::istreambuf_iterator<char>(in), {}}});
    }
    std::sort(inputs.begin(), inputs.end(),
              [](const Input& a, const Input& b) { return a.name < b.name; });
    return inputs;
}

std::vector<Input> generate() {
    std::vector<Input> inputs;
    for (const auto& shape : vektest::shapes()) {
        const std::string name = shape.name;
        if (name == "text" || name == "machineCode" || name == "records" || name == "uniform") {
            inputs.push_back({name, shape.make(generatedSize, 1)});
        }
    }
    return inputs;
}

}  // namespace

const std::vector<Input>& files() {
    static const std::vector<Input> inputs = [] {
        const char* corpus = std::getenv("VEK_CORPUS");
        return corpus != nullptr ? readFolder(corpus) : generate();
    }();
    return inputs;
}

void add(const std::string& operation, const std::string& input, const std::string& contender,
         size_t bytes, Run run) {
    const std::string name = operation + "/" + input + "/" + contender;
    benchmark::RegisterBenchmark(
        name.c_str(), [bytes, run = std::move(run)](benchmark::State& state) {
            size_t size = 0;
            for (auto _ : state) benchmark::DoNotOptimize(size = run());
            state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
            state.counters["size"] = static_cast<double>(size);
        });
}

void goal(const std::string& operation, const std::string& peer, double speed, double size) {
    benchmark::AddCustomContext("goal:" + operation + "/" + peer,
                                std::to_string(speed) + " " + std::to_string(size));
}

void rateGoal(const std::string& operation, double rate, const std::string& input) {
    benchmark::AddCustomContext("rate:" + operation + "/" + input, std::to_string(rate));
}

void fail(const std::string& message) {
    std::fprintf(stderr, "benchmark: %s\n", message.c_str());
    std::exit(1);
}

}  // namespace vekbench

int main(int argc, char** argv) {
    registerBenchmarks();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
