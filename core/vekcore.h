/**
 * @file vekcore.h
 * @brief libvekcore: what the processor can do, and how large its caches are.
 */
#ifndef VEKCORE_H
#define VEKCORE_H

#include <stdint.h>

#include "vekdc.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Feature bits of ownGetFeature(). The AVX bits also need the system to save the wide registers.
 */
#define VEK_FEATURE_SSE2 UINT64_C(0x01)
#define VEK_FEATURE_SSSE3 UINT64_C(0x02)
#define VEK_FEATURE_SSE41 UINT64_C(0x04)
#define VEK_FEATURE_POPCNT UINT64_C(0x08)
#define VEK_FEATURE_SSE42 UINT64_C(0x80)  /**< With the CRC-32C instruction. */
#define VEK_FEATURE_CLMUL UINT64_C(0x800) /**< Carry-less multiplication. */
#define VEK_FEATURE_AVX UINT64_C(0x1000)
#define VEK_FEATURE_AVX2 UINT64_C(0x2000)

/**
 * Tells whether the processor has every feature in a mask.
 *
 * The processor is asked once; later calls read the cached answer. Safe from any number of threads.
 *
 * @param mask VEK_FEATURE_ bits; a bit that is not defined is a feature that no processor has.
 * @return 1 when every feature is there (also for an empty mask), else 0.
 */
int32_t ownGetFeature(uint64_t mask);

/**
 * The size of the largest cache, in bytes.
 *
 * @param pSize receives the size; untouched on failure.
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusFailure when neither the processor nor
 *         the system tells.
 */
VekStatus vekGetMaxCacheSizeB(int32_t* pSize);

#ifdef __cplusplus
}
#endif

#endif /* VEKCORE_H */
