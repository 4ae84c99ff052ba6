// Running codecs in pieces, and out of memory.
#pragma once

#include "codec/codec.h"
#include "codec/memory.h"
#include "support/supply.h"
#include "support/test.h"

namespace vektest {

inline vekdc::codec::Allocator allocator(Supply& supply) {
    return {Supply::give, Supply::take, &supply};
}

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
CodecResult runInPieces(const Bytes& input, size_t inPiece, size_t outPiece, Run run) {
    CodecResult result;
    Bytes piece, room(outPiece);
    size_t at = 0;
    for (;;) {
        const size_t count = std::min(inPiece, input.size() - at);
        if (count != piece.size()) piece = Bytes(count);
        std::copy_n(input.data() + at, count, piece.begin());
        vekdc::codec::Input in{piece.data(), piece.size()};
        vekdc::codec::Output out{room.data(), room.size()};
        result.status = run(in, out, at + count == input.size());
        const size_t written = room.size() - out.left;
        result.bytes.insert(result.bytes.end(), room.data(), room.data() + written);
        at += count - in.left;
        result.unread = input.size() - at;
        if (result.status != vekdc::codec::Status::Going) return result;
        if (count == in.left && written == 0) return result;
    }
}

/// Runs a decoder, or an encoder, which finishes with the last piece.
template <class Codec>
vekdc::codec::Status run(Codec& codec, vekdc::codec::Input& in, vekdc::codec::Output& out,
                         bool last) {
    using vekdc::codec::Directive;
    if constexpr (requires { codec.run(in, out); })
        return codec.run(in, out);
    else
        return codec.run(in, out, last ? Directive::Finish : Directive::Go);
}

template <class Codec>
CodecResult codeInPieces(Codec& codec, const Bytes& input, size_t inPiece = SIZE_MAX / 2,
                         size_t outPiece = 1 << 16) {
    return runInPieces(input, inPiece, outPiece,
                       [&](auto& in, auto& out, bool last) { return run(codec, in, out, last); });
}

inline void expectAll(const CodecResult& result, const Bytes& bytes, size_t unread = 0) {
    EXPECT_EQ(result.status, vekdc::codec::Status::Ended);
    EXPECT_EQ(result.unread, unread);
    EXPECT_TRUE(result.bytes == bytes) << result.bytes.size() << " of " << bytes.size();
}

/// Cut anywhere a stream goes on; with any bit flipped it ends, breaks, or goes on, in pieces as
/// whole. Returns how many flips it ended with, all of them in `plain` where that is given.
template <class Make>
size_t survivesDamage(Make make, Bytes packed, const Bytes* plain = nullptr) {
    using vekdc::codec::Status;
    for (size_t size = 0; size < packed.size(); ++size) {
        auto decoder = make();
        const CodecResult result = codeInPieces(decoder, part(packed, 0, size), 1 + size % 40);
        EXPECT_TRUE(result.status == Status::Going && result.unread == 0) << "cut at " << size;
        EXPECT_TRUE(plain == nullptr || result.bytes == part(*plain, 0, result.bytes.size()));
    }
    size_t harmless = 0;
    for (size_t bit = 0; bit < packed.size() * 8 && !testing::Test::HasFailure();
         bit += effort(100) == 100 ? 1 : 50) {
        SCOPED_TRACE(testing::Message() << "bit " << bit);
        flip(packed, bit);
        auto whole = make();
        auto pieces = make();
        const CodecResult a = codeInPieces(whole, packed, packed.size(), 4096);
        const CodecResult b = codeInPieces(pieces, packed, 1 + bit % 99, 1 + bit % 277);
        EXPECT_EQ(a.status, b.status);
        EXPECT_EQ(a.bytes, b.bytes);
        EXPECT_TRUE((a.status == Status::Broken) == (whole.fault().reason != nullptr) ||
                    a.status == Status::NeedsDictionary);
        EXPECT_TRUE(whole.fault().offset == pieces.fault().offset &&
                    whole.fault().offset <= packed.size());
        EXPECT_TRUE(a.status != Status::Ended || plain == nullptr || a.bytes == *plain);
        if (a.status == Status::Ended) ++harmless;
        if (a.status == Status::Broken) {
            EXPECT_EQ(codeInPieces(whole, packed).status, Status::Broken);
        }
        flip(packed, bit);
    }
    return harmless;
}

/// Every allocation of the codec that `make(allocator)` gives may fail: the call says so, and once
/// there is memory it goes on, to what is expected.
template <class Make>
void goesOnOnceThereIsMemory(Make make, const Bytes& input, const Bytes& expected) {
    using namespace vekdc::codec;
    size_t limit = 0;
    for (bool failed = true; failed && !testing::Test::HasFailure(); ++limit) {
        SCOPED_TRACE(limit);
        Supply memory{limit};
        auto codec = make(allocator(memory));
        failed = false;
        const CodecResult result =
            runInPieces(input, 999, 9000, [&](Input& in, Output& out, bool last) {
                const Status status = run(codec, in, out, last);
                if (status != Status::NoMemory) return status;
                EXPECT_TRUE(memory.refused);
                EXPECT_EQ(run(codec, in, out, last), Status::NoMemory);
                memory.left = SIZE_MAX;
                failed = true;
                return run(codec, in, out, last);
            });
        EXPECT_LT(result.unread, 8U);  // Padding.
        expectAll(result, expected, result.unread);
    }
    EXPECT_GT(limit, 2U);
}

}  // namespace vektest
