#include "tools/vekdc/app/status.h"

#include <cstdio>
#include <new>

#include "tools/vekdc/formats/format.h"
#include "tools/vekdc/io/files.h"

namespace vekdc {

ExitStatus worse(ExitStatus a, ExitStatus b) {
    if (a == kFailure || b == kFailure) return kFailure;
    return a == kWarning || b == kWarning ? kWarning : kSuccess;
}

void complain(const std::string& name, const std::string& text) {
    std::fflush(stdout);
    std::fprintf(stderr, "vekdc: %s: %s\n", printable(name).c_str(), text.c_str());
}

ExitStatus explain(const std::string& path, const std::exception_ptr& thrown) {
    const std::string name = path == kStdin ? "standard input" : path;
    try {
        std::rethrow_exception(thrown);
    } catch (const LeftAlone& reason) {
        if (*reason.what() != 0) complain(name, reason.what());
        return kWarning;
    } catch (const FormatError& error) {
        complain(name, "byte " + std::to_string(error.offset) + ": " + error.what());
    } catch (const SystemFailure& error) {
        complain(error.path, error.what());
    } catch (const std::bad_alloc&) {
        complain(name, "out of memory");
    } catch (const std::exception& error) {
        complain(name, error.what());
    }
    return kFailure;
}

}  // namespace vekdc
