// Runs codecs between a Source and a Sink.
#pragma once

#include <memory>
#include <new>
#include <string>

#include "codec/codec.h"
#include "tools/vekdc/io/stream.h"

namespace vekdc {

/// Room for what a codec is asked for at a time. Not cleared: a file may be of many tiny parts.
class PumpRoom {
 public:
    static constexpr size_t kBytes = 256 << 10;

    explicit PumpRoom(size_t size = kBytes)
        : size_(size), bytes_(std::make_unique_for_overwrite<uint8_t[]>(size)) {}

    codec::Output output() { return {bytes_.get(), size_}; }
    /// What was written to the output.
    Bytes written(const codec::Output& out) const { return {bytes_.get(), size_ - out.left}; }

 private:
    size_t size_;
    std::unique_ptr<uint8_t[]> bytes_;
};

/// Runs a decoder over one stream: what follows the stream stays in the source. Returns what it
/// says in the end, Going where the source ends first. What was good is in the sink then.
template <class Decoder>
codec::Status pump(Decoder& decoder, Source& source, Sink& sink, PumpRoom& room) {
    for (;;) {
        const Bytes bytes = source.peek();
        codec::Input in{bytes.data(), bytes.size()};
        codec::Output out = room.output();
        const codec::Status status = decoder.run(in, out);
        source.skip(bytes.size() - in.left);
        const Bytes written = room.written(out);
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
    PumpRoom room;
    const codec::Status status = pump(decoder, source, sink, room);
    if (status == codec::Status::Ended) return;
    if (status == codec::Status::Going)
        throw FormatError(source.offset(), name() + "the file ends too early");
    throw FormatError(start + decoder.fault().offset, name() + decoder.fault().reason);
}

/// Runs an encoder over the source to its end, or to where the encoder's stream ends. Throws
/// FormatError where the encoder cannot code what the source holds.
template <class Encoder>
void pumpEncoder(Encoder& encoder, Source& source, Sink& sink) {
    const uint64_t start = source.offset();
    PumpRoom room;
    for (;;) {
        const Bytes bytes = source.peek();
        codec::Input in{bytes.data(), bytes.size()};
        codec::Output out = room.output();
        const codec::Status status =
            encoder.run(in, out, bytes.empty() ? codec::Directive::Finish : codec::Directive::Go);
        source.skip(bytes.size() - in.left);
        const Bytes written = room.written(out);
        if (!written.empty()) sink.write(written);
        if (status == codec::Status::NoMemory) throw std::bad_alloc();
        if (status == codec::Status::Ended) return;
        if (status == codec::Status::Going) continue;
        const codec::Fault fault = encoder.fault();
        throw FormatError(start + fault.offset, fault.reason == nullptr ? "" : fault.reason);
    }
}

}  // namespace vekdc
