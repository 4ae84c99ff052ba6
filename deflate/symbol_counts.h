// Frequencies of a block's symbols, as the matchers and the fastest path count them.
#pragma once

#include <cstdint>

#include "bytes/words.h"
#include "deflate/symbol_tables.h"
#include "include/vekdc.h"

namespace vek::inline VEK_LEVEL::deflate {

/// The caller's two frequency tables. A count is an entry's whole 32 bits: what goes beyond the
/// first half is carried into the second.
struct SymbolCounts {
    VekHuffEntry* lit;
    VekHuffEntry* dist;

    void literal(uint8_t byte) { add(lit[byte]); }

    void literals(const uint8_t* begin, const uint8_t* end) {
        for (; begin != end; ++begin) literal(*begin);
    }

    void match(uint32_t length, uint32_t distance) {
        add(lit[firstLengthSymbol + lengthCode(length - minMatch)]);
        add(dist[distanceCode(distance - 1)]);
    }

 private:
    static void add(VekHuffEntry& entry) { store(&entry, load<uint32_t>(&entry) + 1); }
};

}  // namespace vek::inline VEK_LEVEL::deflate
