// The hash chains of a text, in the two forms that there are.
//
// Every position is entered under the hash of the four bytes that begin there; the head table holds
// the latest position of each hash, the chain table leads from each position to the one before it
// with the same hash. A search follows a chain from the nearest place to farther ones. What it
// follows is a template parameter, so that one text of each search serves both forms.
#pragma once

#include <nmmintrin.h>
#include <xmmintrin.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "matching/text.h"

namespace vek::inline VEK_LEVEL::matching {

/// A chain that leads to candidates: that of the four bytes `offset` behind a match's first.
struct Chain {
    uint32_t offset;
    uint32_t back;  ///< Its next candidate's distance less one.

    void preferFarther(Chain other) {
        if (other.back > back) *this = other;
    }
};

/// The head table, indexed by hash, and the chain table, indexed by position.
template <class SlotType>
struct ChainTables {
    using Slot = SlotType;

    Slot* head;
    Slot* prev;
    uint32_t headMask;
    uint32_t prevMask;

    /// The latest position under `hash`.
    uint32_t latest(uint32_t hash) const { return static_cast<uint32_t>(head[hash & headMask]); }
};

/// Chains of positions in a whole stream, in tables of the caller's, which may hold anything.
struct PositionChains : ChainTables<int32_t> {
    /// Whether nothing else writes the tables.
    static constexpr bool owned = false;
    /// How far ahead of its use an entry of the head table is fetched.
    static constexpr uint32_t headsAhead = 12;

    /// Enters `position` under `hash` and returns the position that it hides.
    uint32_t insert(uint32_t hash, uint32_t position) const {
        Slot& latest = head[hash & headMask];
        const Slot before = latest;
        prev[position & prevMask] = before;
        latest = static_cast<Slot>(position);
        return static_cast<uint32_t>(before);
    }

    /// The position before `position` on its chain.
    uint32_t next(uint32_t position) const {
        return static_cast<uint32_t>(prev[position & prevMask]);
    }

    /// What remove() is to be told of an insertion, before it is made.
    Slot toRestore(uint32_t /*hash*/, uint32_t position) const { return prev[position & prevMask]; }

    /// Takes back the insertion of `position`, the latest one.
    void remove(uint32_t hash, uint32_t position, Slot restored) const {
        Slot& slot = prev[position & prevMask];
        head[hash & headMask] = slot;
        slot = restored;
    }

    /// Whether the slot of a place `back` + 1 before a position may be taken by one of the `count`
    /// positions from there on.
    bool mayBeTaken(uint32_t back, uint32_t count) const { return back > prevMask - count; }

    void prefetch(uint32_t hash) const {
        _mm_prefetch(reinterpret_cast<const char*>(head + (hash & headMask)), _MM_HINT_T0);
    }

    /// Of the chains of up to `count` positions, from the place `back` + 1 before `last` + 1 on,
    /// the one that leads farthest from there.
    Chain farthest(uint32_t last, uint32_t back, uint32_t count) const {
        constexpr uint32_t most = 17;
        Chain chain{0, last - next(last - back)};
        for (uint32_t i = 1; i < std::min(count, most); ++i)
            chain.preferFarther({i, last + i - next(last + i - back)});
        return chain;
    }
};

/// Chains of 16-bit distances, over positions below 65,536 of which 0 stands for none; without
/// links the head table alone. They take half of what positions do, and stay in nearer caches.
template <bool Linked>
struct DistanceChains : ChainTables<uint16_t> {
    static constexpr bool owned = true;
    static constexpr uint32_t headsAhead = 0;
    /// farthest() looks at so many chains at once, and behind the chain table as many.
    static constexpr uint32_t atOnce = 8;

    uint32_t insert(uint32_t hash, uint32_t position) const {
        Slot& latest = head[hash & headMask];
        const uint32_t before = latest;
        if constexpr (Linked) prev[position & prevMask] = static_cast<Slot>(position - before);
        latest = static_cast<Slot>(position);
        return before;
    }

    uint32_t next(uint32_t position) const {
        return Linked ? position - prev[position & prevMask] : 0;
    }

    Slot toRestore(uint32_t hash, uint32_t position) const {
        return Linked ? prev[position & prevMask] : head[hash & headMask];
    }

    void remove(uint32_t hash, uint32_t position, Slot restored) const {
        if constexpr (Linked) {
            Slot& slot = prev[position & prevMask];
            head[hash & headMask] = static_cast<Slot>(position - slot);
            slot = restored;
        } else {
            head[hash & headMask] = restored;
        }
    }

    bool mayBeTaken(uint32_t back, uint32_t count) const {
        return Linked && back > prevMask - count;
    }

    /// Chains of positions behind the chain table's edge are not looked at.
    Chain farthest(uint32_t last, uint32_t back, uint32_t count) const {
        alignas(16) static constexpr std::array<Slot, 2 * atOnce> unusedBehind = [] {
            std::array<Slot, 2 * atOnce> unused{};
            for (uint32_t i = atOnce; i < unused.size(); ++i) unused[i] = 0xFFFF;
            return unused;
        }();
        const uint32_t slot = (last - back) & prevMask;
        count = std::min({count, atOnce, prevMask + 1 - slot});
        const auto load = [](const Slot* p) {
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        };
        const __m128i unused = load(unusedBehind.data() + atOnce - count);
        const __m128i steps = load(prev + slot);
        const __m128i longest =
            _mm_minpos_epu16(_mm_or_si128(_mm_xor_si128(steps, _mm_set1_epi16(-1)), unused));
        const auto found = static_cast<uint32_t>(_mm_cvtsi128_si32(longest));
        return {found >> 16, back + 0xFFFF - (found & 0xFFFF)};
    }
};

/// Enters the position of offset `at` and returns the one that it hides; one some way ahead is made
/// ready.
template <class Chains>
inline uint32_t enter(const Text& text, const Chains& chains, uint32_t at) {
    if constexpr (Chains::headsAhead != 0)
        chains.prefetch(hash4(text.bytes + std::min(at + Chains::headsAhead, text.hashable - 1)));
    return chains.insert(hash4(text.bytes + at), text.start + at);
}

/// Enters the positions of the offsets [from, to).
template <class Chains>
inline void insertRange(const Text& text, const Chains& chains, uint32_t from, uint32_t to) {
    for (; from < to; ++from) chains.insert(hash4(text.bytes + from), text.start + from);
}

/// Enters the positions of the offsets [from, to); what is behind them is made ready.
template <class Chains>
inline void enterRange(const Text& text, const Chains& chains, uint32_t from, uint32_t to) {
    const uint32_t fetching = std::max(from, to - std::min(to, Chains::headsAhead));
    insertRange(text, chains, from, fetching);
    for (from = fetching; from < to; ++from) enter(text, chains, from);
}

}  // namespace vek::inline VEK_LEVEL::matching
