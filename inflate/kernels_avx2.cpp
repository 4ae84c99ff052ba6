// The inflate decoder for processors with AVX2 and BMI2.
#include "inflate/single_level.h"
#include "inflate/two_level.h"

using namespace vek::inflate;

Stop ownsInflateShort_avx2(Run& run, const VekInflateState& state) {
    return decodeShort(run, state);
}

Stop ownsInflateLong_avx2(Run& run, const uint8_t* tables) {
    return decodeLong(run, tables);
}
