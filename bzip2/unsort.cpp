// The inverse block sort on its own: last column and primary index give the block back.

#include "bzip2/unsort.h"
#include "frame/args.h"
#include "vekdc.h"

namespace {

constexpr int32_t countersSize = 256 * sizeof(uint32_t);

/// Blocks whose links do not fit 24 bits: links and bytes apart, two cache misses a byte.
void invertLong(const uint8_t* src, uint8_t* dst, uint32_t length, uint32_t index, uint32_t* counts,
                vek::bzip2::BwtEntries links) {
    vek::bzip2::startsOfCounts(counts);
    for (uint32_t i = 0; i < length; ++i) links.set(counts[src[i]]++, i);
    for (uint32_t i = 0; i < length; ++i) {
        index = links.get(index);
        dst[i] = src[index];
    }
}

}  // namespace

VekStatus veksBWTInvGetSize_8u(int32_t len, int32_t* pSize) {
    if (vek::anyNull(pSize)) return vekStatusNullPointer;
    if (len < 1 || len > (INT32_MAX - countersSize) / 4) return vekStatusBadSize;
    *pSize = 4 * len + countersSize;
    return vekStatusOk;
}

VekStatus veksBWTInv_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, int32_t index,
                        uint8_t* pBuffer) {
    if (vek::anyNull(pSrc, pDst, pBuffer)) return vekStatusNullPointer;
    if (len < 1 || index < 0 || index >= len) return vekStatusBadSize;
    const auto length = static_cast<uint32_t>(len);
    uint32_t counts[256] = {};
    vek::bzip2::BwtEntries entries(pBuffer + countersSize);
    if (len > vek::bzip2::inverseBwtLimit) {
        for (uint32_t i = 0; i < length; ++i) ++counts[pSrc[i]];
        invertLong(pSrc, pDst, length, static_cast<uint32_t>(index), counts, entries);
        return vekStatusOk;
    }
    for (uint32_t i = 0; i < length; ++i) {
        ++counts[pSrc[i]];
        entries.set(i, pSrc[i]);
    }
    vek::bzip2::invertBwt(entries, length, counts, static_cast<uint32_t>(index), pDst);
    return vekStatusOk;
}
