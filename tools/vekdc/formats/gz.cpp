// The gzip file format (RFC 1952): members of a header, a deflate stream, a CRC-32 and a length.
//
// Written: one member, with the file's name and time stamp. Read: any number of members with every
// optional header field, zeros behind the last one (tape padding), and, with a warning, anything
// else behind it. Header checksum, CRC-32 and length are all verified.
#include <array>

#include "codec/checksums.h"
#include "tools/vekdc/formats/deflate_all.h"
#include "tools/vekdc/formats/formats.h"
#include "tools/vekdc/formats/inflate_stream.h"

namespace vekdc {
namespace {

constexpr uint8_t kMagic[] = {0x1F, 0x8B};
constexpr uint8_t kDeflate = 8;
constexpr uint8_t kUnix = 3;

enum Flag : uint8_t {
    kText = 1,
    kHeaderCrc = 2,
    kExtra = 4,
    kName = 8,
    kComment = 16,
    kReserved = 0xE0
};

/// Longer names and comments are read to their end but not kept.
constexpr size_t kMaxText = 4096;

struct Member {
    uint64_t offset = 0;
    uint8_t flags = 0;
    uint32_t modified = 0;
    uint32_t extraSize = 0;
    std::string name;
    std::string comment;
    uint32_t crc = 0;
    uint64_t plain = 0;
    uint64_t packed = 0;  // The whole member, header and trailer included.
    std::array<uint64_t, 3> blocks{};
};

bool startsMember(Bytes bytes) {
    return bytes.size() >= 2 && bytes[0] == kMagic[0] && bytes[1] == kMagic[1];
}

/// Reads header bytes and sums them on the way.
class HeaderReader {
 public:
    explicit HeaderReader(Source& source) : source_(source) {}

    uint8_t byte() {
        const uint8_t value = source_.byte();
        crc_ = codec::kCrc32.update(crc_, Bytes(&value, 1));
        return value;
    }
    uint32_t littleEndian(int count) {
        uint32_t value = 0;
        for (int i = 0; i < count; ++i) value |= static_cast<uint32_t>(byte()) << (8 * i);
        return value;
    }
    std::string text() {
        std::string text;
        while (const uint8_t c = byte())
            if (text.size() < kMaxText) text += static_cast<char>(c);
        return text;
    }
    uint32_t crc() const { return crc_; }

 private:
    Source& source_;
    uint32_t crc_ = codec::kCrc32.initial;
};

Member readHeader(Source& source) {
    Member member;
    member.offset = source.offset();
    if (source.atEnd()) source.throwTruncated();
    if (!startsMember(source.peek(2))) throw FormatError(source.offset(), "not a gz file");
    HeaderReader header(source);
    header.littleEndian(2);
    if (header.byte() != kDeflate)
        throw FormatError(source.offset() - 1, "unknown compression method");
    member.flags = header.byte();
    if ((member.flags & kReserved) != 0)
        throw FormatError(source.offset() - 1, "reserved flags are set in the header");
    member.modified = header.littleEndian(4);
    header.littleEndian(2);  // Extra flags and operating system: of no consequence.
    if ((member.flags & kExtra) != 0) {
        member.extraSize = header.littleEndian(2);
        for (uint32_t i = 0; i < member.extraSize; ++i) header.byte();
    }
    if ((member.flags & kName) != 0) member.name = header.text();
    if ((member.flags & kComment) != 0) member.comment = header.text();
    if ((member.flags & kHeaderCrc) != 0) {
        const uint32_t expected = header.crc() & 0xFFFF;
        if (source.littleEndian(2) != expected)
            throw FormatError(source.offset() - 2, "the header's checksum does not match");
    }
    return member;
}

Member readMember(Source& source, InflateReader& inflate, Sink& sink) {
    Member member = readHeader(source);
    inflate.start();
    member.crc = codec::kCrc32.initial;
    for (Bytes bytes = inflate.next(); !bytes.empty(); bytes = inflate.next()) {
        member.crc = codec::kCrc32.update(member.crc, bytes);
        member.plain += bytes.size();
        sink.write(bytes);
    }
    if (source.littleEndian(4) != member.crc)
        throw FormatError(source.offset() - 4, "the CRC-32 does not match");
    if (source.littleEndian(4) != (member.plain & 0xFFFFFFFF))
        throw FormatError(source.offset() - 4, "the length does not match");
    member.packed = source.offset() - member.offset;
    member.blocks = inflate.blocks();
    return member;
}

std::string flagNames(const Member& member) {
    std::string names;
    const auto add = [&](uint8_t flag, const char* name) {
        if ((member.flags & flag) != 0) names += (names.empty() ? "" : ",") + std::string(name);
    };
    add(kText, "text");
    add(kHeaderCrc, "hcrc");
    add(kExtra, "extra");
    add(kName, "name");
    add(kComment, "comment");
    return names.empty() ? "-" : names;
}

class Gz : public Format {
 public:
    const char* name() const override { return "gz"; }
    const char* title() const override { return "gzip file (RFC 1952)"; }
    std::vector<Suffix> suffixes() const override { return {{".gz", ""}, {".tgz", ".tar"}}; }
    bool recognises(Bytes start) const override { return startsMember(start); }

    void compress(Source& source, Sink& sink, const Settings& settings) const override {
        const auto extraFlags = static_cast<uint8_t>(settings.fastest || settings.level == 1 ? 4
                                                     : settings.level == 9                   ? 2
                                                                                             : 0);
        std::vector<uint8_t> header = {kMagic[0], kMagic[1], kDeflate,
                                       static_cast<uint8_t>(settings.name.empty() ? 0 : kName)};
        appendLittleEndian(header, settings.modified);
        header.push_back(extraFlags);
        header.push_back(kUnix);
        if (!settings.name.empty()) {
            header.insert(header.end(), settings.name.begin(), settings.name.end());
            header.push_back(0);
        }
        sink.write(header);
        const Deflated deflated = deflateAll(source, sink, settings, codec::kCrc32);
        std::vector<uint8_t> trailer;
        appendLittleEndian(trailer, deflated.check);
        appendLittleEndian(trailer, static_cast<uint32_t>(deflated.plain));
        sink.write(trailer);
    }

    void decompress(Source& source, Sink& sink, const Settings& settings) const override {
        InflateReader inflate(source);
        readParts(*this, source, settings, [&] { readMember(source, inflate, sink); });
    }

    void describe(Source& source, const Settings& settings, const Print& print) const override {
        print(
            "  offset  compressed  uncompressed   ratio    crc-32  modified (UTC)       "
            "blocks: stored/fixed/dynamic  flags  name");
        NullSink nowhere;
        Member total;
        uint64_t members = 0;
        InflateReader inflate(source);
        readParts(*this, source, settings, [&] {
            const Member member = readMember(source, inflate, nowhere);
            print(row(member));
            if (!member.comment.empty()) print("          comment: " + printable(member.comment));
            if (member.extraSize != 0)
                print("          extra field of " + std::to_string(member.extraSize) + " bytes");
            ++members;
            total.packed += member.packed;
            total.plain += member.plain;
        });
        if (members > 1) print(totalText(members, "members", total.packed, total.plain));
    }

 private:
    static void appendLittleEndian(std::vector<uint8_t>& to, uint32_t value) {
        for (int i = 0; i < 4; ++i) to.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }

    static std::string row(const Member& member) {
        std::array<char, 200> text{};
        std::snprintf(
            text.data(), text.size(), "%8llu %11llu %13llu %7s  %s  %-19s  %llu/%llu/%llu  %s  ",
            static_cast<unsigned long long>(member.offset),
            static_cast<unsigned long long>(member.packed),
            static_cast<unsigned long long>(member.plain),
            ratio(member.plain, member.packed).c_str(), hex32(member.crc).c_str(),
            timeText(member.modified).c_str(), static_cast<unsigned long long>(member.blocks[0]),
            static_cast<unsigned long long>(member.blocks[1]),
            static_cast<unsigned long long>(member.blocks[2]), flagNames(member).c_str());
        return text.data() + (member.name.empty() ? "-" : printable(member.name));
    }
};

}  // namespace

const Format& gzFormat() {
    static const Gz format;
    return format;
}

}  // namespace vekdc
