// Headered ZFP fields (P. Lindstrom, "Fixed-Rate Compressed Floating-Point Arrays", 2014), as the
// method's own tool writes and reads them: options, threads and what `info` tells, over the codecs
// of codec/zfp_*.h.
//
// Chunks of a field need nothing of each other, so with more than one thread they are coded apart
// and their bits strung together. Reading back, blocks of a fixed rate stand at known bits and go
// to threads likewise; others tell their length only by being decoded, in turn.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <new>

#include "codec/zfp_field_decoder.h"
#include "codec/zfp_field_encoder.h"
#include "tools/vekdc/formats/formats.h"
#include "tools/vekdc/formats/pump.h"
#include "tools/vekdc/io/buffer.h"
#include "tools/vekdc/io/pipeline.h"

namespace vekdc {
namespace {

using codec::Memory;
using codec::ZfpChunkDecoder;
using codec::ZfpChunks;
using Dims = codec::ZfpDims;
using Header = codec::ZfpHeader;
using Parameters = codec::ZfpParameters;

std::string text(const Dims& dims) {
    return std::to_string(dims.x) + " x " + std::to_string(dims.y) + " x " + std::to_string(dims.z);
}

ZfpChunks chunksOf(const Dims& field) {
    const ZfpChunks chunks(field);
    if (!chunks.addressable())
        throw Failure("four planes of " + text(field) + " floats are more than fits in memory");
    return chunks;
}

/// Makes room for a chunk's floats, and leaves them as they are.
void reserve(Memory<float>& values, const Dims& chunk) {
    if (!values.reserve(static_cast<size_t>(chunk.values()))) throw std::bad_alloc();
}

// --- writing -------------------------------------------------------------------------------------

[[noreturn]] void badOption(const std::string& name, const std::string& wanted,
                            const std::string& given) {
    throw Failure("--" + name + " takes " + wanted + ", not " + given);
}

template <class Number>
bool parse(std::string_view text, Number& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

/// Whole numbers may have a unit.
bool parse(std::string_view text, int32_t& value) {
    const std::optional<uint64_t> number = numberFrom(text);
    if (!number || *number > INT32_MAX) return parse<int32_t>(text, value);
    value = static_cast<int32_t>(*number);
    return true;
}

/// Numbers between separators; empty when one is none.
std::vector<int32_t> numbers(std::string_view text, char separator) {
    std::vector<int32_t> values;
    for (;;) {
        const size_t end = std::min(text.find(separator), text.size());
        values.push_back(0);
        if (!parse(text.substr(0, end), values.back())) return {};
        if (end == text.size()) return values;
        text.remove_prefix(end + 1);
    }
}

Dims dimsOption(const Settings& settings) {
    const auto found = settings.own.find("dims");
    if (found == settings.own.end())
        throw Failure("the field's sides are missing: --dims NXxNYxNZ, x fastest");
    const std::vector<int32_t> sides = numbers(found->second, 'x');
    const auto fits = [](int32_t n) {
        return n >= 1 && n <= static_cast<int32_t>(codec::kZfpLongestSide);
    };
    if (sides.empty() || sides.size() > 3 || !std::all_of(sides.begin(), sides.end(), fits))
        badOption("dims", "one to three sides of 1 to 65536, such as 640x480x100", found->second);
    Dims dims;
    dims.x = static_cast<uint32_t>(sides[0]);
    if (sides.size() > 1) dims.y = static_cast<uint32_t>(sides[1]);
    if (sides.size() > 2) dims.z = static_cast<uint32_t>(sides[2]);
    return dims;
}

Parameters rateOption(const std::string& text) {
    constexpr double most = 64;
    double rate = 0;
    if (!parse(text, rate) ||
        !(rate * codec::kZfpBlockValues >= codec::kZfpBlockHeaderBits && rate <= most))
        badOption("rate", "0.15 to 64 bits a value", text);
    return Parameters::ofRate(rate);
}

Parameters precisionOption(const std::string& text) {
    int32_t planes = 0;
    if (!parse(text, planes) || planes < 1 || planes > codec::kZfpFloatPlanes)
        badOption("precision", "1 to 32 bit planes", text);
    return Parameters::ofPrecision(planes);
}

Parameters accuracyOption(const std::string& text) {
    double tolerance = 0;
    if (!parse(text, tolerance) || !(tolerance >= 0) || !std::isfinite(tolerance))
        badOption("accuracy", "an error of 0 or above", text);
    return tolerance == 0 ? Parameters::ofPrecision(codec::kZfpFloatPlanes)
                          : Parameters::ofAccuracy(tolerance);
}

Parameters expertOption(const std::string& text) {
    const std::vector<int32_t> v = numbers(text, ',');
    // The header has no block of at least 0 bits, and none that takes none.
    const Parameters p = v.size() == 4 && v[0] >= 0
                             ? Parameters{std::max(v[0], 1), v[1], v[2], v[3]}
                             : Parameters{0, 0, 0, 0};
    if (!p.valid())
        badOption("expert",
                  "MINBITS,MAXBITS,MAXPREC,MINEXP with 0 <= MINBITS <= MAXBITS, MAXBITS of 9 to "
                  "32768, MAXPREC of 1 to 64 and MINEXP of -1074 to 16272",
                  text);
    return p;
}

Parameters choose(const Settings& settings) {
    const std::pair<const char*, Parameters (*)(const std::string&)> ways[] = {
        {"rate", rateOption},
        {"precision", precisionOption},
        {"accuracy", accuracyOption},
        {"expert", expertOption}};
    Parameters chosen = Parameters::ofPrecision(codec::kZfpFloatPlanes);
    unsigned given = 0;
    for (const auto& [name, read] : ways) {
        const auto found = settings.own.find(name);
        if (found == settings.own.end()) continue;
        chosen = read(found->second);
        ++given;
    }
    if (given > 1) throw Failure("--rate, --precision, --accuracy and --expert exclude each other");
    return chosen;
}

[[noreturn]] void throwWrongLength(const Dims& field, uint64_t bytes) {
    codec::ZfpReason reason;
    reason.setWrongLength(field, bytes);
    throw FormatError(bytes, reason.text());
}

void compressOnThreads(Source& source, Sink& sink, const Dims& field, const Parameters& parameters,
                       unsigned jobs) {
    const ZfpChunks chunks = chunksOf(field);
    codec::ZfpBitString bits;
    const auto write = [&](uint64_t* words, uint64_t count) {
        const size_t whole = bits.join(words, count);
        sink.write({reinterpret_cast<const uint8_t*>(words), whole * sizeof(*words)});
    };
    uint64_t header[codec::kZfpHeaderWords] = {};
    write(header, codec::putZfpHeader(field, parameters, header));

    struct Work {
        Dims dims;
        Memory<float> values;
        codec::ZfpCoded coded;
    };
    std::vector<codec::ZfpChunkEncoder> encoders(jobs);
    uint32_t next = 0;
    const auto produce = [&](Work& work) {
        if (next == chunks.count()) return false;
        work.dims = chunks.at(next++);
        reserve(work.values, work.dims);
        const auto size = static_cast<size_t>(work.dims.bytes());
        if (source.read(reinterpret_cast<uint8_t*>(work.values.data()), size) != size)
            throwWrongLength(field, source.offset());
        return true;
    };
    orderedPipeline<Work>(
        jobs, produce,
        [&](Work& work, unsigned thread) {
            if (encoders[thread].encode(work.values.data(), work.dims, parameters, work.coded) !=
                codec::Status::Ended)
                throw std::bad_alloc();
        },
        [&](Work& work) { write(work.coded.words.data(), work.coded.bits); });
    uint64_t last[2] = {};
    write(last, -bits.held() % 64);
}

void compressField(Source& source, Sink& sink, const Settings& settings) {
    const Dims field = dimsOption(settings);
    const Parameters parameters = choose(settings);
    chunksOf(field);
    if (settings.jobs > 1) {
        compressOnThreads(source, sink, field, parameters, settings.jobs);
    } else {
        codec::ZfpFieldEncoder encoder(field, parameters);
        pumpEncoder(encoder, source, sink);
    }
    if (!source.atEnd()) throwWrongLength(field, source.offset());
}

// --- reading -------------------------------------------------------------------------------------

/// Shows the header, and leaves the source where it is.
Header peekHeader(Source& source) {
    const Bytes start = source.peek(codec::kZfpLongestHeader);
    codec::ZfpHeaderReader reader;
    codec::Input in{start.data(), start.size()};
    const codec::Status status = reader.run(in);
    if (status == codec::Status::Broken)
        throw FormatError(reader.fault().offset, std::string() + reader.fault().reason);
    if (start.size() >= 4 && status != codec::Status::Ended) source.skip(start.size());
    if (status != codec::Status::Ended) source.throwTruncated();
    return reader.header();
}

/// Decodes chunks that stand at known bits. Returns where the last one ends.
uint64_t decodeFixedRate(Source& source, Sink& sink, const Header& header, unsigned jobs) {
    struct Work {
        Dims dims;
        Buffer coded;
        unsigned skip = 0;
        Memory<float> values;
    };
    const Parameters& p = header.parameters;
    const ZfpChunks chunks = chunksOf(header.dims);
    std::vector<ZfpChunkDecoder> decoders(jobs);
    uint64_t position = header.bits;
    uint32_t next = 0;
    source.skip(static_cast<size_t>(position / 8));
    const auto produce = [&](Work& work) {
        if (next == chunks.count()) return false;
        work.dims = chunks.at(next++);
        const uint64_t begin = position / 8 - ZfpChunkDecoder::kAhead;
        work.skip = static_cast<unsigned>(position - 8 * begin);
        position += work.dims.blocks() * static_cast<uint64_t>(p.maxBits);
        const uint64_t bytes = (position + 7) / 8 - begin;
        source.back(static_cast<size_t>(source.offset() - begin));
        // What a header promises takes no memory before it is there.
        work.coded.clear();
        while (work.coded.size() < bytes) {
            const size_t done = work.coded.size();
            work.coded.resize(
                static_cast<size_t>(std::min<uint64_t>(bytes, done + PumpRoom::kBytes)));
            const size_t room = work.coded.size() - done;
            if (source.read(work.coded.data() + done, room) < room) source.throwTruncated();
        }
        return true;
    };
    orderedPipeline<Work>(
        jobs, produce,
        [&](Work& work, unsigned thread) {
            reserve(work.values, work.dims);
            if (!decoders[thread].reserve()) throw std::bad_alloc();
            decoders[thread].open(work.coded, work.skip, p);
            codec::ZfpBlockWalk walk(work.dims);
            decoders[thread].decode(walk, work.values.data());
        },
        [&](Work& work) {
            sink.write({reinterpret_cast<const uint8_t*>(work.values.data()),
                        static_cast<size_t>(work.dims.bytes())});
        });
    return position;
}

/// Decodes blocks in turn. Returns where the last byte of the last one ends, in bits.
uint64_t decodeInTurn(Source& source, Sink& sink, const Header& header) {
    // A small file that promises a large field takes no memory for it.
    const uint64_t least =
        chunksOf(header.dims).at(0).blocks() * static_cast<uint64_t>(header.parameters.minBits);
    if (!source.mayHold((header.bits + least) / 8)) {
        source.skip(source.peek().size());
        source.throwTruncated();
    }
    codec::ZfpFieldDecoder decoder;
    pumpDecoder(decoder, source, sink, [] { return std::string(); });
    return 8 * source.offset();
}

/// Decodes a field, and tells of what stands behind it.
uint64_t readField(Source& source, Sink& sink, const Header& header, const Settings& settings) {
    const uint64_t end = header.parameters.isFixedRate() && settings.jobs > 1
                             ? decodeFixedRate(source, sink, header, settings.jobs)
                             : decodeInTurn(source, sink, header);
    // The last word may be there whole or in as many bytes as it needs.
    const uint64_t most = (end + 63) / 64 * 8;
    source.skip(
        std::min<size_t>(source.peek(8).size(), static_cast<size_t>(most - source.offset())));
    if (!source.atEnd())
        settings.warn("byte " + std::to_string(most) + ": ignored what follows the zfp data");
    return source.offset();
}

// --- info ----------------------------------------------------------------------------------------

std::string format(const char* text, double value) {
    std::array<char, 64> out{};
    std::snprintf(out.data(), out.size(), text, value);
    return out.data();
}

/// Compares a decoded field with the one in a file.
class ErrorMeter : public Sink {
 public:
    explicit ErrorMeter(const std::string& path) : path_(path), file_(path, std::ios::binary) {
        if (!file_) throw Failure("cannot read the original " + path);
    }

    void write(Bytes bytes) override {
        constexpr size_t piece = 4096;
        std::array<float, piece> decoded;
        std::array<float, piece> original;
        for (size_t at = 0; at < bytes.size();) {
            const size_t size = std::min(bytes.size() - at, sizeof(decoded));
            std::memcpy(decoded.data(), bytes.data() + at, size);
            file_.read(reinterpret_cast<char*>(original.data()),
                       static_cast<std::streamsize>(size));
            if (static_cast<size_t>(file_.gcount()) != size) throwOtherSize();
            for (size_t i = 0; i < size / sizeof(float); ++i) add(original[i], decoded[i]);
            at += size;
        }
    }

    void report(const Print& print) {
        if (file_.peek() != std::ifstream::traits_type::eof()) throwOtherSize();
        const double rmse = count_ == 0 ? 0 : std::sqrt(squares_ / static_cast<double>(count_));
        const double range = count_ == 0 ? 0 : static_cast<double>(high_) - low_;
        std::string line = "  against " + printable(path_) + ": maximum error " +
                           format("%.4g", worst_) + ", RMSE " + format("%.4g", rmse) + ", PSNR ";
        line += rmse > 0 ? format("%.2f dB", 20 * std::log10(range / (2 * rmse))) : "infinite";
        print(line);
        if (unusual_ != 0)
            print("  left out: " + std::to_string(unusual_) + " values that are not finite");
    }

 private:
    [[noreturn]] void throwOtherSize() const {
        throw Failure("the original " + path_ + " is not as long as the field");
    }

    void add(float original, float decoded) {
        if (!std::isfinite(original)) {
            ++unusual_;
            return;
        }
        const double error = std::fabs(static_cast<double>(decoded) - original);
        worst_ = std::max(worst_, error);
        squares_ += error * error;
        low_ = std::min(low_, original);
        high_ = std::max(high_, original);
        ++count_;
    }

    std::string path_;
    std::ifstream file_;
    uint64_t count_ = 0;
    uint64_t unusual_ = 0;
    double worst_ = 0;
    double squares_ = 0;
    float low_ = std::numeric_limits<float>::max();
    float high_ = std::numeric_limits<float>::lowest();
};

std::string modeName(const Parameters& p) {
    if (p.isFixedRate())
        return "fixed rate, " +
               format("%.6g", static_cast<double>(p.maxBits) / codec::kZfpBlockValues) +
               " bits a value";
    const bool anyLength = p.minBits == 1 && p.maxBits >= codec::kZfpLargestBlock;
    if (anyLength && p.minExp == codec::kZfpLowestExp)
        return p.maxPrec < 32 ? "fixed precision, " + std::to_string(p.maxPrec) + " bit planes"
                              : "every bit plane";
    if (anyLength && p.maxPrec >= codec::kZfpFloatPlanes)
        return "fixed accuracy, errors up to " + format("%.6g", std::ldexp(1.0, p.minExp));
    return "expert";
}

class Zfp : public Format {
 public:
    const char* name() const override { return "zfp"; }
    const char* title() const override { return "ZFP field"; }
    std::vector<Suffix> suffixes() const override { return {{".zfp", ""}}; }
    bool recognises(Bytes start) const override { return codec::startsZfpField(start); }
    bool codesAnyBytes() const override { return false; }
    std::vector<FormatOption> options() const override {
        return {
            {"dims", "NXxNYxNZ", "sides of the field of floats to compress, x fastest"},
            {"rate", "BITS", "bits a value, all blocks alike"},
            {"precision", "PLANES", "bit planes to keep, 1 to 32"},
            {"accuracy", "ERROR", "largest error of a value"},
            {"expert", "MINBITS,MAXBITS,MAXPREC,MINEXP", "the method's four numbers"},
            {"original", "FILE", "with info: the field before, to measure errors against"},
        };
    }

    void compress(Source& source, Sink& sink, const Settings& settings) const override {
        compressField(source, sink, settings);
    }

    void decompress(Source& source, Sink& sink, const Settings& settings) const override {
        readField(source, sink, peekHeader(source), settings);
    }

    void describe(Source& source, const Settings& settings, const Print& print) const override {
        const auto original = settings.own.find("original");
        std::unique_ptr<ErrorMeter> meter;
        if (original != settings.own.end()) meter = std::make_unique<ErrorMeter>(original->second);
        NullSink nowhere;
        const Header header = peekHeader(source);
        const uint64_t packed =
            readField(source, meter ? static_cast<Sink&>(*meter) : nowhere, header, settings);
        const Parameters& p = header.parameters;
        const uint64_t plain = header.dims.bytes();
        print("  " + text(header.dims) + " floats, " + std::to_string(header.dims.blocks()) +
              " blocks");
        print("  " + modeName(p) + " (minbits " + std::to_string(p.minBits) + ", maxbits " +
              std::to_string(p.maxBits) + ", maxprec " + std::to_string(p.maxPrec) + ", minexp " +
              std::to_string(p.minExp) + ")");
        print("  " + std::to_string(packed) + " -> " + std::to_string(plain) + " bytes, ratio " +
              ratio(plain, packed) + ", " +
              format("%.3f",
                     8 * static_cast<double>(packed) / static_cast<double>(header.dims.values())) +
              " bits a value");
        if (meter) meter->report(print);
    }
};

}  // namespace

const Format& zfpFormat() {
    static const Zfp format;
    return format;
}

}  // namespace vekdc
