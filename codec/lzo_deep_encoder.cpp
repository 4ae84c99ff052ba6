// A parse of least cost, found forwards: the cost in bytes of the cheapest way to each place of the
// block is known when the search comes there, and each literal and each match from there on may
// make a place behind it cheaper. What a literal costs depends on the run that it prolongs (the
// run's length is told in 0, 1, 2... bytes), so a place keeps the run that its way ends with; of
// two ways at the same cost the first is kept, which is all that parts this from the true optimum.
//
// Matches come from chains of earlier places with the same 4 bytes, nearest first, so the first one
// of a length is the cheapest of that length; and from the latest places with the same 3 and 2
// bytes, as these pay only where they are near. A match longer than the one in hand is on the chain
// of the last 4 bytes that it must have, too: where the latest of these is farther back, the search
// goes on there, which halves the time of long chains. The level says how many candidates are
// looked at, and from which length on a match, the longest of them, is taken without a look at what
// lies inside it. Inside shorter ones most places are passed over too: to search there made the
// output smaller by a thousandth.
#include "codec/lzo_deep_encoder.h"

#include <algorithm>

#include "bytes/match_length.h"
#include "bytes/words.h"
#include "vekdc.h"

namespace vekdc::codec {
namespace {

using vek::load;
using vek::matchLength;

using Place = LzoDeepEncoder::Place;

// The format, as the library's decoders take it.
constexpr uint32_t kNearDistance = 0x800;
constexpr uint32_t kNearLength = 8;
constexpr uint32_t kPairDistance = 0x400;    ///< Of 2 bytes behind 1 to 3 trailing literals.
constexpr uint32_t kBeyondDistance = 0xC00;  ///< Of 3 bytes behind a run of 4 and more.
constexpr uint32_t kMiddleDistance = 0x4000;
constexpr uint32_t kMiddleLength = 33;  ///< Without an extension.
constexpr uint32_t kFarDistance = 0xBFFF;
constexpr uint32_t kFarLength = 9;
constexpr uint32_t kTrailing = 3;    ///< Literals behind a match that it tells itself.
constexpr uint32_t kDirectRun = 18;  ///< The longest run that one byte tells.
constexpr uint32_t kFirstRunBase = 17;
constexpr uint8_t kContainerMark = 0x55;
constexpr uint8_t kEnd[] = {0x11, 0, 0};

constexpr uint32_t kFirstMatch = 4;  ///< A stream begins with a run of so many literals at least.
constexpr uint32_t kShortest = 3;
constexpr uint32_t kUnreached = UINT32_MAX;

struct Effort {
    uint32_t candidates;
    uint32_t enough;  ///< A match of this length is taken as it is.
};
constexpr Effort kEfforts[] = {{16, 32}, {64, 96}, {1024, 512}};

constexpr unsigned kHeadBits = 16;
constexpr unsigned kShortBits = 14;
constexpr size_t kPairs = 1U << 16;
constexpr uint32_t kChain = 1U << 16;
static_assert(kChain > kFarDistance);
constexpr size_t kTables = (size_t{1} << kHeadBits) + (size_t{1} << kShortBits) + kPairs + kChain;

template <unsigned Bits>
uint32_t hash(uint32_t word) {
    return word * 0x9E3779B1U >> (32 - Bits);
}

/// Bytes that extend a length by `rest`, at least 1.
uint32_t extensionSize(uint32_t rest) {
    return (rest + 254) / 255;
}

/// What prolonging a run by a literal to `run` costs.
uint32_t literalCost(uint32_t run) {
    const bool longer = run == kTrailing + 1 || (run > kDirectRun && (run - kDirectRun) % 255 == 1);
    return longer ? 2 : 1;
}

bool isBeyond(uint32_t distance, uint32_t length, uint32_t run) {
    return length == kShortest && run > kTrailing && distance > kNearDistance &&
           distance <= kBeyondDistance;
}

/// What a match costs behind a run; one of 2 bytes is near, and behind trailing literals.
uint32_t matchCost(uint32_t distance, uint32_t length, uint32_t run) {
    if (distance <= kNearDistance && length <= kNearLength) return 2;
    if (isBeyond(distance, length, run)) return 2;
    const uint32_t direct = distance <= kMiddleDistance ? kMiddleLength : kFarLength;
    return length <= direct ? 3 : 3 + extensionSize(length - direct);
}

/// The longest match that costs as much.
uint32_t longestAtCost(uint32_t distance, uint32_t length, uint32_t run) {
    if (distance <= kNearDistance && length <= kNearLength) return kNearLength;
    if (isBeyond(distance, length, run)) return kShortest;
    const uint32_t direct = distance <= kMiddleDistance ? kMiddleLength : kFarLength;
    return length <= direct ? direct : direct + 255 * extensionSize(length - direct);
}

class Parser {
 public:
    Parser(Bytes data, const Effort& effort, Place* places, uint32_t* tables)
        : data_(data.data()),
          size_(static_cast<uint32_t>(data.size())),
          effort_(effort),
          places_(places),
          head_(tables),
          short_(tables + (size_t{1} << kHeadBits)),
          pair_(short_ + (size_t{1} << kShortBits)),
          chain_(pair_ + kPairs) {
        std::fill_n(tables, kTables, 0U);
        for (uint32_t i = 1; i <= size_; ++i) places_[i].cost = kUnreached;
        places_[0] = {1, 0, 0, 0};
    }

    void parse() {
        for (uint32_t at = 0; at < size_;) {
            uint32_t length = 0;
            // Where a match passes by that costs no more, another hardly ever pays.
            if (places_[at + 1].cost > places_[at].cost) {
                if (at >= kFirstMatch) length = matches(at);
                literal(at);
            }
            insert(at++);
            if (length < effort_.enough) continue;
            for (uint32_t end = at + length - 1; at < end;) insert(at++);
        }
    }

    /// Writes what the way to the end is made of.
    uint8_t* write(uint8_t* out) {
        // The steps, turned round: each place gets the place behind its step.
        uint32_t next = 0;
        for (uint32_t at = size_; at != 0;) {
            const uint32_t length = std::max(places_[at].length, 1U);
            places_[at].cost = next;
            next = at;
            at -= length;
        }
        uint32_t anchor = 0;
        for (uint32_t at = next; at != 0; at = places_[at].cost) {
            const Place& step = places_[at];
            if (step.length == 0) continue;
            const uint32_t run = at - step.length - anchor;
            out = putRun(out, anchor, run);
            out = putMatch(out, step.distance, step.length, run);
            anchor = at;
        }
        out = putRun(out, anchor, size_ - anchor);
        return std::copy(std::begin(kEnd), std::end(kEnd), out);
    }

 private:
    void insert(uint32_t at) {
        if (size_ - at < 4) return;
        const uint32_t word = load<uint32_t>(data_ + at);
        uint32_t& head = head_[hash<kHeadBits>(word)];
        chain_[at % kChain] = head;
        head = at;
        short_[hash<kShortBits>(word << 8)] = at;
        pair_[word & 0xFFFF] = at;
    }

    void literal(uint32_t at) {
        const Place& from = places_[at];
        Place& to = places_[at + 1];
        // The stream's first run has its byte already.
        const bool first = from.run == at && at < UINT8_MAX - kFirstRunBase;
        const uint32_t cost = from.cost + (first ? 1 : literalCost(from.run + 1));
        if (cost < to.cost) to = {cost, from.run + 1, 0, 0};
    }

    /// Offers the matches of `distance` and `least` to `most` bytes.
    void offer(uint32_t at, uint32_t distance, uint32_t least, uint32_t most) {
        const Place from = places_[at];
        for (uint32_t length = least; length <= most;) {
            const uint32_t cost = from.cost + matchCost(distance, length, from.run);
            const uint32_t end = std::min(most, longestAtCost(distance, length, from.run));
            for (; length <= end; ++length) {
                Place& to = places_[at + length];
                // At the same cost, what leaves more literals without a run of their own.
                if (cost < to.cost || (cost == to.cost && to.run - 1 < kTrailing))
                    to = {cost, 0, length, distance};
            }
        }
    }

    /// Offers the cheapest matches of every length at `at`; returns the longest one's length.
    uint32_t matches(uint32_t at) {
        if (size_ - at < 4) return 0;
        const uint8_t* const here = data_ + at;
        const uint32_t word = load<uint32_t>(here);
        const uint32_t run = places_[at].run;
        const uint32_t pair = at - pair_[word & 0xFFFF];
        // No bytes saved, but the byte of a longer run.
        if (run - 1 < kTrailing && run != at && pair <= kPairDistance &&
            static_cast<uint16_t>(load<uint32_t>(here - pair) ^ word) == 0)
            offer(at, pair, 2, 2);
        const uint32_t latest = short_[hash<kShortBits>(word << 8)];
        const bool three = at - latest <= kBeyondDistance && at != latest &&
                           (load<uint32_t>(data_ + latest) ^ word) << 8 == 0;
        if (three) offer(at, at - latest, kShortest, kShortest);
        return longMatches(at, three ? kShortest : kShortest - 1);
    }

    /// Likewise, those of 4 bytes and more; `best` is the length of the longest one so far.
    uint32_t longMatches(uint32_t at, uint32_t best) {
        const uint8_t* const here = data_ + at;
        const uint32_t limit = size_ - at;
        const uint32_t word = load<uint32_t>(here);
        uint32_t farthest = 0;  // Of the distances taken.
        // The 4 bytes that a longer match ends with at the least come first.
        uint32_t decisive = 0;
        uint32_t tail = word;
        // The next place on the chain of the 4 bytes that stand behind the first `offset`.
        uint32_t offset = 0;
        uint32_t next = head_[hash<kHeadBits>(word)];
        for (uint32_t left = effort_.candidates; left != 0; --left) {
            const uint32_t distance = at + offset - next;
            if (distance - 1 >= std::min(at, kFarDistance)) break;
            const uint8_t* const there = here - distance;
            if (load<uint32_t>(there + decisive) == tail && load<uint32_t>(there) == word) {
                const uint32_t length = matchLength(here, there, 4, limit);
                if (length > best) {
                    if (length < effort_.enough) offer(at, distance, best + 1, length);
                    best = length;
                    farthest = distance;
                    if (best == limit) break;
                    decisive = best - kShortest;
                    tail = load<uint32_t>(here + decisive);
                    const uint32_t latest = head_[hash<kHeadBits>(tail)];
                    if (at + decisive - latest > distance) {
                        offset = decisive;
                        next = latest;
                        continue;
                    }
                }
            }
            const uint32_t older = chain_[next % kChain];
            if (older >= next) break;
            next = older;
        }
        if (best >= effort_.enough) offer(at, farthest, best, best);
        return best;
    }

    static uint8_t* putExtension(uint8_t* out, uint32_t rest) {
        for (; rest > 255; rest -= 255) *out++ = 0;
        *out++ = static_cast<uint8_t>(rest);
        return out;
    }

    uint8_t* putRun(uint8_t* out, uint32_t from, uint32_t run) const {
        const uint32_t first = run + kFirstRunBase;
        if (from == 0 && first <= UINT8_MAX && first != kContainerMark) {
            *out++ = static_cast<uint8_t>(first);
        } else if (run <= kTrailing) {
            if (run != 0) out[-2] = static_cast<uint8_t>(out[-2] | run);
        } else if (run <= kDirectRun) {
            *out++ = static_cast<uint8_t>(run - 3);
        } else {
            *out++ = 0;
            out = putExtension(out, run - kDirectRun);
        }
        return std::copy_n(data_ + from, run, out);
    }

    static uint8_t* putMatch(uint8_t* out, uint32_t distance, uint32_t length, uint32_t run) {
        if (length < kShortest) {
            const uint32_t d = distance - 1;
            *out++ = static_cast<uint8_t>((d & 3) << 2);
            *out++ = static_cast<uint8_t>(d >> 2);
            return out;
        }
        if (distance <= kNearDistance && length <= kNearLength) {
            const uint32_t d = distance - 1;
            *out++ = static_cast<uint8_t>((length - 1) << 5 | (d & 7) << 2);
            *out++ = static_cast<uint8_t>(d >> 3);
            return out;
        }
        if (isBeyond(distance, length, run)) {
            const uint32_t d = distance - kNearDistance - 1;
            *out++ = static_cast<uint8_t>((d & 3) << 2);
            *out++ = static_cast<uint8_t>(d >> 2);
            return out;
        }
        const bool middle = distance <= kMiddleDistance;
        const uint32_t d = distance - (middle ? 1 : kMiddleDistance);
        const uint32_t direct = middle ? kMiddleLength : kFarLength;
        const uint32_t op = middle ? 32 : 16 | (d >> 11 & 8);
        *out++ = static_cast<uint8_t>(op | (length <= direct ? length - 2 : 0));
        if (length > direct) out = putExtension(out, length - direct);
        *out++ = static_cast<uint8_t>(d << 2);
        *out++ = static_cast<uint8_t>(d >> 6);
        return out;
    }

    const uint8_t* data_;
    uint32_t size_;
    const Effort& effort_;
    Place* places_;
    uint32_t* head_;   ///< The latest place of 4 bytes,
    uint32_t* short_;  ///< of 3,
    uint32_t* pair_;   ///< and of 2,
    uint32_t* chain_;  ///< and the one before each with the same 4.
};

}  // namespace

bool LzoDeepEncoder::encode(Bytes data, uint8_t* to, size_t& written) {
    if (!places_.reserve(data.size() + 1) || !tables_.reserve(kTables)) return false;
    Parser parser(data, kEfforts[level_ - kFirstLevel], places_.data(), tables_.data());
    parser.parse();
    written = static_cast<size_t>(parser.write(to) - to);
    return true;
}

}  // namespace vekdc::codec
