// Zero-run coding, encoder: runs of the move-to-front value 0 become bijective base-2 numbers.
//
// After move-to-front coding most of a block is zeros. A run of r zeros is written in the digits
// RUNA (worth 1) and RUNB (worth 2), least significant first, so that runs cost a logarithm of
// their length; every other value b becomes the symbol b + 1. The stage keeps no state: a run
// pending at the end of the input is written in the same call.

#include <cstddef>

#include "bytes/run_length.h"
#include "frame/args.h"
#include "vekdc.h"

namespace {

/// The longest run that `slots` digits can express.
constexpr int64_t longestRun(int32_t slots) {
    return slots >= 31 ? INT32_MAX : (INT64_C(1) << (slots + 1)) - 2;
}

static_assert(longestRun(0) == 0 && longestRun(3) == 14 && longestRun(19) == 1048574);

struct SymbolWriter {
    uint16_t* dst;
    int32_t out;
    uint32_t* frequencies;

    void put(uint32_t symbol) {
        dst[out++] = static_cast<uint16_t>(symbol);
        ++frequencies[symbol];
    }

    void putRun(int32_t zeros) {
        while (zeros > 0) {
            put(static_cast<uint32_t>(zeros - 1) & 1);
            zeros = (zeros - 1) >> 1;
        }
    }
};

}  // namespace

VekStatus veksEncodeZ1Z2_BZ2_8u16u(const uint8_t** ppSrc, int32_t* pSrcLen, uint16_t* pDst,
                                   int32_t* pDstLen, uint32_t* pFreq) {
    if (vek::anyNull(ppSrc, pSrcLen, pDst, pDstLen, pFreq) || *ppSrc == nullptr) {
        return vekStatusNullPointer;
    }
    if (*pSrcLen < 1 || *pDstLen < 1) return vekStatusBadSize;
    const uint8_t* src = *ppSrc;
    const int32_t srcLen = *pSrcLen;
    const int32_t room = *pDstLen;
    SymbolWriter writer{pDst, 0, pFreq};
    int32_t in = 0;
    while (in < srcLen && writer.out < room) {
        if (src[in] != 0) {
            writer.put(src[in++] + 1U);
            continue;
        }
        const auto zeros =
            static_cast<int32_t>(vek::runLength(src + in, 0, static_cast<size_t>(srcLen - in)));
        // A literal that follows the run needs a slot of its own; of a single one, which the run
        // needs itself, it leaves none and waits for the next call.
        const bool literalFollows = in + zeros < srcLen;
        const bool together = literalFollows && room > 1;
        const int64_t limit = longestRun(room - writer.out - (together ? 1 : 0));
        if (zeros > limit) {
            writer.putRun(static_cast<int32_t>(limit));
            in += static_cast<int32_t>(limit);
            break;
        }
        writer.putRun(zeros);
        in += zeros;
        if (together) writer.put(src[in++] + 1U);
    }
    *ppSrc = src + in;
    *pSrcLen = srcLen - in;
    *pDstLen = writer.out;
    return in != srcLen ? vekStatusDestinationFull : vekStatusOk;
}
