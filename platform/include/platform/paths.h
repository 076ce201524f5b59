/// The seam between the library and the operating system, as far as the system's own interfaces do not cover it.
#pragma once

#include <string>

namespace lumivert::platform {

/// Where a path of the device's file system lies here. On the device: there. On a workstation: "/data" becomes
/// $ANDROID_DATA and "/sdcard" becomes $EXTERNAL_STORAGE where those are set, so that nothing needs root.
std::string resolve_path(const std::string& device_path);

} // namespace lumivert::platform
