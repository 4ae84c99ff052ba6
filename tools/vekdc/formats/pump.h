// Runs codecs between a Source and a Sink.
#pragma once

#include <algorithm>
#include <new>
#include <span>
#include <vector>

#include "codec/codec.h"
#include "tools/vekdc/io/stream.h"

namespace vekdc {

/// Bytes that a codec is asked for at a time.
constexpr size_t kPumpRoom = 256 << 10;

/// Runs a decoder over one stream, in `room`: what follows the stream stays in the source. Returns
/// what it says in the end, Going where the source ends first. What was good is in the sink then.
template <class Decoder>
codec::Status pump(Decoder& decoder, Source& source, Sink& sink, std::span<uint8_t> room) {
    for (;;) {
        const Bytes bytes = source.peek();
        codec::Input in{bytes.data(), bytes.size()};
        codec::Output out{room.data(), room.size()};
        const codec::Status status = decoder.run(in, out);
        source.skip(bytes.size() - in.left);
        const Bytes written(room.data(), room.size() - out.left);
        if (!written.empty()) sink.write(written);
        if (status == codec::Status::NoMemory) throw std::bad_alloc();
        if (status != codec::Status::Going) return status;
        // Nothing more can come: the stream ends in the middle.
        if (bytes.empty() && written.empty()) return status;
    }
}

/// Likewise, throws FormatError unless the stream is good. `name` is put in front of the fault's
/// reason ("member 2: ").
template <class Decoder, class Name>
void pumpDecoder(Decoder& decoder, Source& source, Sink& sink, Name&& name) {
    const uint64_t start = source.offset();
    std::vector<uint8_t> room(kPumpRoom);
    const codec::Status status = pump(decoder, source, sink, room);
    if (status == codec::Status::Ended) return;
    if (status == codec::Status::Going)
        throw FormatError(source.offset(), name() + "the file ends too early");
    throw FormatError(start + decoder.fault().offset, name() + decoder.fault().reason);
}

/// Runs an encoder over the source to its end.
template <class Encoder>
void pumpEncoder(Encoder& encoder, Source& source, Sink& sink) {
    std::vector<uint8_t> room(kPumpRoom);
    for (;;) {
        const Bytes bytes = source.peek();
        codec::Input in{bytes.data(), bytes.size()};
        codec::Output out{room.data(), room.size()};
        const codec::Status status =
            encoder.run(in, out, bytes.empty() ? codec::Directive::Finish : codec::Directive::Go);
        source.skip(bytes.size() - in.left);
        const Bytes written(room.data(), room.size() - out.left);
        if (!written.empty()) sink.write(written);
        if (status == codec::Status::NoMemory) throw std::bad_alloc();
        if (status == codec::Status::Ended) return;
        if (status != codec::Status::Going) throw std::logic_error("an encoder failed");
    }
}

}  // namespace vekdc
