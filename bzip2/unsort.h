// The inverse block sort, over entries that hold a byte and a link each.
//
// The last column of the sorted rotations tells, for each row, where the row of the next byte
// stands: the i-th occurrence of a value in the last column is the i-th row that starts with it.
// Following these links from the primary index gives the block in order. Each step depends on the
// one before and lands anywhere in the block, so the walk waits for a cache miss a byte; the byte
// and the link share one 32-bit entry so that it is one miss and not two.
//
// Long blocks are walked in several places at once. Rows at regular distances start a segment each,
// which ends at the next such row met; where in the block a segment lies is known only when all are
// chained up, so a first walk takes their lengths and a second one, in order, writes them. Both
// have many misses under way at a time, which is worth far more than the walk that they add.
#pragma once

#include <algorithm>
#include <cstdint>

#include "bytes/words.h"

namespace vek::inline VEK_LEVEL::bzip2 {

constexpr int32_t inverseBwtLimit = 1 << 24;  // links have 24 bits

constexpr uint32_t segmentedLength = 1 << 16;  // shorter blocks stay in the cache

/// 32-bit entries at any address: a byte of the last column, and above it a link.
class BwtEntries {
 public:
    explicit BwtEntries(uint8_t* buffer) : buffer_(buffer) {}
    uint32_t get(uint32_t i) const { return load<uint32_t>(buffer_ + size_t{4} * i); }
    void set(uint32_t i, uint32_t entry) { store(buffer_ + size_t{4} * i, entry); }
    uint8_t* at(uint32_t i) { return buffer_ + size_t{4} * i; }

 private:
    uint8_t* buffer_;
};

/// Turns counts of values into the first row that starts with each.
inline void startsOfCounts(uint32_t* counts) {
    uint32_t start = 0;
    for (unsigned value = 0; value < 256; ++value) {
        const uint32_t count = counts[value];
        counts[value] = start;
        start += count;
    }
}

/// The walk along the links, in segments.
class SegmentWalk {
 public:
    SegmentWalk(BwtEntries entries, uint32_t length, uint32_t index)
        : entries_(entries), length_(length), index_(index) {
        while (length_ >> shift_ >= maxStarts) ++shift_;
        starts_ = ((length_ - 1) >> shift_) + 1;
    }

    /// Writes the block; false, with nothing written, when the links do not lead through it in
    /// segments: a column that is no transform of one block, or of one with a short period.
    bool run(uint8_t* dst) {
        if (!measure() || !chain()) return false;
        write(dst);
        return true;
    }

 private:
    static constexpr unsigned cursorCount = 16;
    static constexpr uint32_t maxStarts = 512;

    /// What starts at row `id << shift_`, or at the primary index for the id behind those.
    struct Segment {
        uint32_t length;
        uint32_t next;
    };
    struct Piece {
        uint32_t segment;
        uint32_t offset;
        uint32_t length;
    };
    struct Reader {
        uint32_t entry;
        uint32_t steps;
        uint32_t segment;
    };
    struct Writer {
        uint32_t entry;
        uint32_t left;
        uint8_t* to;
    };

    uint32_t entryAtStart(uint32_t segment) const {
        return entries_.get(segment == starts_ ? index_ : segment << shift_);
    }

    /// Finds each segment's length and successor.
    bool measure() {
        Reader readers[cursorCount];
        unsigned active = 0;
        uint32_t waiting = starts_ + 1;
        const uint32_t inside = (1U << shift_) - 1;
        const auto restart = [&](Reader& reader) {
            --waiting;
            reader = {entryAtStart(waiting), 0, waiting};
        };
        while (active < cursorCount && waiting != 0) restart(readers[active++]);
        while (active != 0) {
            for (unsigned i = 0; i < active; ++i) {
                Reader& reader = readers[i];
                const uint32_t row = reader.entry >> 8;
                ++reader.steps;
                if ((row & inside) != 0 && reader.steps <= length_) {
                    reader.entry = entries_.get(row);
                    continue;
                }
                if (reader.steps > length_) return false;
                segments_[reader.segment] = {reader.steps, row >> shift_};
                if (waiting != 0) {
                    restart(reader);
                } else {
                    reader = readers[--active];
                }
            }
        }
        return true;
    }

    /// Lines the segments up from the primary index on.
    bool chain() {
        uint32_t offset = 0;
        for (uint32_t segment = starts_; offset < length_; segment = segments_[segment].next) {
            if (pieceCount_ > starts_) return false;
            const uint32_t length = std::min(segments_[segment].length, length_ - offset);
            pieces_[pieceCount_++] = {segment, offset, length};
            offset += length;
        }
        return true;
    }

    void write(uint8_t* dst) {
        Writer writers[cursorCount];
        unsigned active = 0;
        const auto restart = [&](Writer& writer) {
            const Piece& piece = pieces_[--pieceCount_];
            writer = {entryAtStart(piece.segment), piece.length, dst + piece.offset};
        };
        while (active < cursorCount && pieceCount_ != 0) restart(writers[active++]);
        while (active != 0) {
            uint32_t steps = length_;
            for (unsigned i = 0; i < active; ++i) steps = std::min(steps, writers[i].left);
            for (uint32_t step = 0; step < steps; ++step) {
                for (unsigned i = 0; i < active; ++i) {
                    writers[i].entry = entries_.get(writers[i].entry >> 8);
                    writers[i].to[step] = static_cast<uint8_t>(writers[i].entry);
                }
            }
            for (unsigned i = 0; i < active;) {
                writers[i].to += steps;
                writers[i].left -= steps;
                if (writers[i].left != 0) {
                    ++i;
                } else if (pieceCount_ != 0) {
                    restart(writers[i++]);
                } else {
                    writers[i] = writers[--active];
                }
            }
        }
    }

    BwtEntries entries_;
    uint32_t length_;
    uint32_t index_;
    unsigned shift_ = 12;
    uint32_t starts_;
    uint32_t pieceCount_ = 0;
    Segment segments_[maxStarts + 1];
    Piece pieces_[maxStarts + 1];
};

/// Inverts a transform of `length` entries whose bytes are set and links are 0. `counts` are the
/// numbers of each value; they are used up. `index` is below `length`.
inline void invertBwt(BwtEntries entries, uint32_t length, uint32_t* counts, uint32_t index,
                      uint8_t* dst) {
    startsOfCounts(counts);
    for (uint32_t i = 0; i < length; ++i) {
        const uint32_t row = counts[entries.get(i) & 0xFF]++;
        entries.set(row, entries.get(row) | (i << 8));
    }
    if (length >= segmentedLength && SegmentWalk(entries, length, index).run(dst)) return;
    uint32_t entry = entries.get(index);
    for (uint32_t i = 0; i < length; ++i) {
        entry = entries.get(entry >> 8);
        dst[i] = static_cast<uint8_t>(entry);
    }
}

}  // namespace vek::inline VEK_LEVEL::bzip2
