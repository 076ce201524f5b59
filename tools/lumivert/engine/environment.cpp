#include "engine/environment.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

#include <CL/opencl.hpp>
#include <android-base/properties.h>
#include <dlfcn.h>
#include <unistd.h>

#include "engine/library_log.h"
#include "error.h"
#include "io/cleanup.h"
#include "io/limits.h"
#include "report.h"

namespace lumivert::tool {
namespace {

namespace fs = std::filesystem;

constexpr char kDeviceVariable[] = "LUMIVERT_OPENCL_DEVICE"; // read by the host platform
constexpr uintmax_t kRoomNeeded = 16 << 20;                  // a compiled program and the driver's own cache files

bool usable(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    return access(folder.c_str(), W_OK | X_OK) == 0 && fs::space(folder, error).available > kRoomNeeded && !error;
}

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

/// Empty where nothing says where it is.
std::string preferred_cache_folder() {
    const std::string cache = variable("XDG_CACHE_HOME"), home = variable("HOME");
    if (!cache.empty()) return cache + "/lumivert";
    return home.empty() ? "" : home + "/.cache/lumivert";
}

std::string choose_cache_folder() {
    const std::string places[] = {"/tmp/lumivert.XXXXXX", "/dev/shm/lumivert.XXXXXX"};
    for (const std::string& place : places)
        remove_abandoned(place, true);
    std::string preferred = preferred_cache_folder();
    if (!preferred.empty() && usable(preferred)) return preferred;
    const std::string name = preferred.empty() ? "the cache folder" : preferred;
    for (std::string folder : places) {
        if (make_temporary_folder(folder) < 0) continue; // locked until the process ends
        if (!usable(folder)) continue;
        detail(name + " cannot be written; compiling the GPU program anew");
        setenv("POCL_CACHE_DIR", (folder + "/pocl").c_str(), 0); // PoCL's own cache lies under ~/.cache as well
        return folder;
    }
    throw Error(name + ": no room to keep the compiled GPU program");
}

/// The devices of a platform; none where the query fails, as it does for a platform without devices.
std::vector<cl::Device> devices_of(const cl::Platform& platform, cl_device_type type) {
    std::vector<cl::Device> devices;
    try {
        platform.getDevices(type, &devices);
    } catch (const cl::Error&) {
        devices.clear();
    }
    return devices;
}

std::vector<cl::Platform> all_platforms() {
    std::vector<cl::Platform> platforms;
    try {
        cl::Platform::get(&platforms);
    } catch (const cl::Error&) {
        platforms.clear();
    }
    return platforms;
}

Device describe(const std::string& number, const cl::Platform& platform, const cl::Device& device) {
    const cl_device_type type = device.getInfo<CL_DEVICE_TYPE>();
    const char* type_name = (type & CL_DEVICE_TYPE_GPU) != 0   ? "GPU"
                            : (type & CL_DEVICE_TYPE_CPU) != 0 ? "CPU"
                                                               : "accelerator";
    const std::string extensions = device.getInfo<CL_DEVICE_EXTENSIONS>();
    return {number,
            platform.getInfo<CL_PLATFORM_NAME>(),
            device.getInfo<CL_DEVICE_NAME>(),
            type_name,
            device.getInfo<CL_DEVICE_VERSION>(),
            device.getInfo<CL_DRIVER_VERSION>(),
            extensions.find("cl_arm_import_memory") != std::string::npos};
}

/// What the converter gets when it asks for a GPU of the first platform. The host platform answers with the device that
/// was chosen.
std::optional<cl::Device> device_of_converter() {
    const auto platforms = all_platforms();
    if (platforms.empty()) return std::nullopt;
    const auto devices = devices_of(platforms[0], CL_DEVICE_TYPE_GPU);
    if (devices.empty()) return std::nullopt;
    return devices[0];
}

/// Why there are no devices. The OpenCL loader passes over drivers that it cannot load, so they are tried once more.
std::string why_no_devices() {
    const std::string vendors = variable("OCL_ICD_VENDORS");
    std::vector<fs::path> descriptions;
    std::error_code none;
    const fs::path folder = vendors.empty() ? "/etc/OpenCL/vendors" : vendors;
    if (folder.extension() == ".icd") descriptions.push_back(folder);
    for (const auto& entry : fs::directory_iterator(folder, none))
        if (entry.path().extension() == ".icd") descriptions.push_back(entry.path());
    if (descriptions.empty())
        return "no OpenCL driver is installed; for the processor itself there is the package pocl-opencl-icd";
    for (const fs::path& description : descriptions) {
        std::string library;
        std::getline(std::ifstream(description), library);
        if (dlopen(library.c_str(), RTLD_NOW) == nullptr)
            return std::string("an OpenCL driver cannot be loaded: ") + dlerror();
    }
    return "no OpenCL driver finds a device";
}

} // namespace

Environment::Environment(const std::string& wanted) {
    require_descriptors();
    take_over_library_log();
    if (verbose) android::base::SetProperty("vendor.Lumivert.debug.level", "3");
    cache_folder_ = choose_cache_folder(); // before any OpenCL call: drivers look for their caches then

    const std::string choice = wanted.empty() ? variable(kDeviceVariable) : wanted;
    setenv(kDeviceVariable, choice.c_str(), 1);
    const auto used = device_of_converter();

    // A choice hides the other devices, so it is set aside while the list is made.
    unsetenv(kDeviceVariable);
    const auto platforms = all_platforms();
    bool found = false;
    for (size_t p = 0; p < platforms.size(); ++p) {
        const auto devices = devices_of(platforms[p], CL_DEVICE_TYPE_ALL);
        for (size_t d = 0; d < devices.size(); ++d) {
            if (used && devices[d]() == (*used)()) {
                used_ = devices_.size();
                found = true;
            }
            devices_.push_back(describe(std::to_string(p) + ":" + std::to_string(d), platforms[p], devices[d]));
        }
    }
    setenv(kDeviceVariable, choice.c_str(), 1);
    if (devices_.empty()) throw Error(why_no_devices() + limits_note());
    if (!found && choice.empty())
        throw Error("the first OpenCL platform offers no device" + std::string(limits_note()));
    if (!found) throw Error("no OpenCL device matches '" + choice + "'; 'lumivert devices' lists them");
}

void Environment::set_program_place(const std::string& data_folder, const std::string& build) const {
    setenv("ANDROID_DATA", data_folder.c_str(), 1);
    android::base::SetProperty("ro.build.fingerprint", build);
}

} // namespace lumivert::tool
