// The one instance of every format. A new format adds its line here and in registry.cpp.
#pragma once

#include "tools/vekdc/formats/format.h"

namespace vekdc {

const Format& bz2Format();
const Format& gzFormat();
const Format& lz4Format();
const Format& lzoFormat();
const Format& lzssFormat();
const Format& zfpFormat();
const Format& zlibFormat();

}  // namespace vekdc
