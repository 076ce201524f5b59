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

namespace lumivert::platform {

inline bool is_cpu(cl_device_id device) {
    cl_device_type type = 0;
    DRIVER(clGetDeviceInfo)(device, CL_DEVICE_TYPE, sizeof(type), &type, nullptr);
    return type & CL_DEVICE_TYPE_CPU;
}

} // namespace lumivert::platform
