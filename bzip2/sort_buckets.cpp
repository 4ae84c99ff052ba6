// Multikey quicksort (Bentley and Sedgewick, 1997) of rotations, with a budget.
//
// Ranges are split three ways by the bytes at one depth, single bytes first and words further down,
// and small or deep ranges are finished by Shell sort on whole rotations. Comparisons that find
// long equal strings make this quadratic on repetitive blocks, so the bytes found equal can be
// budgeted: a caller who has another method learns early that this one will not do.
//
// Pending ranges stand on a stack: of three parts the smallest is taken first, so that a part under
// work is at most half of one of those that wait, or a third where two wait: 40 entries serve
// blocks of 2^31 bytes.

#include <algorithm>

#include "bytes/words.h"
#include "bzip2/sort.h"

namespace {

constexpr uint32_t smallRange = 11;     // fewer entries are Shell-sorted
constexpr uint32_t budgetedDepth = 14;  // deeper entries are, under a budget
constexpr uint32_t wordDepth = 6;       // keys are words from here on
constexpr unsigned stackSize = 40;

constexpr int32_t gaps[22] = {1,         4,         10,        23,       57,       132,
                              301,       701,       1750,      5250,     15750,    47250,
                              141750,    425250,    1275750,   3827250,  11481750, 34445250,
                              103335750, 310007250, 930021750, INT32_MAX};

struct Range {
    uint32_t low;
    uint32_t high;  // behind the last
    uint32_t depth;
};

class RangeSorter {
 public:
    RangeSorter(const uint8_t* text, uint32_t length, uint32_t* entries, int32_t budget)
        : text_(text),
          length_(length),
          entries_(entries),
          budget_(budget),
          budgeted_(budget >= 0) {}

    int32_t sort(uint32_t count, uint32_t depth) {
        push({0, count, depth});
        while (used_ != 0) {
            const Range range = stack_[--used_];
            if (range.depth >= length_ || range.high - range.low < 2) continue;
            if (range.high - range.low < smallRange ||
                (budgeted_ && range.depth >= budgetedDepth)) {
                if (!shellSort(range)) break;
            } else {
                split(range);
            }
        }
        return budget_;
    }

 private:
    void push(Range range) { stack_[used_++] = range; }

    uint32_t word(uint32_t position) const {
        return vek::byteSwap(vek::load<uint32_t>(text_ + position));
    }

    uint32_t key(uint32_t entry, uint32_t depth) const {
        return depth < wordDepth ? text_[entry + depth] : word(entry + depth);
    }

    /// Whether rotation `a` is greater than `b`, both read from `depth` on.
    bool greater(uint32_t a, uint32_t b, uint32_t depth) {
        const uint32_t most = length_ - depth;
        const uint8_t* const x = text_ + a + depth;
        const uint8_t* const y = text_ + b + depth;
        uint32_t equal = 0;
        while (most - equal >= 4 &&
               vek::load<uint32_t>(x + equal) == vek::load<uint32_t>(y + equal)) {
            equal += 4;
        }
        while (equal < most && x[equal] == y[equal]) ++equal;
        if (budgeted_) budget_ -= static_cast<int32_t>(equal);
        return equal < most && x[equal] > y[equal];
    }

    /// False when the budget ran out.
    bool shellSort(const Range& range) {
        uint32_t* const a = entries_ + range.low;
        const auto count = static_cast<int32_t>(range.high - range.low);
        unsigned pass = 0;
        while (gaps[pass + 1] < count) ++pass;
        for (;; --pass) {
            const int32_t gap = gaps[pass];
            for (int32_t i = gap; i < count; ++i) {
                const uint32_t entry = a[i];
                int32_t j = i;
                for (; j >= gap; j -= gap) {
                    const bool moves = greater(a[j - gap], entry, range.depth);
                    if (budgeted_ && budget_ < 0) return false;
                    if (!moves) break;
                    a[j] = a[j - gap];
                }
                a[j] = entry;
            }
            if (pass == 0) return true;
        }
    }

    void split(const Range& range) {
        const uint32_t depth = range.depth;
        const auto keyOf = [&](uint32_t i) { return key(entries_[i], depth); };
        const uint32_t first = keyOf(range.low);
        const uint32_t middle = keyOf(range.low + (range.high - range.low) / 2);
        const uint32_t pivot = std::max(std::min(first, middle),
                                        std::min(std::max(first, middle), keyOf(range.high - 1)));
        uint32_t less = range.low;
        uint32_t greaterFrom = range.high;
        for (uint32_t i = range.low; i < greaterFrom;) {
            const uint32_t k = keyOf(i);
            if (k < pivot) {
                std::swap(entries_[less++], entries_[i++]);
            } else if (k > pivot) {
                std::swap(entries_[i], entries_[--greaterFrom]);
            } else {
                ++i;
            }
        }
        Range parts[3] = {{range.low, less, depth},
                          {less, greaterFrom, depth + (depth < wordDepth ? 1 : 4)},
                          {greaterFrom, range.high, depth}};
        const auto order = [&](int a, int b) {
            if (parts[a].high - parts[a].low < parts[b].high - parts[b].low)
                std::swap(parts[a], parts[b]);
        };
        order(0, 1);
        order(1, 2);
        order(0, 1);
        for (const Range& part : parts) {
            if (part.high - part.low > 1) push(part);
        }
    }

    const uint8_t* text_;
    uint32_t length_;
    uint32_t* entries_;
    int32_t budget_;
    bool budgeted_;
    unsigned used_ = 0;
    Range stack_[stackSize];
};

}  // namespace

int32_t owns_BWT_IT_sort(const uint8_t* text, uint32_t length, uint32_t* entries, uint32_t count,
                         uint32_t depth, int32_t budget) {
    return RangeSorter(text, length, entries, budget).sort(count, depth);
}
