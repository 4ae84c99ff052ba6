// The matchers' parameters at each level.
//
// Three decades are three tunings of one scale. The values were found by trial and follow no rule.
#pragma once

#include <cstdint>

namespace vek::inline VEK_LEVEL::deflate {

constexpr uint32_t levelCount = 30;

/// Levels whose units digit is below this take the greedy matcher, the others the lazy one.
constexpr uint32_t firstLazyLevel = 5;

/// maxChain, goodLength, niceLength, and maxInsert (greedy) or maxLazy (lazy).
inline constexpr int32_t _loc_vec_match[levelCount][4] = {
    {0, 0, 0, 0},    {4, 8, 8, 8},      {4, 16, 16, 9},    {4, 16, 16, 12},     {48, 32, 32, 16},
    {32, 8, 32, 16}, {128, 8, 256, 16}, {144, 8, 256, 16}, {192, 32, 258, 128}, {256, 32, 258, 258},

    {0, 0, 0, 0},    {3, 7, 8, 258},    {3, 8, 16, 258},   {5, 8, 16, 258},     {16, 32, 32, 258},
    {24, 6, 32, 16}, {120, 7, 256, 16}, {140, 7, 256, 16}, {192, 32, 258, 128}, {512, 32, 258, 258},

    {0, 0, 0, 0},    {4, 8, 8, 258},    {4, 16, 16, 258},  {4, 16, 16, 258},    {16, 32, 32, 258},
    {32, 8, 32, 16}, {128, 8, 256, 16}, {144, 8, 256, 16}, {192, 32, 258, 128}, {512, 32, 258, 258},
};

}  // namespace vek::inline VEK_LEVEL::deflate
