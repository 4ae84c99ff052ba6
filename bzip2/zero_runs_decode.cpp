// Zero-run coding, decoder: bijective base-2 numbers become runs of zeros.
//
// Callers give the whole block's room at once: a run that does not fit is counted as consumed, so
// the stage cannot be resumed behind it.

#include <cstddef>

#include "bytes/fill.h"
#include "frame/args.h"
#include "vekdc.h"

namespace {

constexpr int32_t firstLiteral = 2;  // symbols below it are the digits RUNA and RUNB

/// Reads the digits at `src` and advances `in` behind them. Runs beyond every room are cut at 2^32.
int64_t readRun(const uint16_t* src, int32_t srcLen, int32_t& in) {
    int64_t run = 0;
    for (int digit = 0; in < srcLen && src[in] < firstLiteral; ++in, ++digit) {
        if (digit < 32) run += (static_cast<int64_t>(src[in]) + 1) << digit;
    }
    return run;
}

}  // namespace

VekStatus veksDecodeZ1Z2_BZ2_16u8u(const uint16_t** ppSrc, int32_t* pSrcLen, uint8_t* pDst,
                                   int32_t* pDstLen) {
    if (vek::anyNull(ppSrc, pSrcLen, pDst, pDstLen) || *ppSrc == nullptr) {
        return vekStatusNullPointer;
    }
    if (*pSrcLen < 1 || *pDstLen < 1) return vekStatusBadSize;
    const uint16_t* src = *ppSrc;
    const int32_t srcLen = *pSrcLen;
    const int32_t room = *pDstLen;
    int32_t in = 0;
    int32_t out = 0;
    VekStatus status = vekStatusOk;
    while (in < srcLen) {
        if (src[in] < firstLiteral) {
            const int64_t run = readRun(src, srcLen, in);
            const int64_t left = static_cast<int64_t>(room) - out;
            const bool literalFollows = in < srcLen;
            if (run <= left) {
                ownsSet_8u(0, pDst + out, static_cast<size_t>(run));
                out += static_cast<int32_t>(run);
            }
            if (run > left || (literalFollows && run == left)) {
                status = vekStatusDestinationFull;
                break;
            }
            if (!literalFollows) break;
        } else if (out == room) {
            status = vekStatusDestinationFull;
            break;
        }
        pDst[out++] = static_cast<uint8_t>(src[in++] - 1);
    }
    *ppSrc = src + in;
    *pSrcLen = srcLen - in;
    *pDstLen = out;
    return in != srcLen ? vekStatusDestinationFull : status;
}
