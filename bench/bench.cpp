// Runs what a benchmark program registers; see bench.h.

#include "bench.h"

#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

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

/// Runs programs on one input, from one file in memory to another.
class Filter {
 public:
    explicit Filter(const std::vector<uint8_t>& source)
        : in_(memfd_create("input", MFD_CLOEXEC)), out_(memfd_create("output", MFD_CLOEXEC)) {
        if (write(in_, source.data(), source.size()) != static_cast<ssize_t>(source.size()))
            fail("no room for an input in memory");
    }
    Filter(const Filter&) = delete;
    Filter& operator=(const Filter&) = delete;
    ~Filter() {
        close(in_);
        close(out_);
    }

    /// Returns the seconds of processor time that the program took.
    double run(const std::vector<std::string>& command, size_t* size) const {
        lseek(in_, 0, SEEK_SET);
        lseek(out_, 0, SEEK_SET);
        std::vector<char*> arguments;
        arguments.reserve(command.size() + 1);
        for (const auto& one : command) arguments.push_back(const_cast<char*>(one.c_str()));
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in_, 0);
        posix_spawn_file_actions_adddup2(&actions, out_, 1);
        pid_t child = 0;
        if (posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ) != 0)
            fail("cannot run " + command[0]);
        posix_spawn_file_actions_destroy(&actions);
        int status = 0;
        rusage usage = {};
        if (wait4(child, &status, 0, &usage) != child || status != 0) fail(command[0] + " failed");
        *size = static_cast<size_t>(lseek(out_, 0, SEEK_CUR));
        const auto seconds = [](const timeval& t) {
            return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
        };
        return seconds(usage.ru_utime) + seconds(usage.ru_stime);
    }

 private:
    int in_;
    int out_;
};

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

void addProgram(const std::string& operation, const std::string& input,
                const std::string& contender, const std::vector<uint8_t>& source,
                const std::vector<std::string>& command) {
    const std::string name = operation + "/" + input + "/" + contender;
    auto* const benchmark =
        benchmark::RegisterBenchmark(name.c_str(), [&source, command](benchmark::State& state) {
            const Filter filter(source);
            size_t size = 0;
            for (auto _ : state) state.SetIterationTime(filter.run(command, &size));
            state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * source.size()));
            state.counters["size"] = static_cast<double>(size);
        });
    benchmark->UseManualTime();
}

void goal(const std::string& operation, const std::string& peer, const Goal& wanted) {
    std::string value;
    for (const double one : {wanted.speed, wanted.size, wanted.worstSpeed, wanted.worstSize})
        value += std::to_string(one) + " ";
    benchmark::AddCustomContext("goal:" + operation + "/" + peer, value);
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
