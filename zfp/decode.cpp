// ZFP decoder: the embedded decoding of one block, and the inverse transform.
//
// The bits that the record holds always are the last ones taken from the caller's buffer, so a
// block is read straight from memory at its bit position, and the record is brought up to date
// once, at the end. Near the end of the stream the rest is copied to the stack with zeros behind
// it: a block of any bits is decoded without looking for the end, and refused afterwards when it
// took more than there was. A block has a largest size, so this terminates whatever the bits.
//
// The bit planes are collected as 64-bit words and turned back into bytes eight at a time; a block
// with few planes leaves the lower bytes alone.

#include <emmintrin.h>

#include <algorithm>
#include <cstring>

#include "bits/lsb_reader.h"
#include "bytes/words.h"
#include "frame/args.h"
#include "vekdc.h"
#include "zfp/bit_matrix.h"
#include "zfp/lifting.h"
#include "zfp/state.h"

namespace {

using namespace vek::zfp;
using vek::LsbCursor;

constexpr ByteShuffles blockOrder = byteShuffles(permTableDecode);

/// Takes a run of zeros and the 1 behind it, at most `most` bits; a run that long has no 1. Returns
/// the number of zeros.
unsigned takeRun(LsbCursor& in, unsigned most) {
    unsigned run = 0;
    while (run < most) {
        const uint32_t bits = in.peek();
        const unsigned zeros = bits != 0 ? vek::lowestSetBit(bits) : LsbCursor::peekBits;
        const unsigned step = std::min(zeros, most - run);
        run += step;
        in.skip(step);
        if (zeros < LsbCursor::peekBits && run < most) {
            in.skip(1);
            break;
        }
    }
    return run;
}

/// Decodes one plane when `known` coefficients are significant, within `budget` bits, which it
/// decreases; `known` becomes how many are after it. A run that the budget cuts short, like one
/// that reaches the last coefficient, makes the coefficient it stopped at significant.
uint64_t takePlane(LsbCursor& in, unsigned& known, uint32_t& budget) {
    const auto verbatim = static_cast<unsigned>(std::min<uint32_t>(known, budget));
    uint64_t plane = in.take(std::min(verbatim, 32U));
    if (verbatim > 32) plane |= static_cast<uint64_t>(in.take(verbatim - 32)) << 32;
    const unsigned end = in.position() + budget - verbatim;
    while (known < blockValues && in.position() != end) {
        const uint32_t bits = in.peek();
        in.skip(1);
        if ((bits & 1) == 0) break;
        const unsigned most = std::min(blockValues - 1 - known, end - in.position());
        // Most runs end among the bits that came with their group test.
        const uint32_t run = bits >> 1;
        const unsigned zeros = run != 0 ? vek::lowestSetBit(run) : 32;
        if (zeros < most && zeros < 31) {
            in.skip(zeros + 1);
            known += zeros;
        } else {
            known += takeRun(in, most);
        }
        plane |= uint64_t{1} << known++;
    }
    budget = end - in.position();
    return plane;
}

/// Decodes the upper `precision` planes into the coefficients' byte planes, the lowest bytes first,
/// in block order.
void takePlanes(LsbCursor& in, unsigned precision, uint32_t budget, uint8_t* bytePlanes) {
    unsigned known = 0;
    std::memset(bytePlanes, 0, 256);
    for (unsigned done = 0; done < precision && budget != 0; done += 8) {
        uint64_t planes[8] = {};
        const unsigned count = std::min(8U, precision - done);
        for (unsigned i = 0; i < count && budget != 0; ++i)
            planes[7 - i] = takePlane(in, known, budget);
        Bytes64 bits = loadBytes64(reinterpret_cast<const uint8_t*>(planes));
        transposeBytes(bits);
        transposeBits(bits);
        storeBytes64(bytePlanes + 64 * (3 - done / 8), permuteBytes<blockOrder>(bits));
    }
}

/// Inverse lifting on one line of four, in each of four lanes.
inline void liftInverse(__m128i& x, __m128i& y, __m128i& z, __m128i& w) {
    y = _mm_add_epi32(y, _mm_srai_epi32(w, 1));
    w = _mm_sub_epi32(w, _mm_srai_epi32(y, 1));
    y = _mm_add_epi32(y, w);
    w = _mm_sub_epi32(_mm_slli_epi32(w, 1), y);
    z = _mm_add_epi32(z, x);
    x = _mm_sub_epi32(_mm_slli_epi32(x, 1), z);
    y = _mm_add_epi32(y, z);
    z = _mm_sub_epi32(_mm_slli_epi32(z, 1), y);
    w = _mm_add_epi32(w, x);
    x = _mm_sub_epi32(_mm_slli_epi32(x, 1), w);
}

/// Four registers of words from 16 bytes of each significance, negabinary undone.
inline void joinBytes(const uint8_t* bytePlanes, __m128i* words) {
    __m128i b[4];
    for (int k = 0; k < 4; ++k)
        b[k] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytePlanes + 64 * k));
    const __m128i low[2] = {_mm_unpacklo_epi8(b[0], b[1]), _mm_unpackhi_epi8(b[0], b[1])};
    const __m128i high[2] = {_mm_unpacklo_epi8(b[2], b[3]), _mm_unpackhi_epi8(b[2], b[3])};
    const __m128i mask = _mm_set1_epi32(static_cast<int>(0xAAAAAAAAU));
    for (int i = 0; i < 4; ++i) {
        const __m128i u = (i & 1) == 0 ? _mm_unpacklo_epi16(low[i / 2], high[i / 2])
                                       : _mm_unpackhi_epi16(low[i / 2], high[i / 2]);
        words[i] = _mm_sub_epi32(_mm_xor_si128(u, mask), mask);
    }
}

void inverse(const uint8_t* bytePlanes, float scale, float* dst, ptrdiff_t step,
             ptrdiff_t planeStep) {
    __m128i v[16];
    const __m128 factor = _mm_set1_ps(scale);
    for (int z = 0; z < 4; ++z) joinBytes(bytePlanes + 16 * z, v + 4 * z);
    for (int y = 0; y < 4; ++y) liftInverse(v[y], v[4 + y], v[8 + y], v[12 + y]);
    for (int z = 0; z < 4; ++z) {
        __m128i* plane = v + 4 * z;
        liftInverse(plane[0], plane[1], plane[2], plane[3]);
        transposeWords(plane);
        liftInverse(plane[0], plane[1], plane[2], plane[3]);
        transposeWords(plane);
        for (int y = 0; y < 4; ++y) {
            _mm_storeu_ps(rowAt<float>(dst, step, planeStep, y, z),
                          _mm_mul_ps(factor, _mm_cvtepi32_ps(plane[y])));
        }
    }
}

/// Takes `count` bits off the record: first those held, then whole words while 8 bytes are left,
/// then single bytes. False, with the position at the end, when there are fewer.
bool consume(VekZfpState& state, uint32_t count) {
    const auto pending = static_cast<uint32_t>(state.pending);
    if (count < pending) {
        state.pending = static_cast<int32_t>(pending - count);
        state.buffer >>= count;
        return true;
    }
    const uint32_t needed = count - pending;
    const size_t room = roomOf(state);
    const size_t words = std::min<size_t>(needed / 64 + (needed % 64 != 0 ? 1 : 0), room / 8);
    const uint64_t beyond = needed - std::min<uint64_t>(needed, uint64_t{words} * 64);
    const auto bytes = static_cast<size_t>((beyond + 7) / 8);
    state.buffer = 0;
    state.pending = 0;
    if (bytes > room - words * 8) {
        state.current += room;
        return false;
    }
    state.current += words * 8 + bytes;
    const auto left = static_cast<unsigned>(uint64_t{words} * 64 + bytes * 8 - needed);
    if (left == 0) return true;
    const size_t unit = bytes != 0 ? 1 : 8;
    uint64_t last = 0;
    std::memcpy(&last, state.current - unit, unit);
    state.buffer = last >> (unit * 8 - left);
    state.pending = static_cast<int32_t>(left);
    return true;
}

void storeZeros(float* dst, ptrdiff_t step, ptrdiff_t planeStep) {
    for (int z = 0; z < 4; ++z) {
        for (int y = 0; y < 4; ++y)
            _mm_storeu_ps(rowAt<float>(dst, step, planeStep, y, z), _mm_setzero_ps());
    }
}

/// Decodes the block that begins at the reader's position, and takes it off the record.
VekStatus decodeBlock(VekZfpState& state, LsbCursor in, float* dst, ptrdiff_t step,
                      ptrdiff_t planeStep) {
    const unsigned begin = in.position();
    const auto minBits = static_cast<uint32_t>(std::max(state.minBits, 1));
    if (in.take(1) == 0) {
        if (!consume(state, 1)) return vekStatusNoRoom;
        storeZeros(dst, step, planeStep);
        return consume(state, minBits - 1) ? vekStatusOk : vekStatusNoRoom;
    }
    const uint32_t exponent = in.take(8);
    const unsigned precision = precisionOf(state, static_cast<int32_t>(exponent) - floatBias);
    const uint32_t budget = std::min(budgetOf(state.maxBits), maxBlockBits);
    takePlanes(in, precision, budget, state.workspace);
    if (!consume(state, std::max(in.position() - begin, minBits))) return vekStatusNoRoom;
    const uint32_t scaleBits = (exponent > fixedPointBits ? exponent - fixedPointBits : 0)
                               << floatExponentAt;
    float scale;
    std::memcpy(&scale, &scaleBits, sizeof(scale));
    inverse(state.workspace, scale, dst, step, planeStep);
    return vekStatusOk;
}

}  // namespace

VekStatus veksDecodeZfpGetStateSize_32f(int32_t* pSize) {
    if (vek::anyNull(pSize)) return vekStatusNullPointer;
    *pSize = sizeof(VekZfpState);
    return vekStatusOk;
}

VekStatus veksDecodeZfpInit_32f(const uint8_t* pSrc, int32_t srcLen, VekZfpState* pState) {
    if (vek::anyNull(pSrc, pState)) return vekStatusNullPointer;
    if (srcLen < 1) return vekStatusBadSize;
    ownsZfpInit(const_cast<uint8_t*>(pSrc), srcLen, pState);
    return vekStatusOk;
}

VekStatus veksDecodeZfpInitLong_32f(const uint8_t* pSrc, int64_t srcLen, VekZfpState* pState) {
    if (vek::anyNull(pSrc, pState)) return vekStatusNullPointer;
    if (srcLen == 0) return vekStatusBadSize;
    ownsZfpInit(const_cast<uint8_t*>(pSrc), srcLen, pState);
    return vekStatusOk;
}

VekStatus veksDecodeZfpSet_32f(int32_t minBits, int32_t maxBits, int32_t maxPrec, int32_t minExp,
                               VekZfpState* pState) {
    if (vek::anyNull(pState)) return vekStatusNullPointer;
    if (pState->marker != stateMarker) return vekStatusStateMismatch;
    ownsZfpSet(minBits, maxBits, maxPrec, minExp, pState);
    return vekStatusOk;
}

VekStatus veksDecodeZfpSetAccuracy_32f(double tolerance, VekZfpState* pState) {
    if (vek::anyNull(pState)) return vekStatusNullPointer;
    if (pState->marker != stateMarker) return vekStatusStateMismatch;
    ownsZfpSetAccuracy(tolerance, pState);
    return vekStatusOk;
}

VekStatus veksDecodeZfpGetDecompressedSize_32f(const VekZfpState* pState, int32_t* pSize) {
    if (vek::anyNull(pState, pSize)) return vekStatusNullPointer;
    if (pState->marker != stateMarker) return vekStatusStateMismatch;
    *pSize = static_cast<int32_t>(pState->current - pState->start);
    return vekStatusOk;
}

VekStatus veksDecodeZfpGetDecompressedSizeLong_32f(const VekZfpState* pState, int64_t* pSize) {
    if (vek::anyNull(pState, pSize)) return vekStatusNullPointer;
    if (pState->marker != stateMarker) return vekStatusStateMismatch;
    *pSize = pState->current - pState->start;
    return vekStatusOk;
}

VekStatus veksDecodeZfp444_32f(VekZfpState* pState, float* pDst, int32_t dstStep,
                               int32_t dstPlaneStep) {
    if (vek::anyNull(pState, pDst)) return vekStatusNullPointer;
    if (pState->marker != stateMarker) return vekStatusStateMismatch;
    const auto pending = static_cast<unsigned>(pState->pending);
    const size_t heldBytes = (pending + 7) / 8;
    const unsigned position = static_cast<unsigned>(heldBytes * 8) - pending;
    const size_t room = roomOf(*pState);
    const uint8_t* const base = pState->current - heldBytes;
    if (room >= blockRoom)
        return decodeBlock(*pState, LsbCursor(base, position), pDst, dstStep, dstPlaneStep);
    uint8_t rest[8 + 2 * blockRoom] = {};
    std::memcpy(rest, base, heldBytes + room);
    return decodeBlock(*pState, LsbCursor(rest, position), pDst, dstStep, dstPlaneStep);
}
