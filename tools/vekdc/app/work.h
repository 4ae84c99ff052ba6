// What the tool does with each file that it is given, whatever the format.
#pragma once

#include <string>
#include <vector>

#include "tools/vekdc/formats/format.h"
#include "tools/vekdc/io/progress.h"

namespace vekdc {

enum class Task { Compress, Decompress, Test, Info };

/// How the program ends: the worst of what happened.
enum ExitStatus { kSuccess = 0, kFailure = 1, kWarning = 2 };

struct WorkOptions {
    Task task = Task::Compress;
    const Format* format = nullptr;  ///< Null: gz to compress, otherwise what the file is.
    Settings settings;
    std::string output;  ///< Empty: the input's name with the suffix added or removed.
    bool toStdout = false;
    bool force = false;
    bool remove = false;       ///< Remove the input afterwards.
    bool storeName = true;     ///< Keep name and time stamp in the file.
    bool keepPartial = false;  ///< Keep what was good of a broken file.
    bool quiet = false;        ///< No progress, no warnings.
    bool verbose = false;      ///< A line for every file done.
    Progress::When progress = Progress::When::OnTerminal;
};

/// Works through the files ("-" is standard input); one that fails does not stop the others.
ExitStatus workOnFiles(const std::vector<std::string>& paths, const WorkOptions& options);

/// Prints "vekdc: NAME: TEXT" on standard error.
void complain(const std::string& name, const std::string& text);

/// Prints "<hexadecimal value>  <name>" for each file.
ExitStatus sumFiles(const std::vector<std::string>& paths, const std::string& algorithm);

/// Compares files with the sums that lists made by sumFiles() give.
ExitStatus checkSums(const std::vector<std::string>& lists, const std::string& algorithm,
                     bool quiet);

/// Compresses generated samples in memory at every level of every format, verifies what comes back,
/// and prints ratios and speeds.
ExitStatus demonstrate(unsigned jobs);

}  // namespace vekdc
