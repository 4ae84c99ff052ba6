// One deflate stream from a whole source, on many threads.
#pragma once

#include "codec/checksums.h"
#include "codec/deflate_encoder.h"
#include "tools/vekdc/formats/format.h"

namespace vekdc {

/// The option by which blocks end by their content, on one thread too.
inline const std::string kRsyncable = "rsyncable";

/// Those that the settings mean.
codec::DeflateOptions deflateOptions(const Settings& settings);

struct Deflated {
    uint32_t check;  ///< Checksum of the source's bytes.
    uint64_t plain;  ///< How many there were.
};

/// Codes the source to its end on `settings.jobs` threads.
Deflated deflateOnThreads(Source& source, Sink& sink, const Settings& settings,
                          const codec::Checksum& checksum);

}  // namespace vekdc
