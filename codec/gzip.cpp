// Members of gzip files. A header's parts of any length are neither kept nor needed whole: they go
// from and to the caller's memory in whatever pieces the stream comes.
#include "codec/gzip.h"

#include <algorithm>
#include <cstring>

namespace vekdc::codec {
namespace {

constexpr uint8_t kMagic[] = {0x1F, 0x8B};
constexpr uint8_t kDeflate = 8;
constexpr size_t kFixedSize = 10;

enum Flag : uint8_t {
    kText = 1,
    kHeaderCrc = 2,
    kExtra = 4,
    kName = 8,
    kComment = 16,
    kReserved = 0xE0
};

constexpr uint8_t flagsOf(const GzipHeader& header) {
    return static_cast<uint8_t>((header.text ? kText : 0) | (header.summed ? kHeaderCrc : 0) |
                                (header.extra.present ? kExtra : 0) |
                                (header.name.present ? kName : 0) |
                                (header.comment.present ? kComment : 0));
}

/// Keeps what fits of a field's next bytes.
void append(GzipField* to, Bytes bytes) {
    if (to == nullptr) return;
    if (to->size < to->room)
        std::memcpy(to->data + to->size, bytes.data(), std::min(bytes.size(), to->room - to->size));
    to->size += bytes.size();
}

}  // namespace

uint8_t gzipHints(int level) {
    return level >= 9 ? 2 : level == 1 || level == kDeflateFastest ? 4 : 0;
}

bool startsGzip(Bytes bytes) {
    return std::equal(bytes.begin(), bytes.begin() + std::min<ptrdiff_t>(2, std::ssize(bytes)),
                      kMagic);
}

// --- writing ------------------------------------------------------------------------------------

void GzipHeaderWriter::start(const GzipHeader& header) {
    header_ = header;
    crc_ = kCrc32.initial;
    part_ = Part::Fixed;
    staged_ = {};
    uint8_t fixed[kFixedSize] = {kMagic[0], kMagic[1], kDeflate, flagsOf(header)};
    putLittleEndian(fixed + 4, header.modified, 4);
    fixed[8] = header.hints;
    fixed[9] = header.system;
    add(fixed, sizeof(fixed));
    if (header.extra.present) {
        uint8_t size[2];
        putLittleEndian(size, header.extra.size, 2);
        add(size, sizeof(size));
    }
    finishPart();
}

void GzipHeaderWriter::add(const uint8_t* bytes, size_t count) {
    staged_.add(bytes, count);
    crc_ = kCrc32.update(crc_, {bytes, count});
}

/// The bytes of the part under way that are the caller's.
Bytes GzipHeaderWriter::partBytes() const {
    const GzipField* const field = part_ == Part::Extra     ? &header_.extra
                                   : part_ == Part::Name    ? &header_.name
                                   : part_ == Part::Comment ? &header_.comment
                                                            : nullptr;
    return field != nullptr && field->present ? Bytes(field->data, field->size) : Bytes();
}

/// Puts what ends the part, and begins the next one.
void GzipHeaderWriter::finishPart() {
    constexpr uint8_t zero = 0;
    if ((part_ == Part::Name && header_.name.present) ||
        (part_ == Part::Comment && header_.comment.present))
        add(&zero, 1);
    part_ = static_cast<Part>(static_cast<int>(part_) + 1);
    at_ = 0;
    if (part_ == Part::Check && header_.summed) putLittleEndian(staged_.add(2), crc_, 2);
}

bool GzipHeaderWriter::run(Output& out) {
    for (;;) {
        if (!staged_.drain(out)) return false;
        if (part_ == Part::End) return true;
        const Bytes bytes = partBytes().subspan(at_);
        Input in{bytes.data(), bytes.size()};
        const size_t count = copyAcross(in, out);
        crc_ = kCrc32.update(crc_, bytes.first(count));
        at_ += count;
        if (count != bytes.size()) return false;
        finishPart();
    }
}

void putGzipTrailer(uint8_t* to, uint32_t crc, uint64_t size) {
    putLittleEndian(to, crc, 4);
    putLittleEndian(to + 4, size, 4);
}

GzipHeader GzipEncoder::plainHeader(const DeflateOptions& options) {
    GzipHeader header;
    header.hints = gzipHints(options.level);
    header.system = kGzipUnix;
    return header;
}

GzipEncoder::GzipEncoder(const DeflateOptions& options, const Allocator& allocator)
    : options_(options), deflate_(options, allocator) {
    state_.header.start(plainHeader(options));
}

Status GzipEncoder::reset() {
    state_ = State();
    state_.header.start(plainHeader(options_));
    return deflate_.reset(options_);
}

Status GzipEncoder::copyFrom(const GzipEncoder& other) {
    options_ = other.options_;
    const Status status = deflate_.copyFrom(other.deflate_);
    if (status == Status::Going)
        state_ = other.state_;
    else
        reset();
    return status;
}

Status GzipEncoder::run(Input& in, Output& out, Directive directive) {
    State& s = state_;
    if (!s.header.run(out)) return Status::Going;
    if (!s.coded) {
        const Input before = in;
        const Status status = deflate_.run(in, out, directive);
        s.crc = kCrc32.update(s.crc, {before.next, before.left - in.left});
        if (status != Status::Ended) return status;
        s.coded = true;
        putGzipTrailer(s.trailer.add(kGzipTrailer), s.crc, deflate_.totalIn());
    }
    return s.trailer.drain(out) ? Status::Ended : Status::Going;
}

// --- reading ------------------------------------------------------------------------------------

Status GzipDecoder::reset() {
    state_ = State();
    return inflate_.reset();
}

Status GzipDecoder::copyFrom(const GzipDecoder& other) {
    const Status status = inflate_.copyFrom(other.inflate_);
    state_ = status == Status::Going ? other.state_ : State();
    kept_ = other.kept_;
    return status;
}

bool GzipDecoder::broken(const char* reason, uint64_t offset) {
    state_.status = Status::Broken;
    state_.fault = {reason, offset};
    return false;
}

Status GzipDecoder::run(Input& in, Output& out) {
    State& s = state_;
    while (s.status == Status::Going && s.part < Part::Body) {
        const Input before = in;
        const Part part = s.part;
        const bool complete = readHeader(in);
        const Bytes taken(before.next, before.left - in.left);
        s.before += taken.size();
        if (part != Part::Check) s.headerCrc = kCrc32.update(s.headerCrc, taken);
        if (!complete) return s.status;
        s.part = static_cast<Part>(static_cast<int>(part) + 1);
        s.field.clear();
    }
    if (s.status == Status::Going && s.part == Part::Body) readBody(in, out);
    if (s.status == Status::Going && s.part == Part::Trailer && s.trailer.fill(in, kGzipTrailer))
        checkTrailer();
    return s.status;
}

/// The header's next part; false where input is missing or it is broken.
bool GzipDecoder::readHeader(Input& in) {
    State& s = state_;
    switch (s.part) {
        case Part::Fixed:
            // One at a time: what is wrong with the first ones shows before the others are there.
            while (s.field.size() < kFixedSize) {
                if (!s.field.fill(in, s.field.size() + 1) || !checkFixed()) return false;
            }
            keepFixed();
            return true;
        case Part::ExtraSize:
            if ((s.flags & kExtra) == 0) return true;
            if (!s.field.fill(in, 2)) return false;
            s.left = static_cast<uint32_t>(getLittleEndian(s.field.data(), 2));
            return true;
        case Part::Extra: {
            const size_t count = std::min<size_t>(in.left, s.left);
            append(kept_ != nullptr ? &kept_->extra : nullptr, {in.next, count});
            in.next += count;
            in.left -= count;
            s.left -= static_cast<uint32_t>(count);
            return s.left == 0;
        }
        case Part::Name:
            return (s.flags & kName) == 0 || readText(in, &GzipHeader::name);
        case Part::Comment:
            return (s.flags & kComment) == 0 || readText(in, &GzipHeader::comment);
        default: {
            if ((s.flags & kHeaderCrc) == 0) return true;
            const uint64_t start = s.before - s.field.size();
            if (!s.field.fill(in, 2)) return false;
            return getLittleEndian(s.field.data(), 2) == (s.headerCrc & 0xFFFF) ||
                   broken("the header's checksum does not match", start);
        }
    }
}

/// Checks the byte of the fixed part that came last.
bool GzipDecoder::checkFixed() {
    const size_t at = state_.field.size() - 1;
    const uint8_t byte = state_.field.data()[at];
    if (at < 2 && byte != kMagic[at]) return broken("not a gz file", 0);
    if (at == 2 && byte != kDeflate) return broken("unknown compression method", at);
    if (at != 3) return true;
    state_.flags = byte;
    return (byte & kReserved) == 0 || broken("reserved flags are set in the header", at);
}

void GzipDecoder::keepFixed() {
    if (kept_ == nullptr) return;
    const uint8_t* const fixed = state_.field.data();
    const uint8_t flags = state_.flags;
    kept_->text = (flags & kText) != 0;
    kept_->summed = (flags & kHeaderCrc) != 0;
    kept_->modified = static_cast<uint32_t>(getLittleEndian(fixed + 4, 4));
    kept_->hints = fixed[8];
    kept_->system = fixed[9];
    kept_->extra.present = (flags & kExtra) != 0;
    kept_->name.present = (flags & kName) != 0;
    kept_->comment.present = (flags & kComment) != 0;
    kept_->extra.size = kept_->name.size = kept_->comment.size = 0;
}

/// A text up to the zero that ends it.
bool GzipDecoder::readText(Input& in, GzipField GzipHeader::*to) {
    if (in.left == 0) return false;
    const void* const zero = std::memchr(in.next, 0, in.left);
    const size_t count = zero != nullptr
                             ? static_cast<size_t>(static_cast<const uint8_t*>(zero) - in.next)
                             : in.left;
    append(kept_ != nullptr ? &(kept_->*to) : nullptr, {in.next, count});
    const size_t taken = count + (zero != nullptr ? 1 : 0);
    in.next += taken;
    in.left -= taken;
    return zero != nullptr;
}

void GzipDecoder::readBody(Input& in, Output& out) {
    State& s = state_;
    const Output before = out;
    const Status status = inflate_.run(in, out);
    s.crc = kCrc32.update(s.crc, {before.next, before.left - out.left});
    if (status == Status::Ended) {
        s.part = Part::Trailer;
        return;
    }
    s.status = status;
    if (status == Status::Broken)
        s.fault = {inflate_.fault().reason, s.before + inflate_.fault().offset};
}

void GzipDecoder::checkTrailer() {
    const uint8_t* const trailer = state_.trailer.data();
    const uint64_t start = state_.before + inflate_.totalIn();
    if (getLittleEndian(trailer, 4) != state_.crc) {
        broken("the CRC-32 does not match", start);
    } else if (getLittleEndian(trailer + 4, 4) != (inflate_.totalOut() & 0xFFFFFFFF)) {
        broken("the length does not match", start + 4);
    } else {
        state_.part = Part::End;
        state_.status = Status::Ended;
    }
}

}  // namespace vekdc::codec
