// Coding of a block's pairs.

#include "bits/lsb_writer.h"
#include "deflate/coder_batch.h"
#include "deflate/pair_codes.h"
#include "frame/args.h"
#include "vekdc.h"

using namespace vek::deflate;

static_assert(maxDistanceBits <= vek::LsbWriter::freeBesideWord);

namespace {

constexpr uint32_t batchFrom = 2048;  // pairs that repay the batch coder's tables

/// Whether every literal/length symbol has a code, as the batch coder needs it.
bool everySymbolHasCode(const VekHuffEntry* litTable) {
    bool all = true;
    for (size_t s = 0; s < litLenSymbols; ++s) all &= (litTable[s].length & maxCodeLength) != 0;
    return all;
}

}  // namespace

VekStatus veksDeflateHuff_8u(const uint8_t* pLitSrc, const uint16_t* pDistSrc, uint32_t srcLen,
                             uint32_t* pCode, uint32_t* pCodeLenBits,
                             const VekHuffEntry* pLitHuffTable, const VekHuffEntry* pDistHuffTable,
                             uint8_t* pDst, uint32_t* pDstIdx) {
    if (vek::anyNull(pLitSrc, pDistSrc, pCode, pCodeLenBits, pLitHuffTable, pDistHuffTable, pDst,
                     pDstIdx)) {
        return vekStatusNullPointer;
    }
    if (*pCodeLenBits > 32) return vekStatusBadSize;
    vek::LsbWriter sink(*pCode, *pCodeLenBits, pDst + *pDstIdx);
    uint32_t i = 0;
    if (srcLen >= batchFrom && everySymbolHasCode(pLitHuffTable)) {
        i = ownsDeflateHuff_8u(pLitSrc, pDistSrc, srcLen, pLitHuffTable, pDistHuffTable, sink);
    }
    sink.flushWords();
    for (; i < srcLen; ++i) {
        if (pDistSrc[i] == 0) {
            sink.put(literalBits(pLitHuffTable, pLitSrc[i]));
        } else {
            sink.put(lengthBits(pLitHuffTable, pLitSrc[i]));
            sink.flushWords();
            sink.put(distanceBits(pDistHuffTable, pDistSrc[i] - 1U));
        }
        sink.flushWords();
    }
    sink.flushExact();
    *pCode = sink.buffer();
    *pCodeLenBits = sink.count();
    *pDstIdx = static_cast<uint32_t>(sink.position() - pDst);
    return vekStatusOk;
}
