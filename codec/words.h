// Loads of words from any address, by which the searches hash and compare bytes.
#pragma once

#include <cstdint>
#include <cstring>

namespace vekdc::codec {

inline uint32_t load32(const uint8_t* p) {
    uint32_t value;
    std::memcpy(&value, p, sizeof(value));
    return value;
}

}  // namespace vekdc::codec
