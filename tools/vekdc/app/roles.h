// The names that the tool goes by: its commands, and the links by which it takes another's place.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/vekdc/app/work.h"

namespace vekdc {

/// What the tool does when it is called by a link, as the tool does that the link stands for.
struct Role {
    std::string_view name;
    const char* format;  ///< To compress to.
    Task task;
    bool toStdout;
    bool remove;  ///< Whether that tool removes its inputs.
};

/// By the name that the program was called by; null for its own.
const Role* roleOf(std::string_view program);

/// All these names.
std::vector<std::string> roleNames();

/// The one of `words` that `word` was most likely meant to be; empty where none is near.
std::string_view nearest(std::string_view word, const std::vector<std::string_view>& words);

}  // namespace vekdc
