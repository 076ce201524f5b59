/// For a program or library that defines OpenCL functions itself and passes calls on: this platform, the tests' spy and
/// the host benchmark.
#pragma once

#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>

/// The definition of the function `name` that comes after the caller's own in the symbol order. Ends the process if
/// there is none. Static, because RTLD_NEXT searches from the object that contains the calling code: each object needs
/// its own.
template <typename Function>
static Function* next_definition(const char* name) {
    void* const next = dlsym(RTLD_NEXT, name);
    if (next == nullptr) {
        std::fprintf(stderr, "no %s after the one that was called\n", name);
        std::abort();
    }
    return reinterpret_cast<Function*>(next);
}
