// Bits as the method's own tool lays them out: 32 of magic and version, 2 of type, 2 of dimensions,
// 48 of sides, then the parameters' 12 or 64; all numbers with their lowest bit first.
#include "tools/vekdc/formats/zfp_header.h"

#include <array>

namespace vekdc::zfp {
namespace {

constexpr std::array<uint8_t, 3> kMagic = {'z', 'f', 'p'};
constexpr uint8_t kCodecVersion = 5;
constexpr uint32_t kFloats = 2;  // The code of the type; its fellows are in readHeader().
constexpr uint32_t kDimensions = 3;

/// The 12-bit code of the numbers, by ranges: a fixed rate by its bits a block, a precision, a code
/// for coding without loss, a smallest exponent; the last one announces the numbers themselves.
constexpr uint32_t kRateCodes = 2048;
constexpr uint32_t kPrecisionCodes = 128;
constexpr uint32_t kLosslessCode = kRateCodes + kPrecisionCodes;
constexpr uint32_t kLongCode = 4095;
constexpr int32_t kLowestLongExp = -16495;

uint32_t shortCode(const Parameters& p) {
    const auto matches = [&](Parameters like) { return p == like; };
    if (p.isFixedRate() && matches({p.minBits, p.minBits, kAllPlanes, kLowestExp}) &&
        static_cast<uint32_t>(p.maxBits) <= kRateCodes)
        return static_cast<uint32_t>(p.maxBits) - 1;
    if (matches({1, kUnlimitedBits, p.maxPrec, kLowestExp}) && p.maxPrec < kAllPlanes)
        return kRateCodes + static_cast<uint32_t>(p.maxPrec) - 1;
    const int64_t code = int64_t{kLosslessCode} + 1 + p.minExp - kLowestExp;
    if (matches({1, kUnlimitedBits, kAllPlanes, p.minExp}) && code < kLongCode)
        return static_cast<uint32_t>(code);
    return kLongCode;
}

/// Takes numbers off a few bytes, the lowest bit first.
class HeaderBits {
 public:
    explicit HeaderBits(Source& source) : source_(source) {}

    uint32_t take(unsigned count) {
        uint32_t value = 0;
        for (unsigned i = 0; i < count; ++i, ++position_) {
            if (position_ % 8 == 0) byte_ = source_.byte();
            value |= static_cast<uint32_t>(byte_ >> position_ % 8 & 1) << i;
        }
        return value;
    }
    unsigned position() const { return position_; }

 private:
    Source& source_;
    unsigned position_ = 0;
    uint8_t byte_ = 0;
};

Parameters readParameters(HeaderBits& in) {
    const auto number = [&](unsigned bits) { return static_cast<int32_t>(in.take(bits)); };
    const uint64_t offset = in.position() / 8;
    const uint32_t code = in.take(12);
    Parameters p;
    if (code < kRateCodes) {
        p.minBits = p.maxBits = static_cast<int32_t>(code) + 1;
    } else if (code < kLosslessCode) {
        p.maxPrec = static_cast<int32_t>(code - kRateCodes) + 1;
    } else if (code == kLongCode) {
        p.minBits = number(15) + 1;
        p.maxBits = number(15) + 1;
        p.maxPrec = number(7) + 1;
        p.minExp = number(15) + kLowestLongExp;
    } else if (code != kLosslessCode) {
        p.minExp = static_cast<int32_t>(code - kLosslessCode) - 1 + kLowestExp;
    }
    if (code == kLosslessCode || p.minExp < kLowestExp)
        throw FormatError(offset, "coded without loss, which is not read here");
    if (p.minBits > p.maxBits)
        throw FormatError(offset, "the header has blocks of at least " + std::to_string(p.minBits) +
                                      " and at most " + std::to_string(p.maxBits) + " bits");
    if (p.maxBits < kHeaderBits)
        throw FormatError(offset, "blocks of " + std::to_string(p.maxBits) +
                                      " bits, which have no room for a header, are not read here");
    return p;
}

}  // namespace

bool startsField(Bytes bytes) {
    return bytes.size() >= 4 && std::equal(kMagic.begin(), kMagic.end(), bytes.begin()) &&
           bytes[3] < ' ';
}

Header readHeader(Source& source) {
    const Bytes start = source.peek(4);
    if (start.size() < 4) source.throwTruncated();
    if (!startsField(start))
        throw FormatError(0, "not a zfp file with a header (as zfp -h writes it)");
    if (start[3] != kCodecVersion)
        throw FormatError(3, "version " + std::to_string(start[3]) + " of the zfp codec, not 5");
    HeaderBits in(source);
    in.take(32);
    constexpr std::array<const char*, 4> types = {"32-bit integers", "64-bit integers", "floats",
                                                  "doubles"};
    const uint32_t type = in.take(2);
    const uint32_t dims = in.take(2) + 1;
    if (type != kFloats)
        throw FormatError(4, std::string("a field of ") + types[type] +
                                 "; only fields of 32-bit floats are read here");
    if (dims != kDimensions)
        throw FormatError(4, "a field of " + std::to_string(dims) +
                                 " dimensions, coded in blocks of other sizes; only fields of 3 "
                                 "dimensions are read here");
    Header header;
    header.dims.x = in.take(16) + 1;
    header.dims.y = in.take(16) + 1;
    header.dims.z = in.take(16) + 1;
    header.parameters = readParameters(in);
    header.bits = in.position();
    return header;
}

void putHeader(BitSink& out, const Dims& dims, const Parameters& p) {
    const auto put = [&](int64_t value, unsigned count) {
        out.put(static_cast<uint64_t>(value), count);
    };
    for (const uint8_t letter : kMagic) put(letter, 8);
    put(kCodecVersion, 8);
    put(kFloats, 2);
    put(kDimensions - 1, 2);
    for (const uint32_t side : {dims.x, dims.y, dims.z}) put(side - 1, 16);
    const uint32_t code = shortCode(p);
    put(code, 12);
    if (code != kLongCode) return;
    put(p.minBits - 1, 15);
    put(p.maxBits - 1, 15);
    put(p.maxPrec - 1, 7);
    put(p.minExp - kLowestLongExp, 15);
}

}  // namespace vekdc::zfp
