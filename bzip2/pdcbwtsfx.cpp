// The general kernel of the forward block sort: near-linear whatever the block holds.
//
// The block is cut to its shortest root first, so that all rotations differ. Its stars (see
// two_stage.h) are sorted in three steps, each of which refines the groups that the one before left
// equal:
//   1. by the next four bytes, over and over, to a small depth: settles nearly all of a text;
//   2. groups that do not yet reach to the next star (a long run lies between) by comparing up to
//      there: each star's share of the block is only its own, so this is linear but for a
//      logarithm;
//   3. by ranks (Larsson and Sadakane, 1999): equal groups now agree on where the next star lies,
//   so
//      the order of stars k stars further on decides, and k doubles each round.
// Work areas too small for the tables of pairs sort all rotations by step 3 alone.

#include <algorithm>
#include <utility>

#include "bzip2/forward_bwt.h"
#include "bzip2/two_stage.h"
#include "vector/match_length.h"

namespace {

using vek::bwt::TwoStage;

constexpr uint32_t firstOfGroup = 0x80000000U;  // marks an entry that differs from the one before
constexpr uint32_t depthLimit = 22;

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
void refineInPlace(uint32_t* begin, uint32_t* end, const Order& order) {
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

/// The same for a few entries, with their keys at hand.
constexpr ptrdiff_t fewEntries = 24;
constexpr size_t manyEntries = 1500;
template <class Order>
void refineFew(uint32_t* begin, ptrdiff_t count, const Order& order) {
    uint32_t keys[fewEntries];
    uint32_t entries[fewEntries];
    entries[0] = *begin & ~firstOfGroup;
    keys[0] = order.key(entries[0]);
    for (ptrdiff_t i = 1; i < count; ++i) {
        const uint32_t entry = begin[i];
        const uint32_t key = order.key(entry);
        ptrdiff_t j = i;
        for (; j > 0 && keys[j - 1] > key; --j) {
            keys[j] = keys[j - 1];
            entries[j] = entries[j - 1];
        }
        keys[j] = key;
        entries[j] = entry;
    }
    begin[0] = entries[0] | firstOfGroup;
    for (ptrdiff_t i = 1; i < count; ++i) begin[i] = entries[i] | markIf(keys[i] != keys[i - 1]);
}

/// Radix sort by key, least significant digit first, of pairs whose keys differ in the bits of
/// `differences`. `spare` takes as many; returns where the sorted pairs are.
template <unsigned DigitBits>
uint64_t* radixSort(uint64_t* pairs, uint64_t* spare, size_t count, uint32_t differences) {
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

/// The same for an order whose keys are numbers, with the keys fetched once where there is room.
template <class Order>
void refine(uint32_t* begin, uint32_t* end, const Order& order, const Scratch& scratch) {
    const ptrdiff_t few = end - begin;
    if (few <= fewEntries) {
        refineFew(begin, few, order);
        return;
    }
    const auto count = static_cast<size_t>(few);
    if (2 * count > scratch.count) {
        refineInPlace(begin, end, order);
        return;
    }
    uint64_t* pairs = scratch.words;
    const uint32_t firstKey = order.key(*begin & ~firstOfGroup);
    uint32_t differences = 0;
    *begin &= ~firstOfGroup;
    for (size_t i = 0; i < count; ++i) {
        const uint32_t key = order.key(begin[i]);
        differences |= key ^ firstKey;
        pairs[i] = keyed(key, begin[i]);
    }
    *begin |= firstOfGroup;
    if (differences == 0) return;
    pairs = count < manyEntries ? radixSort<8>(pairs, pairs + count, count, differences)
                                : radixSort<11>(pairs, pairs + count, count, differences);
    begin[0] = static_cast<uint32_t>(pairs[0]) | firstOfGroup;
    for (size_t i = 1; i < count; ++i) {
        begin[i] = static_cast<uint32_t>(pairs[i]) | markIf(keyOf(pairs[i]) != keyOf(pairs[i - 1]));
    }
}

/// Calls `visit(begin, end)` for every group of two entries and more.
template <class Visit>
void forEachGroup(uint32_t* begin, uint32_t* end, Visit visit) {
    while (begin < end) {
        uint32_t* next = begin + 1;
        while (next < end && (*next & firstOfGroup) == 0) ++next;
        if (next - begin > 1) visit(begin, next);
        begin = next;
    }
}

/// Order of positions by the four bytes at a depth.
struct WordOrder {
    const uint8_t* text;
    uint32_t key(uint32_t position) const {
        return vek::byteSwap(vek::load<uint32_t>(text + position));
    }
    int compare(uint32_t position, uint32_t other) const {
        const uint32_t own = key(position);
        return own < other ? -1 : own > other ? 1 : 0;
    }
};

/// Bytes from the star at `star` to where the run that follows the next star ends: its first so
/// many bytes decide where that star is. More than `limit` bytes are not looked at.
uint32_t extent(const uint8_t* star, uint32_t limit) {
    uint32_t i = 2;
    while (i < limit && star[i - 1] >= star[i]) ++i;
    while (i < limit && star[i - 1] <= star[i]) ++i;
    return i + 1;
}

/// Order of stars by what comes up to the next one.
struct StarOrder {
    const uint8_t* text;
    uint32_t length;

    struct Key {
        const uint8_t* star;
        uint32_t extent;
    };

    Key key(uint32_t position) const { return {text + position, extent(text + position, length)}; }
    int compare(uint32_t position, const Key& other) const {
        const uint8_t* const own = text + position;
        const size_t same = vek::matchLength(own, other.star, other.extent);
        return same == other.extent ? 0 : own[same] < other.star[same] ? -1 : 1;
    }
};

/// Order of positions by whole rotations, as long as `budget` bytes may be found equal. When it is
/// used up everything is equal, and a range that was being sorted is in disorder.
struct RotationOrder {
    const uint8_t* text;
    uint32_t length;
    uint32_t depth;  // bytes known to be equal
    int64_t* budget;

    uint32_t key(uint32_t position) const { return position; }
    int compare(uint32_t position, uint32_t other) const {
        if (*budget < 0) return 0;
        const uint8_t* const a = text + position + depth;
        const uint8_t* const b = text + other + depth;
        const size_t same = vek::matchLength(a, b, length - depth);
        *budget -= static_cast<int64_t>(same);
        return a[same] < b[same] ? -1 : 1;
    }
};

/// Ranks hold the place of a group's first entry, and two bits that are the same for all of a
/// group.
constexpr uint32_t placeShift = 2;
constexpr uint32_t settledRank = 2;  // a group of one
constexpr uint32_t roundBit = 1;     // parity of the round that made the group

/// Order of items by the rank of the item `ahead` of them.
struct RankOrder {
    const uint32_t* ranks;
    uint32_t items;
    uint32_t ahead;  // below items

    uint32_t key(uint32_t item) const {
        return ranks[item < items - ahead ? item + ahead : item - (items - ahead)];
    }
    int compare(uint32_t item, uint32_t other) const {
        const uint32_t own = key(item);
        return own < other ? -1 : own > other ? 1 : 0;
    }
};

/// Items in order of what is known, in marked groups, and each item's rank.
class RankSort {
 public:
    RankSort(uint32_t* order, uint32_t* ranks, uint32_t items, const Scratch& scratch)
        : order_(order), ranks_(ranks), items_(items), scratch_(scratch) {}

    /// Sorts items that follow each other in a circle and whose rotations all differ, given them in
    /// order of their first item. Afterwards place(item) is each one's.
    ///
    /// A round visits the items from the last to the first and refines the group of each, once, by
    /// what is known `ahead`: what this very round found out already. Repeated strings of any
    /// length, which are what is left by now, are so settled from their ends in one round. Hard
    /// cases take more, but as `ahead` doubles no more than log2(items).
    void sort() {
        rankGroups(0, items_, 0);
        uint32_t round = 0;
        for (uint32_t ahead = 1; ahead < items_; ahead *= 2) {
            round ^= roundBit;
            bool settled = true;
            for (uint32_t item = items_; item-- > 0;) {
                const uint32_t rank = ranks_[item];
                if ((rank & settledRank) != 0 || (rank & roundBit) == round) continue;
                settled = false;
                const uint32_t begin = rank >> placeShift;
                const uint32_t end = groupEnd(begin);
                refine(order_ + begin, order_ + end, RankOrder{ranks_, items_, ahead}, scratch_);
                rankGroups(begin, end, round);
            }
            if (settled) return;
        }
    }

    uint32_t place(uint32_t item) const { return ranks_[item] >> placeShift; }

 private:
    uint32_t groupEnd(uint32_t begin) const {
        uint32_t end = begin + 1;
        while (end < items_ && (order_[end] & firstOfGroup) == 0) ++end;
        return end;
    }

    void rankGroups(uint32_t begin, uint32_t end, uint32_t round) {
        while (begin < end) {
            const uint32_t next = groupEnd(begin);
            const uint32_t rank =
                begin << placeShift | round | (next - begin == 1 ? settledRank : 0);
            for (uint32_t i = begin; i < next; ++i) ranks_[order_[i] & ~firstOfGroup] = rank;
            begin = next;
        }
    }

    uint32_t* order_;
    uint32_t* ranks_;
    uint32_t items_;
    const Scratch& scratch_;
};

class StarSort {
 public:
    StarSort(TwoStage& sort, const Scratch& scratch)
        : sort_(sort), scratch_(scratch), text_(sort.text()), rows_(sort.rows()) {}

    void run() {
        stars_ = sort_.gatherStars();
        uint32_t depth = pairDepth;
        if (scratch_.count >= size_t{2} * stars_) {
            sortByWord();
            depth += wordBytes;
        }
        markPairs();
        auto budget = static_cast<int64_t>(budgetPerByte * sort_.length());
        for (; depth < depthLimit && depth < sort_.length() && budget >= 0; depth += wordBytes) {
            forEachGroup(rows_, rows_ + stars_, [&](uint32_t* from, uint32_t* to) {
                if (to - from > fewRotations || !sortByRotation(from, to, depth, budget))
                    refine(from, to, WordOrder{text_ + depth}, scratch_);
            });
        }
        if (reachNextStars(depth)) {
            for (uint32_t i = 0; i < stars_; ++i) rows_[i] &= ~firstOfGroup;
        } else {
            sortByRanks();
        }
    }

 private:
    static constexpr uint32_t pairDepth = 2;
    static constexpr uint32_t wordBytes = 4;
    static constexpr int64_t budgetPerByte = 2;
    static constexpr ptrdiff_t fewRotations = 6;

    /// Sorts the groups of byte pairs by the next four bytes: radix sort by the word, least
    /// significant digit first, and last by the pair.
    void sortByWord() {
        uint64_t* from = scratch_.words;
        uint64_t* to = from + stars_;
        const WordOrder order{text_ + pairDepth};
        for (uint32_t i = 0; i < stars_; ++i) from[i] = keyed(order.key(rows_[i]), rows_[i]);
        if (radixSort<11>(from, to, stars_, UINT32_MAX) == to) std::swap(from, to);
        sort_.regroup(from, to, stars_);
        rows_[0] = static_cast<uint32_t>(to[0]);
        for (uint32_t i = 1; i < stars_; ++i)
            rows_[i] = static_cast<uint32_t>(to[i]) | markIf(keyOf(to[i]) != keyOf(to[i - 1]));
    }

    void markPairs() {
        for (uint32_t pair = 0; pair < vek::bwt::pairs; ++pair) {
            const uint32_t begin = sort_.starsBegin(pair);
            if (begin != sort_.starsEnd(pair)) rows_[begin] |= firstOfGroup;
        }
    }

    /// Settles a group of which `depth` bytes are equal. False when the budget does not allow it.
    bool sortByRotation(uint32_t* from, uint32_t* to, uint32_t depth, int64_t& budget) {
        if (budget < 0) return false;
        *from &= ~firstOfGroup;
        const RotationOrder order{text_, sort_.length(), depth, &budget};
        GroupSorter<RotationOrder>(order).sort(from, to);
        *from |= firstOfGroup;
        if (budget < 0) return false;
        for (uint32_t* i = from + 1; i < to; ++i) *i |= firstOfGroup;
        return true;
    }

    /// Refines the groups that `depth` equal bytes do not take to the next star. False when groups
    /// are left.
    bool reachNextStars(uint32_t depth) {
        bool settled = true;
        forEachGroup(rows_, rows_ + stars_, [&](uint32_t* from, uint32_t* to) {
            settled = false;
            if (extent(text_ + (*from & ~firstOfGroup), depth) > depth)
                refineInPlace(from, to, StarOrder{text_, sort_.length()});
        });
        return settled;
    }

    /// Replaces the stars' positions by their numbers, sorts those by ranks, and puts the positions
    /// back in order.
    void sortByRanks() {
        // Stars are never neighbours: half a position is enough to find a star's number.
        uint32_t* const numbers = rows_ + sort_.length() / 2;
        uint32_t number = stars_;
        sort_.forEachStar([&](uint32_t position) { numbers[position / 2] = --number; });
        for (uint32_t i = 0; i < stars_; ++i) {
            const uint32_t mark = rows_[i] & firstOfGroup;
            rows_[i] = mark | numbers[(rows_[i] & ~firstOfGroup) / 2];
        }
        RankSort ranks(rows_, rows_ + stars_, stars_, scratch_);
        ranks.sort();
        number = stars_;
        sort_.forEachStar([&](uint32_t position) { rows_[ranks.place(--number)] = position; });
    }

    TwoStage& sort_;
    const Scratch& scratch_;
    const uint8_t* text_;
    uint32_t* rows_;
    uint32_t stars_ = 0;
};

Scratch scratchBetween(uint8_t* begin, const uint8_t* end) {
    uint8_t* const first = vek::bwt::alignUp(begin);
    const size_t bytes = first < end ? static_cast<size_t>(end - first) : 0;
    return {reinterpret_cast<uint64_t*>(first), bytes / sizeof(uint64_t)};
}

uint32_t sortRoot(const uint8_t* block, uint32_t length, uint8_t* column, uint8_t* work,
                  size_t room) {
    TwoStage sort(block, length, work);
    const Scratch scratch = scratchBetween(sort.end(), work + room);
    StarSort(sort, scratch).run();
    return sort.induce(column);
}

/// Sorts all rotations by ranks, starting from their first bytes.
uint32_t sortSmallRoot(const uint8_t* block, uint32_t length, uint8_t* column, uint8_t* work,
                       size_t room) {
    auto* const order = reinterpret_cast<uint32_t*>(vek::bwt::alignUp(work));
    uint32_t* const ranks = order + length;
    uint32_t places[257] = {};
    for (uint32_t i = 0; i < length; ++i) ++places[block[i] + 1];
    for (unsigned byte = 0; byte < 256; ++byte) places[byte + 1] += places[byte];
    for (uint32_t i = 0; i < length; ++i) order[places[block[i]]++] = i;
    for (uint32_t i = 0; i < length; ++i) {
        if (i == 0 || block[order[i]] != block[order[i - 1] & ~firstOfGroup])
            order[i] |= firstOfGroup;
    }
    const Scratch scratch = scratchBetween(reinterpret_cast<uint8_t*>(ranks + length), work + room);
    RankSort sort(order, ranks, length, scratch);
    sort.sort();
    for (uint32_t i = 0; i < length; ++i) column[sort.place(i)] = block[(i == 0 ? length : i) - 1];
    return sort.place(0);
}

}  // namespace

void owns_BWT_sfx_fwd_asm(const uint8_t* block, uint32_t length, uint8_t* column, int32_t* index,
                          uint8_t* work, size_t room) {
    const uint32_t times = vek::bwt::repeats(block, length);
    const uint32_t root = length / times;
    uint32_t row = 0;
    if (root == 1) {
        column[0] = block[0];
    } else if (room >= vek::bwt::twoStageSize(root)) {
        row = sortRoot(block, root, column, work, room);
    } else {
        row = sortSmallRoot(block, root, column, work, room);
    }
    if (times > 1) {
        for (uint32_t i = root; i-- > 0;) std::memset(column + size_t{times} * i, column[i], times);
    }
    *index = static_cast<int32_t>(row * times);
}
