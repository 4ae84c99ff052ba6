// How the program ends, and what it says of what went wrong.
#pragma once

#include <exception>
#include <string>

#include "tools/vekdc/io/stream.h"

namespace vekdc {

/// How the program ends: the worst of what happened. The last two are what shells say of a program
/// that does not start.
enum ExitStatus { kSuccess = 0, kFailure = 1, kWarning = 2, kCannotRun = 126, kNotFound = 127 };

ExitStatus worse(ExitStatus a, ExitStatus b);

/// Prints "vekdc: NAME: TEXT" on standard error.
void complain(const std::string& name, const std::string& text);

/// A file that is left as it is, which is odd but no failure. Nothing is said where there is no
/// text.
struct LeftAlone : Failure {
    using Failure::Failure;
};

/// Turns an exception that a file gave rise to into a one-line message.
ExitStatus explain(const std::string& path, const std::exception_ptr& thrown);

/// Runs one step on one file, and explains every way to fail.
template <class Step>
ExitStatus guarded(const std::string& path, Step&& step) {
    try {
        return step();
    } catch (...) {
        return explain(path, std::current_exception());
    }
}

}  // namespace vekdc
