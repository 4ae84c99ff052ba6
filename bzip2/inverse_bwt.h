// The inverse block sort, over entries that hold a byte and a link each.
//
// The last column of the sorted rotations tells, for each row, where the row of the next byte
// stands: the i-th occurrence of a value in the last column is the i-th row that starts with it.
// Following these links from the primary index gives the block in order. Each step depends on the
// one before and lands anywhere in the block, so the walk costs a cache miss a byte and nothing
// else matters; the byte and the link share one 32-bit entry so that it is one miss and not two.
#pragma once

#include <cstdint>

#include "vector/bytes.h"

namespace vek {

constexpr int32_t inverseBwtLimit = 1 << 24;  // links have 24 bits

/// 32-bit entries at any address: a byte of the last column, and above it a link.
class BwtEntries {
 public:
    explicit BwtEntries(uint8_t* buffer) : buffer_(buffer) {}
    uint32_t get(uint32_t i) const { return load<uint32_t>(buffer_ + size_t{4} * i); }
    void set(uint32_t i, uint32_t entry) { store(buffer_ + size_t{4} * i, entry); }
    uint8_t* at(uint32_t i) { return buffer_ + size_t{4} * i; }

 private:
    uint8_t* buffer_;
};

/// Turns counts of values into the first row that starts with each.
inline void startsOfCounts(uint32_t* counts) {
    uint32_t start = 0;
    for (unsigned value = 0; value < 256; ++value) {
        const uint32_t count = counts[value];
        counts[value] = start;
        start += count;
    }
}

/// Inverts a transform of `length` entries whose bytes are set and links are 0. `counts` are the
/// numbers of each value; they are used up. `index` is below `length`.
inline void invertBwt(BwtEntries entries, uint32_t length, uint32_t* counts, uint32_t index,
                      uint8_t* dst) {
    startsOfCounts(counts);
    for (uint32_t i = 0; i < length; ++i) {
        const uint32_t row = counts[entries.get(i) & 0xFF]++;
        entries.set(row, entries.get(row) | (i << 8));
    }
    uint32_t entry = entries.get(index);
    for (uint32_t i = 0; i < length; ++i) {
        entry = entries.get(entry >> 8);
        dst[i] = static_cast<uint8_t>(entry);
    }
}

}  // namespace vek
