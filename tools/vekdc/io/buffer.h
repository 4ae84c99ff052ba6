// Bytes that are not cleared before they are written: a block's buffer may be of megabytes.
#pragma once

#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace vekdc {

/// An allocator whose vectors leave the values unset that they are not told.
template <class T>
struct Unset : std::allocator<T> {
    template <class U>
    struct rebind {
        using other = Unset<U>;
    };
    Unset() = default;
    template <class U>
    Unset(const Unset<U>& /*other*/) {}

    template <class U>
    void construct(U* place) {
        ::new (static_cast<void*>(place)) U;
    }
    template <class U, class... Values>
    void construct(U* place, Values&&... values) {
        ::new (static_cast<void*>(place)) U(std::forward<Values>(values)...);
    }
};

using Buffer = std::vector<uint8_t, Unset<uint8_t>>;

}  // namespace vekdc
