// The inflate decoder (RFC 1951, 3.2): the exported call.
//
// A call works on local copies of the stream's position and writes them back at one exit. How the
// steps go is told in resumable.h; here is what surrounds them: where a call starts, and what
// its end means.
#include <algorithm>
#include <cstdint>

#include "frame/args.h"
#include "frame/features.h"
#include "inflate/match.h"
#include "inflate/table_layout.h"

using namespace vek::inflate;

namespace {

/// For either layout of the tables.
struct Decoders {
    Stop (*singleLevel)(Run& run, const VekInflateState& state);
    Stop (*twoLevel)(Run& run, const uint8_t* tables);
};

/// Those of the widest level there is.
const Decoders& decodersOf(uint32_t features) {
    static constexpr Decoders plain = {ownsInflateShort_8u, ownsInflateLong_8u};
    static constexpr Decoders avx2 = {ownsInflateShort_avx2, ownsInflateLong_avx2};
    return vek::hasAll(features, VEK_FEATURE_AVX2 | VEK_FEATURE_BMI2) ? avx2 : plain;
}

/// Whether the room has bytes in common with the window.
bool inWindow(const Run& run) {
    const auto room = reinterpret_cast<uintptr_t>(run.dst);
    const auto roomEnd = reinterpret_cast<uintptr_t>(run.dstEnd);
    const auto window = reinterpret_cast<uintptr_t>(run.window);
    return window < roomEnd && (room <= window || room - window < run.windowSize) &&
           run.windowSize != 0;
}

}  // namespace

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
    run.overEnd = inWindow(run) ? dst : run.dstEnd;
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
    const Decoders& decoders = decodersOf(vek::features());
    if (state->tableKind == singleLevelTables) {
        stop = decoders.singleLevel(run, *state);
    } else if (state->tableKind == twoLevelTables) {
        stop = decoders.twoLevel(run, state->tables);
    } else if (state->tableKind == fixedTables) {
        stop = decoders.twoLevel(run, fixedCodeTables.data());
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
