// The loader looks for a program's libraries in the folders of LD_LIBRARY_PATH first, and passes
// over those of another width than the program's: so the folders of both widths are named, wherever
// they are. They are found from where the tool itself lies, be it installed or just built.
#include "tools/vekdc/app/run.h"

#include <sys/auxv.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace vekdc {
namespace {

namespace fs = std::filesystem;

// As seen from the tool's folder: installed, on systems of either habit, and in the build trees.
constexpr std::array kFolders = {"../" VEK_LIBDIR "/vekdc",
                                 "../lib/x86_64-linux-gnu/vekdc",
                                 "../lib/i386-linux-gnu/vekdc",
                                 "../lib64/vekdc",
                                 "../lib32/vekdc",
                                 "../lib/dropin",
                                 "../../x64/lib/dropin",
                                 "../../x86/lib/dropin"};

fs::path ownFolder() {
    // The path that the system has started; unlike /proc, it is there in bare containers too.
    const auto* path = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
    return fs::canonical(path).parent_path();
}

std::string dropinFolders() {
    std::string found;
    std::error_code error;
    const fs::path own = ownFolder();
    for (const char* relative : kFolders) {
        const fs::path folder = fs::canonical(own / relative, error);
        if (error || (":" + found + ":").find(":" + folder.string() + ":") != std::string::npos)
            continue;
        found += (found.empty() ? "" : ":") + folder.string();
    }
    return found;
}

}  // namespace

ExitStatus runProgram(const std::vector<std::string>& words) {
    std::string folders = dropinFolders();
    if (folders.empty())
        throw Failure("run: there are no drop-in libraries beside " + ownFolder().string());
    const char* before = std::getenv("LD_LIBRARY_PATH");
    if (before != nullptr && *before != 0) folders += ":" + std::string(before);
    setenv("LD_LIBRARY_PATH", folders.c_str(), 1);
    signal(SIGXFSZ, SIG_DFL);  // Ignored for the tool's own outputs.

    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    const int error = errno;
    complain(words[0], std::strerror(error));
    return error == ENOENT ? kNotFound : kCannotRun;
}

}  // namespace vekdc
