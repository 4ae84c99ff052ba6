// The forward block sort: last column and primary index of a block's sorted rotations.
//
// Two ways lead there. The bucket sort compares stars (sort_induced.h) byte by byte under a budget;
// it is what method 0 asks for, and gives up on repetitive blocks. The general kernel never does,
// and since it is the faster one on ordinary blocks too, every other method takes it at once: all
// methods give the same column and index. Blocks below 100 bytes, not worth any table, are sorted
// whole.

#include <algorithm>

#include "bzip2/sort.h"
#include "bzip2/sort_induced.h"
#include "frame/args.h"
#include "vekdc.h"

namespace {

constexpr int32_t budgetedMethod = 0;
constexpr int32_t unbudgetedMethod = 1;
constexpr int32_t kernelMethod = 2;
constexpr int32_t automaticMethod = 3;

constexpr uint32_t smallBlock = 100;  // shorter blocks are small
constexpr int32_t smallBudget = 110;  // bytes found equal, for each byte of a small block
constexpr uint32_t longBlock = 99900;
constexpr uint64_t longBudget = 25;    // for each byte of such a block and longer ones
constexpr uint64_t shortBudget = 100;  // and of shorter ones

constexpr int64_t bucketSize(int64_t len) {
    return 6 * len + 524484;
}
static_assert(bucketSize(1000) == vek::bzip2::twoStageSize(1000));

constexpr int64_t kernelSize(int64_t len) {
    return 18 * len + 80;
}

/// The larger of the two as 32-bit values: a kernel size that does not fit one drops out, and the
/// sort then works in what the buckets take. Where even that is too large, it tells of no room.
constexpr int32_t automaticSize(int64_t len) {
    return std::max(static_cast<int32_t>(bucketSize(len)), static_cast<int32_t>(kernelSize(len)));
}

VekStatus storeSize(int64_t size, int32_t* pSize) {
    if (size > INT32_MAX) return vekStatusBadSize;
    *pSize = static_cast<int32_t>(size);
    return vekStatusOk;
}

/// First of the equal rows among which `row` stands.
int32_t firstEqual(const uint8_t* block, uint32_t length, uint32_t row) {
    return static_cast<int32_t>(row - row % vek::bzip2::repeats(block, length));
}

void sortSmall(const uint8_t* block, uint32_t length, uint8_t* column, int32_t* index) {
    uint8_t twice[vek::bzip2::textFront + 2 * smallBlock + vek::bzip2::textTail];
    uint8_t* const text = twice + vek::bzip2::textFront;
    uint32_t rows[smallBlock];
    vek::bzip2::copyTwice(block, length, text);
    const auto sort = [&](int32_t budget) {
        for (uint32_t i = 0; i < length; ++i) rows[i] = i;
        return owns_BWT_IT_sort(text, length, rows, length, 0, budget);
    };
    if (sort(smallBudget * static_cast<int32_t>(length)) < 0) sort(vek::bzip2::noBudget);
    uint32_t first = 0;
    for (uint32_t i = 0; i < length; ++i) {
        column[i] = text[rows[i] + length - 1];
        if (rows[i] == 0) first = i;
    }
    *index = firstEqual(block, length, first);
}

VekStatus sortBuckets(const uint8_t* block, uint32_t length, uint8_t* column, int32_t* index,
                      uint8_t* buffer) {
    if (std::memcmp(block, block + 1, length - 1) == 0) {
        std::memcpy(column, block, length);
        *index = 0;
        return vekStatusOk;
    }
    auto budget = static_cast<int32_t>(
        std::min<uint64_t>(length * (length < longBlock ? shortBudget : longBudget), INT32_MAX));
    vek::bzip2::TwoStage sort(block, length, buffer);
    sort.gatherStars();
    for (uint32_t pair = 0; pair < vek::bzip2::bytePairs; ++pair) {
        const uint32_t begin = sort.starsBegin(pair);
        const uint32_t count = sort.starsEnd(pair) - begin;
        if (count < 2) continue;
        budget = owns_BWT_IT_sort(sort.text(), length, sort.rows() + begin, count, 2, budget);
        if (budget < 0) return vekStatusSortLimit;
    }
    *index = firstEqual(block, length, sort.induce(column));
    return vekStatusOk;
}

VekStatus sortBlock(const uint8_t* block, uint32_t length, uint8_t* column, int32_t* index,
                    uint8_t* buffer, int32_t method) {
    if (length < smallBlock) {
        sortSmall(block, length, column, index);
        return vekStatusOk;
    }
    int64_t room = 0;
    switch (method) {
        case budgetedMethod:
            return sortBuckets(block, length, column, index, buffer);
        case unbudgetedMethod:
            room = bucketSize(length);
            break;
        case kernelMethod:
            room = kernelSize(length);
            break;
        case automaticMethod:
            room = automaticSize(length);
            if (room < bucketSize(length)) return vekStatusBadSize;
            break;
        default:
            return vekStatusOk;
    }
    owns_BWT_sfx_fwd_asm(block, length, column, index, buffer, static_cast<size_t>(room));
    return vekStatusOk;
}

}  // namespace

VekStatus veksBWTFwdGetSize_8u(int32_t len, int32_t* pSize) {
    if (vek::anyNull(pSize)) return vekStatusNullPointer;
    if (len < 1) return vekStatusBadSize;
    *pSize = automaticSize(len);
    return vekStatusOk;
}

VekStatus veksBWTFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, int32_t* pIndex,
                        uint8_t* pBuffer) {
    if (vek::anyNull(pSrc, pDst, pIndex, pBuffer)) return vekStatusNullPointer;
    if (len < 1) return vekStatusBadSize;
    return sortBlock(pSrc, static_cast<uint32_t>(len), pDst, pIndex, pBuffer, automaticMethod);
}

VekStatus veksBWTFwdGetBufSize_SelectSort_8u(int32_t len, int32_t* pSize, int32_t method) {
    if (vek::anyNull(pSize)) return vekStatusNullPointer;
    if (len == 0) return vekStatusBadSize;
    switch (method) {
        case budgetedMethod:
        case unbudgetedMethod:
            return storeSize(bucketSize(len), pSize);
        case kernelMethod:
            return storeSize(kernelSize(len), pSize);
        case automaticMethod:
            return storeSize(automaticSize(len), pSize);
        default:
            return vekStatusOk;
    }
}

VekStatus veksBWTFwd_SelectSort_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, int32_t* pIndex,
                                   uint8_t* pBuffer, int32_t method) {
    if (vek::anyNull(pSrc, pDst, pIndex, pBuffer)) return vekStatusNullPointer;
    if (len < 1) return vekStatusBadSize;
    return sortBlock(pSrc, static_cast<uint32_t>(len), pDst, pIndex, pBuffer, method);
}
