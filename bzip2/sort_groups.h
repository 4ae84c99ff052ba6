// Groups of equals, and how a group is refined by one more key.
//
// Entries stand in order of what is known about them; the first of each group of equals is marked
// in its highest bit. A group is refined by fetching every entry's key once and sorting the pairs:
// by insertion where they are few, by radix where there is work memory for them; else in place, by
// a quicksort that asks for keys as it goes and falls back to heap sort, so that n log n
// comparisons always do.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace vek::inline VEK_LEVEL::bzip2 {

constexpr uint32_t firstOfGroup = 0x80000000U;  // marks an entry that differs from the one before

/// Sorts by `order`: order.key(entry) makes a key, and order.compare(entry, key) is negative, 0 or
/// positive. Quicksort with three-way splits; ranges that split badly too often go to heap sort, so
/// n log n comparisons always do.
template <class Order>
class GroupSorter {
 public:
    explicit GroupSorter(const Order& order) : order_(order) {}

    void sort(uint32_t* begin, uint32_t* end) {
        struct Range {
            uint32_t* begin;
            uint32_t* end;
            int patience;
        };
        Range stack[32];  // the smaller side is sorted first
        unsigned used = 0;
        int patience = 4;
        for (auto n = end - begin; n > 1; n /= 2) patience += 2;
        for (;;) {
            if (end - begin <= insertionLimit) {
                insertionSort(begin, end);
            } else if (patience-- == 0) {
                heapSort(begin, end);
            } else {
                uint32_t* less = begin;
                uint32_t* greater = end;
                split(less, greater);
                Range smaller{begin, less, patience};
                Range larger{greater, end, patience};
                if (smaller.end - smaller.begin > larger.end - larger.begin)
                    std::swap(smaller, larger);
                stack[used++] = larger;
                begin = smaller.begin;
                end = smaller.end;
                continue;
            }
            if (used == 0) return;
            --used;
            begin = stack[used].begin;
            end = stack[used].end;
            patience = stack[used].patience;
        }
    }

 private:
    static constexpr int insertionLimit = 8;

    bool before(uint32_t a, uint32_t b) const { return order_.compare(a, order_.key(b)) < 0; }

    void insertionSort(uint32_t* begin, uint32_t* end) const {
        for (uint32_t* i = begin + 1; i < end; ++i) {
            const uint32_t entry = *i;
            const auto key = order_.key(entry);
            uint32_t* j = i;
            for (; j > begin && order_.compare(j[-1], key) > 0; --j) *j = j[-1];
            *j = entry;
        }
    }

    void heapSort(uint32_t* begin, uint32_t* end) const {
        const auto less = [this](uint32_t a, uint32_t b) { return before(a, b); };
        std::make_heap(begin, end, less);
        std::sort_heap(begin, end, less);
    }

    uint32_t* median(uint32_t* a, uint32_t* b, uint32_t* c) const {
        if (before(*b, *a)) std::swap(a, b);
        if (!before(*c, *b)) return b;
        return before(*c, *a) ? a : c;
    }

    /// Splits [less, greater): what lies in front of the new `less` is below the pivot, what lies
    /// from the new `greater` on above it.
    void split(uint32_t*& less, uint32_t*& greater) const {
        const auto step = (greater - less) / 8;
        uint32_t* const last = greater - 1;
        uint32_t* middle = less + (greater - less) / 2;
        if (step >= 8) {
            middle = median(median(less, less + step, less + 2 * step),
                            median(middle - step, middle, middle + step),
                            median(last - 2 * step, last - step, last));
        } else {
            middle = median(less, middle, last);
        }
        const auto key = order_.key(*middle);
        for (uint32_t* i = less; i < greater;) {
            const int comparison = order_.compare(*i, key);
            if (comparison < 0) {
                std::swap(*less++, *i++);
            } else if (comparison > 0) {
                std::swap(*i, *--greater);
            } else {
                ++i;
            }
        }
    }

    const Order& order_;
};

/// Sorts a group of equals and marks where the new groups begin; the first entry's mark stays.
template <class Order>
inline void refineInPlace(uint32_t* begin, uint32_t* end, const Order& order) {
    *begin &= ~firstOfGroup;
    GroupSorter<Order>(order).sort(begin, end);
    auto key = order.key(*begin);
    for (uint32_t* i = begin + 1; i < end; ++i) {
        if (order.compare(*i, key) == 0) continue;
        key = order.key(*i);
        *i |= firstOfGroup;
    }
    *begin |= firstOfGroup;
}

/// Work memory for entries beside their keys, as much as the caller gave.
struct Scratch {
    uint64_t* words;
    size_t count;
};

constexpr uint64_t keyed(uint32_t key, uint32_t entry) {
    return uint64_t{key} << 32 | entry;
}
constexpr uint32_t keyOf(uint64_t pair) {
    return static_cast<uint32_t>(pair >> 32);
}

constexpr uint32_t markIf(bool starts) {
    return starts ? firstOfGroup : 0;
}

/// Radix sort by key, least significant digit first, of pairs whose keys differ in the bits of
/// `differences`. `spare` takes as many; returns where the sorted pairs are.
template <unsigned DigitBits>
inline uint64_t* radixSort(uint64_t* pairs, uint64_t* spare, size_t count, uint32_t differences) {
    constexpr uint32_t digits = 1U << DigitBits;
    for (unsigned shift = 0; shift < 32; shift += DigitBits) {
        if ((differences >> shift & (digits - 1)) == 0) continue;
        uint32_t places[digits] = {};
        const auto digit = [&](size_t i) { return keyOf(pairs[i]) >> shift & (digits - 1); };
        for (size_t i = 0; i < count; ++i) ++places[digit(i)];
        uint32_t sum = 0;
        for (uint32_t& place : places) sum += std::exchange(place, sum);
        for (size_t i = 0; i < count; ++i) spare[places[digit(i)]++] = pairs[i];
        std::swap(pairs, spare);
    }
    return pairs;
}

/// Sorts the entries of groups beside their keys, fetched once.
class KeyedSorter {
 public:
    explicit KeyedSorter(const Scratch& scratch) : scratch_(scratch) {}

    /// The entries of a group, whose first one is marked, sorted by key. Null without the room.
    template <class Order>
    const uint64_t* sort(const uint32_t* begin, const uint32_t* end, const Order& order) {
        const auto count = static_cast<size_t>(end - begin);
        if (count <= fewEntries) return sortFew(begin, count, order);
        if (2 * count > scratch_.count) return nullptr;
        uint64_t* const pairs = scratch_.words;
        const uint32_t first = *begin & ~firstOfGroup;
        const uint32_t firstKey = order.key(first);
        pairs[0] = keyed(firstKey, first);
        uint32_t differences = 0;
        for (size_t i = 1; i < count; ++i) {
            const uint32_t key = order.key(begin[i]);
            differences |= key ^ firstKey;
            pairs[i] = keyed(key, begin[i]);
        }
        return count < manyEntries ? radixSort<8>(pairs, pairs + count, count, differences)
                                   : radixSort<11>(pairs, pairs + count, count, differences);
    }

 private:
    static constexpr size_t fewEntries = 24;     // up to here insertion sort is faster
    static constexpr size_t manyEntries = 1500;  // from here on longer digits are

    template <class Order>
    const uint64_t* sortFew(const uint32_t* begin, size_t count, const Order& order) {
        const uint32_t first = *begin & ~firstOfGroup;
        few_[0] = keyed(order.key(first), first);
        for (size_t i = 1; i < count; ++i) {
            const uint32_t key = order.key(begin[i]);
            size_t j = i;
            for (; j > 0 && keyOf(few_[j - 1]) > key; --j) few_[j] = few_[j - 1];
            few_[j] = keyed(key, begin[i]);
        }
        return few_;
    }

    Scratch scratch_;
    uint64_t few_[fewEntries];
};

/// Calls `visit(begin, end)` for every group of two entries and more.
template <class Visit>
inline void forEachGroup(uint32_t* begin, uint32_t* end, Visit visit) {
    while (begin < end) {
        uint32_t* next = begin + 1;
        while (next < end && (*next & firstOfGroup) == 0) ++next;
        if (next - begin > 1) visit(begin, next);
        begin = next;
    }
}

}  // namespace vek::inline VEK_LEVEL::bzip2
