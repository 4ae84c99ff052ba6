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
void refineGroup(uint32_t* begin, uint32_t* end, const Order& order) {
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

/// Gives every item of a group its rank, the place of the group's last, and writes -1, a sorted run
/// of one, over those that stand alone.
void rankGroups(uint32_t* order, uint32_t* begin, uint32_t* end, uint32_t* ranks) {
    while (begin < end) {
        uint32_t* next = begin + 1;
        while (next < end && (*next & firstOfGroup) == 0) ++next;
        *begin &= ~firstOfGroup;
        const auto rank = static_cast<uint32_t>(next - order) - 1;
        for (uint32_t* i = begin; i < next; ++i) ranks[*i] = rank;
        if (next - begin == 1) *begin = static_cast<uint32_t>(-1);
        begin = next;
    }
}

/// Sorts `items` items that follow each other in a circle and whose rotations all differ. `order`
/// holds them in order of their first k, k at least 1, in marked groups; afterwards ranks[item] is
/// each one's place. A negative entry in `order` stands for so many that are settled.
void sortByRanks(uint32_t* order, uint32_t* ranks, uint32_t items) {
    rankGroups(order, order, order + items, ranks);
    for (uint32_t ahead = 1; ahead < items; ahead *= 2) {
        uint32_t settled = 0;
        for (uint32_t i = 0; i < items;) {
            const auto entry = static_cast<int32_t>(order[i]);
            if (entry < 0) {
                settled += static_cast<uint32_t>(-entry);
                i += static_cast<uint32_t>(-entry);
            } else {
                if (settled != 0) order[i - settled] = -settled;
                settled = 0;
                const uint32_t end = ranks[entry] + 1;
                refineGroup(order + i, order + end, RankOrder{ranks, items, ahead});
                rankGroups(order, order + i, order + end, ranks);
                i = end;
            }
        }
        if (settled == items) return;
        if (settled != 0) order[items - settled] = -settled;
    }
}

/// Replaces the stars' positions by their numbers, sorts those by ranks, and puts the positions
/// back in order.
void sortStarsByRanks(TwoStage& sort, uint32_t stars) {
    uint32_t* const rows = sort.rows();
    // Stars are never neighbours: half a position is enough to find a star's number.
    uint32_t* const numbers = rows + sort.length() / 2;
    uint32_t number = stars;
    sort.forEachStar([&](uint32_t position) { numbers[position / 2] = --number; });
    for (uint32_t i = 0; i < stars; ++i) {
        const uint32_t mark = rows[i] & firstOfGroup;
        rows[i] = mark | numbers[(rows[i] & ~firstOfGroup) / 2];
    }
    uint32_t* const ranks = rows + stars;
    sortByRanks(rows, ranks, stars);
    number = stars;
    sort.forEachStar([&](uint32_t position) { rows[ranks[--number]] = position; });
}

void sortStars(TwoStage& sort, uint32_t stars) {
    uint32_t* const rows = sort.rows();
    uint32_t* const end = rows + stars;
    for (uint32_t pair = 0; pair < vek::bwt::pairs; ++pair) {
        const uint32_t begin = sort.starsBegin(pair);
        if (begin != sort.starsEnd(pair)) rows[begin] |= firstOfGroup;
    }
    for (uint32_t depth = 2; depth < depthLimit && depth < sort.length(); depth += 4) {
        forEachGroup(rows, end, [&](uint32_t* from, uint32_t* to) {
            refineGroup(from, to, WordOrder{sort.text() + depth});
        });
    }
    bool settled = true;
    forEachGroup(rows, end, [&](uint32_t* from, uint32_t* to) {
        settled = false;
        const uint8_t* const star = sort.text() + (*from & ~firstOfGroup);
        if (extent(star, depthLimit) > depthLimit)
            refineGroup(from, to, StarOrder{sort.text(), sort.length()});
    });
    if (settled) {
        for (uint32_t* i = rows; i < end; ++i) *i &= ~firstOfGroup;
    } else {
        sortStarsByRanks(sort, stars);
    }
}

uint32_t sortRoot(const uint8_t* block, uint32_t length, uint8_t* column, uint8_t* work) {
    TwoStage sort(block, length, work);
    sortStars(sort, sort.gatherStars());
    return sort.induce(column);
}

/// Sorts all rotations by ranks, starting from their first bytes.
uint32_t sortSmallRoot(const uint8_t* block, uint32_t length, uint8_t* column, uint8_t* work) {
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
    sortByRanks(order, ranks, length);
    for (uint32_t i = 0; i < length; ++i) column[ranks[i]] = block[(i == 0 ? length : i) - 1];
    return ranks[0];
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
        row = sortRoot(block, root, column, work);
    } else {
        row = sortSmallRoot(block, root, column, work);
    }
    if (times > 1) {
        for (uint32_t i = root; i-- > 0;) std::memset(column + size_t{times} * i, column[i], times);
    }
    *index = static_cast<int32_t>(row * times);
}
