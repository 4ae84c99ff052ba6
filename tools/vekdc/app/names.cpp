#include "tools/vekdc/app/names.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <vector>

#include "tools/vekdc/io/files.h"

namespace vekdc {
namespace {

namespace fs = std::filesystem;

/// Whether outputs are called by their inputs.
bool writesBeside(const WorkOptions& options, const std::string& path) {
    return (options.task == Task::Compress || options.task == Task::Decompress) &&
           !options.toStdout && options.output.empty() && path != kStdin;
}

/// Whether a name has the suffix that is asked for, or any that is known; `suffix` receives it.
bool hasSuffix(const WorkOptions& options, const std::string& path, Suffix* suffix = nullptr) {
    if (options.suffix.empty()) return formatBySuffix(path, suffix) != nullptr;
    if (suffix != nullptr) *suffix = {options.suffix, ""};
    return endsWith(baseName(path), options.suffix);
}

}  // namespace

std::string baseName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

std::string pathMeant(const WorkOptions& options, const std::string& path) {
    struct stat status {};
    if (options.task == Task::Compress || path == kStdin || lstat(path.c_str(), &status) == 0)
        return path;
    std::vector<std::string> suffixes = {options.suffix};
    if (options.suffix.empty()) {
        suffixes.clear();
        for (const Format* format : formats())
            for (const Suffix& suffix : format->suffixes()) suffixes.emplace_back(suffix.packed);
    }
    for (const std::string& suffix : suffixes)
        if (lstat((path + suffix).c_str(), &status) == 0) return path + suffix;
    return path;
}

bool isMeant(const WorkOptions& options, const Found& found) {
    if (!found.walked || options.force) return true;
    return hasSuffix(options, found.path) != (options.task == Task::Compress);
}

// A link, and a file of several names, would not be what they were. All is told before the file is
// opened: opening a pipe waits for its writer.
const std::string& checkedInput(const WorkOptions& options, const std::string& path) {
    struct stat status {};
    if (!writesBeside(options, path) || lstat(path.c_str(), &status) != 0) return path;
    if (S_ISLNK(status.st_mode)) {
        if (!options.force) throw SystemFailure(path, ELOOP);
        if (stat(path.c_str(), &status) != 0) return path;
    }
    if (S_ISDIR(status.st_mode)) return path;
    if (!S_ISREG(status.st_mode)) throw Failure("not a regular file; use --stdout or --output");
    if (status.st_nlink > 1 && !options.force) {
        const std::string others = std::to_string(status.st_nlink - 1);
        throw LeftAlone(options.quiet ? ""
                                      : "left alone, as it has " + others +
                                            " other name(s); use --force to do it");
    }
    return path;
}

const Format& formatToWrite(const WorkOptions& options) {
    const Format* format = options.format;
    if (!options.formatGiven && !options.output.empty()) {
        const Format* named = formatBySuffix(options.output);
        if (format != nullptr && named != nullptr && named != format)
            throw Failure("the output's suffix is that of " + std::string(named->name()) +
                          "; use --format to say which format is meant");
        if (named != nullptr) format = named;
    }
    return format == nullptr ? *formatByName("gz") : *format;
}

std::string packedPath(const WorkOptions& options, const Found& found, const Format& format) {
    if (!options.output.empty()) return options.output;
    const bool has = options.suffix.empty() ? formatBySuffix(found.path) == &format
                                            : hasSuffix(options, found.path);
    if (has && !options.force)
        throw Failure("already has a suffix of the format; use --force to compress it again");
    const std::string suffix =
        options.suffix.empty() ? std::string(format.suffixes().front().packed) : options.suffix;
    return placedPath(options, found, baseName(found.path) + suffix);
}

std::string plainPath(const WorkOptions& options, const Found& found) {
    if (!options.output.empty()) return options.output;
    Suffix suffix;
    if (!hasSuffix(options, found.path, &suffix))
        throw Failure("unknown suffix; use --stdout or --output");
    std::string name = baseName(found.path);
    name.replace(name.size() - suffix.packed.size(), suffix.packed.size(), suffix.plain);
    return placedPath(options, found, name);
}

std::string placedPath(const WorkOptions& options, const Found& found, const std::string& name) {
    if (options.outputFolder.empty()) return fs::path(found.path).replace_filename(name);
    const fs::path folder = fs::path(options.outputFolder) / fs::path(found.below).parent_path();
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw SystemFailure(folder, error.value());
    return folder / name;
}

}  // namespace vekdc
