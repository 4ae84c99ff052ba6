// The one shape that all codecs share.
//
// A codec is a whole format (gzip, a bzip2 stream, an LZ4 frame, ...) as an object that takes input
// and gives output in pieces of any size, down to single bytes. It knows bytes and nothing of
// files, terminals or threads; its memory comes from the caller's allocator; nothing throws across
// it. It stands on the library's public header alone, so it is also the proof that the stages are
// enough to build real formats from.
//
//     Input in{data, size};
//     Output out{room, roomSize};
//     switch (encoder.run(in, out, Directive::Finish)) { ... }
//
// run() takes what it can and gives what it can. Each codec codes one stream, member or frame and
// then says Ended with the input's rest untouched; files of several are the caller's loop, with a
// reset() between them. Every codec has
//
//     Status run(Input&, Output&, Directive);  // a decoder: Status run(Input&, Output&)
//     Fault fault() const;                     // why the last run() said Broken
//     Status reset();                          // ready for another stream, memory kept
//
// Where blocks of a format are independent, its encoder of single blocks is public too, for callers
// that code blocks on threads of their own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vekdc::codec {

using Bytes = std::span<const uint8_t>;

/// Input that is left; run() moves on over what it took.
struct Input {
    const uint8_t* next;
    size_t left;
};

/// Room that is left; run() moves on over what it wrote.
struct Output {
    uint8_t* next;
    size_t left;
};

/// How far an encoder is to go with its input. What follows includes what comes before it.
enum class Directive {
    Go,            ///< Take the input; keep back whatever codes better later.
    Block,         ///< Code all of the input and end the block, at any bit.
    PartialFlush,  ///< Likewise, then ten bits more: all input but the last byte's can be decoded.
    SyncFlush,     ///< As Block, then end on a byte boundary: all input can be decoded.
    FullFlush,     ///< Likewise, and nothing that follows refers to what came before.
    Finish,        ///< Code all of the input and end the stream.
};

/// What came of a run().
enum class Status {
    Going,            ///< The input is used up or the room is; come again with more of it.
    Ended,            ///< The stream is complete. Later calls say so again.
    NeedsDictionary,  ///< The stream names a preset dictionary that was not given.
    Broken,           ///< The input is no valid stream; fault() says why. The codec stays so.
    NoMemory,         ///< The allocator gave none. The call may be made again.
};

/// What is wrong with a stream, and where it shows.
struct Fault {
    const char* reason = nullptr;  ///< A few words in lower case; null where nothing is wrong.
    uint64_t offset = 0;           ///< In bytes from the stream's start.
    int64_t value = -1;            ///< The number that the reason ends with; negative: none.
};

}  // namespace vekdc::codec
