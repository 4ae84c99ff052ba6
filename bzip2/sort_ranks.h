// Sorting by ranks (Larsson and Sadakane, 1999): what is equal in its first items is told apart by
// the ranks of the items further on, and the distance looked ahead doubles each round.
//
// Repetitive blocks cost no more than others: n log n steps whatever the items. Needs a word of
// rank an item; further memory makes it faster.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "bzip2/sort_groups.h"

namespace vek::inline VEK_LEVEL::bzip2 {

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

}  // namespace vek::inline VEK_LEVEL::bzip2
