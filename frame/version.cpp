// The version record.

#include "frame/variant.h"
#include "vekdc.h"

namespace {

constexpr VekLibraryVersion libraryVersion = {
    2021,
    12,
    0,
    -1692980203,
    {VEK_VARIANT_CODE[0], VEK_VARIANT_CODE[1], '\0', '\0'},
    "vekDC AVX (" VEK_VARIANT_CODE ")",
    "2021.12.0 (r0x9b172c15)",
    "Apr 25 2024",
};

static_assert(static_cast<unsigned>(libraryVersion.build) == 0x9B172C15U);

}  // namespace

const VekLibraryVersion* vekdcGetLibVersion(void) {
    return &libraryVersion;
}
