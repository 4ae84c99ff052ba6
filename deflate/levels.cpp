// Deflate's match finding by level, and the entry of history into its tables.
#include <cstddef>
#include <cstdint>

#include "deflate/level_table.h"
#include "deflate/matcher.h"
#include "frame/args.h"
#include "include/vekdc.h"

namespace {

using namespace vek::deflate;

/// Bytes that the rolling hash covers.
constexpr int32_t rollingHashBytes = 3;

/// Enters the positions from `first` on under the matchers' hash; the last three lack the bytes.
void enterChained(const uint8_t* src, uint32_t first, uint32_t length,
                  const PositionChains& chains) {
    for (uint32_t i = 0; i + hashBytes <= length; ++i) chains.insert(hash4(src + i), first + i);
}

/// Enters the positions from `first` on in the head table under a rolling hash of their three
/// bytes.
void enterRolling(const uint8_t* src, uint32_t first, uint32_t length, int32_t* head,
                  uint32_t hashMask) {
    uint32_t hash = (static_cast<uint32_t>(src[0]) << 5) ^ src[1];
    for (uint32_t i = 2; i < length; ++i) {
        hash = ((hash << 5) ^ src[i]) & hashMask;
        head[hash] = static_cast<int32_t>(first + i - 2);
    }
}

VekStatus enterHistory(const uint8_t* src, int32_t first, int32_t length, int32_t* head,
                       uint32_t hashSize, int32_t* prev, uint32_t winSize, int32_t hashMode) {
    if (!validSizes(winSize, hashSize)) return vekStatusBadSize;
    const auto position = static_cast<uint32_t>(first);
    if (hashMode != 0) {
        if (length >= static_cast<int32_t>(hashBytes))
            enterChained(src, position, static_cast<uint32_t>(length),
                         PositionChains{head, prev, hashSize - 1, ringSize(winSize) - 1});
    } else if (length >= rollingHashBytes) {
        enterRolling(src, position, static_cast<uint32_t>(length), head, hashSize - 1);
    }
    return vekStatusOk;
}

}  // namespace

VekStatus veksDeflateUpdateHash_8u(const uint8_t* pSrc, int32_t srcIdx, int32_t srcLen,
                                   int32_t* pHashHead, uint32_t hashSize, int32_t* pHashPrev,
                                   uint32_t winSize, int32_t hashMode) {
    if (vek::anyNull(pSrc, pHashHead, pHashPrev)) return vekStatusNullPointer;
    return enterHistory(pSrc, srcIdx, srcLen, pHashHead, hashSize, pHashPrev, winSize, hashMode);
}

VekStatus veksDeflateDictionarySet_8u(const uint8_t* pDict, int32_t dictLen, int32_t* pHashHead,
                                      uint32_t hashSize, int32_t* pHashPrev, const void* pDictAux,
                                      uint32_t winSize, int32_t hashMode) {
    if (vek::anyNull(pDict, pHashHead, pHashPrev, pDictAux)) return vekStatusNullPointer;
    return enterHistory(pDict, 0, dictLen, pHashHead, hashSize, pHashPrev, winSize, hashMode);
}

VekStatus veksDeflateLZ77_8u(const uint8_t** ppSrc, int32_t* pSrcLen, int32_t* pSrcIdx,
                             uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
                             int32_t* pHashPrev, uint32_t hashSize, VekHuffEntry* pLitFreqTable,
                             VekHuffEntry* pDistFreqTable, uint8_t* pLitDst, uint16_t* pDistDst,
                             uint32_t* pDstLen, uint32_t comprLevel, uint32_t flush) {
    if (comprLevel >= levelCount) return vekStatusBadSize;
    const auto matcher =
        comprLevel % 10 < firstLazyLevel ? veksDeflateLZ77Fast_8u : veksDeflateLZ77Slow_8u;
    return matcher(ppSrc, pSrcLen, pSrcIdx, pWindow, winSize, pHashHead, pHashPrev, hashSize,
                   pLitFreqTable, pDistFreqTable, pLitDst, pDistDst, pDstLen,
                   _loc_vec_match[comprLevel], flush);
}
