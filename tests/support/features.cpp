#include "support/features.h"

#include <dlfcn.h>

namespace {

uint64_t limit = ~UINT64_C(0);

using GetFeature = int32_t (*)(uint64_t);

}  // namespace

extern "C" __attribute__((visibility("default"))) int32_t ownGetFeature(uint64_t mask) {
    static const auto real = reinterpret_cast<GetFeature>(dlsym(RTLD_NEXT, "ownGetFeature"));
    return (mask & ~limit) == 0 ? real(mask) : 0;
}

namespace vektest {

FeatureLimit::FeatureLimit(uint64_t mask) {
    limit = mask;
}

FeatureLimit::~FeatureLimit() {
    limit = ~UINT64_C(0);
}

}  // namespace vektest
