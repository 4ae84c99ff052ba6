#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

#include "tools/vekdc/app/arguments.h"
#include "tools/vekdc/io/files.h"

namespace {

vekdc::ExitStatus runProgram(int argc, char** argv) {
    try {
        return vekdc::readArguments(argc, argv)();
    } catch (const vekdc::UsageError& error) {
        std::fprintf(stderr, "vekdc: %s (see vekdc --help)\n", error.what());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vekdc: %s\n", error.what());
    }
    return vekdc::kFailure;
}

}  // namespace

int main(int argc, char** argv) {
    vekdc::occupyStandardDescriptors();
    vekdc::installSignalHandlers();
    const vekdc::ExitStatus status = runProgram(argc, argv);
    // Text output that a full disk swallowed is a failure too.
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
    vekdc::complain("standard output", std::strerror(errno));
    return vekdc::kFailure;
}
