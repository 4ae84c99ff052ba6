// The gzip file format (RFC 1952): members of a header, a deflate stream, a CRC-32 and a length.
//
// Written: one member, with the file's name and time stamp. Read: any number of members with every
// optional header field, zeros behind the last one (tape padding), and, with a warning, anything
// else behind it. Header checksum, CRC-32 and length are all verified.
#include <array>

#include "codec/gzip.h"
#include "tools/vekdc/formats/deflate_all.h"
#include "tools/vekdc/formats/formats.h"
#include "tools/vekdc/formats/pump.h"

namespace vekdc {
namespace {

/// Longer names and comments are read to their end but not kept.
constexpr size_t kMaxText = 4096;

/// A decoder, and what it keeps of a header.
struct Reader {
    codec::GzipDecoder decoder;
    codec::GzipHeader header;
    std::array<char, kMaxText> name;
    std::array<char, kMaxText> comment;
    uint64_t offset = 0;  // Of the member.

    Reader() {
        keepIn(header.name, name);
        keepIn(header.comment, comment);
        decoder.headerTo(&header);
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    void read(Source& source, Sink& sink) {
        offset = source.offset();
        decoder.reset();
        pumpDecoder(decoder, source, sink, [] { return std::string(); });
    }
    /// What the header at the source says of the file, where it is in sight.
    static Stored stored(Source& source) {
        Reader reader;
        const Bytes start = source.peek(Source::kRoom);
        codec::Input in{start.data(), start.size()};
        codec::Output none{nullptr, 0};
        reader.decoder.run(in, none);
        if (!reader.decoder.headerRead()) return {};
        return {text(reader.header.name), reader.header.modified};
    }

    uint64_t packed() const { return decoder.totalIn(); }
    uint64_t plain() const { return decoder.inflate().totalOut(); }

    static std::string text(const codec::GzipField& field) {
        if (!field.present) return {};
        return {reinterpret_cast<const char*>(field.data), std::min(field.size, field.room)};
    }

 private:
    static void keepIn(codec::GzipField& field, std::array<char, kMaxText>& room) {
        field.data = reinterpret_cast<uint8_t*>(room.data());
        field.room = room.size();
    }
};

/// The flags that a header has, by name.
std::string flagNames(const codec::GzipHeader& header) {
    std::string names;
    const auto add = [&](bool set, const char* name) {
        if (set) names += (names.empty() ? "" : ",") + std::string(name);
    };
    add(header.text, "text");
    add(header.summed, "hcrc");
    add(header.extra.present, "extra");
    add(header.name.present, "name");
    add(header.comment.present, "comment");
    return names.empty() ? "-" : names;
}

class Gz : public Format {
 public:
    const char* name() const override { return "gz"; }
    const char* title() const override { return "gzip file (RFC 1952)"; }
    std::vector<Suffix> suffixes() const override { return {{".gz", ""}, {".tgz", ".tar"}}; }
    bool recognises(Bytes start) const override {
        return start.size() >= 2 && codec::startsGzip(start);
    }

    std::vector<FormatOption> options() const override {
        return {{kRsyncable.c_str(), nullptr, "let what is the same remain so behind a change"}};
    }

    void compress(Source& source, Sink& sink, const Settings& settings) const override {
        const codec::DeflateOptions options = deflateOptions(settings);
        std::string name = settings.name;
        codec::GzipHeader header;
        header.modified = settings.modified;
        header.hints = codec::gzipHints(options.level);
        header.system = codec::kGzipUnix;
        header.name.present = !name.empty();
        header.name.data = reinterpret_cast<uint8_t*>(name.data());
        header.name.size = name.size();
        if (settings.jobs == 1 && !settings.own.contains(kRsyncable)) {
            codec::GzipEncoder encoder(options);
            encoder.setHeader(header);
            pumpEncoder(encoder, source, sink);
            return;
        }
        std::vector<uint8_t> bytes(codec::GzipHeaderWriter::kFixedRoom + name.size());
        codec::Output out{bytes.data(), bytes.size()};
        codec::GzipHeaderWriter writer;
        writer.start(header);
        writer.run(out);
        sink.write({bytes.data(), bytes.size() - out.left});
        const Deflated deflated = deflateOnThreads(source, sink, settings, codec::kCrc32);
        std::array<uint8_t, codec::kGzipTrailer> trailer;
        codec::putGzipTrailer(trailer.data(), deflated.check, deflated.plain);
        sink.write(trailer);
    }

    void decompress(Source& source, Sink& sink, const Settings& settings) const override {
        Reader reader;
        if (settings.stored) settings.stored(Reader::stored(source));
        readParts(*this, source, settings, [&] { reader.read(source, sink); });
    }

    void describe(Source& source, const Settings& settings, const Print& print) const override {
        print(
            "  offset  compressed  uncompressed   ratio    crc-32  modified (UTC)       "
            "blocks: stored/fixed/dynamic  flags  name");
        NullSink nowhere;
        uint64_t members = 0;
        uint64_t packed = 0;
        uint64_t plain = 0;
        Reader reader;
        readParts(*this, source, settings, [&] {
            reader.read(source, nowhere);
            print(row(reader));
            const std::string comment = Reader::text(reader.header.comment);
            if (!comment.empty()) print("          comment: " + printable(comment));
            const codec::GzipField& extra = reader.header.extra;
            if (extra.present && extra.size != 0)
                print("          extra field of " + std::to_string(extra.size) + " bytes");
            ++members;
            packed += reader.packed();
            plain += reader.plain();
        });
        if (members > 1) print(totalText(members, "members", packed, plain));
    }

 private:
    static std::string row(const Reader& reader) {
        const auto& blocks = reader.decoder.inflate().blocks();
        std::array<char, 200> text{};
        std::snprintf(
            text.data(), text.size(), "%8llu %11llu %13llu %7s  %s  %-19s  %llu/%llu/%llu  %s  ",
            static_cast<unsigned long long>(reader.offset),
            static_cast<unsigned long long>(reader.packed()),
            static_cast<unsigned long long>(reader.plain()),
            ratio(reader.plain(), reader.packed()).c_str(), hex32(reader.decoder.crc()).c_str(),
            timeText(reader.header.modified).c_str(), static_cast<unsigned long long>(blocks[0]),
            static_cast<unsigned long long>(blocks[1]), static_cast<unsigned long long>(blocks[2]),
            flagNames(reader.header).c_str());
        const std::string name = Reader::text(reader.header.name);
        return text.data() + (name.empty() ? "-" : printable(name));
    }
};

}  // namespace

const Format& gzFormat() {
    static const Gz format;
    return format;
}

}  // namespace vekdc
