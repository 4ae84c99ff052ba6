// The header of a ZFP field's file, and the bits behind it.
//
// A file is one stream of bits, each byte filled from its lowest bit: "zfp" and the codec's
// version, the type and the sides of the field, and the four numbers that govern its blocks, in 12
// bits where a code for them exists, else in 64.
#pragma once

#include <algorithm>
#include <cstring>

#include "tools/vekdc/io/stream.h"

namespace vekdc::zfp {

constexpr int32_t kUnlimitedBits = 16658;  // More than any block takes.
constexpr int32_t kAllPlanes = 64;
constexpr int32_t kLowestExp = -1074;   // Below it the method's tool codes without loss.
constexpr int32_t kHighestExp = 16272;  // What the header has room for.
constexpr int32_t kHeaderBits = 9;      // Of a block that is not zero.
constexpr int32_t kLargestBlock = 2153;
constexpr unsigned kBlockValues = 64;

/// The numbers that govern a stream, as the library takes them.
struct Parameters {
    int32_t minBits = 1;
    int32_t maxBits = kUnlimitedBits;
    int32_t maxPrec = kAllPlanes;
    int32_t minExp = kLowestExp;

    bool operator==(const Parameters&) const = default;
    bool isFixedRate() const { return minBits == maxBits; }
    /// Most bits that a block takes.
    int32_t mostBits() const { return std::max(minBits, std::min(maxBits, kLargestBlock)); }
};

/// Sides of a field or of a part of it, 1 to 65536 each.
struct Dims {
    uint32_t x = 1;
    uint32_t y = 1;
    uint32_t z = 1;

    uint64_t values() const { return uint64_t{x} * y * z; }
    uint64_t blocks() const { return uint64_t{(x + 3) / 4} * ((y + 3) / 4) * ((z + 3) / 4); }
    std::string text() const {
        return std::to_string(x) + " x " + std::to_string(y) + " x " + std::to_string(z);
    }
};

struct Header {
    Dims dims;
    Parameters parameters;
    unsigned bits = 0;   ///< Where the first block begins.
    uint64_t bytes = 0;  ///< Of the whole file, once it is read.
};

/// Whether a file that begins so may be of this format.
bool startsField(Bytes bytes);

/// Reads the header of a field that the library can decode; throws FormatError for any other.
Header readHeader(Source& source);

/// Strings bits together and writes them, at the end as whole 64-bit words.
class BitSink {
 public:
    explicit BitSink(Sink& sink) : sink_(sink) {}

    /// Appends `count` bits, at most 64; those above must be zero.
    void put(uint64_t bits, unsigned count) {
        held_ |= bits << pending_;
        if (pending_ + count < 64) {
            pending_ += count;
            return;
        }
        bytes_.resize(bytes_.size() + 8);
        std::memcpy(bytes_.data() + bytes_.size() - 8, &held_, 8);
        const unsigned taken = 64 - pending_;
        held_ = taken < 64 ? bits >> taken : 0;
        pending_ = count - taken;
    }

    /// Appends the first `bits` bits of whole words; the last word's others are zero.
    void append(Bytes words, uint64_t bits) {
        const auto full = static_cast<size_t>(bits / 64 * 8);
        if (pending_ == 0) {
            write();
            sink_.write(words.first(full));
        } else {
            for (size_t at = 0; at < full; at += 8) put(wordAt(words, at), 64);
        }
        if (bits % 64 != 0) put(wordAt(words, full), bits % 64);
        write();
    }

    void finish() {
        if (pending_ != 0) put(0, 64 - pending_);
        write();
    }

 private:
    static uint64_t wordAt(Bytes words, size_t at) {
        uint64_t word = 0;
        std::memcpy(&word, words.data() + at, 8);
        return word;
    }
    void write() {
        sink_.write(bytes_);
        bytes_.clear();
    }

    Sink& sink_;
    std::vector<uint8_t> bytes_;
    uint64_t held_ = 0;
    unsigned pending_ = 0;
};

/// Writes the header of a field.
void putHeader(BitSink& out, const Dims& dims, const Parameters& p);

}  // namespace vekdc::zfp
