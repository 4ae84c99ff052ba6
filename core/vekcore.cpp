// Processor features and cache size, by CPUID.
//
// Features: leaves 1, 7 and 0x80000001; the AVX bits count only when the system saves the wide
// registers, which XGETBV tells. The answer is a single word, so relaxed loads and stores are all
// the caching it needs: threads that race compute the same value.
//
// Cache size: the deterministic cache leaves, 4 on one maker's processors and 0x8000001D on the
// other's, share one format. Where a processor (or a hypervisor that hides the leaves) reports
// nothing, the C library's table is asked.

#include "vekcore.h"

#include <cpuid.h>
#include <immintrin.h>
#include <unistd.h>

#include <algorithm>

#define VEK_CORE_API extern "C" __attribute__((visibility("default")))

namespace {

struct CpuidRegisters {
    unsigned eax, ebx, ecx, edx;
};

/// One CPUID leaf; all zero when the processor does not have it.
CpuidRegisters cpuid(unsigned leaf, unsigned subleaf) {
    CpuidRegisters r = {0, 0, 0, 0};
    if (__get_cpuid_count(leaf, subleaf, &r.eax, &r.ebx, &r.ecx, &r.edx) == 0) return {0, 0, 0, 0};
    return r;
}

/// The parts of the register file that the system saves: XCR0.
__attribute__((target("xsave"))) uint64_t stateSaved(const CpuidRegisters& leaf1) {
    return (leaf1.ecx & bit_OSXSAVE) != 0 ? _xgetbv(0) : 0;
}

constexpr uint64_t avxState = 0x06;     // SSE registers, upper halves of the AVX ones
constexpr uint64_t avx512State = 0xE6;  // and masks, upper halves of the wide ones, the other 16

uint32_t detectFeatures() {
    const CpuidRegisters leaf1 = cpuid(1, 0);
    const CpuidRegisters leaf7 = cpuid(7, 0);
    const CpuidRegisters extended = cpuid(0x80000001, 0);
    const uint64_t saved = stateSaved(leaf1);
    const bool avx = (saved & avxState) == avxState;
    const bool avx512 = (saved & avx512State) == avx512State;
    uint64_t features = VEK_FEATURES_KNOWN;
    const auto add = [&features](uint64_t feature, unsigned reg, unsigned bits, bool usable) {
        if (usable && (reg & bits) == bits) features |= feature;
    };
    add(VEK_FEATURE_SSE2, leaf1.edx, bit_SSE2, true);
    add(VEK_FEATURE_SSSE3, leaf1.ecx, bit_SSSE3, true);
    add(VEK_FEATURE_SSE41, leaf1.ecx, bit_SSE4_1, true);
    add(VEK_FEATURE_POPCNT, leaf1.ecx, bit_POPCNT, true);
    add(VEK_FEATURE_SSE42, leaf1.ecx, bit_SSE4_2, true);
    add(VEK_FEATURE_CLMUL, leaf1.ecx, bit_PCLMUL, true);
    add(VEK_FEATURE_AVX, leaf1.ecx, bit_AVX, avx);
    add(VEK_FEATURE_AVX2, leaf7.ebx, bit_AVX2, avx);
    add(VEK_FEATURE_BMI2, leaf7.ebx, bit_BMI | bit_BMI2, (extended.ecx & bit_LZCNT) != 0);
    add(VEK_FEATURE_AVX512, leaf7.ebx, bit_AVX512F | bit_AVX512BW | bit_AVX512DQ | bit_AVX512VL,
        avx512);
    add(VEK_FEATURE_VPCLMUL, leaf7.ecx, bit_VPCLMULQDQ, avx);
    add(VEK_FEATURE_VNNI, leaf7.ecx, bit_AVX512VNNI, avx512);
    add(VEK_FEATURE_VBMI, leaf7.ecx, bit_AVX512VBMI, avx512);
    return static_cast<uint32_t>(features);
}

/// In 32-bit halves: no processor has a feature of the upper one.
inline int32_t hasAll(uint32_t features, uint64_t mask) {
    const uint32_t missing = static_cast<uint32_t>(mask) & ~(features & ~VEK_FEATURES_KNOWN);
    return (missing | static_cast<uint32_t>(mask >> 32)) == 0 ? 1 : 0;
}

/// Out of line: its stack frame is not for the calls that find the answer cached.
[[gnu::noinline]] int32_t detectAndTest(uint64_t mask) {
    const uint32_t features = detectFeatures();
    __atomic_store_n(&vekFeatureWord, features, __ATOMIC_RELAXED);
    return hasAll(features, mask);
}

/// The largest size among the caches that a deterministic cache leaf lists; 0 when it lists none.
uint64_t largestCacheOfLeaf(unsigned leaf) {
    constexpr unsigned maxCaches = 16;  // real processors list four or five
    uint64_t largest = 0;
    for (unsigned i = 0; i < maxCaches; ++i) {
        const CpuidRegisters r = cpuid(leaf, i);
        if ((r.eax & 0x1F) == 0) break;
        const uint64_t ways = (r.ebx >> 22) + 1;
        const uint64_t partitions = ((r.ebx >> 12) & 0x3FF) + 1;
        const uint64_t lineSize = (r.ebx & 0xFFF) + 1;
        const uint64_t sets = static_cast<uint64_t>(r.ecx) + 1;
        largest = std::max(largest, ways * partitions * lineSize * sets);
    }
    return largest;
}

uint64_t largestCacheOfSystem() {
    long largest = 0;
    for (const int name : {_SC_LEVEL1_DCACHE_SIZE, _SC_LEVEL2_CACHE_SIZE, _SC_LEVEL3_CACHE_SIZE,
                           _SC_LEVEL4_CACHE_SIZE}) {
        largest = std::max(largest, sysconf(name));
    }
    return static_cast<uint64_t>(largest);
}

}  // namespace

extern "C" {
__attribute__((visibility("default"))) uint32_t vekFeatureWord = 0;
}

VEK_CORE_API int32_t ownGetFeature(uint64_t mask) {
    const uint32_t features = __atomic_load_n(&vekFeatureWord, __ATOMIC_RELAXED);
    if (features == 0) [[unlikely]]
        return detectAndTest(mask);
    return hasAll(features, mask);
}

VEK_CORE_API VekStatus vekGetMaxCacheSizeB(int32_t* pSize) {
    if (pSize == nullptr) return vekStatusNullPointer;
    uint64_t size = std::max(largestCacheOfLeaf(4), largestCacheOfLeaf(0x8000001D));
    if (size == 0) size = largestCacheOfSystem();
    if (size == 0) return vekStatusFailure;
    *pSize = static_cast<int32_t>(std::min<uint64_t>(size, INT32_MAX));
    return vekStatusOk;
}
