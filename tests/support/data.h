// Test data: reproducible bytes of every shape that makes a codec behave differently.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace vektest {

using Bytes = std::vector<uint8_t>;
using Random = std::mt19937;

inline Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

/// A named way to make `size` bytes from a seed.
struct Shape {
    const char* name;
    Bytes (*make)(size_t size, uint32_t seed);
};

/// Every shape: zeros, random, two symbols, skewed, text, machine code, records, short and long
/// periods, Fibonacci, runs, far repeats, sorted, a random string repeated at deflate's window
/// edge.
const std::vector<Shape>& shapes();

/// All of them, one behind the other.
Bytes sample(size_t size, uint32_t seed = 1);

/// `rounds` scaled by VEK_TEST_EFFORT (percent, 100 when unset), at least 1: random loops run
/// shorter under tools that slow everything down.
size_t effort(size_t rounds);

/// Uniform integer in [low, high].
size_t pick(Random& random, size_t low, size_t high);

}  // namespace vektest
