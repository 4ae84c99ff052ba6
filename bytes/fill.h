// Fills of bytes and 32-bit words.
//
// A fill longer than the largest cache would only push everything else out of it, so it streams
// past the caches instead. Finding the cache's size costs a few CPUID calls, so only fills above 2
// MiB ask.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/variant.h"

#define ownsSet_8u VEK_INTERNAL(ownsSet_8u)
#define ownsSet_32s VEK_INTERNAL(ownsSet_32s)

extern "C" {

/// Sets `length` bytes at `dst` to `value`.
void ownsSet_8u(uint8_t value, uint8_t* dst, size_t length);

/// Sets `length` 32-bit words at `dst`, which may have any alignment, to `value`.
void ownsSet_32s(int32_t value, int32_t* dst, size_t length);
}
