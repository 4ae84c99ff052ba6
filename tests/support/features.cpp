#include "support/features.h"

#include "vekcore.h"

namespace vektest {

FeatureLimit::FeatureLimit(uint64_t mask) {
    ownGetFeature(0);
    before_ = vekFeatureWord;
    vekFeatureWord = before_ & (static_cast<uint32_t>(mask) | VEK_FEATURES_KNOWN);
}

FeatureLimit::~FeatureLimit() {
    vekFeatureWord = before_;
}

}  // namespace vektest
