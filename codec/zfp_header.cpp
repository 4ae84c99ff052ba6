#include "codec/zfp_header.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace vekdc::codec {
namespace {

constexpr uint8_t kMagic[] = {'z', 'f', 'p'};
constexpr uint8_t kCodecVersion = 5;
constexpr uint32_t kFloats = 2;  // The code of the type; its fellows are in readKind().
constexpr uint32_t kDimensions = 3;

/// Where the fields stand, in bytes or bits from the start.
constexpr size_t kVersionByte = 3;
constexpr size_t kKindByte = 4;
constexpr size_t kParametersByte = 10;
constexpr unsigned kKindBit = 32;
constexpr unsigned kSidesBit = 36;
constexpr unsigned kCodeBit = 84;
constexpr unsigned kLongBit = 96;
constexpr unsigned kLongEnd = 148;
static_assert((kLongEnd + 7) / 8 == kZfpLongestHeader);

/// The 12-bit code of the numbers, by ranges: a fixed rate by its bits a block, a precision, a code
/// for coding without loss, a smallest exponent; the last one announces the numbers themselves.
constexpr uint32_t kRateCodes = 2048;
constexpr uint32_t kPrecisionCodes = 128;
constexpr uint32_t kLosslessCode = kRateCodes + kPrecisionCodes;
constexpr uint32_t kLongCode = 4095;

uint32_t shortCode(const ZfpParameters& p) {
    const auto matches = [&](ZfpParameters like) { return p == like; };
    if (p.isFixedRate() && matches({p.minBits, p.minBits, kZfpAllPlanes, kZfpLowestExp}) &&
        static_cast<uint32_t>(p.maxBits) <= kRateCodes)
        return static_cast<uint32_t>(p.maxBits) - 1;
    if (matches(ZfpParameters::ofPrecision(p.maxPrec)) && p.maxPrec < kZfpAllPlanes)
        return kRateCodes + static_cast<uint32_t>(p.maxPrec) - 1;
    const int64_t code = int64_t{kLosslessCode} + 1 + p.minExp - kZfpLowestExp;
    if (matches({1, kZfpUnlimitedBits, kZfpAllPlanes, p.minExp}) && code < kLongCode)
        return static_cast<uint32_t>(code);
    return kLongCode;
}

/// Takes or puts numbers one behind the other, the lowest bit first.
uint32_t takeBits(const uint8_t* from, unsigned& position, unsigned count) {
    uint32_t value = 0;
    for (unsigned i = 0; i < count; ++i, ++position)
        value |= static_cast<uint32_t>(from[position / 8] >> position % 8 & 1) << i;
    return value;
}
void putBits(uint64_t* words, unsigned& position, int64_t value, unsigned count) {
    for (unsigned i = 0; i < count; ++i, ++position)
        words[position / 64] |= (static_cast<uint64_t>(value) >> i & 1) << position % 64;
}

constexpr bool within(int64_t value, int64_t low, int64_t high) {
    return value >= low && value <= high;
}

}  // namespace

ZfpParameters ZfpParameters::ofRate(double bitsPerValue) {
    ZfpParameters p;
    p.minBits = p.maxBits = static_cast<int32_t>(std::lround(bitsPerValue * kZfpBlockValues));
    return p;
}

ZfpParameters ZfpParameters::ofPrecision(int32_t planes) {
    ZfpParameters p;
    p.maxPrec = planes;
    return p;
}

ZfpParameters ZfpParameters::ofAccuracy(double tolerance) {
    ZfpParameters p;
    p.minExp = std::max(std::ilogb(tolerance), kZfpLowestExp);
    return p;
}

bool ZfpParameters::valid() const {
    return within(minBits, 1, maxBits) && within(maxBits, kZfpBlockHeaderBits, kZfpMostBits) &&
           within(maxPrec, 1, kZfpAllPlanes) && within(minExp, kZfpLowestExp, kZfpHighestExp);
}

bool ZfpDims::valid() const {
    const auto fits = [](uint32_t side) { return within(side, 1, kZfpLongestSide); };
    return fits(x) && fits(y) && fits(z);
}

bool startsZfpField(Bytes bytes) {
    return bytes.size() > kVersionByte && std::memcmp(bytes.data(), kMagic, sizeof(kMagic)) == 0 &&
           bytes[kVersionByte] < ' ';
}

unsigned putZfpHeader(const ZfpDims& dims, const ZfpParameters& p,
                      uint64_t (&words)[kZfpHeaderWords]) {
    unsigned at = 0;
    for (const uint8_t letter : kMagic) putBits(words, at, letter, 8);
    putBits(words, at, kCodecVersion, 8);
    putBits(words, at, kFloats, 2);
    putBits(words, at, kDimensions - 1, 2);
    for (const uint32_t side : {dims.x, dims.y, dims.z}) putBits(words, at, side - 1, 16);
    const uint32_t code = shortCode(p);
    putBits(words, at, code, 12);
    if (code != kLongCode) return at;
    putBits(words, at, p.minBits - 1, 15);
    putBits(words, at, p.maxBits - 1, 15);
    putBits(words, at, p.maxPrec - 1, 7);
    putBits(words, at, p.minExp - kZfpExpBase, 15);
    return at;
}

void ZfpReason::set(const char* format, ...) {
    va_list values;
    va_start(values, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the line above sets it.
    std::vsnprintf(text_, sizeof(text_), format, values);
    va_end(values);
}

void ZfpReason::setWrongLength(const ZfpDims& dims, uint64_t bytes) {
    const char* what = "the file goes on behind the field";
    if (bytes < dims.bytes())
        what = bytes % sizeof(float) == 0 ? "the field ends too early"
                                          : "the length is not a multiple of 4 bytes, a float's";
    set("%s; %u x %u x %u floats are %llu bytes", what, dims.x, dims.y, dims.z,
        static_cast<unsigned long long>(dims.bytes()));
}

Status ZfpHeaderReader::fail(uint64_t offset) {
    offset_ = offset;
    broken_ = true;
    return Status::Broken;
}

Status ZfpHeaderReader::run(Input& in) {
    if (broken_) return Status::Broken;
    if (header_.bits != 0) return Status::Ended;
    // Each field is judged as soon as it is there: a file of another kind may be shorter.
    if (!field_.fill(in, kVersionByte + 1)) return Status::Going;
    if (!startsZfpField({field_.data(), field_.size()})) {
        reason_.set("not a zfp file with a header (as zfp -h writes it)");
        return fail(0);
    }
    if (const unsigned version = field_.data()[kVersionByte]; version != kCodecVersion) {
        reason_.set("version %u of the zfp codec, not 5", version);
        return fail(kVersionByte);
    }
    if (!field_.fill(in, kKindByte + 1)) return Status::Going;
    if (readKind() == Status::Broken) return Status::Broken;
    if (!field_.fill(in, kLongBit / 8)) return Status::Going;
    unsigned at = kCodeBit;
    const bool isLong = takeBits(field_.data(), at, 12) == kLongCode;
    if (isLong && !field_.fill(in, kZfpLongestHeader)) return Status::Going;
    return readParameters();
}

Status ZfpHeaderReader::readKind() {
    constexpr const char* types[] = {"32-bit integers", "64-bit integers", "floats", "doubles"};
    unsigned at = kKindBit;
    const uint32_t type = takeBits(field_.data(), at, 2);
    const uint32_t dimensions = takeBits(field_.data(), at, 2) + 1;
    if (type != kFloats) {
        reason_.set("a field of %s; only fields of 32-bit floats are read here", types[type]);
        return fail(kKindByte);
    }
    if (dimensions != kDimensions) {
        reason_.set(
            "a field of %u dimensions, coded in blocks of other sizes; only fields of 3 "
            "dimensions are read here",
            dimensions);
        return fail(kKindByte);
    }
    return Status::Going;
}

Status ZfpHeaderReader::readParameters() {
    unsigned at = kSidesBit;
    const auto take = [&](unsigned bits) { return takeBits(field_.data(), at, bits); };
    const auto number = [&](unsigned bits) { return static_cast<int32_t>(take(bits)); };
    ZfpDims& dims = header_.dims;
    for (uint32_t* const side : {&dims.x, &dims.y, &dims.z}) *side = take(16) + 1;
    const uint32_t code = take(12);
    ZfpParameters& p = header_.parameters;
    if (code < kRateCodes) {
        p.minBits = p.maxBits = static_cast<int32_t>(code) + 1;
    } else if (code < kLosslessCode) {
        p.maxPrec = static_cast<int32_t>(code - kRateCodes) + 1;
    } else if (code == kLongCode) {
        p.minBits = number(15) + 1;
        p.maxBits = number(15) + 1;
        p.maxPrec = number(7) + 1;
        p.minExp = number(15) + kZfpExpBase;
    } else if (code != kLosslessCode) {
        p.minExp = static_cast<int32_t>(code - kLosslessCode) - 1 + kZfpLowestExp;
    }
    if (code == kLosslessCode || p.minExp < kZfpLowestExp) {
        reason_.set("coded without loss, which is not read here");
        return fail(kParametersByte);
    }
    if (p.minBits > p.maxBits) {
        reason_.set("the header has blocks of at least %d and at most %d bits", p.minBits,
                    p.maxBits);
        return fail(kParametersByte);
    }
    if (p.maxBits < kZfpBlockHeaderBits) {
        reason_.set("blocks of %d bits, which have no room for a header, are not read here",
                    p.maxBits);
        return fail(kParametersByte);
    }
    header_.bits = at;
    return Status::Ended;
}

}  // namespace vekdc::codec
