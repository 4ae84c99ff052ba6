// Passing places without a match many at a time, as in data that hardly compresses most are.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "matching/chains.h"
#include "matching/pairs.h"

namespace vek::inline VEK_LEVEL::matching {

/// Positions that passMisses() takes at once.
constexpr uint32_t missBatch = 32;

/// How many of the `missBatch` positions from offset `at` on, which it enters, have no match of
/// four bytes among the first `Places` places of their chains and, with `Whole`, no more places.
///
/// Whether a place is in reach cannot be predicted. So all positions are entered first, and those
/// whose place is in reach go to a list, without a branch; the list is gone through for each
/// further place, and shortens soon. Places whose slots the entries of the same batch may have
/// taken count as matches: the caller looks again.
template <uint32_t Places, bool Whole, class Chains>
[[gnu::always_inline]] inline uint32_t enterMisses(const Text& text, const Chains& chains,
                                                   uint32_t at) {
    struct Place {
        uint32_t i;
        uint32_t back;
    };
    std::array<Place, missBatch> places;
    std::array<typename Chains::Slot, missBatch> restored;
    const uint8_t* const bytes = text.bytes + at;
    const uint32_t position = text.start + at;
    uint32_t inReach = 0;
    const auto listIfInReach = [&](uint32_t i, uint32_t candidate) {
        const uint32_t back = position + i - 1 - candidate;
        places[inReach] = {i, back};
        inReach += static_cast<uint32_t>(back < text.reach(position + i));
    };
    for (uint32_t i = 0; i < missBatch; ++i) {
        const uint32_t hash = hash4(bytes + i);
        restored[i] = chains.toRestore(hash, position + i);
        listIfInReach(i, chains.insert(hash, position + i));
    }
    uint32_t misses = missBatch;
    for (uint32_t k = 0; k < Places; ++k) {
        const uint32_t listed = std::exchange(inReach, 0);
        for (uint32_t n = 0; n < listed; ++n) {
            const auto [i, back] = places[n];
            const uint8_t* const current = bytes + i;
            const bool matches = load<uint32_t>(current) == load<uint32_t>(current - 1 - back);
            misses = matches || chains.mayBeTaken(back, missBatch) ? std::min(misses, i) : misses;
            if (Whole || k + 1 < Places) listIfInReach(i, chains.next(position + i - 1 - back));
        }
    }
    if (inReach != 0) misses = std::min(misses, places[0].i);
    for (uint32_t i = missBatch; i-- > misses;)
        chains.remove(hash4(bytes + i), position + i, restored[i]);
    return misses;
}

/// Makes literals of the text from offset `at` on and enters them, as far as its stop, the room and
/// enterMisses() go. Returns how many; `pairs`, which the caller keeps in registers, is not moved.
template <uint32_t Places, bool Whole, class Chains, class Counts>
[[gnu::noinline]] uint32_t passMisses(Text text, Chains chains, uint32_t at,
                                      PairWriter<Counts> pairs) {
    const uint32_t from = at;
    const uint32_t stop = std::min(text.stop, at + pairs.left());
    while (stop - at >= missBatch) {
        const uint32_t misses = enterMisses<Places, Whole>(text, chains, at);
        at += misses;
        if (misses < missBatch) break;
    }
    pairs.literals(text.bytes + from, at - from);
    return at - from;
}

}  // namespace vek::inline VEK_LEVEL::matching
