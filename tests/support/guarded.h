// Buffers whose neighbouring page faults: a read or write outside is a crash, on every build.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <vector>

namespace vektest {

/// `size` bytes that end exactly at an inaccessible page (Edge::End) or start right behind one
/// (Edge::Start). A size of 0 gives a pointer that must not be touched at all.
class Guarded {
 public:
    enum class Edge { End, Start };

    explicit Guarded(size_t size, Edge edge = Edge::End) : size_(size) {
        const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t inner = (size + page - 1) / page * page;
        mappedSize_ = inner + 2 * page;
        map_ = mmap(nullptr, mappedSize_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (map_ == MAP_FAILED) throw std::bad_alloc();
        auto* first = static_cast<uint8_t*>(map_) + page;
        if (inner != 0 && mprotect(first, inner, PROT_READ | PROT_WRITE) != 0)
            throw std::bad_alloc();
        data_ = edge == Edge::End ? first + (inner - size) : first;
    }

    explicit Guarded(const std::vector<uint8_t>& bytes, Edge edge = Edge::End)
        : Guarded(bytes.size(), edge) {
        if (size_ != 0) std::memcpy(data_, bytes.data(), size_);
    }

    ~Guarded() { munmap(map_, mappedSize_); }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;

    uint8_t* data() { return data_; }
    size_t size() const { return size_; }
    std::vector<uint8_t> bytes() const { return {data_, data_ + size_}; }

 private:
    void* map_ = nullptr;
    size_t mappedSize_ = 0;
    uint8_t* data_ = nullptr;
    size_t size_;
};

}  // namespace vektest
