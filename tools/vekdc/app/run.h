// vekdc run: other programs with the drop-in libraries in place of the system's.
#pragma once

#include <string>
#include <vector>

#include "tools/vekdc/app/status.h"

namespace vekdc {

/// Becomes the program that the words name; returns only where that fails.
ExitStatus runProgram(const std::vector<std::string>& words);

}  // namespace vekdc
