// Headered ZFP fields (P. Lindstrom, "Fixed-Rate Compressed Floating-Point Arrays", 2014), as the
// method's own tool writes and reads them.
//
// A file is a header (zfp_header.h) and the bits of the blocks of 4 x 4 x 4 values, x fastest. Only
// fields of three dimensions and single precision have blocks of the library's kind; a field of
// fewer dimensions is written as one whose other sides are 1. A block at a far side that the field
// does not fill is padded along each axis in turn: three values by their first, two by the second
// and the first, one by itself.
//
// Work goes by chunks that are contiguous in the raw field: four planes, or as many times four as
// make about a megabyte. A chunk needs nothing of another, so chunks are coded on as many threads
// as wanted and their bits strung together. Reading back, blocks of a fixed rate stand at known
// bits and go to threads likewise; others tell their length only by being decoded, in turn, through
// a window of a megabyte over the coded bytes.
#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <new>

#include "tools/vekdc/formats/formats.h"
#include "tools/vekdc/formats/zfp_header.h"
#include "tools/vekdc/io/pipeline.h"
#include "vekdc.h"

namespace vekdc {
namespace {

using namespace zfp;

using Data = std::vector<uint8_t>;

static_assert(std::endian::native == std::endian::little && sizeof(float) == 4);

constexpr size_t kMegabyte = 1 << 20;

constexpr uint32_t kLongestSide = 65536;

constexpr uint64_t kMostMemory = std::numeric_limits<ptrdiff_t>::max();

// --- fields, chunks and blocks -------------------------------------------------------------------

/// How a field is cut into parts that stand one behind the other in the raw file: by planes, or
/// where it has but one, by rows.
class Chunks {
 public:
    explicit Chunks(const Dims& field)
        : field_(field), byPlanes_(field.z > 1), layers_(byPlanes_ ? field.z : field.y) {
        const uint64_t four = 16 * field.values() / layers_;
        perChunk_ = static_cast<uint32_t>(4 * std::clamp<uint64_t>(kMegabyte / four, 1, 1 << 14));
        if (sizeof(float) * at(0).values() > kMostMemory)
            throw Failure("four planes of " + field.text() +
                          " floats are more than fits in memory");
    }

    uint32_t count() const { return (layers_ + perChunk_ - 1) / perChunk_; }
    Dims at(uint32_t index) const {
        Dims dims = field_;
        (byPlanes_ ? dims.z : dims.y) = std::min(perChunk_, layers_ - index * perChunk_);
        return dims;
    }

 private:
    Dims field_;
    bool byPlanes_;
    uint32_t layers_;
    uint32_t perChunk_ = 4;
};

using Block = std::array<float, kBlockValues>;

/// A block's place in a chunk: where its first value is, and how far it is filled along each axis.
struct Place {
    size_t first;
    uint32_t nx, ny, nz;
    bool direct;  ///< Filled, and no step to a neighbour is too long for the library.
};

/// Calls `use` with every block's place, in the order of the stream.
template <class Use>
void eachBlock(const Dims& dims, Use&& use) {
    const size_t row = dims.x;
    const size_t plane = row * dims.y;
    const bool reachable = plane * sizeof(float) <= std::numeric_limits<int32_t>::max();
    for (uint32_t z = 0; z < dims.z; z += 4) {
        for (uint32_t y = 0; y < dims.y; y += 4) {
            for (uint32_t x = 0; x < dims.x; x += 4) {
                const uint32_t nx = std::min(4U, dims.x - x);
                const uint32_t ny = std::min(4U, dims.y - y);
                const uint32_t nz = std::min(4U, dims.z - z);
                use({z * plane + y * row + x, nx, ny, nz, nx + ny + nz == 12 && reachable});
            }
        }
    }
}

/// Calls `copy` with each row of a block that the field holds: where it begins in the chunk, and
/// where in the block.
template <class Copy>
void eachRow(const Place& place, const Dims& dims, Copy&& copy) {
    for (uint32_t z = 0; z < place.nz; ++z)
        for (uint32_t y = 0; y < place.ny; ++y)
            copy(place.first + (size_t{z} * dims.y + y) * dims.x, 16 * z + 4 * y);
}

/// Fills up a line of which `count` values are there.
void padLine(float* line, size_t stride, uint32_t count) {
    if (count < 2) line[stride] = line[0];
    if (count < 3) line[2 * stride] = line[stride];
    if (count < 4) line[3 * stride] = line[0];
}

void padBlock(Block& block, const Place& place) {
    for (uint32_t z = 0; z < place.nz; ++z) {
        for (uint32_t y = 0; y < place.ny; ++y)
            padLine(block.data() + size_t{16} * z + size_t{4} * y, 1, place.nx);
        for (uint32_t x = 0; x < 4; ++x) padLine(block.data() + size_t{16} * z + x, 4, place.ny);
    }
    for (uint32_t i = 0; i < 16; ++i) padLine(block.data() + i, 16, place.nz);
}

constexpr int32_t kBlockRow = 4 * sizeof(float);
constexpr int32_t kBlockPlane = 16 * sizeof(float);

int32_t rowStep(const Dims& dims) {
    return static_cast<int32_t>(dims.x * sizeof(float));
}
int32_t planeStep(const Dims& dims) {
    return static_cast<int32_t>(dims.y * dims.x * sizeof(float));
}

/// A state record, in memory of the size that the library asks for.
class Record {
 public:
    Record() {
        int32_t size = 0;
        veksEncodeZfpGetStateSize_32f(&size);
        memory_.resize((static_cast<size_t>(size) + 3) / 4);
    }
    ZfpState* get() { return reinterpret_cast<ZfpState*>(memory_.data()); }

 private:
    std::vector<uint32_t> memory_;
};

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
    const auto fits = [](int32_t n) { return n >= 1 && n <= static_cast<int32_t>(kLongestSide); };
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
    if (!parse(text, rate) || !(rate * kBlockValues >= kHeaderBits && rate <= most))
        badOption("rate", "0.15 to 64 bits a value", text);
    Parameters p;
    p.minBits = p.maxBits = static_cast<int32_t>(std::lround(rate * kBlockValues));
    return p;
}

Parameters precisionOption(const std::string& text) {
    Parameters p;
    if (!parse(text, p.maxPrec) || p.maxPrec < 1 || p.maxPrec > 32)
        badOption("precision", "1 to 32 bit planes", text);
    return p;
}

Parameters accuracyOption(const std::string& text) {
    double tolerance = 0;
    if (!parse(text, tolerance) || !(tolerance > 0) || !std::isfinite(tolerance))
        badOption("accuracy", "an error above 0", text);
    Parameters p;
    p.minExp = std::max(std::ilogb(tolerance), kLowestExp);
    return p;
}

Parameters expertOption(const std::string& text) {
    constexpr int32_t mostBits = 32768;
    const std::vector<int32_t> v = numbers(text, ',');
    const auto within = [](int32_t value, int32_t low, int32_t high) {
        return value >= low && value <= high;
    };
    if (v.size() != 4 || !within(v[0], 0, v[1]) || !within(v[1], kHeaderBits, mostBits) ||
        !within(v[2], 1, kAllPlanes) || !within(v[3], kLowestExp, kHighestExp))
        badOption("expert",
                  "MINBITS,MAXBITS,MAXPREC,MINEXP with 0 <= MINBITS <= MAXBITS, MAXBITS of 9 to "
                  "32768, MAXPREC of 1 to 64 and MINEXP of -1074 to 16272",
                  text);
    return {std::max(v[0], 1), v[1], v[2], v[3]};
}

Parameters choose(const Settings& settings) {
    const std::pair<const char*, Parameters (*)(const std::string&)> ways[] = {
        {"rate", rateOption},
        {"precision", precisionOption},
        {"accuracy", accuracyOption},
        {"expert", expertOption}};
    Parameters chosen;
    chosen.maxPrec = 32;
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

/// Reads a chunk of the field, or says by how much the file is too short.
void readValues(Source& source, std::vector<float>& values, const Dims& field, const Dims& chunk) {
    values.resize(static_cast<size_t>(chunk.values()));
    const size_t bytes = values.size() * sizeof(float);
    if (source.read(reinterpret_cast<uint8_t*>(values.data()), bytes) == bytes) return;
    const std::string what = source.offset() % sizeof(float) == 0
                                 ? "the field ends too early"
                                 : "the length is not a multiple of 4 bytes, a float's";
    throw FormatError(source.offset(), what + "; " + field.text() + " floats are " +
                                           std::to_string(field.values() * sizeof(float)) +
                                           " bytes");
}

struct Coded {
    Data words;
    uint64_t bits = 0;
};

void encodeChunk(Record& record, const std::vector<float>& values, const Dims& dims,
                 const Parameters& p, Coded& coded) {
    const uint64_t mostBits = dims.blocks() * static_cast<uint64_t>(p.mostBits());
    if (mostBits / 8 >= kMostMemory) throw std::bad_alloc();
    coded.words.resize(static_cast<size_t>(mostBits / 64 * 8 + 8));
    veksEncodeZfpInitLong_32f(coded.words.data(), static_cast<int64_t>(coded.words.size()),
                              record.get());
    veksEncodeZfpSet_32f(p.minBits, p.maxBits, p.maxPrec, p.minExp, record.get());
    VekStatus status = vekStatusOk;
    eachBlock(dims, [&](const Place& place) {
        VekStatus one = vekStatusOk;
        if (place.direct) {
            one = veksEncodeZfp444_32f(values.data() + place.first, rowStep(dims), planeStep(dims),
                                       record.get());
        } else {
            Block block;
            eachRow(place, dims, [&](size_t from, size_t to) {
                std::copy_n(values.data() + from, place.nx, block.data() + to);
            });
            padBlock(block, place);
            one = veksEncodeZfp444_32f(block.data(), kBlockRow, kBlockPlane, record.get());
        }
        if (one != vekStatusOk) status = one;
    });
    int64_t bits = 0;
    veksEncodeZfpGetCompressedBitSize_32f(record.get(), &bits);
    coded.bits = static_cast<uint64_t>(bits);
    if (status != vekStatusOk || veksEncodeZfpFlush_32f(record.get()) != vekStatusOk)
        throw std::logic_error("ZFP encoding failed");
}

void compressField(Source& source, Sink& sink, const Settings& settings) {
    const Dims field = dimsOption(settings);
    const Parameters parameters = choose(settings);
    const Chunks chunks(field);
    BitSink out(sink);
    putHeader(out, field, parameters);

    struct Work {
        Dims dims;
        std::vector<float> values;
        Coded coded;
    };
    std::vector<Record> records(settings.jobs);
    uint32_t next = 0;
    const auto produce = [&](Work& work) {
        if (next == chunks.count()) {
            if (source.atEnd()) return false;
            throw FormatError(source.offset(), "the file goes on behind the field; " +
                                                   field.text() + " floats are " +
                                                   std::to_string(source.offset()) + " bytes");
        }
        work.dims = chunks.at(next++);
        readValues(source, work.values, field, work.dims);
        return true;
    };
    orderedPipeline<Work>(
        settings.jobs, produce,
        [&](Work& work, unsigned thread) {
            encodeChunk(records[thread], work.values, work.dims, parameters, work.coded);
        },
        [&](Work& work) { out.append(work.coded.words, work.coded.bits); });
    out.finish();
}

// --- reading -------------------------------------------------------------------------------------

/// Bytes in front of the one that a block begins in. The library can skip bits as a block of a
/// fixed length, but not fewer than a block's header has.
constexpr size_t kAhead = 2;

/// Decodes blocks from memory, from any bit on.
class BlockReader {
 public:
    /// Blocks begin `skip` bits, at least kHeaderBits, behind the first byte.
    void open(Bytes bytes, unsigned skip, const Parameters& p) {
        bytes_ = bytes;
        ZfpState* const state = record_.get();
        veksDecodeZfpInitLong_32f(bytes.data(), static_cast<int64_t>(bytes.size()), state);
        skipBits(record_, skip);
        veksDecodeZfpSet_32f(p.minBits, p.maxBits, p.maxPrec, p.minExp, state);
    }

    /// False when the bytes end inside the block.
    bool next(float* to, int32_t row, int32_t plane) {
        return veksDecodeZfp444_32f(record_.get(), to, row, plane) == vekStatusOk;
    }

    /// How many bits are left; a few less where they are fewer than kHeaderBits. The record counts
    /// whole words, so the bits that it holds of one are found by trying how many can be skipped.
    uint64_t bitsLeft() {
        int64_t taken = 0;
        veksDecodeZfpGetDecompressedSizeLong_32f(record_.get(), &taken);
        const uint64_t behind = 8 * (bytes_.size() - static_cast<uint64_t>(taken));
        uint64_t held = 0;
        for (uint64_t step = 32; step != 0; step /= 2) {
            Record copy = record_;
            if (skipBits(copy, behind + held + step)) held += step;
        }
        return behind + held;
    }

 private:
    static bool skipBits(Record& record, uint64_t count) {
        Block unused;
        veksDecodeZfpSet_32f(static_cast<int32_t>(count), kHeaderBits, 0, 0, record.get());
        return veksDecodeZfp444_32f(record.get(), unused.data(), kBlockRow, kBlockPlane) ==
               vekStatusOk;
    }

    Record record_;
    Bytes bytes_;
};

/// Decodes a chunk's blocks; false when one is cut short.
template <class Reader>
bool decodeChunk(Reader& reader, float* values, const Dims& dims) {
    bool good = true;
    eachBlock(dims, [&](const Place& place) {
        if (!good) return;
        if (place.direct) {
            good = reader.next(values + place.first, rowStep(dims), planeStep(dims));
            return;
        }
        Block block;
        good = reader.next(block.data(), kBlockRow, kBlockPlane);
        eachRow(place, dims, [&](size_t to, size_t from) {
            std::copy_n(block.data() + from, place.nx, values + to);
        });
    });
    return good;
}

void writeValues(Sink& sink, const float* values, const Dims& dims) {
    sink.write({reinterpret_cast<const uint8_t*>(values),
                static_cast<size_t>(dims.values()) * sizeof(float)});
}

/// Decodes chunks that stand at known bits. Returns where the last one ends.
uint64_t decodeFixedRate(Source& source, Sink& sink, const Header& header, unsigned jobs) {
    struct Work {
        Dims dims;
        Data coded;
        unsigned skip = 0;
        std::vector<float> values;
    };
    const Parameters& p = header.parameters;
    const Chunks chunks(header.dims);
    std::vector<BlockReader> readers(jobs);
    uint64_t position = header.bits;
    uint32_t next = 0;
    const auto produce = [&](Work& work) {
        if (next == chunks.count()) return false;
        work.dims = chunks.at(next++);
        const uint64_t begin = position / 8 - kAhead;
        work.skip = static_cast<unsigned>(position - 8 * begin);
        position += work.dims.blocks() * static_cast<uint64_t>(p.maxBits);
        const uint64_t bytes = (position + 7) / 8 - begin;
        source.back(static_cast<size_t>(source.offset() - begin));
        // What a header promises takes no memory before it is there.
        work.coded.clear();
        while (work.coded.size() < bytes) {
            const size_t done = work.coded.size();
            work.coded.resize(static_cast<size_t>(std::min<uint64_t>(bytes, done + kMegabyte)));
            const size_t room = work.coded.size() - done;
            if (source.read(work.coded.data() + done, room) < room) source.throwTruncated();
        }
        return true;
    };
    orderedPipeline<Work>(
        jobs, produce,
        [&](Work& work, unsigned thread) {
            work.values.resize(static_cast<size_t>(work.dims.values()));
            readers[thread].open(work.coded, work.skip, p);
            decodeChunk(readers[thread], work.values.data(), work.dims);
        },
        [&](Work& work) { writeValues(sink, work.values.data(), work.dims); });
    return position;
}

/// A stream whose blocks have lengths of their own, through a window over its bytes.
class SlidingReader {
 public:
    SlidingReader(Source& source, const Header& header)
        : source_(source), parameters_(header.parameters) {
        const uint64_t begin = header.bits / 8 - kAhead;
        source_.back(static_cast<size_t>(source_.offset() - begin));
        slide(header.bits);
    }

    bool next(float* to, int32_t row, int32_t plane) {
        if (sure_ == 0) slide(position());
        --sure_;
        return reader_.next(to, row, plane);
    }

    /// Where the next block begins, in bits from the start of the file.
    uint64_t position() { return 8 * source_.offset() - reader_.bitsLeft(); }

    /// Whether the file may hold that many more bits.
    bool mayHold(uint64_t bits) { return !ended_ || reader_.bitsLeft() >= bits; }

 private:
    /// Makes the window begin at the block at `position`.
    void slide(uint64_t position) {
        const uint64_t begin = position / 8 - kAhead;
        const auto kept = static_cast<size_t>(source_.offset() - begin);
        std::copy(window_.end() - static_cast<ptrdiff_t>(kept), window_.end(), window_.begin());
        window_.resize(kMegabyte);
        window_.resize(kept + source_.read(window_.data() + kept, window_.size() - kept));
        ended_ = window_.size() < kMegabyte;
        const auto skip = static_cast<unsigned>(position - 8 * begin);
        reader_.open(window_, skip, parameters_);
        sure_ = ended_
                    ? std::numeric_limits<uint64_t>::max()
                    : (8 * window_.size() - skip) / static_cast<uint64_t>(parameters_.mostBits());
    }

    Source& source_;
    Parameters parameters_;
    BlockReader reader_;
    Data window_;
    bool ended_ = false;
    uint64_t sure_ = 0;  ///< Blocks that certainly are in the window.
};

uint64_t decodeVariableRate(Source& source, Sink& sink, const Header& header) {
    const Chunks chunks(header.dims);
    SlidingReader reader(source, header);
    // Not cleared: memory is taken as blocks arrive, not as a header promises them.
    std::unique_ptr<float[]> values;
    for (uint32_t i = 0; i < chunks.count(); ++i) {
        const Dims dims = chunks.at(i);
        if (!reader.mayHold(dims.blocks() * static_cast<uint64_t>(header.parameters.minBits)))
            source.throwTruncated();
        if (!values) values.reset(new float[static_cast<size_t>(dims.values())]);
        if (!decodeChunk(reader, values.get(), dims)) source.throwTruncated();
        writeValues(sink, values.get(), dims);
    }
    return reader.position();
}

/// Decodes a field, and tells of what stands behind it.
Header readField(Source& source, Sink& sink, const Settings& settings) {
    Header header = readHeader(source);
    const uint64_t end = header.parameters.isFixedRate()
                             ? decodeFixedRate(source, sink, header, settings.jobs)
                             : decodeVariableRate(source, sink, header);
    // The last word may be there whole or in as many bytes as it needs.
    const uint64_t most = (end + 63) / 64 * 8;
    if (source.offset() < most)
        source.skip(
            static_cast<size_t>(std::min<uint64_t>(source.peek(8).size(), most - source.offset())));
    if (source.offset() > most || !source.atEnd())
        settings.warn("byte " + std::to_string(most) + ": ignored what follows the zfp data");
    header.bytes = std::min(source.offset(), most);
    return header;
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
        return "fixed rate, " + format("%.6g", static_cast<double>(p.maxBits) / kBlockValues) +
               " bits a value";
    const bool anyLength = p.minBits == 1 && p.maxBits >= kLargestBlock;
    if (anyLength && p.minExp == kLowestExp)
        return p.maxPrec < 32 ? "fixed precision, " + std::to_string(p.maxPrec) + " bit planes"
                              : "every bit plane";
    if (anyLength && p.maxPrec >= 32)
        return "fixed accuracy, errors up to " + format("%.6g", std::ldexp(1.0, p.minExp));
    return "expert";
}

class Zfp : public Format {
 public:
    const char* name() const override { return "zfp"; }
    const char* title() const override { return "ZFP field"; }
    std::vector<Suffix> suffixes() const override { return {{".zfp", ""}}; }
    bool recognises(Bytes start) const override { return startsField(start); }
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
        readField(source, sink, settings);
    }

    void describe(Source& source, const Settings& settings, const Print& print) const override {
        const auto original = settings.own.find("original");
        std::unique_ptr<ErrorMeter> meter;
        if (original != settings.own.end()) meter = std::make_unique<ErrorMeter>(original->second);
        NullSink nowhere;
        const Header header =
            readField(source, meter ? static_cast<Sink&>(*meter) : nowhere, settings);
        const Parameters& p = header.parameters;
        const uint64_t plain = header.dims.values() * sizeof(float);
        const uint64_t packed = header.bytes;
        print("  " + header.dims.text() + " floats, " + std::to_string(header.dims.blocks()) +
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
