// The files that the command line means: those that it names, and those below folders.
#pragma once

#include <functional>
#include <string>

#include "tools/vekdc/app/status.h"

namespace vekdc {

struct Found {
    std::string path;
    std::string below;    ///< Its place below an output folder.
    bool walked = false;  ///< Found below a folder, not named.
};

/// Calls `use` for the path, or, where it is a folder and `recursive`, for every regular file below
/// it, by name. Links below it are not followed. A folder is listed before its files are used.
ExitStatus walk(const std::string& path, bool recursive,
                const std::function<ExitStatus(const Found&)>& use);

}  // namespace vekdc
