/// Where the library's files are: the only difference between systems that Android's own interfaces do not cover.
#pragma once

#include <string>

namespace lumivert::platform {

/// Maps a path of the device's file system to this system. On the device it is returned unchanged. On a workstation,
/// "/data" is replaced by $ANDROID_DATA and "/sdcard" by $EXTERNAL_STORAGE, if those are set, so that nothing needs
/// root.
std::string resolve_path(const std::string& device_path);

} // namespace lumivert::platform
