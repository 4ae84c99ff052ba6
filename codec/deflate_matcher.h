// Finds the matches of a deflate stream (levels 1 to 9).
//
// Every position is entered under the hash of the four bytes that begin there: the head table holds
// the latest position of each hash, the chain table how far it is from each position to the one
// before it with the same hash. A search follows a chain from the nearest place to farther ones and
// keeps the longest match, the nearest of equals. There are three ways, each with its own need of
// tables: quick, which looks at the latest place alone; greedy, which takes the longest match that
// it finds at each position; lazy, which looks at the next position before it takes one.
//
// The text is one piece of memory: what matches may refer to stands in front of what is matched.
// Positions are those in the text, moved so that they fit 16 bits and 0 stands for none; when they
// come to an end the head table is lowered by a window's length. So the tables take half of what
// they would with positions of a whole stream, which is time too: they stay in nearer caches.
#pragma once

#include <cstdint>

#include "codec/codec.h"
#include "codec/memory.h"

namespace vekdc::codec {

/// How a search goes about it.
struct DeflateSearch {
    uint32_t maxChain;     ///< Places that are looked at,
    uint32_t goodLength;   ///< or a quarter of them once a match has this length.
    uint32_t niceLength;   ///< One of this length ends the search.
    uint32_t lengthLimit;  ///< Greedy: no position inside a longer match is entered. Lazy: behind
                           ///< one of this length no better one is sought.
};

/// Where pairs are written to: literals, with a distance of 0, and matches.
struct DeflatePairRoom {
    uint8_t* lits;
    uint16_t* dists;
    uint32_t count;
};

class DeflateMatcher {
 public:
    enum class Way : uint8_t { Quick, Greedy, Lazy };

    explicit DeflateMatcher(const Allocator& allocator) : head_(allocator), prev_(allocator) {}

    /// Bytes behind the text that are read, whatever they are.
    static constexpr uint32_t kBehind = 16;
    /// A match this far before the text's end is not cut short by it.
    static constexpr uint32_t kLookahead = 512;

    /// Takes tables for texts of up to `most` bytes, or of any length where that is 0, and forgets
    /// all positions; the text's byte at offset `at` is the oldest that matches refer to.
    bool prepare(Way way, unsigned windowBits, uint32_t most, uint32_t at);
    /// Matches may refer to the bytes of the text [from, to), a window's length at the most;
    /// behind prepare() at `from`.
    void enterHistory(const uint8_t* text, uint32_t from, uint32_t to) {
        enter(text, from, to - from < kHashed ? from : to + 1 - kHashed);
    }
    /// The text's first `count` bytes were dropped.
    void slide(uint32_t count) { base_ += count; }
    bool copyFrom(const DeflateMatcher& other);

    /// Finds pairs from the text's offset `at` on until they come to `stop` or the room is used up;
    /// matches go on up to `end`, where the text ends. Returns how far it came, and in `room` what
    /// is left of it.
    uint32_t match(const uint8_t* text, uint32_t at, uint32_t stop, uint32_t end,
                   const DeflateSearch& search, DeflatePairRoom& room);

 private:
    static constexpr uint32_t kHashed = 4;

    uint32_t position(uint32_t at) const { return at + base_; }
    void enter(const uint8_t* text, uint32_t at, uint32_t to);
    void lower();

    Way way_ = Way::Quick;
    uint32_t headSize_ = 0;
    uint32_t prevSize_ = 0;
    uint32_t farthest_ = 0;  ///< Distance of a match.
    uint32_t base_ = 0;      ///< Position of the text's first byte; below 0 it has wrapped around.
    uint32_t oldest_ = 0;    ///< What is before is out of reach.
    uint32_t entered_ = 0;   ///< What is before is in the tables.
    Memory<uint16_t> head_;
    Memory<uint16_t> prev_;
};

}  // namespace vekdc::codec
