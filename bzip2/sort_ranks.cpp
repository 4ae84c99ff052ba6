// The general kernel of the forward block sort: near-linear whatever the block holds.
//
// The block is cut to its shortest root first, so that all rotations differ. Its stars (see
// sort_induced.h) are sorted in three steps, each of which refines the groups that the one before
// left equal:
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

#include "bytes/match_length.h"
#include "bzip2/sort.h"
#include "bzip2/sort_induced.h"

namespace {

using vek::bzip2::TwoStage;

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

/// Number of stars behind the one at `star` that its first `limit` bytes decide.
uint32_t starsWithin(const uint8_t* star, uint32_t limit) {
    uint32_t stars = 0;
    bool ascending = false;
    for (uint32_t i = 2; i < limit; ++i) {
        if (star[i - 1] < star[i]) {
            ascending = true;
        } else if (star[i - 1] > star[i]) {
            stars += ascending ? 1 : 0;
            ascending = false;
        }
    }
    return stars;
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

/// Order of positions by so many bytes from a depth on.
struct StringOrder {
    const uint8_t* text;
    size_t length;

    uint32_t key(uint32_t position) const { return position; }
    int compare(uint32_t position, uint32_t other) const {
        const uint8_t* const a = text + position;
        const uint8_t* const b = text + other;
        const size_t same = vek::matchLength(a, b, length);
        return same == length ? 0 : a[same] < b[same] ? -1 : 1;
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
///
/// A group's reach is the number of items that its members are known to share. To remember it for
/// each group takes scratch memory; without it the least possible serves all.
class RankSort {
 public:
    RankSort(uint32_t* order, uint32_t* ranks, uint32_t items, Scratch scratch)
        : order_(order), ranks_(ranks), items_(items), sorter_(scratch) {
        const size_t words = items / 2 + 1;
        if (scratch.count < words) return;
        reaches_ = reinterpret_cast<uint32_t*>(scratch.words);
        sorter_ = KeyedSorter({scratch.words + words, scratch.count - words});
        std::fill(reaches_, reaches_ + items, 1U);
    }

    /// Tells that the members of the group that begins at `begin` share `items` items, at least 1.
    void setReach(uint32_t begin, uint32_t items) {
        if (reaches_ != nullptr) reaches_[begin] = items;
    }

    /// Sorts items that follow each other in a circle and whose rotations all differ, given them in
    /// order of their first item. Afterwards place(item) is each one's.
    ///
    /// A round visits the items from the last to the first and refines the group of each, once, by
    /// the ranks of the items behind those it shares: what this very round found out already.
    /// Repeated strings of any length, which are what is left by now, are so settled from their
    /// ends in a round or a few. Since each group reaches at least twice as far after a round, no
    /// more than log2(items) are needed.
    void sort() {
        rankGroups(0, items_, 0);
        uint32_t round = 0;
        for (leastReach_ = 1; leastReach_ < items_; leastReach_ *= 2) {
            round ^= roundBit;
            bool settled = true;
            for (uint32_t item = items_; item-- > 0;) {
                const uint32_t rank = ranks_[item];
                if ((rank & settledRank) != 0 || (rank & roundBit) == round) continue;
                settled = false;
                refineGroup(rank >> placeShift, round);
            }
            if (settled) return;
        }
    }

    uint32_t place(uint32_t item) const { return ranks_[item] >> placeShift; }

 private:
    uint32_t reachOf(uint32_t begin) const {
        return reaches_ != nullptr ? reaches_[begin] : leastReach_;
    }

    uint32_t groupEnd(uint32_t begin) const {
        uint32_t end = begin + 1;
        while (end < items_ && (order_[end] & firstOfGroup) == 0) ++end;
        return end;
    }

    void refineGroup(uint32_t begin, uint32_t round) {
        const uint32_t end = groupEnd(begin);
        const RankOrder order{ranks_, items_, reachOf(begin)};
        const uint64_t* const pairs = sorter_.sort(order_ + begin, order_ + end, order);
        if (pairs != nullptr) {
            place(pairs, begin, end - begin, round);
        } else {
            const uint32_t reach = reachOf(begin);
            refineInPlace(order_ + begin, order_ + end, order);
            for (uint32_t i = begin; i < end; i = groupEnd(i)) {
                const uint32_t other = order.key(order_[i] & ~firstOfGroup) >> placeShift;
                setReach(i, reach + (other == begin ? reach : reachOf(other)));
            }
            rankGroups(begin, end, round);
        }
    }

    /// Puts a group's sorted items in place and ranks them. Those that are still equal share,
    /// beyond their own reach, what the items share that failed to tell them apart.
    void place(const uint64_t* pairs, uint32_t begin, uint32_t count, uint32_t round) {
        const uint32_t reach = reachOf(begin);
        for (uint32_t i = 0; i < count;) {
            const uint32_t key = keyOf(pairs[i]);
            auto item = static_cast<uint32_t>(pairs[i]);
            const uint32_t first = begin + i;
            order_[first] = item | firstOfGroup;
            if (++i == count || keyOf(pairs[i]) != key) {
                ranks_[item] = first << placeShift | settledRank;
                continue;
            }
            const uint32_t rank = first << placeShift | round;
            ranks_[item] = rank;
            for (; i < count && keyOf(pairs[i]) == key; ++i) {
                item = static_cast<uint32_t>(pairs[i]);
                order_[begin + i] = item;
                ranks_[item] = rank;
            }
            const uint32_t other = key >> placeShift;
            setReach(first, reach + (other == begin ? reach : reachOf(other)));
        }
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
    uint32_t* reaches_ = nullptr;
    uint32_t items_;
    uint32_t leastReach_ = 1;
    KeyedSorter sorter_;
};

class StarSort {
 public:
    StarSort(TwoStage& sort, const Scratch& scratch)
        : sort_(sort),
          scratch_(scratch),
          sorter_(scratch),
          text_(sort.text()),
          rows_(sort.rows()) {}

    void run() {
        stars_ = sort_.gatherStars();
        markPairs();
        uint32_t depth = pairDepth;
        refineByStrings(depth);
        depth += wordBytes;
        // As long as a pass settles half of what the one before left.
        uint32_t before = stars_;
        for (uint32_t open = stars_; open != 0 && open <= before && depth < sort_.length();) {
            before = open / 2;
            refineByStrings(depth);
            depth += wordBytes;
            open = openStars();
        }
        if (reachNextStars(depth)) {
            for (uint32_t i = 0; i < stars_; ++i) rows_[i] &= ~firstOfGroup;
        } else {
            sortByRanks(depth);
        }
    }

 private:
    static constexpr uint32_t pairDepth = 2;
    static constexpr uint32_t wordBytes = 4;
    static constexpr uint32_t stringBytes = 48;
    static constexpr ptrdiff_t fewStrings = 10;

    void markPairs() {
        for (uint32_t pair = 0; pair < vek::bzip2::pairs; ++pair) {
            const uint32_t begin = sort_.starsBegin(pair);
            if (begin != sort_.starsEnd(pair)) rows_[begin] |= firstOfGroup;
        }
    }

    /// Number of stars that are not alone in their group.
    uint32_t openStars() {
        uint32_t open = 0;
        forEachGroup(rows_, rows_ + stars_, [&](const uint32_t* from, const uint32_t* to) {
            open += static_cast<uint32_t>(to - from);
        });
        return open;
    }

    void refineByStrings(uint32_t depth) {
        const StringOrder order{text_ + depth, std::min(stringBytes, sort_.length())};
        forEachGroup(rows_, rows_ + stars_, [&](uint32_t* from, uint32_t* to) {
            if (to - from == 2) {
                refineTwo(from, order);
            } else if (to - from <= fewStrings) {
                refineInPlace(from, to, order);
            } else {
                refineByWord(from, to, depth);
            }
        });
    }

    static void refineTwo(uint32_t* stars, const StringOrder& order) {
        const uint32_t first = stars[0] & ~firstOfGroup;
        const uint32_t second = stars[1];
        const int comparison = order.compare(first, second);
        stars[0] = (comparison <= 0 ? first : second) | firstOfGroup;
        stars[1] = (comparison <= 0 ? second : first) | markIf(comparison != 0);
    }

    /// Refines a group of which `depth` bytes are equal by the next four.
    void refineByWord(uint32_t* from, uint32_t* to, uint32_t depth) {
        const WordOrder order{text_ + depth};
        const uint64_t* const pairs = sorter_.sort(from, to, order);
        if (pairs == nullptr) return refineInPlace(from, to, order);
        for (ptrdiff_t i = 0; i < to - from; ++i) {
            from[i] = static_cast<uint32_t>(pairs[i]) |
                      markIf(i == 0 || keyOf(pairs[i]) != keyOf(pairs[i - 1]));
        }
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
    void sortByRanks(uint32_t depth) {
        // Stars are never neighbours: half a position is enough to find a star's number.
        uint32_t* const numbers = rows_ + sort_.length() / 2;
        uint32_t number = stars_;
        sort_.forEachStar([&](uint32_t position) { numbers[position / 2] = --number; });
        RankSort ranks(rows_, rows_ + stars_, stars_, scratch_);
        forEachGroup(rows_, rows_ + stars_, [&](const uint32_t* from, const uint32_t* /*to*/) {
            const uint8_t* const star = text_ + (*from & ~firstOfGroup);
            ranks.setReach(static_cast<uint32_t>(from - rows_),
                           std::max(starsWithin(star, depth), 1U));
        });
        for (uint32_t i = 0; i < stars_; ++i) {
            const uint32_t mark = rows_[i] & firstOfGroup;
            rows_[i] = mark | numbers[(rows_[i] & ~firstOfGroup) / 2];
        }
        ranks.sort();
        number = stars_;
        sort_.forEachStar([&](uint32_t position) { rows_[ranks.place(--number)] = position; });
    }

    TwoStage& sort_;
    const Scratch& scratch_;
    KeyedSorter sorter_;
    const uint8_t* text_;
    uint32_t* rows_;
    uint32_t stars_ = 0;
};

Scratch scratchBetween(uint8_t* begin, const uint8_t* end) {
    uint8_t* const first = vek::bzip2::alignUp(begin);
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
    auto* const order = reinterpret_cast<uint32_t*>(vek::bzip2::alignUp(work));
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
    const uint32_t times = vek::bzip2::repeats(block, length);
    const uint32_t root = length / times;
    uint32_t row = 0;
    if (root == 1) {
        column[0] = block[0];
    } else if (room >= vek::bzip2::twoStageSize(root)) {
        row = sortRoot(block, root, column, work, room);
    } else {
        row = sortSmallRoot(block, root, column, work, room);
    }
    if (times > 1) {
        for (uint32_t i = root; i-- > 0;) std::memset(column + size_t{times} * i, column[i], times);
    }
    *index = static_cast<int32_t>(row * times);
}
