// Logarithms come from a table over the leading bits; units and blocks add and subtract the same
// errors, which are far below a header's size.
#include "codec/deflate_blocks.h"

#include <algorithm>

namespace vekdc::codec {
namespace {

/// Units of entropy in a bit, as a power of two.
constexpr uint32_t kFraction = 8;
constexpr uint32_t kLogBits = 8;

/// log2(1 + i / 2^kLogBits) in units, by repeated squaring.
constexpr auto kLogs = [] {
    std::array<uint16_t, 1U << kLogBits> logs{};
    for (uint32_t i = 0; i < logs.size(); ++i) {
        uint64_t x = ((uint64_t{1} << kLogBits) + i) << (30 - kLogBits);  // 1 is 1 << 30
        uint32_t log = 0;
        for (uint32_t bit = 0; bit < kFraction; ++bit) {
            x = x * x >> 30;
            log = 2 * log + static_cast<uint32_t>(x >> 31);
            x >>= x >> 31;
        }
        logs[i] = static_cast<uint16_t>(log);
    }
    return logs;
}();

/// n log2(n), in units.
uint64_t selfInformation(uint32_t n) {
    if (n < 2) return 0;
    const auto log = static_cast<uint32_t>(std::bit_width(n)) - 1;
    const uint32_t leading = log >= kLogBits ? n >> (log - kLogBits) : n << (kLogBits - log);
    return uint64_t{n} * ((log << kFraction) + kLogs[leading - (1U << kLogBits)]);
}

/// What one alphabet's symbols take: their code, and what the header says of it.
template <class ExtraBits>
uint64_t alphabetBits(const VekHuffEntry* counts, uint32_t count, ExtraBits extraBits) {
    constexpr uint64_t headerBits = 3;  // A code length's code, in most headers.
    constexpr uint64_t gapBits = 7;     // That of a run of symbols that do not occur.
    uint64_t sum = 0;
    uint64_t units = 0;
    uint64_t bits = 0;
    bool occurred = true;
    for (uint32_t s = 0; s < count; ++s) {
        const uint32_t n = frequency(counts[s]);
        if (n == 0) {
            bits += occurred ? gapBits : 0;
        } else {
            bits += headerBits + uint64_t{n} * extraBits(s);
            sum += n;
            units += selfInformation(n);
        }
        occurred = n != 0;
    }
    return bits + ((selfInformation(static_cast<uint32_t>(sum)) - units) >> kFraction);
}

void addCounts(VekHuffEntry* to, const VekHuffEntry* more, uint32_t count) {
    for (uint32_t s = 0; s < count; ++s) setFrequency(to[s], frequency(to[s]) + frequency(more[s]));
}

/// Adds the other's counts.
void addCounts(DeflateTables& to, const DeflateTables& more) {
    addCounts(to.lit, more.lit, kLitSymbols);
    addCounts(to.dist, more.dist, kDistSymbols);
}

}  // namespace

uint32_t countPairs(const DeflatePairs& pairs, uint32_t from, uint32_t to, DeflateTables& counts) {
    uint32_t bytes = to - from;
    for (uint32_t i = from; i < to; ++i) {
        const uint32_t distance = pairs.dists[i];
        if (distance == 0) {
            countSymbol(counts.lit[pairs.lits[i]]);
        } else {
            countSymbol(counts.lit[lengthSymbol(pairs.lits[i] + kMinMatch)]);
            countSymbol(counts.dist[distanceSymbol(distance)]);
            bytes += pairs.lits[i] + kMinMatch - 1;
        }
    }
    return bytes;
}

uint64_t estimatedBits(const DeflateTables& counts, uint32_t bytes) {
    constexpr uint64_t headerBits = 60;  // The counts of codes, and the code lengths' own code.
    constexpr uint64_t storedBits = 40;
    const uint64_t coded =
        headerBits +
        alphabetBits(counts.lit, kLitSymbols,
                     [](uint32_t s) { return s < 257 ? 0 : lengthExtraBits(s); }) +
        alphabetBits(counts.dist, kDistSymbols, distanceExtraBits);
    return std::min(coded, storedBits + 8 * uint64_t{bytes});
}

void DeflateBlocks::split(const DeflatePairs& pairs, uint32_t count) {
    count_ = 0;
    if (count >= 2 * kUnit) {
        DeflateTables block{};
        uint32_t end = kUnit;
        uint32_t bytes = countPairs(pairs, 0, end, block);
        uint64_t bits = estimatedBits(block, bytes);
        while (end != count) {
            const uint32_t next = count - end < 3 * kUnit / 2 ? count : end + kUnit;
            DeflateTables unit{};
            const uint32_t unitBytes = countPairs(pairs, end, next, unit);
            const uint64_t unitBits = estimatedBits(unit, unitBytes);
            DeflateTables joined = block;
            addCounts(joined, unit);
            const uint64_t joinedBits = estimatedBits(joined, bytes + unitBytes);
            if (bits + unitBits < joinedBits) {
                ends_[count_++] = static_cast<uint16_t>(end);
                block = unit;
                bytes = unitBytes;
                bits = unitBits;
            } else {
                block = joined;
                bytes += unitBytes;
                bits = joinedBits;
            }
            end = next;
        }
    }
    ends_[count_++] = static_cast<uint16_t>(count);
}

}  // namespace vekdc::codec
