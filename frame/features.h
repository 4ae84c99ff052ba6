// What the processor offers beyond the variant's own instruction set, for the choice of a kernel.
//
// One load and one branch that is always predicted: the core's word is read directly, and the core
// is called only by whoever comes first.
#pragma once

#include "vekcore.h"

namespace vek::inline VEK_LEVEL {

/// The VEK_FEATURE_ bits that are there.
inline uint32_t features() {
    const uint32_t word = __atomic_load_n(&vekFeatureWord, __ATOMIC_RELAXED);
    if (word != 0) [[likely]]
        return word;
    ownGetFeature(0);
    return __atomic_load_n(&vekFeatureWord, __ATOMIC_RELAXED);
}

constexpr bool hasAll(uint32_t features, uint64_t wanted) {
    return (static_cast<uint32_t>(wanted) & ~features) == 0;
}

}  // namespace vek::inline VEK_LEVEL
