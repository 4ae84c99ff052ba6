// The stand-in for libvekcore's feature query.
//
// The test program exports its own ownGetFeature, which the dynamic linker finds before the
// library's. It asks the real one, next in search order, and hides what the limit excludes: a path
// that the processor lacks is never claimed, so a test meets no illegal instruction. The limit is
// one for the whole program; tests run one after another.
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
