#include "codec/deflate_matcher.h"

#include <emmintrin.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "matching/greedy.h"
#include "matching/lazy.h"

namespace vekdc::codec {
namespace {

constexpr uint32_t kWindow = 32768;
constexpr uint32_t kLeastTable = 256;
/// As large as positions allow: fewer of other bytes under the same hash save more time than the
/// larger table's cache misses take.
constexpr uint32_t kMostHeads = 65536;
/// The first position; 0 stands for none, and is out of reach of all.
constexpr uint32_t kFirst = 1;
constexpr uint32_t kPositions = 65536;
/// Matches of three bytes that are farther away are left to refinement, which knows what they cost.
constexpr uint32_t kNear = 32;
static_assert(kNear < kLeastTable);

using vek::matching::DistanceChains;
using vek::matching::hashBytes;
using vek::matching::NearMatches;
using vek::matching::SearchLimits;
using vek::matching::Text;
using Chains = DistanceChains<true>;
using Heads = DistanceChains<false>;
using Pairs = vek::matching::PairWriter<vek::matching::NoCounts>;

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
    if (!head_.reserve(headSize_) ||
        !prev_.reserve(prevSize_ == 0 ? 0 : prevSize_ + Chains::atOnce))
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
    const Text missing{text + at - (position(at) - entered_), entered_, 0, 0, 0, 0, 0};
    const uint32_t count = behind - entered_;
    if (way_ == Way::Quick)
        insertRange(missing, Heads{head_.data(), nullptr, headSize_ - 1, 0}, 0, count);
    else
        insertRange(missing, Chains{head_.data(), prev_.data(), headSize_ - 1, prevSize_ - 1}, 0,
                    count);
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
    const uint8_t* const bytes = text + at;
    const uint32_t base = at;
    const uint32_t length = end - at;
    const uint32_t hashable = length - std::min(length, hashBytes - 1);
    const SearchLimits limits{search.maxChain, search.maxChain / 4, search.goodLength,
                              search.niceLength, search.lengthLimit};
    Pairs pairs{room.lits, room.dists, room.lits + room.count, {}};
    stop -= base;
    at = 0;
    const auto parse = [&](const auto& parser) {
        while (at < std::min(stop, hashable) && pairs.left() != 0) {
            if (position(base + at) >= kPositions) lower();
            enter(text, base + at, base + at);
            const uint32_t start = position(base);
            const uint32_t enterable = std::min(hashable, kPositions - start);
            at = parser(Text{bytes, start, oldest_, farthest_, length, enterable,
                             std::min(stop, enterable)});
            entered_ = start + std::min(at, enterable);
        }
    };
    const Chains chains{head_.data(), prev_.data(), headSize_ - 1, prevSize_ - 1};
    if (way_ == Way::Quick) {
        const Heads heads{head_.data(), nullptr, headSize_ - 1, 0};
        parse([&](const Text& part) { return parseGreedy<1>(part, heads, limits, at, pairs); });
    } else if (way_ == Way::Greedy) {
        parse([&](const Text& part) { return parseGreedily(part, chains, limits, at, pairs); });
    } else {
        NearMatches nearMatches(vek::matching::nearReach(bytes, length, kNear));
        uint32_t oldest = 0;
        parse([&](const Text& part) {
            return parseLazily(part, chains, limits, at, nearMatches, oldest, pairs);
        });
    }
    if (at < stop) at = writeLiterals(bytes, at, stop, pairs);
    room = {pairs.lit, pairs.dist, pairs.left()};
    return base + at;
}

}  // namespace vekdc::codec
