/**
 * @file vekcore.h
 * @brief libvekcore: what the processor can do, and how large its caches are.
 *
 * The library runs on every x86 processor that the system runs on. It is safe to be called from any
 * number of threads at once.
 */
#ifndef VEKCORE_H
#define VEKCORE_H

#include <stdint.h>

#include "vekdc.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Feature bits of ownGetFeature(). Those of AVX and AVX-512 also say that the system saves the wide
 * registers.
 */
#define VEK_FEATURE_SSE2 UINT64_C(0x01)       /**< SSE2. */
#define VEK_FEATURE_SSSE3 UINT64_C(0x02)      /**< SSSE3. */
#define VEK_FEATURE_SSE41 UINT64_C(0x04)      /**< SSE4.1. */
#define VEK_FEATURE_POPCNT UINT64_C(0x08)     /**< POPCNT. */
#define VEK_FEATURE_SSE42 UINT64_C(0x80)      /**< SSE4.2, with the CRC-32C instruction. */
#define VEK_FEATURE_CLMUL UINT64_C(0x800)     /**< Carry-less multiplication. */
#define VEK_FEATURE_AVX UINT64_C(0x1000)      /**< AVX. */
#define VEK_FEATURE_AVX2 UINT64_C(0x2000)     /**< AVX2. */
#define VEK_FEATURE_BMI2 UINT64_C(0x4000)     /**< BMI2, with BMI1 and LZCNT. */
#define VEK_FEATURE_AVX512 UINT64_C(0x8000)   /**< AVX-512 F, BW, DQ and VL. */
#define VEK_FEATURE_VPCLMUL UINT64_C(0x10000) /**< Carry-less multiplication of wide registers. */
#define VEK_FEATURE_VNNI UINT64_C(0x20000)    /**< AVX-512's byte dot products. */
#define VEK_FEATURE_VBMI UINT64_C(0x40000)    /**< AVX-512's byte permutations. */

/** Set in ::vekFeatureWord once the processor was asked. */
#define VEK_FEATURES_KNOWN UINT32_C(0x80000000)

/**
 * The features that are there, as bits, and ::VEK_FEATURES_KNOWN; 0 until somebody asks for the
 * first time. For code that calls ownGetFeature() so often that the call shows: read the word, and
 * call only when it is 0. Written by this library alone (and by tests, to hide a feature).
 */
extern uint32_t vekFeatureWord;

/**
 * Tells whether the processor has every feature in a mask.
 *
 * The processor is asked once; later calls read the cached answer.
 *
 * @param[in] mask VEK_FEATURE_ bits; a bit that is not defined is a feature that no processor has.
 * @retval 1 Every feature is there; also for an empty mask.
 * @retval 0 At least one is not.
 */
int32_t ownGetFeature(uint64_t mask);

/**
 * The size of the largest cache.
 *
 * @param[out] pSize the size in bytes; untouched on failure.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 * @retval vekStatusFailure     Neither the processor nor the system tells.
 */
VekStatus vekGetMaxCacheSizeB(int32_t* pSize);

#ifdef __cplusplus
}
#endif

#endif /* VEKCORE_H */
