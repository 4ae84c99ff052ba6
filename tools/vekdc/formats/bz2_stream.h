// The bzip2 file format: whole files, on as many threads as wanted.
#pragma once

#include <functional>

#include "tools/vekdc/formats/format.h"

namespace vekdc::bz2 {

struct Stream {
    uint64_t number = 0;
    uint64_t offset = 0;
    int level = 0;
    uint64_t blocks = 0;
    uint32_t crc = 0;
    uint64_t packed = 0;
    uint64_t plain = 0;
};

/// Codes the source to its end as one stream.
void writeStream(Source& source, Sink& sink, const Settings& settings);

/// Reads all streams and tells of each at its end; throws FormatError.
void readStreams(Source& source, Sink& sink, const Settings& settings,
                 const std::function<void(const Stream&)>& use);

}  // namespace vekdc::bz2
