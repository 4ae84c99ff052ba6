// Bytes in, bytes out: what a format sees of files, pipes and memory.
//
// A format pulls from a Source and pushes into a Sink, in plain straight-line code; it knows
// nothing of files. A Source is a window that slides over its input: it shows a stretch of bytes in
// place (nothing is copied to the format), counts the offset for error messages, and takes back a
// few bytes, since bit readers read ahead. Memory is the size of that window, whatever the input.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/vekdc/io/buffer.h"

namespace vekdc {

using Bytes = std::span<const uint8_t>;

/// What goes wrong with a file; the text is the reason alone, without the file's name.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Bad input: a reason and the offset in the input where it shows.
struct FormatError : Failure {
    FormatError(uint64_t at, const std::string& reason) : Failure(reason), offset(at) {}
    uint64_t offset;
};

/// Something to read from, such as a file.
class Reader {
 public:
    virtual ~Reader() = default;
    /// Reads at least one and at most `room` bytes; 0 only at the end.
    virtual size_t read(uint8_t* to, size_t room) = 0;
};

/// Something to write to.
class Sink {
 public:
    virtual ~Sink() = default;
    virtual void write(Bytes bytes) = 0;
};

/// Counts what is written and keeps none of it.
class NullSink : public Sink {
 public:
    void write(Bytes bytes) override { written += bytes.size(); }
    uint64_t written = 0;
};

class MemorySink : public Sink {
 public:
    void write(Bytes bytes) override { data.insert(data.end(), bytes.begin(), bytes.end()); }
    std::vector<uint8_t> data;
};

class Source {
 public:
    /// Bytes that back() can always return.
    static constexpr size_t kBack = 16;
    static constexpr size_t kRoom = 256 << 10;

    /// Slides a window of `room` bytes over what `reader` gives.
    explicit Source(Reader& reader, size_t room = kRoom) : reader_(&reader), buffer_(kBack + room) {
        view_ = {buffer_.data(), 0};
    }
    /// The bytes of a buffer that the caller keeps.
    explicit Source(Bytes memory) : view_(memory.empty() ? Bytes(&kNothing, 0) : memory) {}

    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    /// The bytes at hand: at least `wanted` (up to the window's room), fewer only where the input
    /// ends. Valid until the next call; the pointer is never null.
    Bytes peek(size_t wanted = 1) {
        if (view_.size() - at_ < wanted) fill(wanted);
        return view_.subspan(at_);
    }

    /// Moves on over bytes that peek() showed.
    void skip(size_t count) {
        at_ += count;
        offset_ += count;
    }

    /// Goes back over the last `count` bytes, at most kBack.
    void back(size_t count) {
        at_ -= count;
        offset_ -= count;
    }

    /// Copies up to `count` bytes, fewer only where the input ends.
    size_t read(uint8_t* to, size_t count);

    /// One byte; throws FormatError when the input ends.
    uint8_t byte() {
        const Bytes bytes = peek();
        if (bytes.empty()) throwTruncated();
        const uint8_t value = bytes[0];
        skip(1);
        return value;
    }

    /// `count` bytes (up to 8) as a little-endian number.
    uint64_t littleEndian(int count) {
        uint64_t value = 0;
        for (int i = 0; i < count; ++i) value |= static_cast<uint64_t>(byte()) << (8 * i);
        return value;
    }

    /// Likewise, the most significant byte first.
    uint64_t bigEndian(int count) {
        uint64_t value = 0;
        for (int i = 0; i < count; ++i) value = value << 8 | byte();
        return value;
    }

    /// Puts the next `count` bytes behind what `to` holds; throws FormatError when the input ends.
    /// A length that lies takes no more memory than what follows it.
    void take(Buffer& to, size_t count);

    /// Moves on to the first byte that is not 0, or to the end.
    void skipZeros();

    bool atEnd() { return peek().empty(); }

    /// Whether `count` bytes may follow; false only when the input's end is in sight.
    bool mayHold(uint64_t count) {
        const auto most = static_cast<size_t>(std::min<uint64_t>(count, buffer_.size()));
        return peek(most).size() >= count || reader_ != nullptr;
    }

    /// Offset of the next byte from the start of the input.
    uint64_t offset() const { return offset_; }

    [[noreturn]] void throwTruncated() const;

 private:
    void fill(size_t wanted);

    static constexpr uint8_t kNothing = 0;
    Reader* reader_ = nullptr;
    Buffer buffer_;
    Bytes view_;     // What was read: a part of buffer_, or the caller's memory.
    size_t at_ = 0;  // The next byte, within view_.
    uint64_t offset_ = 0;
};

}  // namespace vekdc
