// Running codecs in pieces, and out of memory.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

#include "codec/codec.h"
#include "codec/memory.h"
#include "support/data.h"

namespace vektest {

/// An allocator that counts what is out, and gives nothing from its `limit`th call on.
class CountingMemory {
 public:
    explicit CountingMemory(size_t limit = static_cast<size_t>(-1)) : left_(limit) {}
    ~CountingMemory() { EXPECT_EQ(out_, 0U) << "memory was not released"; }
    CountingMemory(const CountingMemory&) = delete;
    CountingMemory& operator=(const CountingMemory&) = delete;

    vekdc::codec::Allocator allocator() {
        return {[](void* self, size_t bytes) -> void* {
                    auto& memory = *static_cast<CountingMemory*>(self);
                    if (memory.left_ == 0) return nullptr;
                    --memory.left_;
                    ++memory.out_;
                    memory.given_ += bytes;
                    return std::malloc(bytes);
                },
                [](void* self, void* block) {
                    --static_cast<CountingMemory*>(self)->out_;
                    std::free(block);
                },
                this};
    }
    bool exhausted() const { return left_ == 0; }
    /// Gives whatever is asked for from now on.
    void lift() { left_ = static_cast<size_t>(-1); }
    /// Bytes that were given in all.
    size_t given() const { return given_; }

 private:
    size_t left_;
    size_t out_ = 0;
    size_t given_ = 0;
};

/// What a codec made of its input, and how it ended.
struct CodecResult {
    Bytes bytes;
    vekdc::codec::Status status = vekdc::codec::Status::Going;
    size_t unread = 0;
};

/// Feeds `input` to `run(Input&, Output&, bool last)` in pieces of at most `inPiece` bytes into
/// rooms of at most `outPiece`, until it says something other than Going or nothing moves any more.
/// Pieces and rooms are blocks of just their size, so that a sanitizer sees every step outside;
/// they are used again, for it keeps what is released.
template <class Run>
CodecResult runInPieces(const Bytes& input, size_t inPiece, size_t outPiece, Run&& run) {
    CodecResult result;
    Bytes piece;
    Bytes room(outPiece);
    size_t at = 0;
    for (;;) {
        const size_t count = std::min(inPiece, input.size() - at);
        if (count != piece.size()) piece = Bytes(count);
        std::copy_n(input.begin() + static_cast<ptrdiff_t>(at), count, piece.begin());
        vekdc::codec::Input in{piece.data(), piece.size()};
        vekdc::codec::Output out{room.data(), room.size()};
        result.status = run(in, out, at + count == input.size());
        const size_t written = room.size() - out.left;
        result.bytes.insert(result.bytes.end(), room.begin(),
                            room.begin() + static_cast<ptrdiff_t>(written));
        at += count - in.left;
        result.unread = input.size() - at;
        if (result.status != vekdc::codec::Status::Going) return result;
        if (count == in.left && written == 0) return result;
    }
}

template <class Decoder>
CodecResult decodeInPieces(Decoder& decoder, const Bytes& input, size_t inPiece = SIZE_MAX / 2,
                           size_t outPiece = 1 << 16) {
    return runInPieces(input, inPiece, outPiece,
                       [&](auto& in, auto& out, bool) { return decoder.run(in, out); });
}

template <class Encoder>
CodecResult encodeInPieces(Encoder& encoder, const Bytes& input, size_t inPiece = SIZE_MAX / 2,
                           size_t outPiece = 1 << 16) {
    return runInPieces(input, inPiece, outPiece, [&](auto& in, auto& out, bool last) {
        using vekdc::codec::Directive;
        return encoder.run(in, out, last ? Directive::Finish : Directive::Go);
    });
}

}  // namespace vektest
