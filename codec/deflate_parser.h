// The best parse of a stretch of input: the literals and matches that take the fewest bits.
//
// Each position's matches come from a binary tree for each hash of four bytes, which is sorted by
// what follows, and from the latest position of the same three bytes: for each length the nearest
// match, all of them in one walk down from later positions to earlier ones. They are kept, so that
// the stretch can be parsed again: the cheapest way from each position to the stretch's end is
// found from the end backwards, at prices that follow from the symbols' frequencies in the parse
// before. The first prices come from a greedy parse. Two rounds give most of what can be had.
//
// The input passes through a buffer of two windows, so that positions fit 16 bits. Positions are
// entered before it is known how their bytes go on; what the trees say then need not be sorted
// rightly, and is verified before it is used.
#pragma once

#include <cstdint>

#include "codec/codec.h"
#include "codec/deflate_prices.h"
#include "codec/memory.h"

namespace vekdc::codec {

/// How much is done for a good parse.
struct DeflateEffort {
    uint32_t depth;    ///< Positions that a search looks at.
    uint32_t nice;     ///< A match of this length ends it, and none are sought inside.
    uint32_t rounds;   ///< Parses of a stretch.
    uint32_t stretch;  ///< Bytes that are parsed at once.
};

class DeflateParser {
 public:
    explicit DeflateParser(const Allocator& allocator)
        : text_(allocator),
          tables_(allocator),
          matches_(allocator),
          steps_(allocator),
          found_(allocator) {}

    /// Takes memory and forgets all input. `whole` is the size of a stream that is all there, 0 of
    /// any other.
    bool prepare(unsigned windowBits, size_t whole);
    /// Takes memory for parses of input of the given size.
    bool prepareParse(const DeflateEffort& effort, size_t size);
    /// What follows may refer to these bytes.
    void setHistory(Bytes history);
    bool copyFrom(const DeflateParser& other);
    /// The latest input, as far as it is kept.
    Bytes history() const { return Bytes(text_.data() + kFirst, position_ - kFirst); }

    /// Parses a stretch from the start of the input, which may be longer, of at most `most` bytes.
    /// The pairs are no more than the bytes that it returns.
    uint32_t parse(Bytes input, size_t most, uint8_t* lits, uint16_t* dists, uint32_t& pairs);

 private:
    struct Match {
        uint16_t length;
        uint16_t distance;
    };
    /// How the cheapest way to the end begins: with a literal where the distance is 0. The price is
    /// that of all the way.
    struct Step {
        uint32_t price;
        Match match;
    };

    static constexpr uint32_t kWindow = 32768;
    /// Position 0 stands for none, so that input begins behind it.
    static constexpr uint32_t kFirst = 1;
    /// Of more matches the stretch ends earlier.
    static constexpr uint32_t kMatchesPerByte = 4;

    uint16_t* head() { return tables_.data(); }
    uint16_t* nearHead() { return head() + (1U << hashBits_); }
    uint16_t* children() { return nearHead() + (1U << nearBits_); }
    size_t tableSize() const { return (1U << hashBits_) + (1U << nearBits_) + 2 * treeSize_; }

    void fill(Bytes input);
    void slide();
    template <bool Collect>
    Match* enter(Match* to);
    Match* enterNear(Match* to, uint32_t limit);
    uint32_t findMatches(Bytes input, size_t most);
    void countGreedily(const uint8_t* input, uint32_t size, DeflateTables& counts) const;
    void findCheapest(const uint8_t* input, uint32_t from, uint32_t to, const Match* matches,
                      const DeflatePrices& prices);
    uint32_t write(const uint8_t* input, uint32_t from, uint32_t to, uint8_t* lits,
                   uint16_t* dists) const;
    uint32_t refine(const uint8_t* input, uint32_t from, uint32_t to, const Match* matches,
                    DeflateTables counts, uint8_t* lits, uint16_t* dists);

    DeflateEffort effort_{};
    uint32_t reach_ = 0;  ///< The farthest distance.
    uint32_t hashBits_ = 0;
    uint32_t nearBits_ = 0;
    uint32_t treeSize_ = 0;
    uint32_t position_ = 0;  ///< In text_, of what is parsed next.
    uint32_t entered_ = 0;   ///< What is before is in the trees.
    uint32_t filled_ = 0;    ///< What is before is in text_.
    size_t mostMatches_ = 0;
    Memory<uint8_t> text_;
    Memory<uint16_t> tables_;
    Memory<Match> matches_;
    Memory<Step> steps_;
    Memory<uint16_t> found_;  ///< How many matches begin at each of the stretch's bytes.
};

}  // namespace vekdc::codec
