#include "codec/deflate_matcher.h"

#include <nmmintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <numeric>
#include <utility>

#include "codec/deflate_codes.h"
#include "codec/words.h"

namespace vekdc::codec {
namespace {

constexpr uint32_t kHashBytes = 4;
constexpr uint32_t kWindow = 32768;
constexpr uint32_t kLeastTable = 256;
/// As large as positions allow: fewer of other bytes under the same hash save more time than the
/// larger table's cache misses take.
constexpr uint32_t kMostHeads = 65536;
/// The first position; 0 stands for none, and is out of reach of all.
constexpr uint32_t kFirst = 1;
constexpr uint32_t kPositions = 65536;

uint32_t hash4(const uint8_t* p) {
    return _mm_crc32_u32(0, load32(p));
}

/// How many bytes of the two strings are the same, up to `limit`. Up to 16 behind that are read.
inline uint32_t sameBytes(const uint8_t* a, const uint8_t* b, uint32_t limit) {
    for (uint32_t n = 0; n < limit; n += 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + n));
        const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + n));
        const auto equal = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, y)));
        if (equal != 0xFFFF)
            return std::min(n + static_cast<uint32_t>(std::countr_one(equal)), limit);
    }
    return limit;
}

/// The head and chain tables; without links the former alone. The latter holds distances, from each
/// position to the one before it.
template <bool Linked>
struct Chains {
    uint16_t* head;
    uint16_t* prev;
    uint32_t headMask;
    uint32_t prevMask;

    /// Enters `position` under `hash` and returns the position that it hides.
    uint32_t insert(uint32_t hash, uint32_t position) const {
        uint16_t& latest = head[hash & headMask];
        const uint32_t before = latest;
        if (Linked) prev[position & prevMask] = static_cast<uint16_t>(position - before);
        latest = static_cast<uint16_t>(position);
        return before;
    }
    uint32_t latest(uint32_t hash) const { return head[hash & headMask]; }
    /// How far before `position` the next one of its chain is.
    uint32_t step(uint32_t position) const { return prev[position & prevMask]; }

    /// What remove() is to be told of an insertion, before it is made.
    uint16_t toRestore(uint32_t hash, uint32_t position) const {
        return static_cast<uint16_t>(Linked ? step(position) : latest(hash));
    }
    /// Takes back the insertion of `position`, the latest one.
    void remove(uint32_t hash, uint32_t position, uint16_t restored) const {
        uint16_t& latest = head[hash & headMask];
        if (Linked) {
            latest = static_cast<uint16_t>(position - prev[position & prevMask]);
            prev[position & prevMask] = restored;
        } else {
            latest = restored;
        }
    }
};

/// The pairs written.
struct Pairs {
    uint8_t* lit;
    uint16_t* dist;
    const uint8_t* litEnd;  ///< Behind the room.

    uint32_t left() const { return static_cast<uint32_t>(litEnd - lit); }
    void literal(uint8_t byte) { put(byte, 0); }
    void match(uint32_t length, uint32_t distance) { put(length - kMinMatch, distance); }
    /// Without moving.
    void literals(const uint8_t* bytes, uint32_t count) const {
        std::memcpy(lit, bytes, count);
        std::memset(dist, 0, count * sizeof(*dist));
    }
    void skip(uint32_t count) {
        lit += count;
        dist += count;
    }

 private:
    void put(uint32_t value, uint32_t distance) {
        *lit++ = static_cast<uint8_t>(value);
        *dist++ = static_cast<uint16_t>(distance);
    }
};

struct Match {
    uint32_t length;
    uint32_t distance;
};

/// The bytes to be matched, those of before right in front of them.
struct Source {
    const uint8_t* bytes;
    uint32_t start;      ///< Position of bytes[0].
    uint32_t length;     ///< Bytes that are there,
    uint32_t enterable;  ///< that have a position, and three more behind them,
    uint32_t stop;       ///< and before which matches begin.
    uint32_t oldest;     ///< Position of the oldest byte of history.
    uint32_t farthest;

    /// Distances from `position` below or at this are within reach.
    uint32_t reach(uint32_t position) const { return std::min(farthest, position - oldest); }
    uint32_t limit(uint32_t at) const { return std::min(kMaxMatch, length - at); }
};

template <bool Linked>
void enterRange(const Source& source, const Chains<Linked>& chains, uint32_t from, uint32_t to) {
    for (; from < to; ++from) chains.insert(hash4(source.bytes + from), source.start + from);
}

// --- misses -------------------------------------------------------------------------------------

/// Positions that passMisses() takes at once.
constexpr uint32_t kMissBatch = 32;

/// How many of the kMissBatch positions from offset `at` on, which it enters, have no match of four
/// bytes among the first `Places` places of their chains and, with `Whole`, no more places.
///
/// Whether a place is in reach cannot be predicted, and in data that hardly compresses most are
/// not. So all positions are entered first, and those whose place is in reach go to a list, without
/// a branch; the list is gone through for each further place, and shortens soon. Places whose slots
/// the entries of the same batch may have taken count as matches: the caller looks again.
template <uint32_t Places, bool Whole, bool Linked>
[[gnu::always_inline]] inline uint32_t enterMisses(const Source& source,
                                                   const Chains<Linked>& chains, uint32_t at) {
    struct Place {
        uint32_t i;
        uint32_t back;
    };
    std::array<Place, kMissBatch> places;
    std::array<uint16_t, kMissBatch> restored;
    const uint8_t* const bytes = source.bytes + at;
    const uint32_t position = source.start + at;
    uint32_t inReach = 0;
    const auto listIfInReach = [&](uint32_t i, uint32_t back) {
        places[inReach] = {i, back};
        inReach += static_cast<uint32_t>(back < source.reach(position + i));
    };
    for (uint32_t i = 0; i < kMissBatch; ++i) {
        const uint32_t hash = hash4(bytes + i);
        restored[i] = chains.toRestore(hash, position + i);
        listIfInReach(i, position + i - 1 - chains.insert(hash, position + i));
    }
    uint32_t misses = kMissBatch;
    for (uint32_t k = 0; k < Places; ++k) {
        const uint32_t listed = std::exchange(inReach, 0);
        for (uint32_t n = 0; n < listed; ++n) {
            const auto [i, back] = places[n];
            const uint8_t* const current = bytes + i;
            const bool matches = load32(current) == load32(current - 1 - back) ||
                                 (Linked && back > chains.prevMask - kMissBatch);
            misses = matches ? std::min(misses, i) : misses;
            if (Whole || k + 1 < Places)
                listIfInReach(i, back + chains.step(position + i - 1 - back));
        }
    }
    if (inReach != 0) misses = std::min(misses, places[0].i);
    for (uint32_t i = kMissBatch; i-- > misses;)
        chains.remove(hash4(bytes + i), position + i, restored[i]);
    return misses;
}

/// Makes literals of the source from offset `at` on and enters them, as far as its stop, the room
/// and enterMisses() go. Returns how many; `pairs`, which the caller keeps in registers, is not
/// moved.
template <uint32_t Places, bool Whole, bool Linked>
[[gnu::noinline]] uint32_t passMisses(Source source, Chains<Linked> chains, uint32_t at,
                                      Pairs pairs) {
    const uint32_t from = at;
    const uint32_t stop = std::min(source.stop, at + pairs.left());
    while (at + kMissBatch <= stop) {
        const uint32_t misses = enterMisses<Places, Whole>(source, chains, at);
        at += misses;
        if (misses < kMissBatch) break;
    }
    pairs.literals(source.bytes + from, at - from);
    return at - from;
}

// --- greedy -------------------------------------------------------------------------------------

/// Looks along the chain from `candidate` for a match at offset `at`, and returns the longest.
template <bool Linked>
[[gnu::always_inline]] inline Match find(const Source& source, const Chains<Linked>& chains,
                                         const DeflateSearch& search, uint32_t at,
                                         uint32_t candidate) {
    const uint8_t* const current = source.bytes + at;
    const uint32_t position = source.start + at;
    const uint32_t reach = source.reach(position);
    const uint32_t limit = source.limit(at);
    const uint32_t nice = std::min(search.niceLength, limit);
    uint32_t budget = search.maxChain;
    uint32_t distance = position - candidate;
    Match found{kHashBytes - 1, 0};
    // The last four bytes of a match that is longer.
    const uint8_t* tail = current;
    uint32_t tailBytes = load32(tail);
    for (uint32_t steps = 0; steps < budget && distance - 1 < reach; ++steps) {
        if (load32(tail - distance) == tailBytes) {
            const uint32_t length = sameBytes(current, current - distance, limit);
            if (length > found.length) {
                found = {length, distance};
                if (length >= nice) break;
                if (length >= search.goodLength) budget = search.maxChain / 4;
                tail = current + length + 1 - kHashBytes;
                tailBytes = load32(tail);
            }
        }
        if (Linked) distance += chains.step(position - distance);
    }
    return found;
}

/// Misses in a row after which it pays to expect more of them.
constexpr uint32_t kManyMisses = 32;

/// Matches greedily up to the source's stop or the end of the room, and returns how far.
/// `ShortChain` is search.maxChain if that is at most 4, or else 0.
template <uint32_t ShortChain>
uint32_t parseGreedily(const Source& sharedSource, const Chains<ShortChain != 1>& sharedChains,
                       DeflateSearch search, Pairs& sharedPairs) {
    const Source source = sharedSource;
    const Chains<ShortChain != 1> chains = sharedChains;
    Pairs pairs = sharedPairs;
    if (ShortChain != 0) {
        // A match of goodLength bytes leaves one place at the most: it ends the search.
        search.maxChain = ShortChain;
        search.niceLength = std::min(search.niceLength, search.goodLength);
        search.goodLength = kMaxMatch + 1;
    }
    uint32_t at = 0;
    uint32_t misses = 0;
    while (at < source.stop && pairs.left() != 0) {
        const uint32_t candidate = chains.insert(hash4(source.bytes + at), source.start + at);
        const Match match = find(source, chains, search, at, candidate);
        if (match.distance == 0) {
            pairs.literal(source.bytes[at]);
            ++at;
            if (++misses >= kManyMisses) {
                const uint32_t passed = passMisses < ShortChain != 0 ? ShortChain : 3,
                               ShortChain == 0 > (source, chains, at, pairs);
                pairs.skip(passed);
                at += passed;
                misses = 0;
            }
            continue;
        }
        misses = 0;
        pairs.match(match.length, match.distance);
        if (match.length <= search.lengthLimit)
            enterRange(source, chains, at + 1, std::min(at + match.length, source.enterable));
        at += match.length;
    }
    sharedPairs = pairs;
    return at;
}

uint32_t parseGreedily(const Source& source, const Chains<true>& chains,
                       const DeflateSearch& search, Pairs& pairs) {
    constexpr std::array parsers{parseGreedily<0>, parseGreedily<2>, parseGreedily<3>,
                                 parseGreedily<4>};
    const uint32_t parser = search.maxChain - 1;
    return parsers[parser < parsers.size() ? parser : 0](source, chains, search, pairs);
}

// --- lazy ---------------------------------------------------------------------------------------

/// A chain that leads to candidates: that of the four bytes `offset` behind a match's first.
struct Chain {
    uint32_t offset;
    uint32_t back;  ///< Its next candidate's distance less one.

    void preferFarther(Chain other) {
        if (other.back > back) *this = other;
    }
};

/// Of up to this many chains the one of the longest step is found at once.
constexpr uint32_t kChainsAtOnce = 8;

/// Of the `count` positions from `position` on the one whose chain's next step is the longest, and
/// that step; those behind the table's edge are not looked at. The table is as much longer than its
/// positions as is read beyond.
inline Chain longestStep(const Chains<true>& chains, uint32_t position, uint32_t count) {
    alignas(16) static constexpr std::array<uint16_t, 2 * kChainsAtOnce> kUnused = [] {
        std::array<uint16_t, 2 * kChainsAtOnce> unused{};
        for (uint32_t i = kChainsAtOnce; i < unused.size(); ++i) unused[i] = 0xFFFF;
        return unused;
    }();
    const uint32_t slot = position & chains.prevMask;
    count = std::min({count, kChainsAtOnce, chains.prevMask + 1 - slot});
    const auto load = [](const uint16_t* p) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    };
    const __m128i unused = load(kUnused.data() + kChainsAtOnce - count);
    const __m128i steps = load(chains.prev + slot);
    const __m128i shortest =
        _mm_minpos_epu16(_mm_or_si128(_mm_xor_si128(steps, _mm_set1_epi16(-1)), unused));
    const auto found = static_cast<uint32_t>(_mm_cvtsi128_si32(shortest));
    return {found >> 16, 0xFFFF - (found & 0xFFFF)};
}

/// Looks for a match at offset `at` longer than `found`, and returns the best.
///
/// The chain is the rarest that it knows, `candidate` being the first place on the position's own.
/// A match longer than the one in hand is on the chain of each four bytes that it would hold: where
/// one of these chains leads on to a place farther back, what the others have before that need not
/// be looked at.
inline Match findRarest(const Source& source, const Chains<true>& chains,
                        const DeflateSearch& search, uint32_t at, uint32_t candidate, Match found,
                        uint32_t budget) {
    const uint8_t* const current = source.bytes + at;
    const uint32_t last = source.start + at - 1;
    const uint32_t reach = source.reach(last + 1);
    const uint32_t limit = source.limit(at);
    const uint32_t nice = std::min(search.niceLength, limit);
    const auto newest = [&](uint32_t offset) {
        return Chain{offset, last + offset - chains.latest(hash4(current + offset))};
    };
    Chain chain{0, last - candidate};
    if (found.length >= kHashBytes) chain.preferFarther(newest(found.length - 3));
    for (uint32_t steps = 0; steps < budget && chain.back < reach; ++steps) {
        const uint8_t* const place = current - 1 - chain.back;
        const uint32_t tail = found.length + 1 - kHashBytes;
        if (load32(place + tail) == load32(current + tail)) {
            const uint32_t length = sameBytes(current, place, limit);
            if (length > found.length) {
                found = {length, chain.back + 1};
                if (length >= nice) break;
                if (length >= search.goodLength) budget = search.maxChain / 4;
                const uint32_t back = chain.back;
                const uint32_t known = std::min(length - kHashBytes, back) + 1;
                chain = longestStep(chains, last - back, known);
                chain.back += back;
                chain.preferFarther(newest(length - 3));
                continue;
            }
        }
        chain.back += chains.step(last + chain.offset - chain.back);
    }
    return found;
}

/// Whether the bytes are so many different ones, as programs have, that three literals cost more
/// than a match of three. Text has fewer, and its literals are cheap.
bool wantsNearMatches(const uint8_t* bytes, uint32_t length) {
    constexpr uint32_t samples = 1024;
    constexpr int manyValues = 128;
    std::array<uint8_t, 256> seen{};
    const uint32_t step = length / samples | 1;
    for (uint32_t i = 0; i < length; i += step) seen[bytes[i]] = 1;
    return std::accumulate(seen.begin(), seen.end(), 0) > manyValues;
}

/// The latest places of three bytes, for the matches that are too short for the chains.
///
/// They pay where they are near. The table is this call's own: it begins empty, an entry is the low
/// half of an offset, and what it names is verified.
class NearMatches {
 public:
    NearMatches(const uint8_t* bytes, uint32_t length, uint32_t farthest)
        : bytes_(bytes),
          reach_(wantsNearMatches(bytes, length) ? std::min(kMostReach, farthest) : 0) {
        if (reach_ != 0) latest_.fill(0);
    }

    /// Enters the bytes at p and returns the distance to the same three bytes, or 0.
    uint32_t enter(const uint8_t* p) {
        if (reach_ == 0) return 0;
        const auto at = static_cast<uint32_t>(p - bytes_);
        const uint32_t three = firstThree(p);
        uint16_t& slot = latest_[_mm_crc32_u32(0, three) % kEntries];
        const uint32_t distance = static_cast<uint16_t>(at - slot);
        slot = static_cast<uint16_t>(at);
        // Whether the distance is in reach cannot be predicted: one out of reach becomes 0.
        const uint32_t usable = 0U - static_cast<uint32_t>(distance - 1 < std::min(at, reach_));
        const uint32_t nearby = distance & usable;
        return firstThree(p - nearby) == three ? nearby : 0;
    }

 private:
    static constexpr uint32_t kEntries = 4096;
    static constexpr uint32_t kMostReach = 1024;

    static uint32_t firstThree(const uint8_t* p) { return load32(p) << 8; }

    const uint8_t* bytes_;
    uint32_t reach_;
    std::array<uint16_t, kEntries> latest_;
};

/// Misses in a row after which it pays to expect more of them.
constexpr uint32_t kManyLazyMisses = 16;

/// Matches lazily up to the source's stop or the end of the room, and returns how far.
uint32_t parseLazily(const Source& sharedSource, const Chains<true>& sharedChains,
                     const DeflateSearch& search, NearMatches& nearMatches, Pairs& sharedPairs) {
    const Source source = sharedSource;
    const Chains<true> chains = sharedChains;
    Pairs pairs = sharedPairs;
    uint32_t at = 0;
    uint32_t misses = 0;
    while (at < source.stop && pairs.left() != 0) {
        if (misses >= kManyLazyMisses) {
            const uint32_t passed = passMisses<3, true>(source, chains, at, pairs);
            pairs.skip(passed);
            at += passed;
            misses = 0;
            continue;
        }
        uint32_t candidate = chains.insert(hash4(source.bytes + at), source.start + at);
        const uint32_t nearby = nearMatches.enter(source.bytes + at);
        Match match =
            findRarest(source, chains, search, at, candidate, {kHashBytes - 1, 0}, search.maxChain);
        if (match.distance == 0) match.distance = nearby;
        if (match.distance == 0) {
            pairs.literal(source.bytes[at]);
            ++at;
            ++misses;
            continue;
        }
        misses = 0;
        uint32_t entered = at + 1;
        while (match.length < search.lengthLimit && pairs.left() >= 2 &&
               entered < source.enterable) {
            candidate = chains.insert(hash4(source.bytes + entered), source.start + entered);
            nearMatches.enter(source.bytes + entered);
            ++entered;
            if (match.length >= source.limit(at + 1)) break;
            const uint32_t budget =
                match.length >= search.goodLength ? search.maxChain / 4 : search.maxChain;
            const Match next =
                findRarest(source, chains, search, at + 1, candidate, {match.length, 0}, budget);
            if (next.distance == 0) break;
            pairs.literal(source.bytes[at]);
            ++at;
            match = next;
        }
        pairs.match(match.length, match.distance);
        enterRange(source, chains, entered, std::min(at + match.length, source.enterable));
        at += match.length;
    }
    sharedPairs = pairs;
    return at;
}

/// Lowers every position by a window's length; those that come below the first become none.
void lowerAll(uint16_t* positions, uint32_t count) {
    const __m128i less = _mm_set1_epi16(static_cast<int16_t>(kWindow));
    constexpr uint32_t atOnce = 64;
    static_assert(kLeastTable % atOnce == 0);
    for (const uint16_t* const end = positions + count; positions != end; positions += atOnce) {
        for (uint32_t i = 0; i < atOnce; i += 8) {
            auto* const eight = reinterpret_cast<__m128i*>(positions + i);
            _mm_storeu_si128(eight, _mm_subs_epu16(_mm_loadu_si128(eight), less));
        }
    }
}

}  // namespace

bool DeflateMatcher::prepare(Way way, unsigned windowBits, uint32_t most, uint32_t at) {
    const uint32_t window = 1U << std::clamp(windowBits, 8U, 15U);
    way_ = way;
    prevSize_ = window;
    headSize_ = std::min(kMostHeads, 8 * window);
    if (most != 0 && most < window) {
        prevSize_ = std::max(kLeastTable, std::bit_ceil(most));
        headSize_ = std::min(headSize_, 2 * prevSize_);
    }
    farthest_ = prevSize_ - 1;
    if (way == Way::Quick) prevSize_ = 0;
    if (!head_.reserve(headSize_) || !prev_.reserve(prevSize_ == 0 ? 0 : prevSize_ + kChainsAtOnce))
        return false;
    std::memset(head_.data(), 0, headSize_ * sizeof(uint16_t));
    base_ = kFirst - at;
    oldest_ = entered_ = kFirst;
    return true;
}

bool DeflateMatcher::copyFrom(const DeflateMatcher& other) {
    way_ = other.way_;
    headSize_ = other.headSize_;
    prevSize_ = other.prevSize_;
    farthest_ = other.farthest_;
    base_ = other.base_;
    oldest_ = other.oldest_;
    entered_ = other.entered_;
    return head_.copyFrom(other.head_, headSize_) && prev_.reserve(other.prev_.room()) &&
           prev_.copyFrom(other.prev_, prevSize_);
}

/// Enters what is not entered yet of the text before `to`, of which four bytes are there.
void DeflateMatcher::enter(const uint8_t* text, uint32_t at, uint32_t to) {
    const uint32_t behind = position(to);
    if (entered_ >= behind) return;
    const Source source{text + at - (position(at) - entered_), entered_, 0, 0, 0, 0, 0};
    const uint32_t count = behind - entered_;
    if (way_ == Way::Quick)
        enterRange(source, Chains<false>{head_.data(), nullptr, headSize_ - 1, 0}, 0, count);
    else
        enterRange(source, Chains<true>{head_.data(), prev_.data(), headSize_ - 1, prevSize_ - 1},
                   0, count);
    entered_ = behind;
}

/// Lowers all positions by a window's length.
void DeflateMatcher::lower() {
    lowerAll(head_.data(), headSize_);
    base_ -= kWindow;
    entered_ -= kWindow;
    oldest_ = std::max(oldest_, kWindow + kFirst) - kWindow;
}

uint32_t DeflateMatcher::match(const uint8_t* text, uint32_t at, uint32_t stop, uint32_t end,
                               const DeflateSearch& search, DeflatePairRoom& room) {
    Pairs pairs{room.lits, room.dists, room.lits + room.count};
    const uint32_t hashable = end - std::min(end, kHashBytes - 1);
    const auto parse = [&](const auto& parser) {
        while (at < std::min(stop, hashable) && pairs.left() != 0) {
            if (position(at) >= kPositions) lower();
            enter(text, at, at);
            const uint32_t start = position(at);
            const uint32_t enterable = std::min(hashable - at, kPositions - start);
            const Source source{
                text + at, start,    end - at, enterable, std::min(stop - at, enterable),
                oldest_,   farthest_};
            const uint32_t from = at;
            at += parser(source);
            entered_ = start + std::min(at - from, enterable);
        }
    };
    const Chains<true> chains{head_.data(), prev_.data(), headSize_ - 1, prevSize_ - 1};
    if (way_ == Way::Quick) {
        const Chains<false> heads{head_.data(), nullptr, headSize_ - 1, 0};
        parse([&](const Source& source) { return parseGreedily<1>(source, heads, search, pairs); });
    } else if (way_ == Way::Greedy) {
        parse([&](const Source& source) { return parseGreedily(source, chains, search, pairs); });
    } else {
        NearMatches nearMatches(text + at, end - at, farthest_);
        parse([&](const Source& source) {
            return parseLazily(source, chains, search, nearMatches, pairs);
        });
    }
    if (at < stop) {
        const uint32_t count = std::min(stop - at, pairs.left());
        pairs.literals(text + at, count);
        pairs.skip(count);
        at += count;
    }
    room = {pairs.lit, pairs.dist, pairs.left()};
    return at;
}

}  // namespace vekdc::codec
