// ZFP: the state record that the encoder and the decoder share.
//
// The coder works on blocks of 4 x 4 x 4 floats (P. Lindstrom, "Fixed-Rate Compressed
// Floating-Point Arrays", 2014): a common exponent, 32-bit integers, a separable decorrelating
// transform, and the coefficients' bit planes coded from the top until a budget of bits or a
// smallest plane is reached.
//
// A stream is a sequence of little-endian 64-bit words, filled from the least significant bit. Bit
// n of the stream is therefore bit n % 8 of byte n / 8: the kernels read and write in units of
// their own, and bring the record back to whole words at the end of each block.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "frame/variant.h"

#define ownsZfpInit VEK_INTERNAL(ownsZfpInit)
#define ownsZfpSet VEK_INTERNAL(ownsZfpSet)
#define ownsZfpSetAccuracy VEK_INTERNAL(ownsZfpSetAccuracy)
#define ownsZfpMaxMagnitude_32f VEK_INTERNAL(ownsZfpMaxMagnitude_32f)
#define ownsZfpForward_32f VEK_INTERNAL(ownsZfpForward_32f)

/// The caller's memory for one stream; it may stand at any address that is a multiple of 4.
struct __attribute__((packed, aligned(4))) VekZfpState {
    uint32_t marker;         ///< stateMarker once initialised.
    int32_t minBits;         ///< Least bits of a block.
    int32_t maxBits;         ///< Most bits of a block.
    int32_t maxPrec;         ///< Most bit planes of a block.
    int32_t minExp;          ///< Planes below 2^minExp are not coded.
    int32_t pending;         ///< Bits held: 0..63, or 64 where a full word found no room.
    uint64_t buffer;         ///< The bits held; those above them are zero.
    uint8_t* current;        ///< Where the next word is stored or taken.
    uint8_t* start;          ///< The caller's buffer.
    uint8_t* end;            ///< One behind it.
    uint8_t* limit;          ///< A block of maxBits bits that starts here or below fits.
    uint8_t workspace[512];  ///< One block: bit planes in one half, the bytes of its values in the
                             ///< other.
};

static_assert(sizeof(VekZfpState) == 32 + 4 * sizeof(void*) + 512);
static_assert(sizeof(void*) != 4 || sizeof(VekZfpState) == 560);
static_assert(offsetof(VekZfpState, buffer) == 24 && offsetof(VekZfpState, current) == 32);

extern "C" {

/// Prepares a record for a buffer whose length counts modulo the address space.
void ownsZfpInit(uint8_t* buffer, int64_t length, VekZfpState* state);
void ownsZfpSet(int32_t minBits, int32_t maxBits, int32_t maxPrec, int32_t minExp,
                VekZfpState* state);
void ownsZfpSetAccuracy(double tolerance, VekZfpState* state);

/// The largest magnitude among a block's floats, as the float's bits.
uint32_t ownsZfpMaxMagnitude_32f(const float* src, ptrdiff_t step, ptrdiff_t planeStep);

/// Transforms a block scaled by `scale` and leaves its negabinary coefficients as four byte planes
/// of 64 bytes each, the lowest bytes first, in block order.
void ownsZfpForward_32f(const float* src, ptrdiff_t step, ptrdiff_t planeStep, float scale,
                        uint8_t* bytePlanes);
}

namespace vek::inline VEK_LEVEL::zfp {

constexpr uint32_t stateMarker = 0x4B617398U;

/// The parameters of a new record, which limit nothing: as many bits and planes as a block of 64
/// doubles takes (a flag, 11 bits of exponent, 64 planes of 64 values, 63 group tests), and an
/// exponent ten times as low as that of the smallest double.
constexpr int32_t initialMinBits = 0;
constexpr int32_t initialMaxPrec = 64;
constexpr int32_t initialMaxBits = 1 + 11 + 64 * 64 + 63;
constexpr int32_t everyPlane = 10 * -1074;
static_assert(initialMaxBits == 4171 && everyPlane == -10740);

/// What the exponent fields of doubles and floats are above their exponents.
constexpr int32_t doubleBias = 1023;
constexpr int32_t floatBias = 127;
/// A float's largest exponent field but for infinities and NaNs.
constexpr int32_t largestFloatExponent = 254;
/// Where the fraction's bits of a float end.
constexpr unsigned floatExponentAt = 23;

/// Values below 2^emax are coded as integers below 2^fixedPointBits.
constexpr unsigned fixedPointBits = 30;

constexpr unsigned blockValues = 64;
constexpr unsigned blockPlanes = 32;

/// Bits of a non-zero block's header: the flag and the exponent.
constexpr unsigned headerBits = 9;

/// The largest block: its header, every bit of every plane, a positive group test for each
/// coefficient and a negative one for each plane.
constexpr unsigned maxBlockBits =
    headerBits + blockValues * blockPlanes + blockValues + blockPlanes;

/// Room in which a block coder needs not look for the end: the bits pending from the block before,
/// the block, and two words that a wide access may reach beyond.
constexpr size_t blockRoom = (63 + maxBlockBits + 63) / 64 * 8 + 16;

/// Bytes between the position and the end; none when the end wrapped to below it.
inline size_t roomOf(const VekZfpState& state) {
    return state.end > state.current ? static_cast<size_t>(state.end - state.current) : 0;
}

/// Bits that a block may take behind its header.
inline uint32_t budgetOf(int32_t maxBits) {
    constexpr auto header = static_cast<int32_t>(headerBits);
    return maxBits > header ? static_cast<uint32_t>(maxBits - header) : 0;
}

/// Bit planes of a block whose values are below 2^emax, 0..32.
inline unsigned precisionOf(const VekZfpState& state, int32_t emax) {
    const int64_t planes = std::min<int64_t>(state.maxPrec, int64_t{emax} - state.minExp + 8);
    return static_cast<unsigned>(std::clamp<int64_t>(planes, 0, blockPlanes));
}

}  // namespace vek::inline VEK_LEVEL::zfp
