// Move-to-front coding and symbol maps.
//
// Forward coding replaces each byte by its position in the list of values in order of last use,
// then moves it to the front; block-sorted data becomes mostly zeros. Both directions run on the
// list of move_to_front_list.h. The forward state is kept as a rank table (position of each value),
// which is the list's inverse permutation: it is turned into a list at a call's start and back at
// its end, 512 steps a call beside the block's hundreds of thousands.
//
// The symbol map makes the alphabet dense before that: each value becomes its rank among the values
// in use, so that unused values cost no list positions.

#include <cstdint>

#include "bzip2/move_to_front_list.h"
#include "frame/args.h"
#include "vekdc.h"

namespace {

static_assert(sizeof(VekMtfState) == 256);

/// Turns a permutation of 0..255 into its inverse.
void invertPermutation(const uint8_t* from, uint8_t* to) {
    for (unsigned i = 0; i < 256; ++i) to[from[i]] = static_cast<uint8_t>(i);
}

}  // namespace

VekStatus veksMTFGetSize_8u(int32_t* pSize) {
    if (vek::anyNull(pSize)) return vekStatusNullPointer;
    *pSize = sizeof(VekMtfState);
    return vekStatusOk;
}

VekStatus veksMTFInit_8u(VekMtfState* pState) {
    if (vek::anyNull(pState)) return vekStatusNullPointer;
    for (unsigned i = 0; i < 256; ++i) pState->table[i] = static_cast<uint8_t>(i);
    return vekStatusOk;
}

VekStatus veksMTFFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, VekMtfState* pState) {
    if (vek::anyNull(pSrc, pDst, pState)) return vekStatusNullPointer;
    if (len < 1) return vekStatusBadSize;
    uint8_t values[256] = {};
    invertPermutation(pState->table, values);
    vek::bzip2::MtfList list(values);
    for (int32_t i = 0; i < len; ++i) {
        // A run of one value is the common case, and needs no search.
        pDst[i] =
            pSrc[i] == list.first() ? uint8_t{0} : static_cast<uint8_t>(list.takeValue(pSrc[i]));
    }
    list.save(values);
    invertPermutation(values, pState->table);
    return vekStatusOk;
}

VekStatus veksMTFInv_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, VekMtfState* pState) {
    if (vek::anyNull(pSrc, pDst, pState)) return vekStatusNullPointer;
    if (len < 1) return vekStatusBadSize;
    vek::bzip2::MtfList list(pState->table);
    for (int32_t i = 0; i < len; ++i) pDst[i] = list.takePosition(pSrc[i]);
    list.save(pState->table);
    return vekStatusOk;
}

VekStatus veksReduceDictionary_8u_I(const uint8_t* pInUse, uint8_t* pSrcDst, int32_t len,
                                    int32_t* pSize) {
    if (vek::anyNull(pInUse, pSrcDst, pSize)) return vekStatusNullPointer;
    if (len < 1) return vekStatusBadSize;
    uint8_t rank[256];
    uint32_t used = 0;
    for (unsigned value = 0; value < 256; ++value) {
        rank[value] = static_cast<uint8_t>(used);
        used += pInUse[value];
    }
    *pSize = static_cast<int32_t>(used);
    for (int32_t i = 0; i < len; ++i) pSrcDst[i] = rank[pSrcDst[i]];
    return vekStatusOk;
}

VekStatus veksExpandDictionary_8u_I(const uint8_t* pInUse, uint8_t* pSrcDst, int32_t len,
                                    int32_t size) {
    if (vek::anyNull(pInUse, pSrcDst)) return vekStatusNullPointer;
    if (len < 1 || size < 1) return vekStatusBadSize;
    uint8_t values[256] = {};
    uint32_t used = 0;
    for (unsigned value = 0; value < 256; ++value) {
        values[used & 0xFF] = static_cast<uint8_t>(value);
        used += pInUse[value];
    }
    if (used != static_cast<uint32_t>(size)) return vekStatusError;
    for (int32_t i = 0; i < len; ++i) pSrcDst[i] = values[pSrcDst[i]];
    return vekStatusOk;
}
