/// What OpenCL devices there are, and which one a converter would run on.
#pragma once

#include <string>
#include <vector>

#include <CL/cl.h>

namespace lumivert::tool {

struct Device {
    std::string number; ///< "0:1", platform and device, as --device takes it
    std::string platform, name, type, version, driver;
    bool used;          ///< the one that a converter would take
    bool native_import; ///< the driver imports buffers itself; else the host platform maps them
};

std::vector<Device> list_devices();

/// The device that a converter would take; an error when there is none.
Device used_device();

/// The same device for OpenCL calls; null when there is none.
cl_device_id device_in_use();

/// Asks for a device: part of its number, platform or name. Empty: the default, of the first platform, a GPU
/// before others.
void choose_device(const std::string& wanted);

} // namespace lumivert::tool
