// vekdc completion: what shells complete the tool's words by, made of its own options.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

namespace vekdc {

struct CompletedCommand {
    std::string name;  ///< Empty: the options without a command.
    std::string help;
    std::unique_ptr<CLI::App> app;
};

/// Those that there are completions for.
const std::vector<std::string>& shellNames();

/// The text that the shell of this name is to read. The first command is that without a name.
std::string completionFor(const std::string& shell, const std::vector<CompletedCommand>& commands);

}  // namespace vekdc
