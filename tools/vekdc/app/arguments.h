// The command line: what is to be done, from the words that the user gave.
#pragma once

#include <functional>
#include <stdexcept>

#include "tools/vekdc/app/status.h"

namespace vekdc {

/// A command line that cannot be followed.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What the command line asks for; throws UsageError. Help and version are printed by it too.
std::function<ExitStatus()> readArguments(int argc, char** argv);

}  // namespace vekdc
