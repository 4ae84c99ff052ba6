// Argument checks that every export opens with: nulls, then sizes, then domains, before anything is
// touched.
#pragma once

#include <cstdint>

namespace vek::inline VEK_LEVEL {

/// True when any of the pointers is null.
template <class... Pointers>
constexpr bool anyNull(Pointers... pointers) {
    return ((pointers == nullptr) || ...);
}

/// True when `value` lies outside [low, high].
template <class T>
constexpr bool outside(T value, T low, T high) {
    return value < low || value > high;
}

}  // namespace vek::inline VEK_LEVEL
