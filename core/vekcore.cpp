// Processor features and cache size, by CPUID.
//
// Features: leaf 1 and leaf 7; the AVX bits count only when the system saves the wide registers,
// which XGETBV tells. The answer is a single word, so a relaxed atomic is all the caching it needs:
// threads that race compute the same value.
//
// Cache size: the deterministic cache leaves, 4 on one maker's processors and 0x8000001D on the
// other's, share one format. Where a processor (or a hypervisor that hides the leaves) reports
// nothing, the C library's table is asked.

#include "vekcore.h"

#include <cpuid.h>
#include <immintrin.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

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

/// True when the system saves the SSE and AVX halves of the vector registers (XCR0 bits 1 and 2).
__attribute__((target("xsave"))) bool systemSavesAvxState(const CpuidRegisters& leaf1) {
    return (leaf1.ecx & bit_OSXSAVE) != 0 && (_xgetbv(0) & 6) == 6;
}

constexpr uint32_t featuresKnown = 0x80000000U;

uint32_t detectFeatures() {
    const CpuidRegisters leaf1 = cpuid(1, 0);
    const CpuidRegisters leaf7 = cpuid(7, 0);
    const bool avxState = systemSavesAvxState(leaf1);
    uint64_t features = featuresKnown;
    const auto add = [&features](bool present, uint64_t feature) {
        if (present) features |= feature;
    };
    add((leaf1.edx & bit_SSE2) != 0, VEK_FEATURE_SSE2);
    add((leaf1.ecx & bit_SSSE3) != 0, VEK_FEATURE_SSSE3);
    add((leaf1.ecx & bit_SSE4_1) != 0, VEK_FEATURE_SSE41);
    add((leaf1.ecx & bit_POPCNT) != 0, VEK_FEATURE_POPCNT);
    add((leaf1.ecx & bit_SSE4_2) != 0, VEK_FEATURE_SSE42);
    add((leaf1.ecx & bit_PCLMUL) != 0, VEK_FEATURE_CLMUL);
    add(avxState && (leaf1.ecx & bit_AVX) != 0, VEK_FEATURE_AVX);
    add(avxState && (leaf7.ebx & bit_AVX2) != 0, VEK_FEATURE_AVX2);
    return static_cast<uint32_t>(features);
}

std::atomic<uint32_t> cachedFeatures{0};

/// In 32-bit halves: no processor has a feature of the upper one.
inline int32_t hasAll(uint32_t features, uint64_t mask) {
    const uint32_t missing = static_cast<uint32_t>(mask) & ~(features & ~featuresKnown);
    return (missing | static_cast<uint32_t>(mask >> 32)) == 0 ? 1 : 0;
}

/// Out of line: its stack frame is not for the calls that find the answer cached.
[[gnu::noinline]] int32_t detectAndTest(uint64_t mask) {
    const uint32_t features = detectFeatures();
    cachedFeatures.store(features, std::memory_order_relaxed);
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

VEK_CORE_API int32_t ownGetFeature(uint64_t mask) {
    const uint32_t features = cachedFeatures.load(std::memory_order_relaxed);
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
