// Processor features as a test wants the library to see them.
//
// The core keeps what it found out in a word that the library reads: a test takes bits out of it,
// and every path of the library runs on one machine, with no switch in the product. No bit is ever
// added, so a test meets no illegal instruction. The limit is one for the whole program; tests run
// one after another.
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

 private:
    uint32_t before_;
};

}  // namespace vektest
