// The inflate decoder for single-level tables: one lookup a code.
#include <cstdint>

#include "deflate/pdcinflate.h"
#include "deflate/pdcinflatesteps.h"
#include "vector/bytes.h"

namespace {

using namespace vek::inflate;

class SingleLevel {
 public:
    explicit SingleLevel(const InflateState& state)
        : lits_(state.tables),
          distKinds_(state.tables + (2U << state.litBits)),
          litMask_((1U << state.litBits) - 1),
          distMask_((1U << state.distBits) - 1) {}

    Entry lit(uint32_t bits) const {
        const uint32_t entry = vek::load<uint16_t>(lits_ + 2 * (bits & litMask_));
        return {entry & 0xFF, entry >> 8};
    }
    Entry dist(uint32_t bits) const {
        const uint32_t index = bits & distMask_;
        return {distKinds_[index], vek::load<uint16_t>(distKinds_ + distBaseOffset + 2 * index)};
    }
    static bool isEnd(uint32_t kind) { return kind >= singleEndKind; }

 private:
    const uint8_t* lits_;
    const uint8_t* distKinds_;
    uint32_t litMask_;
    uint32_t distMask_;
};

}  // namespace

extern "C" Stop ownsInflateShort_8u(Run& run, const InflateState& state) {
    if (state.litBits > maxLitBits || state.distBits > maxDistBits) return Stop::corrupt;
    return runSteps(run, SingleLevel(state));
}
