// The LZSS decoder.
//
// While source and room last, a token comes straight from a 32-bit load at its first byte, shifted
// by the bit offset (a token of 24 and an offset of 7 are 31): no bit buffer is carried, so the
// tokens' only dependence is the bit position. Near the ends bytes are pulled one at a time, as
// many as the token needs. Malformed input is not recognised; it decodes to something inside the
// caller's buffers.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "bits/msb_reader.h"
#include "bytes/copy.h"
#include "bytes/words.h"
#include "frame/args.h"
#include "include/vekdc.h"
#include "lzss/state.h"

namespace {

using namespace vek::lzss;
using vek::load;

/// Where the bytes of a match come from: this call's output, before it the window.
struct History {
    const uint8_t* windowEnd;
    const uint8_t* outStart;

    /// Copies a match to `out`; a distance of 0 leaves the bytes as they are.
    void copy(uint8_t* out, size_t distance, size_t length) const {
        const auto written = static_cast<size_t>(out - outStart);
        if (distance > written) {
            const size_t before = distance - written;
            const size_t piece = std::min(before, length);
            std::memcpy(out, windowEnd - before, piece);
            out += piece;
            length -= piece;
        }
        if (distance != 0 && length != 0) vek::copyOverlap(out, distance, length);
    }
};

/// A decoder call's position; taken from the record, and written back at its end.
struct TokenReader : vek::MsbReader {
    uint8_t* out;
    uint8_t* const outEnd;
    History history;
    uint32_t pendingDistance;
    uint32_t pendingLength;

    static_assert(matchBits <= mostNeeded);

    // Room: a match of 258 with 15 bytes of wide copy behind. Source: a load of 4 bytes.
    static constexpr size_t roomMargin = 280;
    static constexpr size_t sourceMargin = 8;
    static_assert(roomMargin >= maxMatch + 15 && sourceMargin >= 4);

    size_t room() const { return static_cast<size_t>(outEnd - out); }
    bool full() const { return out == outEnd; }

    void match(uint32_t distance, uint32_t length) {
        const auto now = static_cast<uint32_t>(std::min<size_t>(length, room()));
        history.copy(out, distance, now);
        out += now;
        pendingLength = length - now;
        pendingDistance = pendingLength != 0 ? distance : 0;
    }

    /// One token; false when the source ends inside it.
    bool careful() {
        if (!need(1)) return false;
        if (peek(1) != 0) {
            if (!need(literalBits)) return false;
            *out++ = static_cast<uint8_t>(take(literalBits));
            return true;
        }
        if (!need(matchBits)) return false;
        const uint32_t token = take(matchBits);
        match(token >> 8, (token & 0xFF) + minMatch);
        return true;
    }

    /// Whole tokens while both margins last. Fewer than 8 bits are held before and after; they are
    /// the low bits of the byte before `src`, which must be one of this call's. The position is a
    /// byte and a bit in it: the number of a bit would overflow 32 bits in a source of 512 MiB.
    void fast();
};

inline void copyMatchWide(uint8_t* out, size_t distance, size_t length) {
    if (distance < 16) {
        vek::copyOverlap(out, distance, length);
        return;
    }
    uint8_t* const end = out + length;
    const uint8_t* from = out - distance;
    do {
        vek::copy16(out, from);
        out += 16;
        from += 16;
    } while (out < end);
}

void TokenReader::fast() {
    if (static_cast<size_t>(srcEnd - src) < sourceMargin || room() < roomMargin) return;
    const uint8_t* const lastSrc = srcEnd - sourceMargin;
    uint8_t* const lastOut = outEnd - roomMargin;
    const uint8_t* in = count == 0 ? src : src - 1;
    uint32_t bit = static_cast<uint32_t>(8 - count) & 7;
    uint8_t* to = out;
    while (in <= lastSrc && to <= lastOut) {
        const uint32_t word = vek::byteSwap(load<uint32_t>(in)) << bit;
        if ((word >> 31) != 0) {
            *to++ = static_cast<uint8_t>(word >> 23);
            bit += literalBits;
            in += bit >> 3;
            bit &= 7;
            continue;
        }
        const uint32_t distance = word >> 16;
        const uint32_t length = ((word >> 8) & 0xFF) + minMatch;
        if (distance - 1 < static_cast<uint32_t>(to - history.outStart)) {
            copyMatchWide(to, distance, length);
        } else {
            history.copy(to, distance, length);
        }
        to += length;
        in += 3;
    }
    out = to;
    src = bit == 0 ? in : in + 1;
    count = static_cast<int>((8 - bit) & 7);
    bits = bit == 0 ? 0 : uint32_t{*in} << (24 + bit);
}

}  // namespace

VekStatus veksDecodeLZSSInit_8u(void* pState) {
    if (vek::anyNull(pState)) return vekStatusNullPointer;
    LzssDecoder* const state = &static_cast<LzssState*>(pState)->decoder;
    std::fill_n(state->reserved, 3, 0U);
    state->window = state->windowBytes;
    state->bitCount = 0;
    state->bits = 0;
    state->pendingDistance = 0;
    state->pendingLength = 0;
    return vekStatusOk;
}

VekStatus veksDecodeLZSS_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
                            int32_t* pDstLen, void* pState) {
    if (vek::anyNull(ppSrc, pSrcLen, ppDst, pDstLen, pState) || *ppDst == nullptr ||
        (*ppSrc == nullptr && *pSrcLen > 0))
        return vekStatusNullPointer;
    if (*pDstLen < 1) return vekStatusBadSize;
    LzssDecoder* const state = &static_cast<LzssState*>(pState)->decoder;
    const uint8_t* const source = *ppSrc;
    uint8_t* const outStart = *ppDst;
    TokenReader reader{{state->bits, state->bitCount, source, source + std::max(*pSrcLen, 0)},
                       outStart,
                       outStart + *pDstLen,
                       {state->window + historySize, outStart},
                       state->pendingDistance,
                       state->pendingLength};
    if (reader.pendingLength != 0) reader.match(reader.pendingDistance, reader.pendingLength);
    bool going = !reader.full();
    while (going) {
        if (reader.count < 8 && (reader.count == 0 || reader.src != source)) reader.fast();
        going = reader.careful() && !reader.full();
    }

    const auto written = static_cast<uint32_t>(reader.out - outStart);
    if (written >= historySize) {
        std::memcpy(state->window, reader.out - historySize, historySize);
    } else {
        std::memmove(state->window, state->window + written, historySize - written);
        std::memcpy(state->window + (historySize - written), outStart, written);
    }
    state->bitCount = reader.count;
    state->bits = reader.bits;
    state->pendingDistance = reader.pendingDistance;
    state->pendingLength = reader.pendingLength;
    *pSrcLen -= static_cast<int32_t>(reader.src - source);
    *ppSrc = reader.src;
    *ppDst = reader.out;
    *pDstLen = static_cast<int32_t>(reader.room());
    return reader.full() ? vekStatusDestinationFull : vekStatusOk;
}
