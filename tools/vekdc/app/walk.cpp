#include "tools/vekdc/app/walk.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "tools/vekdc/io/files.h"

namespace vekdc {
namespace {

namespace fs = std::filesystem;

using Use = std::function<ExitStatus(const Found&)>;

ExitStatus walkFolder(const fs::path& folder, const fs::path& below, const Use& use) {
    ExitStatus worst = kSuccess;
    std::vector<fs::directory_entry> entries;
    std::error_code error;
    fs::directory_iterator it(folder, error);
    for (; !error && it != fs::directory_iterator(); it.increment(error)) entries.push_back(*it);
    if (error) {
        complain(folder, error.message());
        worst = kFailure;
    }
    std::sort(entries.begin(), entries.end());
    for (const fs::directory_entry& entry : entries) {
        const fs::path place = below / entry.path().filename();
        const fs::file_type type = entry.symlink_status(error).type();
        if (type == fs::file_type::directory)
            worst = worse(worst, walkFolder(entry.path(), place, use));
        else if (type == fs::file_type::regular)
            worst = worse(worst, use({entry.path(), place, true}));
    }
    return worst;
}

}  // namespace

ExitStatus walk(const std::string& path, bool recursive, const Use& use) {
    std::error_code error;
    if (!recursive || path == kStdin || !fs::is_directory(path, error))
        return use({path, fs::path(path).filename(), false});
    // "." and "folder/" have names of their own too.
    const fs::path whole = fs::canonical(path, error);
    return walkFolder(path, whole.filename(), use);
}

}  // namespace vekdc
