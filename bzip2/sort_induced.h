// Two-stage sorting of a block's rotations (Itoh and Tanaka, 1999): sort a third of them, induce
// the rest.
//
// A position descends when its rotation is greater than the next position's, else it ascends. Only
// the stars are sorted by comparison: ascending positions whose successor descends, at most every
// second one and in practice every third. In the sorted order the rotations that start with a byte
// come as those that descend, then those that ascend; and in a bucket of one byte pair the stars
// come first. So one scan from the end places each ascending predecessor of what it meets, and one
// scan from the start each descending predecessor, which also meets every row in order and writes
// the last column as it goes. Everything is cyclic: no sentinel, position 0 follows the last.
//
// The scans are bound by branches that nothing predicts (is the predecessor of this scan's kind?)
// and by fetching the byte in front of each position. Both are avoided: every predecessor is
// written, and its bucket moves on only if it belongs there, the place being free otherwise; and an
// entry carries the byte in front of its position, fetched when the entry is made, when nothing
// waits for it.
#pragma once

#include <tmmintrin.h>

#include <cstdint>
#include <cstring>

#include "bytes/words.h"

namespace vek::inline VEK_LEVEL::bzip2 {

constexpr uint32_t byteValues = 256;
constexpr uint32_t bytePairs = 65536;
constexpr size_t alignment = 64;
constexpr uint32_t textFront = 16;  // room in front of the text; its last byte is the block's last
constexpr uint32_t starBlock = 16;  // positions that are told ascending from descending at once
constexpr uint32_t textTail = 16;   // bytes behind two copies that wide reads may touch

/// Bytes of the tables, the text and the entries of a block of `length`.
constexpr size_t twoStageSize(size_t length) {
    return 6 * length + 524484;
}
static_assert(2 * sizeof(uint32_t) * bytePairs + textFront + textTail + alignment - 1 <=
              twoStageSize(0));

inline uint8_t* alignUp(uint8_t* p) {
    return p + (-reinterpret_cast<uintptr_t>(p) & (alignment - 1));
}

/// Writes the block twice end to end, the byte in front of it and textTail bytes behind, so that
/// every rotation can be read straight on.
inline void copyTwice(const uint8_t* block, uint32_t length, uint8_t* text) {
    std::memcpy(text, block, length);
    std::memcpy(text + length, block, length);
    text[-1] = block[length - 1];
    for (uint32_t i = 0; i < textTail; ++i) text[size_t{2} * length + i] = text[length + i];
}

/// Entries of the scans: a position and the byte in front of it in one word.
struct PackedEntry {
    static constexpr uint32_t limit = 1U << 24;
    static uint32_t make(const uint8_t* text, uint32_t position) {
        return position | static_cast<uint32_t>(text[static_cast<int32_t>(position) - 1]) << 24;
    }
    static uint32_t position(uint32_t entry) { return entry & (limit - 1); }
    static uint32_t byteBefore(const uint8_t* /*text*/, uint32_t entry) { return entry >> 24; }
};

/// Entries of blocks too long for that.
struct PlainEntry {
    static uint32_t make(const uint8_t* /*text*/, uint32_t position) { return position; }
    static uint32_t position(uint32_t entry) { return entry; }
    static uint32_t byteBefore(const uint8_t* text, uint32_t entry) {
        return text[static_cast<int32_t>(entry) - 1];
    }
};

class TwoStage {
 public:
    /// `block` must not be one value throughout; `buffer` has twoStageSize(length) bytes.
    TwoStage(const uint8_t* block, uint32_t length, uint8_t* buffer)
        : length_(length),
          bucketEnd_(reinterpret_cast<uint32_t*>(alignUp(buffer))),
          starEnd_(bucketEnd_ + bytePairs),
          rows_(starEnd_ + bytePairs),
          text_(reinterpret_cast<uint8_t*>(rows_ + length) + textFront) {
        copyTwice(block, length, text_);
    }

    const uint8_t* text() const { return text_; }
    uint32_t length() const { return length_; }
    uint32_t* rows() { return rows_; }
    /// First byte behind what this object uses of the buffer.
    uint8_t* end() { return text_ + size_t{2} * length_ + textTail; }

    /// Calls `visit(position)` for every star from the last to the first; returns their number.
    template <class Visit>
    uint32_t forEachStar(Visit visit) const {
        uint32_t other = 1;
        while (text_[other] == text_[0]) ++other;
        bool nextAscends = text_[0] < text_[other];
        uint32_t stars = 0;
        uint32_t i = length_;
        for (; i >= starBlock; i -= starBlock) {
            const uint8_t* const block = text_ + i - starBlock;
            for (uint32_t found = starsOf(block, nextAscends); found != 0; found &= found - 1) {
                visit(i - 1 - lowestSetBit(found));
                ++stars;
            }
        }
        while (i-- > 0) {
            const bool ascends =
                text_[i] < text_[i + 1] || (text_[i] == text_[i + 1] && nextAscends);
            if (ascends && !nextAscends) {
                visit(i);
                ++stars;
            }
            nextAscends = ascends;
        }
        return stars;
    }

    /// Fills rows()[0..stars) with the stars, grouped by their byte pairs in order; returns their
    /// number, at least 1. starsEnd() then tells the groups.
    uint32_t gatherStars() {
        std::memset(bucketEnd_, 0, 2 * sizeof(uint32_t) * bytePairs);
        for (uint32_t i = 0; i < length_; ++i) ++bucketEnd_[text_[i + 1] << 8 | text_[i]];
        uint32_t* list = rows_ + length_;
        const uint32_t stars = forEachStar([&](uint32_t position) {
            *--list = position;
            ++starEnd_[pairAt(position)];
        });
        makeBuckets();
        // Stars are never neighbours, so the list is in the upper half and the groups in the lower.
        for (uint32_t i = 0; i < stars; ++i) rows_[starEnd_[pairAt(list[i])]++] = list[i];
        return stars;
    }

    /// Where in rows() the group of a pair (first byte * 256 + second) begins and ends.
    uint32_t starsBegin(uint32_t pair) const { return pair == 0 ? 0 : starEnd_[pair - 1]; }
    uint32_t starsEnd(uint32_t pair) const { return starEnd_[pair]; }

    /// From the sorted stars in rows(): writes the last column and returns the row of position 0.
    uint32_t induce(uint8_t* column) {
        return length_ <= PackedEntry::limit ? induceWith<PackedEntry>(column)
                                             : induceWith<PlainEntry>(column);
    }

 private:
    /// Stars among sixteen positions, the last one's in bit 0. `nextAscends` tells whether the
    /// position behind them ascends; on return, whether the first of them does.
    ///
    /// A position ascends if its byte is below the next or equal to it before one that ascends: a
    /// carry that less generates and equal propagates, so one addition finds it for all sixteen.
    static uint32_t starsOf(const uint8_t* p, bool& nextAscends) {
        const __m128i reverse = _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
        const __m128i own =
            _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), reverse);
        const __m128i next =
            _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 1)), reverse);
        const __m128i notGreater = _mm_cmpeq_epi8(_mm_min_epu8(own, next), own);
        const auto upTo = static_cast<uint32_t>(_mm_movemask_epi8(notGreater));
        const auto equal = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(own, next)));
        const uint32_t less = upTo & ~equal;
        const uint32_t behind = nextAscends ? 1 : 0;
        const uint32_t carries = (upTo + less + behind) ^ upTo ^ less;
        nextAscends = carries >> starBlock != 0;
        return (carries >> 1) & ~carries;
    }

    uint32_t pairAt(uint32_t position) const {
        return static_cast<uint32_t>(text_[position] << 8 | text_[position + 1]);
    }

    /// Bucket of a pair, filed by the second byte: the first scan meets all that precede one byte.
    static uint32_t filed(uint32_t first, uint32_t second) { return second << 8 | first; }

    /// Turns the counts into the last place of each bucket and the first of each group of stars.
    /// A pair that descends gets a place that the first scan may write to in vain: the first of its
    /// byte's range, which is filled by the second scan, as the pair itself shows.
    void makeBuckets() {
        uint32_t sum = 0;
        uint32_t starSum = 0;
        for (uint32_t first = 0; first < byteValues; ++first) {
            rangeBegin_[first] = sum;
            for (uint32_t second = 0; second < byteValues; ++second) {
                uint32_t& bucket = bucketEnd_[filed(first, second)];
                uint32_t& stars = starEnd_[first << 8 | second];
                sum += bucket;
                bucket = first <= second ? sum - 1 : rangeBegin_[first];
                const uint32_t count = stars;
                stars = starSum;
                starSum += count;
            }
        }
        rangeBegin_[byteValues] = sum;
    }

    /// Moves each group of stars to the start of its bucket. Each bucket lies at or behind its
    /// group, so the last group goes first.
    template <class Entry>
    void spreadStars() {
        for (uint32_t pair = bytePairs; pair-- > 0;) {
            uint32_t from = starsEnd(pair);
            const uint32_t count = from - starsBegin(pair);
            if (count == 0) continue;
            // A star's first byte is below its second, so there is a bucket in front.
            uint32_t to = bucketEnd_[filed(pair >> 8, (pair & 0xFF) - 1)] + 1 + count;
            for (uint32_t i = 0; i < count; ++i) rows_[--to] = Entry::make(text_, rows_[--from]);
        }
    }

    template <class Entry>
    uint32_t induceWith(uint8_t* column) {
        spreadStars<Entry>();
        induceAscending<Entry>();
        return induceDescending<Entry>(column);
    }

    template <class Entry>
    void induceAscending() {
        for (uint32_t byte = byteValues; byte-- > 0;) {
            uint32_t* const buckets = bucketEnd_ + filed(0, byte);
            auto i = static_cast<int32_t>(rangeBegin_[byte + 1]) - 1;
            for (; i > static_cast<int32_t>(buckets[byte]); --i) {
                const uint32_t entry = rows_[i];
                const uint32_t before = Entry::byteBefore(text_, entry);
                rows_[buckets[before]] = Entry::make(text_, predecessor(Entry::position(entry)));
                buckets[before] -= before <= byte ? 1 : 0;
            }
        }
    }

    template <class Entry>
    uint32_t induceDescending(uint8_t* column) {
        uint32_t next[byteValues];
        std::memcpy(next, rangeBegin_, sizeof(next));
        uint32_t row = 0;
        for (uint32_t byte = 0; byte < byteValues; ++byte) {
            uint32_t i = rangeBegin_[byte];
            // An equal byte in front of one that descends descends too; one in front of one that
            // ascends does not. What is written in vain lands on rows that were read.
            const auto step = [&](uint32_t least) {
                const uint32_t entry = rows_[i];
                const uint32_t before = Entry::byteBefore(text_, entry);
                const uint32_t position = Entry::position(entry);
                column[i] = static_cast<uint8_t>(before);
                if (position == 0) row = i;
                rows_[next[before]] = Entry::make(text_, predecessor(position));
                next[before] += before >= least ? 1 : 0;
            };
            for (; i < next[byte]; ++i) step(byte);
            for (; i < rangeBegin_[byte + 1]; ++i) step(byte + 1);
        }
        return row;
    }

    uint32_t predecessor(uint32_t position) const {
        return (position == 0 ? length_ : position) - 1;
    }

    uint32_t length_;
    uint32_t* bucketEnd_;
    uint32_t* starEnd_;
    uint32_t* rows_;
    uint8_t* text_;
    uint32_t rangeBegin_[byteValues + 1];
};

}  // namespace vek::inline VEK_LEVEL::bzip2
