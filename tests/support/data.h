// Test data: reproducible bytes of every shape that makes a codec behave differently.
#pragma once

#include <algorithm>
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

inline int32_t length(const Bytes& bytes) {
    return static_cast<int32_t>(bytes.size());
}

/// `count` of the bytes from `from` on, or as many as there are.
inline Bytes part(const Bytes& bytes, size_t from, size_t count = SIZE_MAX) {
    return {bytes.data() + from, bytes.data() + from + std::min(count, bytes.size() - from)};
}

inline void flip(Bytes& bytes, size_t bit) {
    bytes[bit / 8] ^= static_cast<uint8_t>(1U << bit % 8);
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

struct Sample {
    std::string name;
    Bytes bytes;
};

/// Data of every shape in each of the sizes, with a name to tell them by.
std::vector<Sample> everyShape(const std::vector<size_t>& sizes, uint32_t seed = 3);

/// All of them, one behind the other.
Bytes sample(size_t size, uint32_t seed = 1);

/// Floats as a field of measurements has them: waves, some noise, and stretches of zeros.
Bytes field(size_t count, uint32_t seed = 7);

/// `rounds` scaled by VEK_TEST_EFFORT (percent, 100 when unset), at least 1: random loops run
/// shorter under tools that slow everything down.
size_t effort(size_t rounds);

/// Uniform integer in [low, high].
template <class T = size_t>
T pick(Random& random, size_t low, size_t high) {
    return static_cast<T>(std::uniform_int_distribution<size_t>(low, high)(random));
}

}  // namespace vektest
