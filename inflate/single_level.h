// The inflate decoder for single-level tables: one lookup a code.
#pragma once

#include <cstdint>

#include "bytes/words.h"
#include "inflate/resumable.h"
#include "inflate/table_layout.h"

namespace vek::inline VEK_LEVEL::inflate {

class SingleLevel {
 public:
    explicit SingleLevel(const VekInflateState& state)
        : lits_(state.tables),
          distKinds_(state.tables + (2U << state.litBits)),
          litMask_((1U << state.litBits) - 1),
          distMask_((1U << state.distBits) - 1) {}

    Entry lit(uint32_t bits) const {
        const uint32_t entry = vek::load<uint16_t>(lits_ + 2 * (bits & litMask_));
        return {entry & 0xFF, entry >> 8};
    }
    Entry dist(uint32_t bits) const {
        const uint32_t index = bits & distMask_;
        return {distKinds_[index], vek::load<uint16_t>(distKinds_ + distBaseOffset + 2 * index)};
    }
    static bool isEnd(uint32_t kind) { return kind >= singleEndKind; }

    // For the fast kernel: an entry as it stands in the table.
    uint32_t look(Word bits) const { return vek::load<uint16_t>(lits_ + 2 * (bits & litMask_)); }
    static uint32_t taken(uint32_t entry) { return entry; }
    static uint32_t putLiterals(uint8_t* dst, uint32_t entry) {
        *dst = static_cast<uint8_t>(entry >> 8);
        return 1;
    }
    static uint32_t putLeading(uint8_t*, uint32_t) { return 0; }
    static bool isShortLiteral(uint32_t entry) { return (entry & 0x80) == 0; }
    static bool isLength(uint32_t entry) { return (entry & 0xF0) != singleEndKind; }
    static bool isLink(uint32_t) { return false; }
    static bool isLiteral(uint32_t) { return false; }
    static uint32_t follow(uint32_t entry, Word) { return entry; }
    static uint32_t takeLength(uint32_t entry, Word& bits, uint32_t& count) {
        return takeEntry(entry & 15, (entry >> 4) & 7, (entry >> 8) + minMatch, bits, count);
    }
    Entry lookDistance(Word bits) const { return dist(static_cast<uint32_t>(bits)); }
    static bool isOtherDistance(Entry entry) { return !entry.isDistance(); }
    static uint32_t takeDistance(Entry entry, Word& bits, uint32_t& count) {
        return takeEntry(entry.codeLen(), entry.distanceExtra(), entry.value, bits, count);
    }

 private:
    const uint8_t* lits_;
    const uint8_t* distKinds_;
    uint32_t litMask_;
    uint32_t distMask_;
};

/// Decodes with the state's single-level tables.
inline Stop decodeShort(Run& run, const VekInflateState& state) {
    if (state.litBits > maxLitBits || state.distBits > maxDistBits) return Stop::corrupt;
    const SingleLevel tables(state);
    return runSteps(run, tables, [&] { runFast<SingleLevel>(run, tables); });
}

}  // namespace vek::inline VEK_LEVEL::inflate
