/// Reaches past this library. It defines OpenCL calls of the loader's names and comes before the loader in the symbol
/// order, so that everyone's calls pass through here first.
#pragma once

#include <CL/cl.h>
#include <CL/cl_ext.h>
#include <dlfcn.h>

/// `DRIVER(clFinish)` is the `clFinish` behind this library: the loader's.
#define DRIVER(name)                                                                                                   \
    ([] {                                                                                                              \
        static const auto next = reinterpret_cast<decltype(&::name)>(dlsym(RTLD_NEXT, #name));                         \
        return next;                                                                                                   \
    }())
