// How far two strings are the same.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vekdc::codec {

/// How many bytes from `length` on are the same, up to `limit` in all.
inline uint32_t matchLength(const uint8_t* a, const uint8_t* b, uint32_t length, uint32_t limit) {
    while (length + sizeof(size_t) <= limit) {
        size_t x;
        size_t y;
        std::memcpy(&x, a + length, sizeof(x));
        std::memcpy(&y, b + length, sizeof(y));
        if (x != y) return length + static_cast<uint32_t>(std::countr_zero(x ^ y)) / 8;
        length += sizeof(size_t);
    }
    while (length < limit && a[length] == b[length]) ++length;
    return length;
}

}  // namespace vekdc::codec
