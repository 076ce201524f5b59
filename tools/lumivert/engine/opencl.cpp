#include "engine/opencl.h"

#include <cstdlib>

#include "engine/program_cache.h"
#include "error.h"

namespace lumivert::tool {
namespace {

constexpr char kDeviceVariable[] = "LUMIVERT_OPENCL_DEVICE"; // read by the host platform

std::string text(cl_platform_id platform, cl_platform_info what) {
    char value[256] = "";
    clGetPlatformInfo(platform, what, sizeof value - 1, value, nullptr);
    return value;
}

std::string text(cl_device_id device, cl_device_info what) {
    char value[4096] = "";
    clGetDeviceInfo(device, what, sizeof value - 1, value, nullptr);
    return value;
}

std::string type_of(cl_device_id device) {
    cl_device_type type = 0;
    clGetDeviceInfo(device, CL_DEVICE_TYPE, sizeof type, &type, nullptr);
    return (type & CL_DEVICE_TYPE_GPU) != 0 ? "GPU" : (type & CL_DEVICE_TYPE_CPU) != 0 ? "CPU" : "accelerator";
}

template <typename Handle, typename Query>
std::vector<Handle> all(Query query) {
    cl_uint count = 0;
    query(0, nullptr, &count);
    std::vector<Handle> handles(count);
    if (count > 0) query(count, handles.data(), nullptr);
    return handles;
}

} // namespace

// As the converter asks: one GPU of the first platform. The host platform answers with what it has been told to use.
cl_device_id device_in_use() {
    cl_platform_id platform = nullptr;
    cl_device_id device = nullptr;
    if (clGetPlatformIDs(1, &platform, nullptr) != CL_SUCCESS) return nullptr;
    clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, nullptr);
    return device;
}

std::vector<Device> list_devices() {
    cache_folder();
    const cl_device_id used = device_in_use();
    // A choice hides the other devices: it is set aside while the list is made.
    const char* chosen = std::getenv(kDeviceVariable);
    const std::string kept = chosen != nullptr ? chosen : "";
    unsetenv(kDeviceVariable);
    std::vector<Device> devices;
    const auto platforms = all<cl_platform_id>(clGetPlatformIDs);
    for (size_t p = 0; p < platforms.size(); ++p) {
        const auto ids = all<cl_device_id>([&](cl_uint count, cl_device_id* list, cl_uint* found) {
            return clGetDeviceIDs(platforms[p], CL_DEVICE_TYPE_ALL, count, list, found);
        });
        for (size_t d = 0; d < ids.size(); ++d)
            devices.push_back({std::to_string(p) + ":" + std::to_string(d), text(platforms[p], CL_PLATFORM_NAME),
                               text(ids[d], CL_DEVICE_NAME), type_of(ids[d]), text(ids[d], CL_DEVICE_VERSION),
                               text(ids[d], CL_DRIVER_VERSION), ids[d] == used,
                               text(ids[d], CL_DEVICE_EXTENSIONS).find("cl_arm_import_memory") != std::string::npos});
    }
    if (!kept.empty()) setenv(kDeviceVariable, kept.c_str(), 1);
    return devices;
}

Device used_device() {
    const auto devices = list_devices();
    for (const Device& device : devices)
        if (device.used) return device;
    const char* wanted = std::getenv(kDeviceVariable);
    if (devices.empty())
        throw Error("no OpenCL device: install a driver, such as the package pocl-opencl-icd for the processor itself");
    throw Error("no OpenCL device matches '" + std::string(wanted != nullptr ? wanted : "") +
                "'; 'lumivert devices' lists them");
}

void choose_device(const std::string& wanted) {
    if (!wanted.empty()) setenv(kDeviceVariable, wanted.c_str(), 1);
}

} // namespace lumivert::tool
