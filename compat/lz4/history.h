// What a stream of blocks may refer to: the last 64 KiB of what it has coded, wherever they lie.
//
// The encoders' tables hold positions in the stream. An encoder may look at every position that it
// finds there, so none may be left that lies in front of the history: when that moves, positions
// are counted anew from its first byte, and older ones become 0, which is then valid or means none.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace vekdc::compat {

constexpr uint32_t kWindow = 64 << 10;

inline const uint8_t* bytes(const char* from) {
    return reinterpret_cast<const uint8_t*>(from);
}
inline uint8_t* bytes(char* to) {
    return reinterpret_cast<uint8_t*>(to);
}
inline const uint8_t* at(uintptr_t address) {
    return reinterpret_cast<const uint8_t*>(address);
}
inline uintptr_t addressOf(const void* at) {
    return reinterpret_cast<uintptr_t>(at);
}

inline void rebase(uint32_t* positions, size_t count, uint32_t shift) {
    for (size_t i = 0; i < count; ++i) positions[i] = std::max(positions[i], shift) - shift;
}

/// A stream's place: byte k of it is, or was, at start + k.
struct History {
    uintptr_t start;
    uint32_t length;

    uintptr_t end() const { return start + length; }

    /// How many of its last bytes a block at `source` may refer to: those that the block itself
    /// does not lie upon, as in a ring buffer that has come round.
    uint32_t usable(uintptr_t source, uint32_t size) const {
        constexpr uint32_t fewest = 8;
        const uint32_t most = std::min(length, kWindow);
        if (source == end() || source >= end() || source + size <= end() - most) return most;
        const uintptr_t behind = source + size;
        if (behind >= end()) return 0;
        const auto left = static_cast<uint32_t>(end() - behind);
        return left < fewest ? 0 : left;
    }

    /// Copies the last bytes, as many as there are and fit, to `safe`; they are the history now.
    /// Returns their number; `forget(shift)` is called for those that are left behind.
    template <class Forget>
    int save(char* safe, int room, Forget&& forget) {
        const auto wanted = static_cast<uint32_t>(std::clamp(room, 0, static_cast<int>(kWindow)));
        const uint32_t size = std::min(length, wanted);
        if (size != 0) std::memmove(safe, at(end() - size), size);
        forget(length - size);
        start = addressOf(safe);
        length = size;
        return static_cast<int>(size);
    }
};

}  // namespace vekdc::compat
