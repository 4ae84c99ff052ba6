// The inflate decoder for processors with AVX, the baseline.
#include "inflate/single_level.h"
#include "inflate/two_level.h"

using namespace vek::inflate;

Stop ownsInflateShort_8u(Run& run, const VekInflateState& state) {
    return decodeShort(run, state);
}

Stop ownsInflateLong_8u(Run& run, const uint8_t* tables) {
    return decodeLong(run, tables);
}
