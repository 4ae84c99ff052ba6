// Which files are worked on, and what their outputs are called.
#pragma once

#include <string>

#include "tools/vekdc/app/walk.h"
#include "tools/vekdc/app/work.h"

namespace vekdc {

/// A path without its folders.
std::string baseName(const std::string& path);

/// The path; where it names nothing and is to be read, the one that a suffix makes of it, if there
/// is one.
std::string pathMeant(const WorkOptions& options, const std::string& path);

/// Whether a file found below a folder is meant: one that is not coded yet, or one that is.
bool isMeant(const WorkOptions& options, const Found& found);

/// The path, which is refused where the output's name would come of it, and it names what has no
/// coded form to stand beside it.
const std::string& checkedInput(const WorkOptions& options, const std::string& path);

/// The format to compress to.
const Format& formatToWrite(const WorkOptions& options);

/// Paths of the outputs to compress and to decompress to, and of one that is to have this name.
std::string packedPath(const WorkOptions& options, const Found& found, const Format& format);
std::string plainPath(const WorkOptions& options, const Found& found);
std::string placedPath(const WorkOptions& options, const Found& found, const std::string& name);

}  // namespace vekdc
