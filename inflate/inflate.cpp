// The inflate decoder (RFC 1951, 3.2): the exported call.
//
// A call works on local copies of the stream's position and writes them back at one exit. How the
// steps go is told in resumable.h; here is what surrounds them: where a call starts, and what
// its end means.
#include <algorithm>
#include <cstdint>

#include "frame/args.h"
#include "inflate/match.h"
#include "inflate/table_layout.h"

using namespace vek::inflate;

extern "C" {

VekStatus veksInflate_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pCode,
                         uint32_t* pCodeLenBits, uint32_t winIdx, uint8_t** ppDst,
                         uint32_t* pDstLen, uint32_t dstIdx, int32_t* pMode,
                         VekInflateState* state) {
    if (vek::anyNull(ppSrc, pSrcLen, pCode, pCodeLenBits, ppDst, pDstLen, pMode, state) ||
        vek::anyNull(*ppSrc, *ppDst)) {
        return vekStatusNullPointer;
    }
    if (*pCodeLenBits > 32 || state->windowSize < winIdx) return vekStatusBadSize;

    const uint8_t* const src = *ppSrc;
    uint8_t* const dst = *ppDst;
    const bool resumed = *pMode == static_cast<int32_t>(Stop::inside);
    Run run{};
    run.src = src;
    run.srcEnd = src + std::min<uintptr_t>(*pSrcLen, ~reinterpret_cast<uintptr_t>(src));
    run.dst = dst;
    // A caller who knows that the data fits may state any room.
    run.dstEnd = dst + std::min<uintptr_t>(*pDstLen, ~reinterpret_cast<uintptr_t>(dst));
    run.dstStart = dst - dstIdx;
    run.window = state->window;
    run.windowSize = state->window != nullptr ? state->windowSize : 0;
    run.winIdx = winIdx;
    run.nBits = *pCodeLenBits;
    run.bits = run.nBits < 32 ? *pCode & ((1U << run.nBits) - 1) : *pCode;
    run.step = stepSymbol;
    if (resumed) {
        run.step = state->savedStep;
        run.value = state->savedValue;
        run.extraBits = state->savedExtraBits & maxExtraBits;
        run.distance = state->savedDistance;
    }

    Stop stop = Stop::corrupt;
    if (state->tableKind == singleLevelTables) {
        stop = ownsInflateShort_8u(run, *state);
    } else if (state->tableKind == twoLevelTables) {
        stop = ownsInflateLong_8u(run, state->tables);
    } else if (state->tableKind == fixedTables) {
        stop = ownsInflateLong_8u(run, fixedCodeTables.data());
    }
    // A caller inside a symbol asks to go on there, and is answered in the same way even if the
    // symbol is complete by now.
    if (stop == Stop::needInput && resumed) stop = Stop::inside;

    if (stop == Stop::inside) {
        state->savedStep = run.step;
        state->savedValue = run.value;
        state->savedExtraBits = run.extraBits;
        state->savedDistance = run.distance;
    }
    *ppSrc = run.src;
    *pSrcLen -= static_cast<uint32_t>(run.src - src);
    *pCode = run.bits;
    *pCodeLenBits = run.nBits;
    *ppDst = run.dst;
    *pDstLen -= static_cast<uint32_t>(run.dst - dst);
    if (stop == Stop::corrupt) return vekStatusSourceDataError;
    *pMode = static_cast<int32_t>(stop);
    return vekStatusOk;
}
}
