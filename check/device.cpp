#include "device.h"

#include <CL/cl.h>

namespace lumivert::check {
namespace {

std::string text_of(cl_device_id device, cl_device_info what) {
    size_t length = 0;
    if (clGetDeviceInfo(device, what, 0, nullptr, &length) != CL_SUCCESS || length == 0) return "?";
    std::string text(length, '\0');
    clGetDeviceInfo(device, what, length, &text[0], nullptr);
    text.resize(length - 1); // without the terminating zero
    return text;
}

/// Whether a word stands in a list separated by blanks.
bool lists(const std::string& words, const std::string& word) {
    return (" " + words + " ").find(" " + word + " ") != std::string::npos;
}

} // namespace

void describe_device(Facts& facts) {
    cl_platform_id platform = nullptr;
    cl_device_id device = nullptr;
    cl_uint count = 0;
    facts.set("ok", 0);
    const cl_int platform_error = clGetPlatformIDs(1, &platform, &count);
    if (platform_error != CL_SUCCESS || count == 0)
        return facts.set("detail", format("no OpenCL platform, status %d", platform_error));
    const cl_int device_error = clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, &count);
    if (device_error != CL_SUCCESS || count == 0)
        return facts.set("detail", format("no OpenCL GPU, status %d", device_error));

    cl_uint units = 0;
    clGetDeviceInfo(device, CL_DEVICE_MAX_COMPUTE_UNITS, sizeof units, &units, nullptr);
    facts.set("name", text_of(device, CL_DEVICE_NAME));
    facts.set("vendor", text_of(device, CL_DEVICE_VENDOR));
    facts.set("driver", text_of(device, CL_DRIVER_VERSION));
    facts.set("opencl", text_of(device, CL_DEVICE_VERSION));
    facts.set("opencl_c", text_of(device, CL_DEVICE_OPENCL_C_VERSION));
    facts.set("compute_units", units);
    const std::string extensions = text_of(device, CL_DEVICE_EXTENSIONS);
    for (const char* const extension :
         {"cl_arm_import_memory", "cl_arm_import_memory_host", "cl_arm_import_memory_dma_buf"})
        facts.set(extension, lists(extensions, extension) ? 1 : 0);
    facts.set("ok", 1);
}

} // namespace lumivert::check
