// Bzip2's first stage, encoder: runs of 4 to 259 equal bytes become the byte four times and a
// count.
//
// The stage exists to keep long runs away from the block sort. An open run stays in the state
// between calls, so that input and output may be cut anywhere. Every value written is marked in
// use, counts included, for the symbol map of a later stage.

#include <algorithm>
#include <cstddef>

#include "bytes/run_length.h"
#include "bzip2/run_scan.h"
#include "frame/args.h"
#include "vekdc.h"

namespace {

constexpr int32_t runStart = 4;  // equal bytes that are written before a count
constexpr int32_t runEnd = 259;  // a count of 255

static_assert(sizeof(VekBz2RleState) == 264);
static_assert(offsetof(VekBz2RleState, symbol) == 256 && offsetof(VekBz2RleState, runCount) == 260);

/// Number of equal bytes at the end of the 14 bytes in front of `p`, of which no four are equal.
int32_t openRun(const uint8_t* p) {
    int32_t count = 1;
    while (count < runStart - 1 && p[-1 - count] == p[-1]) ++count;
    return count;
}

/// Copies bytes until four equal ones have been written, or input or room ends.
void copyLiterals(const uint8_t* src, int32_t srcLen, int32_t& in, uint8_t* dst, int32_t room,
                  int32_t& out, VekBz2RleState& state) {
    const int32_t end = in + std::min(room - out, srcLen - in);
    const int32_t start = in;
    while (in < end && state.runCount < runStart) {
        if (in - start >= 3 && end - in >= vek::bzip2::runScanStep &&
            vek::bzip2::clearOfRuns(src + in)) {
            for (int i = 0; i < vek::bzip2::runScanStep; ++i) {
                dst[out + i] = src[in + i];
                state.inUse[src[in + i]] = 1;
            }
            in += vek::bzip2::runScanStep;
            out += vek::bzip2::runScanStep;
            state.symbol = src[in - 1];
            state.runCount = openRun(src + in);
            continue;
        }
        const uint8_t byte = src[in++];
        dst[out++] = byte;
        state.inUse[byte] = 1;
        state.runCount = byte == state.symbol ? state.runCount + 1 : 1;
        state.symbol = byte;
    }
}

/// Writes the open run's count byte and closes the run.
void writeCount(uint8_t* dst, VekBz2RleState& state) {
    const auto count = static_cast<uint8_t>(state.runCount - runStart);
    *dst = count;
    state.inUse[count] = 1;
    state.runCount = 0;
}

}  // namespace

VekStatus veksRLEGetSize_BZ2_8u(int32_t* pSize) {
    if (vek::anyNull(pSize)) return vekStatusNullPointer;
    *pSize = sizeof(VekBz2RleState);
    return vekStatusOk;
}

VekStatus veksEncodeRLEInit_BZ2_8u(VekBz2RleState* pState) {
    if (vek::anyNull(pState)) return vekStatusNullPointer;
    *pState = VekBz2RleState{};
    pState->symbol = -1;
    return vekStatusOk;
}

VekStatus veksEncodeRLE_BZ2_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t* pDst,
                               int32_t* pDstLen, VekBz2RleState* pState) {
    if (vek::anyNull(ppSrc, pSrcLen, pDst, pDstLen, pState) || *ppSrc == nullptr) {
        return vekStatusNullPointer;
    }
    if (*pSrcLen < 1 || *pDstLen < 1) return vekStatusBadSize;
    const uint8_t* src = *ppSrc;
    const int32_t srcLen = *pSrcLen;
    const int32_t room = *pDstLen;
    int32_t in = 0;
    int32_t out = 0;
    for (;;) {
        copyLiterals(src, srcLen, in, pDst, room, out, *pState);
        if (out == room) break;
        // Taken from what is left, not added to the position, which may be near 2^31.
        const int32_t limit = std::min(runEnd - pState->runCount, srcLen - in);
        if (limit > 0) {
            const auto more = static_cast<int32_t>(vek::runLength(
                src + in, static_cast<uint8_t>(pState->symbol), static_cast<size_t>(limit)));
            in += more;
            pState->runCount += more;
        }
        if (in == srcLen) break;
        writeCount(pDst + out++, *pState);
    }
    *ppSrc = src + in;
    *pSrcLen = srcLen - in;
    *pDstLen = out;
    return in != srcLen ? vekStatusDestinationFull : vekStatusOk;
}

VekStatus veksEncodeRLEFlush_BZ2_8u(uint8_t* pDst, int32_t* pDstLen, VekBz2RleState* pState) {
    if (vek::anyNull(pDst, pDstLen, pState)) return vekStatusNullPointer;
    if (*pDstLen < 1) return vekStatusBadSize;
    *pDstLen = 0;
    if (pState->runCount >= runStart) {
        writeCount(pDst, *pState);
        *pDstLen = 1;
    }
    return vekStatusOk;
}

VekStatus veksRLEGetInUseTable_8u(uint8_t* pInUse, const VekBz2RleState* pState) {
    if (vek::anyNull(pInUse, pState)) return vekStatusNullPointer;
    std::memmove(pInUse, pState->inUse, sizeof(pState->inUse));
    return vekStatusOk;
}
