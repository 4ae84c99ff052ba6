// A shared library opened by its path, out of sight of every other, whose functions are called by
// their names: so a drop-in library and the distribution's of the same name run side by side in
// one program. Without a test framework, since the fuzz targets use it too.
#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

namespace vektest {

class Library {
 public:
    explicit Library(const std::string& path)
        : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (handle_ == nullptr) fail(dlerror());
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    /// A function by its name; `sample` is only for its type: the header's declaration.
    template <class Function>
    Function* get(const char* name, Function*) const {
        void* const found = dlsym(handle_, name + std::strspn(name, ":"));
        if (found == nullptr) fail(name);
        return reinterpret_cast<Function*>(found);
    }

 private:
    /// Without the library or a function of it there is nothing to compare.
    [[noreturn]] static void fail(const char* what) {
        std::fprintf(stderr, "cannot be loaded: %s\n", what);
        std::abort();
    }

    void* handle_;  // Stays open: the program's end closes it.
};

/// The values as one text.
template <class... Values>
std::string text(const Values&... values) {
    std::ostringstream out;
    ((out << values << ' '), ...);
    return out.str();
}

}  // namespace vektest

/// A member for a function of the library, of the type that its header declares it with.
// NOLINTBEGIN(bugprone-macro-parentheses): a name that is declared takes none.
#define VEK_MEMBER(name, function) \
    decltype(&function) name = get(#function, static_cast<decltype(&function)>(nullptr));
// NOLINTEND(bugprone-macro-parentheses)
