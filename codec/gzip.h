// The gzip format (RFC 1952): a member is a header, a deflate stream, a CRC-32 and a length.
#pragma once

#include "codec/checksums.h"
#include "codec/deflate_encoder.h"
#include "codec/inflate_decoder.h"

namespace vekdc::codec {

/// A header's field of any length, in the caller's memory. Of one that is read, what does not fit
/// is counted in `size` and dropped.
struct GzipField {
    bool present = false;
    uint8_t* data = nullptr;
    size_t size = 0;
    size_t room = 0;  ///< When it is read.
};

/// Texts stand without the zero behind them.
struct GzipHeader {
    bool text = false;
    bool summed = false;  ///< Whether the header has a checksum of its own.
    uint32_t modified = 0;
    uint8_t hints = 0;     ///< 2: the smallest code, 4: the fastest.
    uint8_t system = 255;  ///< 3: Unix, 255: unknown.
    GzipField extra;       ///< At most 65535 bytes.
    GzipField name;
    GzipField comment;
};

constexpr uint8_t kGzipUnix = 3;

/// The hint that a level gives.
uint8_t gzipHints(int level);

/// Whether bytes begin as a member does; so far, where they are fewer than the two of the magic.
bool startsGzip(Bytes bytes);

/// Writes headers.
class GzipHeaderWriter {
 public:
    /// Room for all of a header but the bytes of its extra field, name and comment.
    static constexpr size_t kFixedRoom = 16;

    /// What the header's fields point to must stay until it is written.
    void start(const GzipHeader& header);
    /// True when all is written.
    bool run(Output& out);

 private:
    enum class Part : uint8_t { Fixed, Extra, Name, Comment, Check, End };

    void add(const uint8_t* bytes, size_t count);
    Bytes partBytes() const;
    void finishPart();

    GzipHeader header_;
    Part part_ = Part::End;
    size_t at_ = 0;  ///< Within the part's own bytes.
    uint32_t crc_ = 0;
    FieldsOut<kFixedRoom> staged_;
};

/// Bytes of what stands behind the deflate stream.
constexpr size_t kGzipTrailer = 8;
void putGzipTrailer(uint8_t* to, uint32_t crc, uint64_t size);

/// Writes members.
class GzipEncoder {
 public:
    explicit GzipEncoder(const DeflateOptions& options = {}, const Allocator& allocator = {});

    /// Before the first run(); what the fields point to must stay until the header is written.
    void setHeader(const GzipHeader& header) { state_.header.start(header); }

    Status run(Input& in, Output& out, Directive directive);
    Fault fault() const { return {}; }
    Status reset();
    Status copyFrom(const GzipEncoder& other);

    DeflateEncoder& deflate() { return deflate_; }
    const DeflateEncoder& deflate() const { return deflate_; }
    uint32_t crc() const { return state_.crc; }

 private:
    static GzipHeader plainHeader(const DeflateOptions& options);

    struct State {
        GzipHeaderWriter header;
        uint32_t crc = kCrc32.initial;
        bool coded = false;
        FieldsOut<kGzipTrailer> trailer;
    };

    DeflateOptions options_;
    State state_;
    DeflateEncoder deflate_;
};

/// Reads one member and stops behind its trailer.
class GzipDecoder {
 public:
    explicit GzipDecoder(const Allocator& allocator = {}) : inflate_(allocator) {}

    /// Where the header's fields go, or null; reset() keeps it. It is complete when headerRead().
    void headerTo(GzipHeader* header) { kept_ = header; }
    bool headerRead() const { return state_.part >= Part::Body; }

    Status run(Input& in, Output& out);
    Fault fault() const { return state_.fault; }
    Status reset();
    Status copyFrom(const GzipDecoder& other);

    InflateDecoder& inflate() { return inflate_; }
    const InflateDecoder& inflate() const { return inflate_; }
    uint32_t crc() const { return state_.crc; }
    /// Flags of the header, as they stand in it.
    uint8_t flags() const { return state_.flags; }
    /// Of the member, as far as it is read.
    uint64_t totalIn() const { return state_.before + inflate_.totalIn() + state_.trailer.size(); }

 private:
    enum class Part : uint8_t { Fixed, ExtraSize, Extra, Name, Comment, Check, Body, Trailer, End };

    struct State {
        Part part = Part::Fixed;
        Status status = Status::Going;
        Fault fault;
        uint8_t flags = 0;
        uint64_t before = 0;  ///< Bytes of the header.
        uint32_t headerCrc = 0;
        uint32_t left = 0;  ///< Of the extra field.
        FieldIn<10> field;
        FieldIn<kGzipTrailer> trailer;
        uint32_t crc = 0;
    };

    bool readHeader(Input& in);
    bool checkFixed();
    void keepFixed();
    bool readText(Input& in, GzipField GzipHeader::*to);
    void readBody(Input& in, Output& out);
    void checkTrailer();
    bool broken(const char* reason, uint64_t offset);

    State state_;
    GzipHeader* kept_ = nullptr;
    InflateDecoder inflate_;
};

}  // namespace vekdc::codec
