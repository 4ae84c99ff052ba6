// vekdc bench: which format and level suits the user's own files.
#pragma once

#include <string>
#include <vector>

#include "tools/vekdc/app/status.h"
#include "tools/vekdc/formats/format.h"

namespace vekdc {

struct BenchOptions {
    const Format* format = nullptr;  ///< Null: all.
    Settings settings;
    bool csv = false;
    bool force = false;  ///< Replace an existing picture.
    std::string plot;    ///< Picture to draw; empty: none.
};

/// Measures every level of the formats on each file, in memory, and prints a table, or CSV.
ExitStatus benchFiles(const std::vector<std::string>& paths, const BenchOptions& options);

}  // namespace vekdc
