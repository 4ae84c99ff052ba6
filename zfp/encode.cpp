// ZFP encoder: parameters, the bit stream, and the embedded coding of one block.
//
// The vector kernels leave a block as planes of bytes; this unit turns each, when its turn comes,
// into eight bit planes and codes them. The bits of coefficients that are already significant go
// out in one step. Group tests and the unary runs between them depend only on the bits themselves,
// so a table codes eight coefficients at a time.
//
// A block is coded without looking for the end or the budget more than once a plane: the stream is
// cut back to its budget afterwards, since a smaller budget only ever makes it a prefix. Where the
// destination has no room for the largest block, the block is coded into memory on the stack and
// the words that fit are copied.

#include <algorithm>
#include <cstring>

#include "bits/lsb_writer.h"
#include "bytes/words.h"
#include "frame/args.h"
#include "vekdc.h"
#include "zfp/bit_matrix.h"
#include "zfp/state.h"

namespace {

using namespace vek::zfp;
using vek::load;
using vek::LsbWriter;
using vek::store;

constexpr ByteShuffles codedOrder = byteShuffles(permTable);

/// The low bits 0..count-1; count is 0..31 or more, above which all are set.
constexpr uint32_t lowMask(unsigned count) {
    return count < 32 ? (1U << count) - 1 : ~0U;
}

// Every code is at most 32 bits, and is flushed at once: a put needs no branch.
static_assert(32 <= LsbWriter::freeBits);

/// Appends `count` bits, at most 32; those above must be zero.
void put(LsbWriter& out, uint32_t bits, unsigned count) {
    out.put({bits, count});
    out.flushWide();
}

unsigned bitLength(uint64_t v) {
    const auto high = static_cast<uint32_t>(v >> 32);
    const auto low = static_cast<uint32_t>(v);
    if (high != 0) return 33 + vek::highestSetBit(high);
    return low != 0 ? 1 + vek::highestSetBit(low) : 0;
}

/// Codes one plane when `known` coefficients are significant; returns how many are after it.
unsigned putPlane(LsbWriter& out, uint64_t plane, unsigned known) {
    const auto low = static_cast<uint32_t>(plane);
    const auto high = static_cast<uint32_t>(plane >> 32);
    put(out, low & lowMask(known), std::min(known, 32U));
    if (known > 32) {
        put(out, high & lowMask(known - 32), known - 32);
        if (known == blockValues) return known;
    }
    uint64_t rest = known < 32 ? plane >> (known & 31) : uint64_t{high} >> (known & 31);
    unsigned left = bitLength(rest);
    if (left == 0) {
        put(out, 0, 1);
        return known;
    }
    known += left;
    unsigned tested = 1;
    for (; left > 8; left -= 8) {
        const uint32_t entry = runCodeTable.entry[tested][rest & 0xFF];
        put(out, entry & 0xFFFF, entry >> 16);
        tested = static_cast<unsigned>(rest >> 7 & 1);
        rest >>= 8;
    }
    // The last run ends with its 1. Behind it stands a negative group test; at the last coefficient
    // there is none, and its 1 goes without saying.
    const uint32_t entry = runCodeTable.entry[tested][rest & 0xFF];
    const unsigned zeros = 8 - left;
    const unsigned length = (entry >> 16) - zeros - (left < 8 ? 1 : 0);
    const unsigned written = known < blockValues ? length + 1 : length - 1;
    put(out, entry & lowMask(std::min(written, length)) & 0xFFFF, written);
    return known;
}

/// Codes the upper `precision` planes; may write a plane more than `budget` bits.
void putPlanes(LsbWriter& out, const uint8_t* bytePlanes, unsigned precision, uint32_t budget) {
    alignas(16) uint64_t planes[8];
    const uint8_t* const start = out.position();
    const uint32_t end = out.count() + budget;
    unsigned known = 0;
    for (unsigned done = 0; done < precision && out.bitsSince(start) < end; ++done) {
        if (done % 8 == 0) {
            const Bytes64 bytes = loadBytes64(bytePlanes + 64 * (3 - done / 8));
            Bytes64 bits = permuteBytes<codedOrder>(bytes);
            transposeBits(bits);
            transposeBytes(bits);
            storeBytes64(reinterpret_cast<uint8_t*>(planes), bits);
        }
        known = putPlane(out, planes[7 - done % 8], known);
    }
}

/// Takes over the first `bits` bits at `words`, which the record's pending bits begin. Words that
/// stand elsewhere than at the record's position are copied there while they fit.
VekStatus commit(VekZfpState& state, const uint8_t* words, uint32_t bits) {
    const size_t full = bits / 64;
    size_t stored = full;
    if (words != state.current) {
        stored = std::min(full, roomOf(state) / 8);
        if (stored != 0) std::memcpy(state.current, words, stored * 8);
    }
    state.current += stored * 8;
    if (stored < full) {
        state.buffer = load<uint64_t>(words + stored * 8);
        state.pending = 64;
        return vekStatusNoRoom;
    }
    const unsigned pending = bits % 64;
    state.buffer = load<uint64_t>(words + full * 8) & ((uint64_t{1} << pending) - 1);
    state.pending = static_cast<int32_t>(pending);
    return vekStatusOk;
}

/// Appends `count` zero bits.
VekStatus putZeros(VekZfpState& state, uint32_t count) {
    const uint64_t bits = static_cast<uint64_t>(state.pending) + count;
    state.pending = static_cast<int32_t>(bits % 64);
    if (bits < 64) return vekStatusOk;
    const uint64_t full = bits / 64;
    const auto stored = static_cast<size_t>(std::min<uint64_t>(full, roomOf(state) / 8));
    if (stored != 0) {
        store<uint64_t>(state.current, state.buffer);
        std::memset(state.current + 8, 0, stored * 8 - 8);
        state.current += stored * 8;
        state.buffer = 0;
    }
    if (stored == full) return vekStatusOk;
    state.pending = 64;
    return vekStatusNoRoom;
}

VekStatus putZeroBlock(VekZfpState& state) {
    return putZeros(state, static_cast<uint32_t>(std::max(state.minBits, 1)));
}

VekStatus encodeBlock(VekZfpState& state, int32_t emax, unsigned precision) {
    uint8_t aside[blockRoom];
    const bool roomy = roomOf(state) >= blockRoom;
    uint8_t* const base = roomy ? state.current : aside;
    const auto pending = static_cast<uint32_t>(state.pending);
    LsbWriter out(static_cast<uint32_t>(state.buffer), std::min(pending, 32U), base);
    out.flushWide();
    if (pending > 32) put(out, static_cast<uint32_t>(state.buffer >> 32), pending - 32);
    put(out, 2 * static_cast<uint32_t>(emax + floatBias) + 1, headerBits);
    const uint32_t budget = budgetOf(state.maxBits);
    putPlanes(out, state.workspace, precision, budget);
    const uint32_t most = pending + headerBits + std::min(budget, maxBlockBits);
    const uint32_t position = std::min(out.bitsSince(base), most);
    const VekStatus status = commit(state, base, position);
    const auto used = static_cast<int32_t>(position - pending);
    if (status != vekStatusOk || used >= state.minBits) return status;
    return putZeros(state, static_cast<uint32_t>(state.minBits - used));
}

}  // namespace

void ownsZfpInit(uint8_t* buffer, int64_t length, VekZfpState* state) {
    state->marker = stateMarker;
    state->pending = 0;
    state->buffer = 0;
    state->current = buffer;
    state->start = buffer;
    state->end = reinterpret_cast<uint8_t*>(reinterpret_cast<uintptr_t>(buffer) +
                                            static_cast<uintptr_t>(length));
    ownsZfpSet(initialMinBits, initialMaxBits, initialMaxPrec, everyPlane, state);
}

void ownsZfpSet(int32_t minBits, int32_t maxBits, int32_t maxPrec, int32_t minExp,
                VekZfpState* state) {
    state->minBits = minBits;
    state->maxBits = maxBits;
    state->maxPrec = maxPrec;
    state->minExp = minExp;
    const int64_t largest = (((int64_t{maxBits} + 7) >> 3) + 7) & ~int64_t{7};
    state->limit = reinterpret_cast<uint8_t*>(reinterpret_cast<uintptr_t>(state->end) -
                                              static_cast<uintptr_t>(largest));
}

void ownsZfpSetAccuracy(double tolerance, VekZfpState* state) {
    uint64_t bits;
    std::memcpy(&bits, &tolerance, sizeof(bits));
    const auto biased = static_cast<int32_t>(bits >> 52 & 0x7FF);
    state->minExp = tolerance > 0 ? biased - doubleBias : everyPlane;
}

VekStatus veksEncodeZfpGetStateSize_32f(int32_t* pSize) {
    if (vek::anyNull(pSize)) return vekStatusNullPointer;
    *pSize = sizeof(VekZfpState);
    return vekStatusOk;
}

VekStatus veksEncodeZfpInit_32f(uint8_t* pDst, int32_t dstLen, VekZfpState* pState) {
    if (vek::anyNull(pDst, pState)) return vekStatusNullPointer;
    if (dstLen < 1) return vekStatusBadSize;
    ownsZfpInit(pDst, dstLen, pState);
    return vekStatusOk;
}

VekStatus veksEncodeZfpInitLong_32f(uint8_t* pDst, int64_t dstLen, VekZfpState* pState) {
    if (vek::anyNull(pDst, pState)) return vekStatusNullPointer;
    if (dstLen == 0) return vekStatusBadSize;
    ownsZfpInit(pDst, dstLen, pState);
    return vekStatusOk;
}

VekStatus veksEncodeZfpSet_32f(int32_t minBits, int32_t maxBits, int32_t maxPrec, int32_t minExp,
                               VekZfpState* pState) {
    if (vek::anyNull(pState)) return vekStatusNullPointer;
    if (pState->marker != stateMarker) return vekStatusStateMismatch;
    ownsZfpSet(minBits, maxBits, maxPrec, minExp, pState);
    return vekStatusOk;
}

VekStatus veksEncodeZfpSetAccuracy_32f(double tolerance, VekZfpState* pState) {
    if (vek::anyNull(pState)) return vekStatusNullPointer;
    if (pState->marker != stateMarker) return vekStatusStateMismatch;
    ownsZfpSetAccuracy(tolerance, pState);
    return vekStatusOk;
}

VekStatus veksEncodeZfpGetCompressedSize_32f(const VekZfpState* pState, int32_t* pSize) {
    if (vek::anyNull(pState, pSize)) return vekStatusNullPointer;
    if (pState->marker != stateMarker) return vekStatusStateMismatch;
    *pSize = static_cast<int32_t>(pState->current - pState->start);
    return vekStatusOk;
}

VekStatus veksEncodeZfpGetCompressedSizeLong_32f(const VekZfpState* pState, int64_t* pSize) {
    if (vek::anyNull(pState, pSize)) return vekStatusNullPointer;
    if (pState->marker != stateMarker) return vekStatusStateMismatch;
    *pSize = pState->current - pState->start;
    return vekStatusOk;
}

VekStatus veksEncodeZfpGetCompressedBitSize_32f(const VekZfpState* pState, int64_t* pSize) {
    if (vek::anyNull(pState, pSize)) return vekStatusNullPointer;
    if (pState->marker != stateMarker) return vekStatusStateMismatch;
    *pSize = pState->pending + 8 * static_cast<int64_t>(pState->current - pState->start);
    return vekStatusOk;
}

VekStatus veksEncodeZfpFlush_32f(VekZfpState* pState) {
    if (vek::anyNull(pState)) return vekStatusNullPointer;
    if (pState->marker != stateMarker) return vekStatusStateMismatch;
    if (pState->pending <= 0) return vekStatusOk;
    const size_t room = roomOf(*pState);
    const size_t needed = (static_cast<size_t>(pState->pending) + 7) / 8;
    const size_t stored = room >= 8 ? 8 : std::min(needed, room);
    const uint64_t held = pState->buffer;
    if (stored != 0) std::memcpy(pState->current, &held, stored);
    pState->current += stored;
    if (stored < needed) return vekStatusNoRoom;
    pState->pending = 0;
    pState->buffer = 0;
    return vekStatusOk;
}

VekStatus veksEncodeZfp444_32f(const float* pSrc, int32_t srcStep, int32_t srcPlaneStep,
                               VekZfpState* pState) {
    if (vek::anyNull(pSrc, pState)) return vekStatusNullPointer;
    if (pState->marker != stateMarker) return vekStatusStateMismatch;
    if (pState->pending >= 64) return vekStatusNoRoom;
    const uint32_t largest = ownsZfpMaxMagnitude_32f(pSrc, srcStep, srcPlaneStep);
    if (largest == 0) return putZeroBlock(*pState);
    // Infinities and NaNs count as the largest finite exponent: the header has no room for more.
    const auto exponent =
        std::min(static_cast<int32_t>(largest >> floatExponentAt), largestFloatExponent);
    const int32_t emax = exponent - floatBias + 1;
    const unsigned precision = precisionOf(*pState, emax);
    if (precision == 0) return putZeroBlock(*pState);
    const auto scaleExponent =
        std::min(floatBias + static_cast<int32_t>(fixedPointBits) - emax, largestFloatExponent);
    const auto scaleBits = static_cast<uint32_t>(scaleExponent) << floatExponentAt;
    float scale;
    std::memcpy(&scale, &scaleBits, sizeof(scale));
    ownsZfpForward_32f(pSrc, srcStep, srcPlaneStep, scale, pState->workspace);
    return encodeBlock(*pState, emax, precision);
}
