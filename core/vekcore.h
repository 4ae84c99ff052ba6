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

/** Feature bits of ownGetFeature(). Those of AVX and AVX-512 also need the system to save the wide
 * registers. */
#define VEK_FEATURE_SSE2 UINT64_C(0x01)
#define VEK_FEATURE_SSSE3 UINT64_C(0x02)
#define VEK_FEATURE_SSE41 UINT64_C(0x04)
#define VEK_FEATURE_POPCNT UINT64_C(0x08)
#define VEK_FEATURE_SSE42 UINT64_C(0x80)  /**< With the CRC-32C instruction. */
#define VEK_FEATURE_CLMUL UINT64_C(0x800) /**< Carry-less multiplication. */
#define VEK_FEATURE_AVX UINT64_C(0x1000)
#define VEK_FEATURE_AVX2 UINT64_C(0x2000)
#define VEK_FEATURE_BMI2 UINT64_C(0x4000)     /**< With BMI1 and LZCNT. */
#define VEK_FEATURE_AVX512 UINT64_C(0x8000)   /**< F, BW, DQ and VL. */
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
