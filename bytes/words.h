// Words of bytes and bits: loads and stores at any address, byte swaps, bit scans, bit reversal.
//
// x86 is little-endian and loads from any address; memcpy says so to the compiler without undefined
// behaviour and becomes one instruction. A big-endian word is a load and a swap.
#pragma once

#include <cstdint>
#include <cstring>

namespace vek::inline VEK_LEVEL {

/// Reads a little-endian T from any address.
template <class T>
inline T load(const void* p) {
    T value;
    std::memcpy(&value, p, sizeof(T));
    return value;
}

/// Writes a little-endian T to any address.
template <class T>
inline void store(void* p, T value) {
    std::memcpy(p, &value, sizeof(T));
}

constexpr uint32_t byteSwap(uint32_t v) {
    return __builtin_bswap32(v);
}
constexpr uint64_t byteSwap(uint64_t v) {
    return __builtin_bswap64(v);
}

/// Index of the lowest set bit; `v` must not be 0.
constexpr unsigned lowestSetBit(uint32_t v) {
    return static_cast<unsigned>(__builtin_ctz(v));
}
constexpr unsigned lowestSetBit(uint64_t v) {
    return static_cast<unsigned>(__builtin_ctzll(v));
}

/// Index of the highest set bit; `v` must not be 0.
constexpr unsigned highestSetBit(uint32_t v) {
    return 31U - static_cast<unsigned>(__builtin_clz(v));
}

/// The low `bits` bits of `v` in reverse order; bits is 1..32.
constexpr uint32_t reverseBits(uint32_t v, unsigned bits) {
    v = ((v >> 1) & 0x55555555U) | ((v & 0x55555555U) << 1);
    v = ((v >> 2) & 0x33333333U) | ((v & 0x33333333U) << 2);
    v = ((v >> 4) & 0x0F0F0F0FU) | ((v & 0x0F0F0F0FU) << 4);
    return byteSwap(v) >> (32U - bits);
}

}  // namespace vek::inline VEK_LEVEL
