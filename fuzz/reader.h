// What the targets of the tool's readers share: a whole reader over the input's bytes, at once and
// in pieces.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <vector>

#include "tools/vekdc/formats/format.h"

namespace vekfuzz {

using Data = std::vector<uint8_t>;
using vekdc::Bytes;

/// A stream of a few bytes decodes to a thousand times as many; more than this is not compared.
constexpr size_t kMost = 256 << 10;

struct TooMuch {};

class LimitedSink : public vekdc::Sink {
 public:
    explicit LimitedSink(size_t most = kMost) : most_(most) {}
    void write(Bytes bytes) override {
        if (data.size() + bytes.size() > most_) throw TooMuch();
        data.insert(data.end(), bytes.begin(), bytes.end());
    }
    Data data;

 private:
    size_t most_;
};

class Dripping : public vekdc::Reader {
 public:
    Dripping(Bytes bytes, size_t piece) : bytes_(bytes), piece_(piece) {}
    size_t read(uint8_t* to, size_t room) override {
        const size_t count = std::min({room, piece_, bytes_.size()});
        std::copy_n(bytes_.begin(), count, to);
        bytes_ = bytes_.subspan(count);
        return count;
    }

 private:
    Bytes bytes_;
    size_t piece_;
};

/// What the format makes of a file; nothing when it refuses it.
inline std::optional<Data> decoded(const vekdc::Format& format, vekdc::Source& source) {
    LimitedSink sink;
    try {
        format.decompress(source, sink, {});
    } catch (const vekdc::FormatError&) {
        return std::nullopt;
    }
    return sink.data;
}

inline std::optional<Data> decoded(const vekdc::Format& format, Bytes packed) {
    vekdc::Source source(packed);
    return decoded(format, source);
}

/// Likewise, and the same in pieces of `piece` bytes.
inline std::optional<Data> decodedInAnyPieces(const vekdc::Format& format, Bytes packed,
                                              size_t piece) {
    const auto result = decoded(format, packed);
    Dripping reader(packed, piece);
    vekdc::Source pieces(reader, 32 + piece);
    if (decoded(format, pieces) != result) abort();
    return result;
}

/// The file that the format makes of the bytes must come back as they are.
inline void roundTrip(const vekdc::Format& format, Bytes plain, const vekdc::Settings& settings) {
    vekdc::Source source(plain);
    vekdc::MemorySink sink;
    format.compress(source, sink, settings);
    if (decoded(format, Bytes(sink.data)) != Data(plain.begin(), plain.end())) abort();
}

}  // namespace vekfuzz
