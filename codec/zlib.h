// The zlib format (RFC 1950): two header bytes, a preset dictionary's checksum if there is one, a
// deflate stream, an Adler-32.
#pragma once

#include "codec/checksums.h"
#include "codec/deflate_encoder.h"
#include "codec/inflate_decoder.h"

namespace vekdc::codec {

/// Bytes of a header with a dictionary's checksum, and without; and of the trailer.
constexpr size_t kZlibHeader = 2;
constexpr size_t kZlibLongHeader = 6;
constexpr size_t kZlibTrailer = 4;

/// The two header bytes of streams coded with these options.
void putZlibHeader(uint8_t* to, const DeflateOptions& options, bool dictionary = false);

/// Whether bytes begin as a stream does.
bool startsZlib(Bytes bytes);

class ZlibEncoder {
 public:
    explicit ZlibEncoder(const DeflateOptions& options = {}, const Allocator& allocator = {});

    /// Before the first run().
    Status setDictionary(Bytes dictionary);

    Status run(Input& in, Output& out, Directive directive);
    Fault fault() const { return {}; }
    Status reset();
    Status copyFrom(const ZlibEncoder& other);

    DeflateEncoder& deflate() { return deflate_; }
    const DeflateEncoder& deflate() const { return deflate_; }
    /// Of the input so far; before it, of the dictionary, and 1 where there is none.
    uint32_t adler() const { return state_.begun ? state_.adler : state_.dictionaryAdler; }

 private:
    void begin();

    struct State {
        uint32_t adler = kAdler32.initial;
        uint32_t dictionaryAdler = kAdler32.initial;
        bool hasDictionary = false;
        bool begun = false;
        bool coded = false;
        FieldsOut<kZlibLongHeader> frame;  ///< The header, and later the trailer.
    };

    DeflateOptions options_;
    State state_;
    DeflateEncoder deflate_;
};

/// Reads one stream and stops behind its trailer.
class ZlibDecoder {
 public:
    explicit ZlibDecoder(const Allocator& allocator = {}) : inflate_(allocator) {}

    /// Says NeedsDictionary behind a header that names one, until it is given.
    Status run(Input& in, Output& out);
    Fault fault() const { return state_.fault; }
    Status reset();
    Status copyFrom(const ZlibDecoder& other);

    /// The checksum of the dictionary that is needed.
    uint32_t dictionaryId() const { return state_.dictionaryId; }
    /// Going where it is the right one.
    Status setDictionary(Bytes dictionary);

    InflateDecoder& inflate() { return inflate_; }
    const InflateDecoder& inflate() const { return inflate_; }
    uint32_t adler() const { return state_.adler; }
    /// From the header: the window's size as a power of two, and the effort, 0 to 3.
    unsigned windowBits() const { return state_.windowBits; }
    unsigned effort() const { return state_.effort; }
    uint64_t totalIn() const { return state_.before + inflate_.totalIn() + state_.field.size(); }

 private:
    enum class Part : uint8_t { Header, DictionaryId, Dictionary, Body, Trailer };

    struct State {
        Part part = Part::Header;
        Status status = Status::Going;
        Fault fault;
        uint64_t before = 0;  ///< Bytes of the header, once it is whole.
        FieldIn<4> field;
        unsigned windowBits = 0;
        unsigned effort = 0;
        uint32_t dictionaryId = 0;
        uint32_t adler = kAdler32.initial;
    };

    void readHeader(Input& in);
    void readDictionaryId(Input& in);
    void readBody(Input& in, Output& out);
    void readTrailer(Input& in);
    void broken(const char* reason, uint64_t offset);

    State state_;
    InflateDecoder inflate_;
};

}  // namespace vekdc::codec
