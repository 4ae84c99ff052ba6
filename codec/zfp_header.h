// The header of a ZFP field, and the numbers that it states.
//
// A field is one stream of bits, each byte filled from its lowest bit: "zfp" and the codec's
// version (32 bits), the type of the values (2), the number of dimensions (2), the sides (48), and
// the four numbers that govern the blocks: in 12 bits where a code for them exists, else the code
// 4095 and 52 bits more. All numbers have their lowest bit first. The blocks follow at the next
// bit.
//
// Only fields of three dimensions and single precision have blocks of the library's kind, 4 x 4 x 4
// floats; a field of fewer dimensions is written as one whose other sides are 1.
#pragma once

#include "codec/codec.h"
#include "codec/fields.h"

namespace vekdc::codec {

/// A block's values, and the planes of bits that a 32-bit value has.
constexpr int32_t kZfpBlockValues = 64;
constexpr int32_t kZfpFloatPlanes = 32;
/// The header of a block that is not zero: its flag and its exponent.
constexpr int32_t kZfpBlockHeaderBits = 9;
/// No block of floats takes more: its header, every bit of every plane, a positive group test for
/// each value and a negative one for each plane.
constexpr int32_t kZfpLargestBlock =
    kZfpBlockHeaderBits + kZfpBlockValues * kZfpFloatPlanes + kZfpBlockValues + kZfpFloatPlanes;
static_assert(kZfpLargestBlock == 2153);
/// What the format writes for "no limit of bits": the bound of its largest kind of block, 256
/// doubles of 64 planes in four dimensions, with 255 group tests and a header of 19 bits.
constexpr int32_t kZfpUnlimitedBits = 256 * 64 + 255 + 19;
/// What the format writes for "all planes": those of a double.
constexpr int32_t kZfpAllPlanes = 64;
/// The exponent of the smallest double above 0: no float has a plane as low, so it stands for "no
/// plane is dropped". The format's own programs take anything lower for coding without loss.
constexpr int32_t kZfpLowestExp = -1074;
/// The header counts exponents in 15 bits from here, one below that of the smallest quadruple.
constexpr int32_t kZfpExpBase = -16495;
constexpr int32_t kZfpHighestExp = kZfpExpBase + (1 << 15) - 1;
/// What the header's 15 bits for a block's size, and 16 bits for a side, can state.
constexpr int32_t kZfpMostBits = 1 << 15;
constexpr uint32_t kZfpLongestSide = 1 << 16;

/// The numbers that govern a stream, as the library takes them; as they stand, nothing is dropped.
struct ZfpParameters {
    int32_t minBits = 1;                  ///< Least bits of a block; shorter ones are padded.
    int32_t maxBits = kZfpUnlimitedBits;  ///< Most bits of a block; equal to minBits: fixed rate.
    int32_t maxPrec = kZfpAllPlanes;      ///< Most bit planes of a block.
    int32_t minExp = kZfpLowestExp;       ///< Planes below 2^minExp are dropped.

    /// All blocks alike, of so many bits a value.
    static ZfpParameters ofRate(double bitsPerValue);
    /// So many bit planes of each block.
    static ZfpParameters ofPrecision(int32_t planes);
    /// No error above a tolerance, which is above 0 and finite.
    static ZfpParameters ofAccuracy(double tolerance);

    bool operator==(const ZfpParameters&) const = default;
    bool isFixedRate() const { return minBits == maxBits; }
    /// Most bits that a block of floats takes.
    int32_t mostBits() const { return std::max(minBits, std::min(maxBits, kZfpLargestBlock)); }
    /// Whether a header can state them and the library's blocks keep to them.
    bool valid() const;
};

/// Sides of a field or of a part of it, x fastest, 1 to kZfpLongestSide each.
struct ZfpDims {
    uint32_t x = 1;
    uint32_t y = 1;
    uint32_t z = 1;

    uint64_t values() const { return uint64_t{x} * y * z; }
    uint64_t bytes() const { return values() * sizeof(float); }
    uint64_t blocks() const { return uint64_t{(x + 3) / 4} * ((y + 3) / 4) * ((z + 3) / 4); }
    bool valid() const;
};

struct ZfpHeader {
    ZfpDims dims;
    ZfpParameters parameters;
    unsigned bits = 0;  ///< Where the first block begins.
};

constexpr size_t kZfpLongestHeader = 19;
constexpr size_t kZfpHeaderWords = 3;

/// Whether data that begins so may be a field with a header.
bool startsZfpField(Bytes bytes);

/// Puts a field's header into zeroed words, and returns its length in bits.
unsigned putZfpHeader(const ZfpDims& dims, const ZfpParameters& p,
                      uint64_t (&words)[kZfpHeaderWords]);

/// A reason with numbers in it.
class ZfpReason {
 public:
    [[gnu::format(printf, 2, 3)]] void set(const char* format, ...);
    /// Why a field of these sides is not this long in bytes.
    void setWrongLength(const ZfpDims& dims, uint64_t bytes);
    const char* text() const { return text_; }

 private:
    char text_[160] = "";
};

/// Reads a header in pieces of any size, and takes nothing behind it.
class ZfpHeaderReader {
 public:
    /// Ended once the header is there and tells of a field that the library can decode.
    Status run(Input& in);
    Fault fault() const { return {broken_ ? reason_.text() : nullptr, offset_}; }
    void reset() { *this = {}; }

    /// The header, and its last byte, which holds the first bits of the blocks where the header
    /// does not end with it.
    const ZfpHeader& header() const { return header_; }
    uint8_t lastByte() const { return field_.data()[field_.size() - 1]; }

 private:
    Status fail(uint64_t offset);
    Status readKind();
    Status readParameters();

    FieldIn<kZfpLongestHeader> field_;
    ZfpHeader header_;
    ZfpReason reason_;
    uint64_t offset_ = 0;
    bool broken_ = false;
};

}  // namespace vekdc::codec
