// Bzip2's first stage, decoder: four equal bytes and a count become a run.
//
// Output may be cut anywhere: what is left of a run waits in the state. Input comes whole, as the
// block that the inverse sort gives; the last three bytes of a call's input can begin no run and
// are copied as they are. Consecutive runs of one byte are joined before they are written.

#include <algorithm>
#include <cstddef>

#include "bytes/copy.h"
#include "bytes/fill.h"
#include "bzip2/run_scan.h"
#include "frame/args.h"
#include "vekdc.h"

namespace {

constexpr int32_t noSymbol = -1;
constexpr int32_t longestRun = 259;
constexpr int32_t tail = 3;  // too short for the rest of a run and its count

/// One call's work, on local copies of everything that the caller holds.
struct RunDecoder {
    const uint8_t* src;
    int32_t srcLen;
    uint8_t* dst;
    int32_t room;
    int32_t symbol;
    int32_t pending;
    int32_t in = 0;
    int32_t out = 0;

    /// Writes as much of the pending run as there is room for; false when some of it is left.
    bool writePending() {
        const int32_t n = std::min(pending, room - out);
        ownsSet_8u(static_cast<uint8_t>(symbol), dst + out, static_cast<size_t>(n));
        out += n;
        pending -= n;
        if (pending != 0) return false;
        symbol = noSymbol;
        return true;
    }

    /// True when the three bytes at the input position go on with the current symbol.
    bool atRun() const {
        return src[in] == symbol && src[in + 1] == symbol && src[in + 2] == symbol;
    }

    /// Takes the rest of a run whose first byte was written as a literal, and the runs of the same
    /// symbol behind it. Joining stops before the count could overflow; what follows is a run of
    /// its own.
    void takeRun() {
        pending = src[in + 3] + 3;
        in += 4;
        while (in < srcLen - 4 && atRun() && src[in + 3] == symbol &&
               pending < INT32_MAX - longestRun) {
            pending += src[in + 4] + 4;
            in += 5;
        }
    }

    /// Copies literals up to a run, the room's end or the input's tail; true when it stands at a
    /// run.
    bool copyLiterals() {
        const int32_t start = in;
        const int32_t end = in + std::max(0, std::min(srcLen - in - tail, room - out));
        while (in < end) {
            // A byte at which a run is seen is its second: the step looks one byte back and two
            // ahead.
            if (in != start && end - in >= 16 && vek::bzip2::clearOfRuns(src + in + 2)) {
                vek::copy16(dst + out, src + in);
                in += vek::bzip2::runScanStep;
                out += vek::bzip2::runScanStep;
                symbol = src[in - 1];
                continue;
            }
            if (atRun()) return true;
            symbol = src[in++];
            dst[out++] = static_cast<uint8_t>(symbol);
        }
        return false;
    }

    VekStatus run() {
        if (pending >= 1 && !writePending()) return vekStatusDestinationFull;
        while (srcLen - in > tail) {
            if (out == room) return vekStatusOk;
            bool run = copyLiterals();
            if (!run && out == room) {
                if (srcLen - in > tail && atRun()) takeRun();
                return vekStatusDestinationFull;
            }
            if (!run) break;
            takeRun();
            if (!writePending()) return vekStatusDestinationFull;
        }
        copyTail();
        return vekStatusOk;
    }

    void copyTail() {
        const int32_t n = std::min(srcLen - in, room - out);
        std::memcpy(dst + out, src + in, static_cast<size_t>(n));
        in += n;
        out += n;
    }
};

}  // namespace

VekStatus veksDecodeRLEStateInit_BZ2_8u(VekBz2RleState* pState) {
    if (vek::anyNull(pState)) return vekStatusNullPointer;
    pState->symbol = noSymbol;
    pState->runCount = 0;
    return vekStatusOk;
}

VekStatus veksDecodeRLEState_BZ2_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
                                    int32_t* pDstLen, VekBz2RleState* pState) {
    if (vek::anyNull(ppSrc, pSrcLen, ppDst, pDstLen, pState) || vek::anyNull(*ppSrc, *ppDst)) {
        return vekStatusNullPointer;
    }
    if (*pSrcLen < 1 || *pDstLen < 1) return vekStatusBadSize;
    RunDecoder decoder{*ppSrc, *pSrcLen, *ppDst, *pDstLen, pState->symbol, pState->runCount};
    const VekStatus status = decoder.run();
    pState->symbol = decoder.symbol;
    pState->runCount = decoder.pending;
    *ppSrc += decoder.in;
    *pSrcLen -= decoder.in;
    *ppDst += decoder.out;
    *pDstLen -= decoder.out;
    return status;
}

VekStatus veksDecodeRLEStateFlush_BZ2_8u(VekBz2RleState* pState, uint8_t** ppDst,
                                         int32_t* pDstLen) {
    if (vek::anyNull(pState, ppDst, pDstLen) || *ppDst == nullptr) return vekStatusNullPointer;
    RunDecoder decoder{
        nullptr, 0, *ppDst, std::max(*pDstLen, 0), pState->symbol, std::max(pState->runCount, 0)};
    const bool done = decoder.writePending();
    pState->symbol = decoder.symbol;
    pState->runCount = decoder.pending;
    *ppDst += decoder.out;
    *pDstLen -= decoder.out;
    return done ? vekStatusOk : vekStatusDestinationFull;
}
