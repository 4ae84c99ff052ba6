// What both directions of streams share: memory, messages, and how a caller's stream leads to ours.
#pragma once

#include <cstring>
#include <new>

#include "codec/memory.h"
#include "compat/zlib/zlib_interface.h"

namespace vekdc::compat {

/// Returns `status`, with its words in the stream.
inline int failed(z_streamp stream, int status) {
    stream->msg = const_cast<char*>(zError(status));
    return status;
}

/// The C library's memory where the caller has no functions for it.
inline void defaultMemory(z_streamp stream) {
    if (stream->zalloc == nullptr) {
        stream->zalloc = [](voidpf, uInt items, uInt size) -> voidpf {
            return std::malloc(static_cast<size_t>(items) * size);
        };
        stream->opaque = nullptr;
    }
    if (stream->zfree == nullptr) stream->zfree = [](voidpf, voidpf memory) { std::free(memory); };
}

inline voidpf allocate(const z_stream& stream, size_t bytes) {
    return stream.zalloc(stream.opaque, 1, static_cast<uInt>(bytes));
}

/// The part of a stream's state that both directions begin with. It holds the caller's functions
/// for memory, since the caller may move the stream, and tells whose state it is.
struct StreamState {
    enum class Kind : uint32_t { Deflate = 0x76646566, Inflate = 0x76696E66, Back = 0x7662616B };

    StreamState(z_streamp stream, Kind which)
        : owner(stream),
          kind(which),
          alloc(stream->zalloc),
          free(stream->zfree),
          opaque(stream->opaque) {}

    codec::Allocator allocator() {
        return {[](void* self, size_t bytes) -> void* {
                    const auto* const state = static_cast<StreamState*>(self);
                    return state->alloc(state->opaque, 1, static_cast<uInt>(bytes));
                },
                [](void* self, void* memory) {
                    const auto* const state = static_cast<StreamState*>(self);
                    state->free(state->opaque, memory);
                },
                this};
    }

    z_streamp owner;
    Kind kind;
    alloc_func alloc;
    free_func free;
    voidpf opaque;
};

/// A stream's state; null where the stream is none of that kind.
template <class State>
State* stateOf(z_streamp stream) {
    if (stream == nullptr || stream->zalloc == nullptr || stream->zfree == nullptr) return nullptr;
    auto* const state = reinterpret_cast<State*>(stream->state);
    if (state == nullptr || state->owner != stream || state->kind != State::kKind) return nullptr;
    return state;
}

/// Makes a stream's state in the caller's memory; null where there is none.
template <class State, class... Args>
State* newState(z_streamp stream, const Args&... args) {
    voidpf const memory = allocate(*stream, sizeof(State));
    if (memory == nullptr) return nullptr;
    auto* const state = new (memory) State(stream, args...);
    stream->state = reinterpret_cast<internal_state*>(state);
    return state;
}

template <class State>
void deleteState(z_streamp stream, State* state) {
    state->~State();
    stream->zfree(stream->opaque, state);
    stream->state = nullptr;
}

inline bool wrongVersion(const char* version, int streamSize) {
    return version == nullptr || version[0] != ZLIB_VERSION[0] ||
           streamSize != static_cast<int>(sizeof(z_stream));
}

/// Whether a call's pointers can be used.
inline bool badBuffers(const z_stream& stream) {
    return stream.next_out == nullptr || (stream.next_in == nullptr && stream.avail_in != 0);
}

}  // namespace vekdc::compat
