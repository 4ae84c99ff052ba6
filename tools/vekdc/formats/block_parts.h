// Reads files of parts that consist of blocks, by a decoder of such parts, with the words that this
// needs when something is wrong.
#pragma once

#include "codec/memory.h"
#include "tools/vekdc/formats/format.h"
#include "tools/vekdc/formats/pump.h"

namespace vekdc {

/// What was read of one part.
template <class Info>
struct Part {
    uint64_t number = 0;  ///< From 1.
    uint64_t offset = 0;
    uint64_t packed = 0;
    Info info;
};

/// Reads parts one at a time; `Decoder` is a codec::BlockStreamDecoder.
template <class Decoder>
class PartReader {
 public:
    using Info = std::decay_t<decltype(std::declval<Decoder>().info())>;

    /// `name` is what the format calls a part; a block of up to `room` bytes is made in place.
    PartReader(Source& source, Sink& sink, const char* name, size_t room)
        : source_(source), sink_(sink), name_(name), room_(room) {}

    /// Reads a part; throws FormatError.
    const Part<Info>& read() {
        ++part_.number;
        part_.offset = source_.offset();
        decoder_.reset();
        const codec::Status status = pump(decoder_, source_, sink_, room_);
        if (status == codec::Status::Broken || status == codec::Status::NeedsDictionary)
            complain(status);
        if (status == codec::Status::Going && !mayEnd()) source_.throwTruncated();
        if constexpr (requires { decoder_.overrun(); }) source_.back(decoder_.overrun());
        part_.packed = source_.offset() - part_.offset;
        part_.info = decoder_.info();
        packed_ += part_.packed;
        plain_ += part_.info.plain;
        return part_;
    }

    Decoder& decoder() { return decoder_; }
    uint64_t count() const { return part_.number; }

    /// The last line of info.
    void printTotal(const Print& print) const {
        if (count() > 1) print(totalText(count(), (name_ + "s").c_str(), packed_, plain_));
    }

 private:
    bool mayEnd() const {
        if constexpr (requires { decoder_.mayEnd(); }) return decoder_.mayEnd();
        return false;
    }

    [[noreturn]] void complain(codec::Status status) const {
        const codec::Fault fault = decoder_.fault();
        std::string text = fault.reason;
        if (fault.value >= 0) text += " " + std::to_string(fault.value);
        const bool needsDictionary = status == codec::Status::NeedsDictionary;
        if (needsDictionary) text += " (see --dict)";
        // The very first bytes tell what is no such part at all.
        if (fault.offset == 0 && !needsDictionary) throw FormatError(part_.offset, text);
        std::string where = name_ + " " + std::to_string(part_.number);
        if (decoder_.faultyBlock() != 0)
            where += ", block " + std::to_string(decoder_.faultyBlock());
        throw FormatError(part_.offset + fault.offset, where + ": " + text);
    }

    Source& source_;
    Sink& sink_;
    std::string name_;
    PumpRoom room_;
    Decoder decoder_;
    Part<Info> part_;
    uint64_t packed_ = 0;
    uint64_t plain_ = 0;
};

}  // namespace vekdc
