// What bzip2's Huffman encoder and decoder share: the format's limits and the codes' assignment.
//
// A block's symbols are coded with two to six tables, one chosen for each group of 50 symbols.
#pragma once

#include <cstdint>

namespace vek::inline VEK_LEVEL::bzip2 {

constexpr int32_t groupSize = 50;
constexpr int32_t minTables = 2;
constexpr int32_t maxTables = 6;
constexpr int32_t maxAlphabet =
    258;  // 256 values less one for position 0, two digits, end of block
constexpr int32_t maxSelectors = 32767;  // a 15-bit count
constexpr int maxCodeLength = 20;        // what the format allows
constexpr int maxWrittenLength = 17;     // what the encoder makes

constexpr int32_t groupsOf(int32_t symbols) {
    return symbols / groupSize + (symbols % groupSize != 0 ? 1 : 0);
}

/// First code of each length, canonical: codes of one length are consecutive, and each length goes
/// on at twice the value where the one before ended. `counts` and `first` have maxCodeLength + 1
/// entries. Returns the code behind the last one of maxCodeLength bits: above 2^maxCodeLength when
/// the lengths are over-subscribed.
inline uint32_t firstCodes(const uint32_t* counts, uint32_t* first) {
    uint32_t code = 0;
    for (int length = 1; length <= maxCodeLength; ++length) {
        code <<= 1;
        first[length] = code;
        code += counts[length];
    }
    return code;
}

}  // namespace vek::inline VEK_LEVEL::bzip2
