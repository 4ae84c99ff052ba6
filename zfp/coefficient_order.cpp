// Tables of the embedded coder, from their rules.

#include "zfp/coefficient_order.h"

namespace {

using namespace vek::zfp;

constexpr uint32_t runCode(bool tested, unsigned bits) {
    uint32_t code = 0;
    unsigned length = 0;
    for (unsigned i = 0; i < 8; ++i) {
        if (tested) code |= 1U << length++;
        tested = (bits >> i & 1) != 0;
        code |= (tested ? 1U : 0U) << length++;
    }
    return code | length << 16;
}

constexpr RunCodes makeRunCodes() {
    RunCodes codes{};
    for (unsigned bits = 0; bits < 256; ++bits) {
        codes.entry[0][bits] = runCode(false, bits);
        codes.entry[1][bits] = runCode(true, bits);
    }
    return codes;
}

}  // namespace

constexpr RunCodes runCodeTable = makeRunCodes();
