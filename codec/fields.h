// Headers and trailers of formats, in pieces: fields that come a byte at a time or go where there
// is no room yet.
#pragma once

#include <algorithm>
#include <cstring>

#include "codec/codec.h"

namespace vekdc::codec {

/// The low `count` bytes of a value, the least significant first.
inline void putLittleEndian(uint8_t* to, uint64_t value, size_t count) {
    for (size_t i = 0; i < count; ++i) to[i] = static_cast<uint8_t>(value >> (8 * i));
}
inline uint64_t getLittleEndian(const uint8_t* from, size_t count) {
    uint64_t value = 0;
    for (size_t i = count; i-- != 0;) value = value << 8 | from[i];
    return value;
}

/// Likewise, the most significant first.
inline void putBigEndian(uint8_t* to, uint64_t value, size_t count) {
    for (size_t i = 0; i < count; ++i) to[i] = static_cast<uint8_t>(value >> (8 * (count - 1 - i)));
}
inline uint64_t getBigEndian(const uint8_t* from, size_t count) {
    uint64_t value = 0;
    for (size_t i = 0; i < count; ++i) value = value << 8 | from[i];
    return value;
}

/// Copies as much as there is of both; returns how much.
inline size_t copyAcross(Input& in, Output& out) {
    const size_t count = std::min(in.left, out.left);
    if (count != 0) std::memcpy(out.next, in.next, count);
    in.next += count;
    in.left -= count;
    out.next += count;
    out.left -= count;
    return count;
}

/// A field of up to `Most` bytes on its way in.
template <size_t Most>
class FieldIn {
 public:
    /// Takes input until there are `length` bytes, at most Most; false where it ends before.
    bool fill(Input& in, size_t length) {
        Output room{bytes_ + held_, length - std::min(held_, length)};
        held_ += copyAcross(in, room);
        return held_ >= length;
    }
    const uint8_t* data() const { return bytes_; }
    size_t size() const { return held_; }
    void clear() { held_ = 0; }

 private:
    uint8_t bytes_[Most];
    size_t held_ = 0;
};

/// Fields of together up to `Most` bytes on their way out.
template <size_t Most>
class FieldsOut {
 public:
    /// Where `count` more bytes go, to be filled by the caller. All that was put before is gone
    /// from here once drain() was true.
    uint8_t* add(size_t count) {
        if (count > Most - end_) {
            std::memmove(bytes_, bytes_ + begin_, size());
            end_ = size();
            begin_ = 0;
        }
        uint8_t* const to = bytes_ + end_;
        end_ += count;
        return to;
    }
    void add(const uint8_t* from, size_t count) { std::memcpy(add(count), from, count); }

    /// Writes what is held; true when nothing is left.
    bool drain(Output& out) {
        Input in{bytes_ + begin_, end_ - begin_};
        begin_ += copyAcross(in, out);
        if (begin_ != end_) return false;
        begin_ = end_ = 0;
        return true;
    }
    bool empty() const { return begin_ == end_; }
    size_t size() const { return end_ - begin_; }

 private:
    uint8_t bytes_[Most];
    size_t begin_ = 0;
    size_t end_ = 0;
};

}  // namespace vekdc::codec
