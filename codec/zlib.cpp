// Streams of the zlib format. Its header tells the window's size, a hint at the effort, and whether
// matches reach into a dictionary that both sides have.
#include "codec/zlib.h"

#include <algorithm>

namespace vekdc::codec {
namespace {

constexpr uint8_t kDeflate = 8;
constexpr unsigned kWindow32k = 7;
constexpr uint8_t kDictionaryFlag = 0x20;
constexpr unsigned kCheckModulus = 31;

unsigned effortOf(int level) {
    return level <= 1 ? 0 : level < 6 ? 1 : level == 6 ? 2 : 3;
}

bool validHeader(const uint8_t* header) {
    return (header[0] & 15) == kDeflate && getBigEndian(header, 2) % kCheckModulus == 0;
}

}  // namespace

void putZlibHeader(uint8_t* to, const DeflateOptions& options, bool dictionary) {
    const unsigned window = std::clamp(options.windowBits, 8U, 15U) - 8;
    const unsigned method = window << 4 | kDeflate;
    unsigned flags = effortOf(options.level) << 6 | (dictionary ? kDictionaryFlag : 0U);
    flags += kCheckModulus - (method << 8 | flags) % kCheckModulus;
    to[0] = static_cast<uint8_t>(method);
    to[1] = static_cast<uint8_t>(flags);
}

bool startsZlib(Bytes bytes) {
    return bytes.size() >= kZlibHeader && validHeader(bytes.data()) && bytes[0] >> 4U <= kWindow32k;
}

// --- writing ------------------------------------------------------------------------------------

ZlibEncoder::ZlibEncoder(const DeflateOptions& options, const Allocator& allocator)
    : options_(options), deflate_(options, allocator) {}

Status ZlibEncoder::setDictionary(Bytes dictionary) {
    const Status status = deflate_.setHistory(dictionary);
    if (status != Status::Going) return status;
    state_.dictionaryAdler = kAdler32.update(kAdler32.initial, dictionary);
    state_.hasDictionary = true;
    return status;
}

Status ZlibEncoder::reset() {
    state_ = State();
    return deflate_.reset(options_);
}

Status ZlibEncoder::copyFrom(const ZlibEncoder& other) {
    options_ = other.options_;
    const Status status = deflate_.copyFrom(other.deflate_);
    if (status == Status::Going)
        state_ = other.state_;
    else
        reset();
    return status;
}

void ZlibEncoder::begin() {
    State& s = state_;
    s.begun = true;
    putZlibHeader(s.frame.add(kZlibHeader), options_, s.hasDictionary);
    if (s.hasDictionary) putBigEndian(s.frame.add(4), s.dictionaryAdler, 4);
}

Status ZlibEncoder::run(Input& in, Output& out, Directive directive) {
    State& s = state_;
    if (!s.begun) begin();
    if (!s.frame.drain(out)) return Status::Going;
    if (s.coded) return Status::Ended;
    const Input before = in;
    const Status status = deflate_.run(in, out, directive);
    s.adler = kAdler32.update(s.adler, {before.next, before.left - in.left});
    if (status != Status::Ended) return status;
    s.coded = true;
    putBigEndian(s.frame.add(kZlibTrailer), s.adler, kZlibTrailer);
    return s.frame.drain(out) ? Status::Ended : Status::Going;
}

// --- reading ------------------------------------------------------------------------------------

Status ZlibDecoder::reset() {
    state_ = State();
    return inflate_.reset();
}

Status ZlibDecoder::copyFrom(const ZlibDecoder& other) {
    const Status status = inflate_.copyFrom(other.inflate_);
    state_ = status == Status::Going ? other.state_ : State();
    return status;
}

Status ZlibDecoder::setDictionary(Bytes dictionary) {
    State& s = state_;
    if (s.part != Part::Dictionary) return s.status;
    if (kAdler32.update(kAdler32.initial, dictionary) != s.dictionaryId) return s.status;
    if (inflate_.setHistory(dictionary) != Status::Going) return Status::NoMemory;
    s.part = Part::Body;
    s.fault = {};
    return s.status = Status::Going;
}

void ZlibDecoder::broken(const char* reason, uint64_t offset) {
    state_.status = Status::Broken;
    state_.fault = {reason, offset};
}

Status ZlibDecoder::run(Input& in, Output& out) {
    State& s = state_;
    if (s.status != Status::Going) return s.status;
    if (s.part == Part::Header) readHeader(in);
    if (s.part == Part::DictionaryId) readDictionaryId(in);
    if (s.part == Part::Body) readBody(in, out);
    if (s.part == Part::Trailer) readTrailer(in);
    return s.status;
}

void ZlibDecoder::readHeader(Input& in) {
    State& s = state_;
    if (!s.field.fill(in, kZlibHeader)) return;
    const uint8_t* const header = s.field.data();
    if (!validHeader(header)) return broken("not a zlib stream", 0);
    if (header[0] >> 4U > kWindow32k) return broken("the window is larger than 32 KiB", 0);
    s.windowBits = (header[0] >> 4U) + 8;
    s.effort = header[1] >> 6U;
    s.part = (header[1] & kDictionaryFlag) != 0 ? Part::DictionaryId : Part::Body;
    s.before = kZlibHeader;
    s.field.clear();
}

void ZlibDecoder::readDictionaryId(Input& in) {
    State& s = state_;
    if (!s.field.fill(in, 4)) return;
    s.dictionaryId = static_cast<uint32_t>(getBigEndian(s.field.data(), 4));
    s.part = Part::Dictionary;
    s.before = kZlibLongHeader;
    s.field.clear();
    s.status = Status::NeedsDictionary;
    s.fault = {"the stream needs a preset dictionary, which is not supported", 1};
}

void ZlibDecoder::readBody(Input& in, Output& out) {
    State& s = state_;
    const Output before = out;
    const Status status = inflate_.run(in, out);
    s.adler = kAdler32.update(s.adler, {before.next, before.left - out.left});
    if (status == Status::Ended) {
        s.part = Part::Trailer;
        return;
    }
    s.status = status;
    if (status == Status::Broken)
        s.fault = {inflate_.fault().reason, s.before + inflate_.fault().offset};
}

void ZlibDecoder::readTrailer(Input& in) {
    State& s = state_;
    if (!s.field.fill(in, kZlibTrailer)) return;
    if (getBigEndian(s.field.data(), kZlibTrailer) != s.adler)
        return broken("the Adler-32 does not match", s.before + inflate_.totalIn());
    s.status = Status::Ended;
}

}  // namespace vekdc::codec
