// The sort of a block's stars (sort_induced.h), in three steps, each of which refines the groups
// that the one before left equal:
//   1. by the next four bytes, over and over, to a small depth: settles nearly all of a text;
//   2. groups that do not yet reach to the next star (a long run lies between) by comparing up to
//      there: each star's share of the block is only its own, so this is linear but for a
//      logarithm;
//   3. by ranks (sort_ranks.h): equal groups now agree on where the next star lies, so the order of
//      stars k stars further on decides, and k doubles each round.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "bytes/match_length.h"
#include "bytes/words.h"
#include "bzip2/sort_induced.h"
#include "bzip2/sort_ranks.h"

namespace vek::inline VEK_LEVEL::bzip2 {

/// Order of positions by the four bytes at a depth.
struct WordOrder {
    const uint8_t* text;
    uint32_t key(uint32_t position) const { return byteSwap(load<uint32_t>(text + position)); }
    int compare(uint32_t position, uint32_t other) const {
        const uint32_t own = key(position);
        return own < other ? -1 : own > other ? 1 : 0;
    }
};

/// Bytes from the star at `star` to where the run that follows the next star ends: its first so
/// many bytes decide where that star is. More than `limit` bytes are not looked at.
inline uint32_t extent(const uint8_t* star, uint32_t limit) {
    uint32_t i = 2;
    while (i < limit && star[i - 1] >= star[i]) ++i;
    while (i < limit && star[i - 1] <= star[i]) ++i;
    return i + 1;
}

/// Number of stars behind the one at `star` that its first `limit` bytes decide.
inline uint32_t starsWithin(const uint8_t* star, uint32_t limit) {
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
        const size_t same = matchLength(own, other.star, other.extent);
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
        const size_t same = matchLength(a, b, length);
        return same == length ? 0 : a[same] < b[same] ? -1 : 1;
    }
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
        for (uint32_t pair = 0; pair < bytePairs; ++pair) {
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

}  // namespace vek::inline VEK_LEVEL::bzip2
