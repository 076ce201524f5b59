/// The surroundings of a conversion: the folder for compiled programs, the OpenCL device, and the environment variables
/// and system properties that pass both to the library, its platform and the drivers.
#pragma once

#include <string>
#include <vector>

namespace lumivert::tool {

/// An OpenCL device.
struct Device {
    std::string number; ///< "0:1", platform and device, as --device takes it
    std::string platform, name, type, version, driver;
    bool native_import; ///< the driver imports buffers itself; otherwise the host platform maps them
};

/// A command that converts makes one, before anything else of OpenCL or the converter, and passes it on. These settings
/// belong to the process, so there is one object at a time.
class Environment {
public:
    /// `wanted` is part of a device's number, platform or name. Empty: what LUMIVERT_OPENCL_DEVICE asks for, or the
    /// default, which is the first platform's GPU, or its first device where it has no GPU. Throws where no device
    /// matches.
    explicit Environment(const std::string& wanted = "");
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

    const std::vector<Device>& devices() const { return devices_; }
    /// The device that converters run on.
    const Device& device() const { return devices_[used_]; }

    /// Where compiled programs are kept: $XDG_CACHE_HOME/lumivert or ~/.cache/lumivert. Where that cannot be written or
    /// is full, a temporary folder that is removed at exit.
    const std::string& cache_folder() const { return cache_folder_; }

    /// Makes the library keep its program under `data_folder`, which stands for the device's data partition, and start
    /// over whenever `build` is not the one that wrote it.
    void set_program_place(const std::string& data_folder, const std::string& build) const;

private:
    std::string cache_folder_;
    std::vector<Device> devices_;
    size_t used_ = 0;
};

} // namespace lumivert::tool
