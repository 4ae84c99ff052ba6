// A drop-in library and the distribution's of the same name, side by side in one program: each is
// opened by its path, out of sight of the other, and its functions are called by their names.
#pragma once

#include <dlfcn.h>

#include <sstream>

#include "support/supply.h"
#include "support/test.h"

namespace vektest {

class Library {
 public:
    explicit Library(const std::string& path)
        : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (handle_ == nullptr) ADD_FAILURE() << dlerror();
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    /// A function by its name; `sample` is only for its type: the header's declaration.
    template <class Function>
    Function* get(const char* name, Function*) const {
        void* const found = dlsym(handle_, name + std::strspn(name, ":"));
        EXPECT_NE(found, nullptr) << name;
        return reinterpret_cast<Function*>(found);
    }

 private:
    void* handle_;  // Stays open: the program's end closes it.
};

inline char* chars(Bytes& bytes) {
    return reinterpret_cast<char*>(bytes.data());
}

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
