// Which OpenCL device a workstation converts with.
//
// The library uses the first GPU of the first platform. On a workstation the order of platforms does not depend on the
// loader: those with a GPU come first, those without any device last, and otherwise they are sorted by name. Any other
// device of the first platform is used if it has no GPU. The environment variable LUMIVERT_OPENCL_DEVICE chooses a
// device by a part of its label, in any case: "1:0", "pthread", "geforce". A label is "PLATFORM:DEVICE PLATFORM NAME /
// DEVICE NAME", with two indices that count from 0 in that order. The first device whose label contains the text is
// used; if there is none, no device is found.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <unistd.h>

#include "driver.h"

namespace lumivert::platform {
namespace {

struct Device {
    cl_platform_id platform;
    cl_device_id id;
    std::string label;
};

std::string name_of(cl_platform_id platform) {
    char name[128] = "";
    DRIVER(clGetPlatformInfo)(platform, CL_PLATFORM_NAME, sizeof(name), name, nullptr);
    return name;
}

bool has_device(cl_platform_id platform, cl_device_type type) {
    cl_uint count = 0;
    return DRIVER(clGetDeviceIDs)(platform, type, 0, nullptr, &count) == CL_SUCCESS && count > 0;
}

/// PoCL learns the machine's memory from /sys and ends the process if it is not mounted, as in a bare chroot. Must run
/// before the loader loads the drivers.
void describe_machine_without_sys() {
    if (access("/sys/devices/system/cpu", F_OK) == 0) return;
    const long megabytes = sysconf(_SC_PHYS_PAGES) / 1024 * sysconf(_SC_PAGE_SIZE) / 1024;
    const std::string machine =
        "numanode:1(memory=" + std::to_string(megabytes) + "MB) pu:" + std::to_string(sysconf(_SC_NPROCESSORS_ONLN));
    setenv("HWLOC_SYNTHETIC", machine.c_str(), 0);
}

std::vector<cl_platform_id> platforms() {
    static std::once_flag once;
    std::call_once(once, describe_machine_without_sys);
    cl_uint count = 0;
    DRIVER(clGetPlatformIDs)(0, nullptr, &count);
    std::vector<cl_platform_id> found(count);
    if (count) DRIVER(clGetPlatformIDs)(count, found.data(), nullptr);
    const auto rank = [](cl_platform_id platform) {
        return std::make_tuple(!has_device(platform, CL_DEVICE_TYPE_GPU), !has_device(platform, CL_DEVICE_TYPE_ALL),
                               name_of(platform));
    };
    std::stable_sort(found.begin(), found.end(), [&](cl_platform_id a, cl_platform_id b) { return rank(a) < rank(b); });
    return found;
}

std::vector<Device> devices() {
    std::vector<Device> found;
    size_t platform_index = 0;
    for (cl_platform_id platform : platforms()) {
        const std::string platform_name = name_of(platform);
        cl_uint count = 0;
        DRIVER(clGetDeviceIDs)(platform, CL_DEVICE_TYPE_ALL, 0, nullptr, &count);
        std::vector<cl_device_id> ids(count);
        if (count) DRIVER(clGetDeviceIDs)(platform, CL_DEVICE_TYPE_ALL, count, ids.data(), nullptr);
        for (size_t i = 0; i < ids.size(); ++i) {
            char name[128] = "";
            DRIVER(clGetDeviceInfo)(ids[i], CL_DEVICE_NAME, sizeof(name), name, nullptr);
            found.push_back(
                {platform, ids[i],
                 std::to_string(platform_index) + ':' + std::to_string(i) + ' ' + platform_name + " / " + name});
        }
        ++platform_index;
    }
    return found;
}

/// The part of a label that the user has set; null if none.
const char* wanted() {
    const char* text = std::getenv("LUMIVERT_OPENCL_DEVICE");
    return text && *text ? text : nullptr;
}

std::optional<Device> find(const char* part_of_label) {
    for (const Device& device : devices())
        if (strcasestr(device.label.c_str(), part_of_label)) return device;
    return std::nullopt;
}

/// Returns a list of handles the way that clGetPlatformIDs and clGetDeviceIDs do.
template <typename Id>
cl_int answer(const std::vector<Id>& found, cl_uint room, Id* ids, cl_uint* count) {
    if ((ids && room == 0) || (!ids && !count)) return CL_INVALID_VALUE;
    if (ids) std::copy_n(found.begin(), std::min<size_t>(room, found.size()), ids);
    if (count) *count = static_cast<cl_uint>(found.size());
    return CL_SUCCESS;
}

} // namespace
} // namespace lumivert::platform

using namespace lumivert::platform;

/// All platforms; if a device was chosen, its platform comes first.
cl_int clGetPlatformIDs(cl_uint num_entries, cl_platform_id* ids, cl_uint* num_platforms) {
    std::vector<cl_platform_id> ordered = platforms();
    if (ordered.empty()) return DRIVER(clGetPlatformIDs)(num_entries, ids, num_platforms); // for its error code
    if (const std::optional<Device> chosen = wanted() ? find(wanted()) : std::nullopt)
        std::stable_partition(ordered.begin(), ordered.end(), [&](cl_platform_id p) { return p == chosen->platform; });
    return answer(ordered, num_entries, ids, num_platforms);
}

/// The chosen device, if one was chosen, whatever type is asked for. Otherwise the platform's own answer, except that
/// all its devices are returned if a GPU is asked for and it has none.
cl_int clGetDeviceIDs(cl_platform_id platform, cl_device_type type, cl_uint num_entries, cl_device_id* ids,
                      cl_uint* num_devices) {
    if (!platform) return CL_INVALID_PLATFORM;
    if (const char* part_of_label = wanted()) {
        const std::optional<Device> chosen = find(part_of_label);
        if (!chosen || chosen->platform != platform) return CL_DEVICE_NOT_FOUND;
        return answer<cl_device_id>({chosen->id}, num_entries, ids, num_devices);
    }
    const cl_int status = DRIVER(clGetDeviceIDs)(platform, type, num_entries, ids, num_devices);
    if (status != CL_DEVICE_NOT_FOUND || type != CL_DEVICE_TYPE_GPU) return status;
    return DRIVER(clGetDeviceIDs)(platform, CL_DEVICE_TYPE_ALL, num_entries, ids, num_devices);
}
