// What the targets of drop-in libraries share: choices taken from the input, and the end of the run
// where ours and the distribution's differ.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "tests/support/library.h"

namespace vekfuzz {

using vektest::Library;
using vektest::text;

using Data = std::vector<uint8_t>;

/// The input's next bytes as choices; zeros once it is used up.
class Choices {
 public:
    explicit Choices(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    bool empty() const { return bytes_.empty(); }
    uint8_t byte() {
        if (bytes_.empty()) return 0;
        const uint8_t byte = bytes_.front();
        bytes_ = bytes_.subspan(1);
        return byte;
    }
    /// One of low .. high, no more than 256 values.
    int number(int low, int high) { return low + byte() % (high - low + 1); }
    /// Small as often as large.
    size_t size(size_t most) {
        const size_t bits = byte() % 18U;
        return std::min(most, (size_t{byte()} << bits) >> 8);
    }
    std::span<const uint8_t> rest() const { return bytes_; }

 private:
    std::span<const uint8_t> bytes_;
};

/// Sizes of pieces that follow from a seed, so that they leave the input to the stream.
class Sizes {
 public:
    explicit Sizes(uint32_t seed) : state_(seed) {}
    uint32_t next() { return (state_ = state_ * 1664525 + 1013904223) >> 8; }
    size_t upTo(size_t most) { return next() % (most + 1); }

 private:
    uint32_t state_;
};

/// Ends the run where the two libraries differ.
inline void same(const std::string& mine, const std::string& theirs, const std::string& when) {
    if (mine == theirs) return;
    std::fprintf(stderr, "%s\n  ours   %s\n  theirs %s\n", when.c_str(), mine.c_str(),
                 theirs.c_str());
    abort();
}

}  // namespace vekfuzz
