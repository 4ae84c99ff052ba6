// What the benchmark programs share: inputs, and contenders that alternate within one run.
//
// A program has one function, registerBenchmarks(), which for each operation and input adds our
// contender ("vekdc") and the peers'. It checks first that they agree, so nothing is timed that was
// not verified. Google Benchmark interleaves the repetitions at random; scripts/bench-report turns
// its JSON into tables of ratios.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vekbench {

struct Input {
    std::string name;
    std::vector<uint8_t> bytes;
};

/// The files to measure on: those of the folder VEK_CORPUS when set, else generated ones.
const std::vector<Input>& files();

/// One run of an operation over its input; returns the size of its output (0 where that means
/// nothing).
using Run = std::function<size_t()>;

/// Adds a contender. Names become "operation/input/contender"; `bytes` is what a run works through.
void add(const std::string& operation, const std::string& input, const std::string& contender,
         size_t bytes, Run run);

/// Adds a contender that is a program, a filter of its standard input. The processor time of its
/// process counts, start and end included. `command` has the path first.
void addProgram(const std::string& operation, const std::string& input,
                const std::string& contender, const std::vector<uint8_t>& source,
                const std::vector<std::string>& command);

/// What is wanted of our contender over a peer; 0: no such goal. A speed is wanted of the geometric
/// mean over the inputs, and of the worst one; a size likewise, of all outputs together and of the
/// worst.
struct Goal {
    double speed = 0;
    double size = 0;
    double worstSpeed = 0;
    double worstSize = 0;
};

/// States a goal. An operation may have one against each of several peers.
void goal(const std::string& operation, const std::string& peer, const Goal& wanted);
inline void goal(const std::string& operation, const std::string& peer, double speed,
                 double size = 0) {
    goal(operation, peer, Goal{speed, size});
}

/// States a goal in MB/s for one input, or for the slowest of all.
void rateGoal(const std::string& operation, double rate, const std::string& input = "slowest");

/// Ends the program with a message: contenders disagree, so measuring them would mislead.
[[noreturn]] void fail(const std::string& message);

}  // namespace vekbench

/// Defined by each benchmark program.
void registerBenchmarks();
