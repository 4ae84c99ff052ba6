// Zero-run coding, encoder: runs of the move-to-front value 0 become bijective base-2 numbers.
//
// After move-to-front coding most of a block is zeros. A run of r zeros is written in the digits
// RUNA (worth 1) and RUNB (worth 2), least significant first, so that runs cost a logarithm of
// their length; every other value b becomes the symbol b + 1. The stage keeps no state: a run
// pending at the end of the input is written in the same call.

#include <array>
#include <cstddef>
#include <cstdint>

#include "bytes/run_length.h"
#include "frame/args.h"
#include "vekdc.h"

namespace {

/// The longest run that so many digits can express. More digits than it has entries express any.
constexpr std::array<int32_t, 31> boundTab = [] {
    std::array<int32_t, 31> table{};
    for (size_t digits = 1; digits < table.size(); ++digits)
        table[digits] = 2 * table[digits - 1] + 2;
    return table;
}();
static_assert(boundTab[0] == 0 && boundTab[3] == 14 && boundTab[19] == 1048574 &&
              boundTab[30] == INT32_MAX - 1);

constexpr int32_t longestRun(int32_t slots) {
    const auto digits = static_cast<size_t>(slots);
    return digits < boundTab.size() ? boundTab[digits] : INT32_MAX;
}

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
        const int32_t limit = longestRun(room - writer.out - (together ? 1 : 0));
        if (zeros > limit) {
            writer.putRun(limit);
            in += limit;
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
