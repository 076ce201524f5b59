/// How this library calls OpenCL itself. It defines functions with the same names as the loader's and comes before the
/// loader in the symbol order, so that all OpenCL calls of the process arrive here first.
#pragma once

#include <CL/cl.h>
#include <CL/cl_ext.h>
#include <interpose.h>

/// `DRIVER(clFinish)` is the loader's `clFinish`, as a pointer to function.
#define DRIVER(name)                                                                                                   \
    ([] {                                                                                                              \
        static const auto next = next_definition<decltype(::name)>(#name);                                             \
        return next;                                                                                                   \
    }())

namespace lumivert::platform {

inline bool is_cpu(cl_device_id device) {
    cl_device_type type = 0;
    DRIVER(clGetDeviceInfo)(device, CL_DEVICE_TYPE, sizeof(type), &type, nullptr);
    return type & CL_DEVICE_TYPE_CPU;
}

} // namespace lumivert::platform
