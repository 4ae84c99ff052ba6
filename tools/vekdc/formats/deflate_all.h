// One deflate stream from a whole source, on one thread or on many.
#pragma once

#include "codec/checksums.h"
#include "tools/vekdc/formats/format.h"

namespace vekdc {

struct Deflated {
    uint32_t check;  ///< Checksum of the source's bytes.
    uint64_t plain;  ///< How many there were.
};

/// Codes the source to its end with `settings.level` (or `fastest`) on `settings.jobs` threads.
Deflated deflateAll(Source& source, Sink& sink, const Settings& settings,
                    const codec::Checksum& checksum);

}  // namespace vekdc
