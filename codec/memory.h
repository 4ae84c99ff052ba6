// Memory of a codec: from the caller's allocator, never from anywhere else, and never by exception.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <utility>

namespace vekdc::codec {

/// Where a codec's memory comes from; as it stands, the C library's. What `allocate` gives is
/// aligned for any fundamental type and need not be zeros; null when there is none.
struct Allocator {
    void* (*allocate)(void* opaque, size_t bytes) = [](void*, size_t bytes) {
        return std::malloc(bytes);
    };
    void (*release)(void* opaque, void* memory) = [](void*, void* memory) { std::free(memory); };
    void* opaque = nullptr;
};

/// Owns uninitialised memory for a number of plain values.
template <class T>
class Memory {
    static_assert(std::is_trivially_copyable_v<T>);

 public:
    Memory() = default;
    explicit Memory(const Allocator& allocator) : allocator_(allocator) {}
    ~Memory() { release(); }
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;
    Memory(Memory&& other) noexcept { swap(other); }
    Memory& operator=(Memory&& other) noexcept {
        swap(other);
        return *this;
    }

    /// Makes room for `count` values, and keeps the first `used` of those that are there. False
    /// when there is no memory: what was there stays.
    [[nodiscard]] bool reserve(size_t count, size_t used = 0) {
        if (count <= room_) return true;
        if (count > static_cast<size_t>(-1) / sizeof(T)) return false;
        auto* const fresh =
            static_cast<T*>(allocator_.allocate(allocator_.opaque, count * sizeof(T)));
        if (fresh == nullptr) return false;
        if (used != 0) std::memcpy(fresh, data_, used * sizeof(T));
        release();
        data_ = fresh;
        room_ = count;
        return true;
    }

    /// Becomes a copy of the other's first `used` values.
    [[nodiscard]] bool copyFrom(const Memory& other, size_t used) {
        if (!reserve(used)) return false;
        if (used != 0) std::memcpy(data_, other.data_, used * sizeof(T));
        return true;
    }

    void release() {
        if (data_ != nullptr) allocator_.release(allocator_.opaque, data_);
        data_ = nullptr;
        room_ = 0;
    }

    T* data() { return data_; }
    const T* data() const { return data_; }
    size_t room() const { return room_; }
    T& operator[](size_t i) { return data_[i]; }
    const T& operator[](size_t i) const { return data_[i]; }

 private:
    void swap(Memory& other) {
        std::swap(allocator_, other.allocator_);
        std::swap(data_, other.data_);
        std::swap(room_, other.room_);
    }

    Allocator allocator_;
    T* data_ = nullptr;
    size_t room_ = 0;
};

}  // namespace vekdc::codec
