// What the tool does with each file that it is given, whatever the format.
#pragma once

#include <string>
#include <vector>

#include "tools/vekdc/app/status.h"
#include "tools/vekdc/formats/format.h"
#include "tools/vekdc/io/progress.h"

namespace vekdc {

/// Of several that are asked for, the last one in this order is done.
enum class Task { Compress, Decompress, Test, Info };

struct WorkOptions {
    Task task = Task::Compress;
    const Format* format = nullptr;  ///< Null: gz to compress, otherwise what the file is.
    Settings settings;
    bool formatGiven = false;  ///< By name, not by the name that the program is called by.
    std::string output;        ///< Empty: the input's name with the suffix added or removed.
    std::string outputFolder;  ///< Empty: that of the input.
    std::string suffix;        ///< In place of the format's; empty: that.
    bool toStdout = false;
    bool force = false;
    bool remove = false;       ///< Remove the input afterwards.
    bool recursive = false;    ///< Work on what is below folders.
    bool storeName = true;     ///< Keep name and time stamp in the file.
    bool restoreName = false;  ///< Give outputs the name and time stamp that the file keeps.
    bool keepPartial = false;  ///< Keep what was good of a broken file.
    bool sparse = true;        ///< Leave holes in what is decompressed.
    bool quiet = false;        ///< No progress, no warnings.
    bool verbose = false;      ///< A line for every file done.
    Progress::When progress = Progress::When::OnTerminal;
};

/// Works through the files ("-" is standard input); one that fails does not stop the others.
ExitStatus workOnFiles(const std::vector<std::string>& paths, const WorkOptions& options);

/// Compresses generated samples, and files, in memory with all formats, verifies what comes back,
/// also by the formats' own programs, and prints ratios and speeds.
ExitStatus demonstrate(const std::vector<std::string>& paths, unsigned jobs);

}  // namespace vekdc
