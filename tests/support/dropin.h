// A drop-in library and the distribution's of the same name, side by side in one program: each is
// opened by its path, out of sight of the other, and its functions are called by their names.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

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
        void* const found = dlsym(handle_, name);
        EXPECT_NE(found, nullptr) << name;
        return reinterpret_cast<Function*>(found);
    }

 private:
    void* handle_;  // Stays open: the program's end closes it.
};

}  // namespace vektest

/// A function of a library, by the name that its header declares it under.
#define VEK_FUNCTION(library, name) (library).get(#name, static_cast<decltype(&(name))>(nullptr))
