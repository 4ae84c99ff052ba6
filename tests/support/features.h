// Processor features as a test wants the library to see them.
//
// A test program defines ownGetFeature itself, so that the library's calls resolve to it rather
// than to libvekcore's: every path of the library then runs on one machine, with no switch in the
// product.
#pragma once

#include <cstdint>

namespace vektest {

/// While it lives, the library sees only those of the processor's features that `mask` holds.
class FeatureLimit {
 public:
    explicit FeatureLimit(uint64_t mask);
    ~FeatureLimit();
    FeatureLimit(const FeatureLimit&) = delete;
    FeatureLimit& operator=(const FeatureLimit&) = delete;
};

}  // namespace vektest
