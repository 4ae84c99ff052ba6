#include "codec/deflate_parser.h"

#include <algorithm>
#include <cstring>

#include "bytes/match_length.h"
#include "bytes/words.h"
#include "codec/deflate_prices.h"

namespace vekdc::codec {
namespace {

using vek::load;
using vek::matchLength;

constexpr uint32_t kMostHashBits = 15;
constexpr uint32_t kMostNearBits = 13;
constexpr uint32_t kLeastBits = 8;
constexpr uint32_t kHashed = 4;
/// Matches of three bytes at greater distances are dearer than their bytes, in most data.
constexpr uint32_t kNear = 16384;

uint32_t hashOf(uint32_t bytes, uint32_t bits) {
    return (bytes * 0x9E3779B1U) >> (32 - bits);
}

}  // namespace

// --- matches ------------------------------------------------------------------------------------

bool DeflateParser::prepare(unsigned windowBits, size_t whole) {
    reach_ = std::min((1U << windowBits), kWindow - 1);
    treeSize_ = kWindow;
    if (whole != 0 && whole < kWindow)
        treeSize_ = std::max(1U << kLeastBits, std::bit_ceil(static_cast<uint32_t>(whole)));
    const auto bits = static_cast<uint32_t>(std::bit_width(treeSize_)) - 1;
    hashBits_ = std::min(bits, kMostHashBits);
    nearBits_ = std::min(bits, kMostNearBits);
    if (!text_.reserve(treeSize_ < kWindow ? kFirst + treeSize_ : 2 * kWindow) ||
        !tables_.reserve(tableSize()))
        return false;
    std::fill(head(), children(), uint16_t{0});
    position_ = entered_ = filled_ = kFirst;
    return true;
}

bool DeflateParser::prepareParse(const DeflateEffort& effort, size_t size) {
    effort_ = effort;
    const size_t stretch = std::min<size_t>(effort.stretch, size);
    mostMatches_ = kMatchesPerByte * stretch;
    return matches_.reserve(mostMatches_ + maxMatch) && steps_.reserve(stretch + 1) &&
           found_.reserve(stretch);
}

void DeflateParser::setHistory(Bytes history) {
    history = history.last(std::min<size_t>(history.size(), reach_));
    fill(history);
    position_ = filled_;
    while (entered_ + kHashed <= filled_) enter<false>(nullptr);
}

/// Takes as much of the input, which begins at the position, as there is room for.
void DeflateParser::fill(Bytes input) {
    const size_t there = filled_ - position_;
    if (there >= input.size()) return;
    const size_t room = std::min<size_t>(text_.room(), 2 * kWindow) - filled_;
    const size_t count = std::min(input.size() - there, room);
    std::memcpy(text_.data() + filled_, input.data() + there, count);
    filled_ += static_cast<uint32_t>(count);
}

/// Drops the older half of the text. Its positions become 0.
void DeflateParser::slide() {
    std::memmove(text_.data(), text_.data() + kWindow, kWindow);
    position_ -= kWindow;
    entered_ -= kWindow;
    filled_ -= kWindow;
    uint16_t* const table = tables_.data();
    for (size_t i = 0; i < tableSize(); ++i)
        table[i] = static_cast<uint16_t>(table[i] - std::min<uint32_t>(table[i], kWindow));
}

/// The latest position of the same three bytes, if it is near.
DeflateParser::Match* DeflateParser::enterNear(Match* to, uint32_t limit) {
    const uint8_t* const at = text_.data() + entered_;
    const uint32_t bytes = load<uint32_t>(at) << 8;
    uint16_t& latest = nearHead()[hashOf(bytes, nearBits_)];
    const uint32_t candidate = latest;
    latest = static_cast<uint16_t>(entered_);
    if (to == nullptr) return to;
    const uint32_t distance = entered_ - candidate;
    if (candidate == 0 || distance > std::min(reach_, kNear)) return to;
    const uint8_t* const before = at - distance;
    if (load<uint32_t>(before) << 8 != bytes) return to;
    *to = {static_cast<uint16_t>(matchLength(at, before, minMatch, limit)),
           static_cast<uint16_t>(distance)};
    return to + 1;
}

/// Enters the next position, of which four bytes at least are there; appends its matches if they
/// are wanted.
template <bool Collect>
DeflateParser::Match* DeflateParser::enter(Match* to) {
    const uint8_t* const at = text_.data() + entered_;
    const uint32_t limit = std::min(Collect ? maxMatch : effort_.nice, filled_ - entered_);
    const uint32_t nice = std::min(effort_.nice, limit);
    const uint32_t mask = treeSize_ - 1;
    const Match* const before = to;
    to = enterNear(to, limit);
    uint32_t longest = Collect && to != before ? to[-1].length : kHashed - 1;
    uint16_t& root = head()[hashOf(load<uint32_t>(at), hashBits_)];
    uint32_t candidate = root;
    root = static_cast<uint16_t>(entered_);
    uint16_t* const tree = children();
    uint16_t* less = tree + 2 * size_t{entered_ & mask};
    uint16_t* more = less + 1;
    uint32_t lessLength = 0;
    uint32_t moreLength = 0;
    for (uint32_t depth = effort_.depth;; --depth) {
        const uint32_t distance = entered_ - candidate;
        if (candidate == 0 || distance > reach_ || depth == 0) {
            *less = *more = 0;
            break;
        }
        const uint8_t* const bytes = at - distance;
        const uint32_t shared = std::min(lessLength, moreLength);
        const uint32_t length = matchLength(at, bytes, shared, limit);
        uint16_t* const child = tree + 2 * size_t{candidate & mask};
        if (Collect && length > longest && matchLength(at, bytes, 0, shared) == shared) {
            longest = length;
            *to++ = {static_cast<uint16_t>(length), static_cast<uint16_t>(distance)};
        }
        if (length >= nice) {
            *less = child[0];
            *more = child[1];
            break;
        }
        if (bytes[length] < at[length]) {
            *less = static_cast<uint16_t>(candidate);
            less = child + 1;
            candidate = *less;
            lessLength = length;
        } else {
            *more = static_cast<uint16_t>(candidate);
            more = child;
            candidate = *more;
            moreLength = length;
        }
    }
    ++entered_;
    return to;
}

/// Finds the matches of a stretch from the start of the input, and returns its length.
uint32_t DeflateParser::findMatches(Bytes input, size_t most) {
    most = std::min<size_t>({most, input.size(), effort_.stretch});
    const Match* const end = matches_.data() + mostMatches_;
    Match* to = matches_.data();
    uint32_t at = 0;
    uint32_t skip = 0;
    while (at < most && to < end) {
        // All of the longest match is in sight, if it is there.
        const size_t ahead = std::min<size_t>(input.size() - at, maxMatch);
        if (filled_ - position_ < ahead) {
            if (text_.room() - filled_ < ahead) slide();
            fill(input.subspan(at));
        }
        Match* const before = to;
        const uint32_t enterable = filled_ - std::min(filled_, kHashed - 1);
        while (entered_ < std::min(position_, enterable)) enter<false>(nullptr);
        if (skip != 0) {
            if (position_ < enterable) enter<false>(nullptr);
            --skip;
        } else if (position_ < enterable) {
            to = enter<true>(to);
            if (to != before && to[-1].length >= effort_.nice) skip = to[-1].length - 1U;
        }
        found_[at] = static_cast<uint16_t>(to - before);
        ++at;
        ++position_;
    }
    return at;
}

bool DeflateParser::copyFrom(const DeflateParser& other) {
    effort_ = other.effort_;
    reach_ = other.reach_;
    hashBits_ = other.hashBits_;
    nearBits_ = other.nearBits_;
    treeSize_ = other.treeSize_;
    position_ = other.position_;
    entered_ = other.entered_;
    filled_ = other.filled_;
    mostMatches_ = other.mostMatches_;
    return text_.reserve(other.text_.room()) && text_.copyFrom(other.text_, filled_) &&
           tables_.copyFrom(other.tables_, tableSize()) &&
           matches_.reserve(other.matches_.room()) && steps_.reserve(other.steps_.room()) &&
           found_.reserve(other.found_.room());
}

// --- parses -------------------------------------------------------------------------------------

/// Counts the symbols of a parse that takes the longest match, or a longer one at the next byte.
void DeflateParser::countGreedily(const uint8_t* input, uint32_t size,
                                  DeflateTables& counts) const {
    const Match* matches = matches_.data();
    const auto longest = [&](uint32_t at) {
        return at >= size || found_[at] == 0 ? Match{0, 0} : matches[found_[at] - 1];
    };
    for (uint32_t at = 0; at < size;) {
        const Match match = longest(at);
        matches += found_[at];
        if (match.length == 0 || longest(at + 1).length > match.length) {
            countSymbol(counts.lit[input[at++]]);
            continue;
        }
        countSymbol(counts.lit[lengthSymbol(match.length)]);
        countSymbol(counts.dist[distanceSymbol(match.distance)]);
        const uint32_t end = std::min(at + match.length, size);
        while (++at < end) matches += found_[at];
    }
}

/// Finds the cheapest step at each position of [from, to), the matches of which end at `matches`.
void DeflateParser::findCheapest(const uint8_t* input, uint32_t from, uint32_t to,
                                 const Match* matches, const DeflatePrices& prices) {
    Step* const steps = steps_.data();
    steps[to].price = 0;
    for (uint32_t at = to; at-- != from;) {
        Step best{steps[at + 1].price + prices.literal(input[at]), {1, 0}};
        matches -= found_[at];
        uint32_t length = minMatch;
        for (uint32_t i = 0; i < found_[at]; ++i) {
            const Match match = matches[i];
            const uint32_t distance = prices.distance(match.distance);
            const uint32_t end = std::min<uint32_t>(match.length, to - at);
            for (; length <= end; ++length) {
                const uint32_t price = steps[at + length].price + prices.length(length) + distance;
                if (price < best.price)
                    best = {price, {static_cast<uint16_t>(length), match.distance}};
            }
        }
        steps[at] = best;
    }
}

/// Writes the pairs of the cheapest way through [from, to), and returns how many.
uint32_t DeflateParser::write(const uint8_t* input, uint32_t from, uint32_t to, uint8_t* lits,
                              uint16_t* dists) const {
    uint32_t count = 0;
    for (uint32_t at = from; at < to; ++count) {
        const Match step = steps_[at].match;
        lits[count] = step.distance == 0 ? input[at] : static_cast<uint8_t>(step.length - minMatch);
        dists[count] = step.distance;
        at += step.length;
    }
    return count;
}

/// Parses [from, to) again and again, at prices by the counts at first and then by its own, and
/// writes the pairs to the arrays. Returns how many.
uint32_t DeflateParser::refine(const uint8_t* input, uint32_t from, uint32_t to,
                               const Match* matches, DeflateTables counts, uint8_t* lits,
                               uint16_t* dists) {
    uint32_t count = 0;
    for (uint32_t round = 0; round < effort_.rounds; ++round) {
        findCheapest(input, from, to, matches, DeflatePrices(BlockSymbols(counts)));
        count = write(input, from, to, lits, dists);
        counts = {};
        countPairs({lits, dists}, 0, count, counts);
    }
    return count;
}

uint32_t DeflateParser::parse(Bytes input, size_t most, uint8_t* lits, uint16_t* dists,
                              uint32_t& pairs) {
    const uint32_t size = findMatches(input, most);
    uint32_t found = 0;
    for (uint32_t i = 0; i < size; ++i) found += found_[i];
    DeflateTables greedy{};
    countGreedily(input.data(), size, greedy);
    lits += pairs;
    dists += pairs;
    const uint32_t whole =
        refine(input.data(), 0, size, matches_.data() + found, greedy, lits, dists);

    // Where the pairs make blocks, each one by itself. All of the first parse is in the steps, so
    // that the pairs of a block may overwrite those of the next.
    DeflateBlocks blocks;
    DeflateTables all{};
    blocks.split({lits, dists}, whole, all, DeflateBlocks::kFineUnit);
    const Match* matches = matches_.data();
    uint32_t count = 0;
    uint32_t pair = 0;
    for (uint32_t block = 0, from = 0; block < blocks.count(); ++block) {
        DeflateTables own{};
        uint32_t to = from;
        for (; pair < blocks.end(block); ++pair) to += steps_[to].match.length;
        const uint32_t before = write(input.data(), from, to, lits + count, dists + count);
        countPairs({lits, dists}, count, count + before, own);
        for (uint32_t i = from; i < to; ++i) matches += found_[i];
        count += refine(input.data(), from, to, matches, own, lits + count, dists + count);
        from = to;
    }
    pairs += count;
    return size;
}

}  // namespace vekdc::codec
