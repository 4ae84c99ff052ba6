// What codecs of formats that consist of blocks share: a header, blocks behind their lengths, an
// end.
//
// Such a format is easiest to write as if all bytes of a field or block were at hand, and all room
// for its result. Lookahead and Delivery make that so for input and room in pieces, and cost
// nothing where the pieces are large: what lies in the caller's input is read there, what fits into
// the caller's room is made there, and only what is cut goes through memory of the codec's own.
// That grows with what has come, not with what a length promises.
//
// BlockStreamEncoder is the whole of such a format's encoder but the format. A decoder is a few
// steps of its own, each of which looks at what is there from its start, and goes on or waits.
#pragma once

#include <algorithm>
#include <utility>

#include "codec/codec.h"
#include "codec/fields.h"
#include "codec/memory.h"

namespace vekdc::codec {

/// Shows the next bytes of a stream in one piece.
class Lookahead {
 public:
    explicit Lookahead(const Allocator& allocator) : memory_(allocator) {}

    /// The stream's next `size` bytes; null when the input ends before (it is used up then, and
    /// kept) or there is no memory to keep it (it is not). To see more, ask again for all of it.
    const uint8_t* show(Input& in, size_t size) {
        missing_ = 0;
        if (held_ == 0 && in.left >= size) return in.next;
        if (keep(in, size) && held_ >= size) return memory_.data();
        missing_ = size - held_;
        return nullptr;
    }
    /// So many bytes more would have been shown.
    size_t missing() const { return missing_; }

    /// Keeps input for later until there are `size` bytes; false when there is no memory.
    bool keep(Input& in, size_t size) {
        const size_t piece = std::min(in.left, size - std::min(size, held_));
        if (piece == 0) return true;
        if (held_ + piece > memory_.room()) {
            const size_t roomy = std::max({held_ + piece, 2 * memory_.room(), kLeastRoom});
            hungry_ = !memory_.reserve(std::min(roomy, size), held_);
            if (hungry_) return false;
        }
        Output room{memory_.data() + held_, piece};
        held_ += copyAcross(in, room);
        return true;
    }

    /// Moves on over what show() showed last.
    void accept(Input& in, size_t size) {
        if (held_ == 0) {
            in.next += size;
            in.left -= size;
        }
        held_ = 0;
        offset_ += size;
    }

    /// What is kept so far of what was asked for.
    Bytes kept() const { return {memory_.data(), held_}; }
    /// Why show() showed nothing.
    Status status() const { return hungry_ ? Status::NoMemory : Status::Going; }
    /// Of the next byte to be shown, from the stream's start.
    uint64_t offset() const { return offset_; }
    void reset() {
        held_ = 0;
        offset_ = 0;
    }
    /// Nothing here refers to what came before.
    void forget() {}

 private:
    static constexpr size_t kLeastRoom = 256;

    Memory<uint8_t> memory_;
    size_t held_ = 0;
    size_t missing_ = 0;
    uint64_t offset_ = 0;
    bool hungry_ = false;
};

/// Hands out what was made, at once or in pieces.
class Delivery {
 public:
    explicit Delivery(const Allocator& allocator) : memory_(allocator) {}

    /// Where `size` bytes may be written: the caller's room, or memory until there is room; null
    /// when there is none.
    uint8_t* room(const Output& out, size_t size) {
        if (out.left >= size) return out.next;
        return memory_.reserve(size) ? memory_.data() : nullptr;
    }

    /// Delivers bytes that stand where room() said, or in other memory that stays.
    void deliver(Output& out, Bytes bytes) {
        if (bytes.data() != out.next) {
            waiting_ = {bytes.data(), bytes.size()};
            drain(out);
            return;
        }
        out.next += bytes.size();
        out.left -= bytes.size();
    }

    /// Writes what waits for room; true when nothing does any more.
    bool drain(Output& out) {
        copyAcross(waiting_, out);
        return waiting_.left == 0;
    }
    void reset() { waiting_ = {}; }

 private:
    Memory<uint8_t> memory_;
    Input waiting_{};
};

/// What a decoder of blocks has but its steps. A step is `bool step(Input&, Output&)`: true to go
/// on with the next one, else it has said why not, by wait(), broken() or end().
class BlockStreamDecoder {
 public:
    explicit BlockStreamDecoder(const Allocator& allocator)
        : ahead_(allocator), delivery_(allocator) {}

    Fault fault() const { return fault_; }
    /// The block that fault() is about, counted from 1; 0 where it is about none.
    uint64_t faultyBlock() const { return block_; }

 protected:
    template <class Step>
    Status runSteps(Output& out, Step&& step) {
        if (status_ == Status::Broken) return status_;
        do {
            if (!delivery_.drain(out)) return Status::Going;
        } while (step());
        return status_;
    }
    void restart() {
        ahead_.reset();
        delivery_.reset();
        fault_ = {};
        block_ = 0;
        status_ = Status::Going;
    }

    /// The next `size` bytes of the stream, which begin with a number that is known by heart.
    const uint8_t* showMagic(Input& in, size_t size, Bytes magic, const char* reason) {
        const uint8_t* const bytes = ahead_.show(in, size);
        const Bytes seen = bytes != nullptr ? Bytes(bytes, size) : ahead_.kept();
        const size_t count = std::min(seen.size(), magic.size());
        if (std::equal(seen.begin(), seen.begin() + static_cast<ptrdiff_t>(count), magic.begin())) {
            if (bytes == nullptr) wait();
            return bytes;
        }
        broken(0, reason);
        return nullptr;
    }

    bool leave(Status status) {
        status_ = status;
        return false;
    }
    bool wait() { return leave(ahead_.status()); }
    bool broken(uint64_t offset, const char* reason, int64_t value = -1) {
        fault_ = {reason, offset, value};
        return leave(Status::Broken);
    }

    Lookahead ahead_;
    Delivery delivery_;
    uint64_t block_ = 0;
    Fault fault_;

 private:
    Status status_ = Status::Going;
};

/// An encoder of a format of blocks. What it makes depends on the data and on the Directives, each
/// of which ends a block, and not on the pieces that the data come in.
///
/// @tparam Format  What the format is:
///     size_t blockSize() const        of all blocks but those that a Directive ends
///     size_t headerBound() const, blockBound(size_t) const, endBound() const
///                                     the most bytes that each of them takes
///     size_t putHeader(uint8_t* to)   writes it, and returns its length
///     bool putBlock(Ahead&, Bytes data, uint8_t* to, size_t& written)
///                                     false when there is no memory
///     size_t putEnd(uint8_t* to)      0 when the data are not as long as the header says
///     void begin(Ahead&)              before each stream
/// @tparam Ahead   Where the data of a block are collected.
template <class Format, class Ahead = Lookahead>
class BlockStreamEncoder {
 public:
    Status run(Input& in, Output& out, Directive directive) {
        for (;;) {
            if (!delivery_.drain(out)) return Status::Going;
            const bool wentOn = stage_ == Stage::Header   ? putHeader(out)
                                : stage_ == Stage::Blocks ? putBlock(in, out, directive)
                                : stage_ == Stage::End    ? putEnd(out)
                                                          : false;
            if (!wentOn) return status_;
        }
    }
    Fault fault() const { return fault_; }
    Status reset() {
        delivery_.reset();
        format_.begin(ahead_);
        stage_ = Stage::Header;
        status_ = Status::Going;
        fault_ = {};
        return Status::Going;
    }

 protected:
    template <class... Arguments>
    explicit BlockStreamEncoder(const Allocator& allocator, Arguments&&... arguments)
        : format_(allocator, std::forward<Arguments>(arguments)...),
          ahead_(allocator),
          delivery_(allocator) {
        format_.begin(ahead_);
    }
    Format& format() { return format_; }

 private:
    enum class Stage { Header, Blocks, End, Done };

    bool leave(Status status) {
        status_ = status;
        return false;
    }

    bool putHeader(Output& out) {
        uint8_t* const to = delivery_.room(out, format_.headerBound());
        if (to == nullptr) return leave(Status::NoMemory);
        delivery_.deliver(out, {to, format_.putHeader(to)});
        stage_ = Stage::Blocks;
        return true;
    }

    bool putBlock(Input& in, Output& out, Directive directive) {
        const size_t most = format_.blockSize();
        const size_t size = std::min(most, ahead_.kept().size() + in.left);
        if (size < most && directive == Directive::Go)
            return leave(ahead_.keep(in, most) ? Status::Going : Status::NoMemory);
        if (size == 0) {
            if (directive == Directive::FullFlush) ahead_.forget();
            if (directive != Directive::Finish) return leave(Status::Going);
            stage_ = Stage::End;
            return true;
        }
        const uint8_t* const data = ahead_.show(in, size);
        uint8_t* const to = delivery_.room(out, format_.blockBound(size));
        size_t written = 0;
        if (data == nullptr || to == nullptr ||
            !format_.putBlock(ahead_, Bytes(data, size), to, written))
            return leave(Status::NoMemory);
        delivery_.deliver(out, {to, written});
        ahead_.accept(in, size);
        return true;
    }

    bool putEnd(Output& out) {
        uint8_t* const to = delivery_.room(out, format_.endBound());
        if (to == nullptr) return leave(Status::NoMemory);
        const size_t written = format_.putEnd(to);
        stage_ = Stage::Done;
        if (written == 0) {
            fault_ = {"the data are not as long as the header says", ahead_.offset()};
            return leave(Status::Broken);
        }
        status_ = Status::Ended;
        delivery_.deliver(out, {to, written});
        return true;
    }

    Format format_;
    Ahead ahead_;
    Delivery delivery_;
    Stage stage_ = Stage::Header;
    Status status_ = Status::Going;
    Fault fault_;
};

}  // namespace vekdc::codec
