// What both directions of liblz4's frames share: errors as numbers, and memory from the caller.
#pragma once

#include <cstdlib>
#include <new>
#include <utility>

#include "codec/memory.h"
#include "compat/lz4/lz4_interface.h"

namespace vekdc::compat {

inline size_t failed(LZ4F_errorCodes code) {
    return static_cast<size_t>(-static_cast<ptrdiff_t>(code));
}

/// A context with the caller's functions, from which all of its memory comes.
template <class Self>
struct WithMemory {
    explicit WithMemory(const LZ4F_CustomMem& from) : functions(from) {}
    WithMemory(const WithMemory&) = delete;
    WithMemory& operator=(const WithMemory&) = delete;

    LZ4F_CustomMem functions;

    static void* allocate(const LZ4F_CustomMem& from, size_t size) {
        return from.customAlloc != nullptr ? from.customAlloc(from.opaqueState, size)
                                           : std::malloc(size);
    }
    static void release(const LZ4F_CustomMem& from, void* memory) {
        if (memory == nullptr) return;
        if (from.customFree != nullptr)
            from.customFree(from.opaqueState, memory);
        else
            std::free(memory);
    }
    codec::Allocator allocator() {
        return {
            [](void* self, size_t size) {
                return allocate(*static_cast<LZ4F_CustomMem*>(self), size);
            },
            [](void* self, void* memory) { release(*static_cast<LZ4F_CustomMem*>(self), memory); },
            &functions};
    }

    static Self* create(const LZ4F_CustomMem& from) {
        void* const memory = allocate(from, sizeof(Self));
        return memory == nullptr ? nullptr : new (memory) Self(from);
    }
    static void destroy(Self* self) {
        if (self == nullptr) return;
        const LZ4F_CustomMem from = self->functions;
        self->~Self();
        release(from, self);
    }
};

}  // namespace vekdc::compat
