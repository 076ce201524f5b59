#include "platform/paths.h"

#include <cstdlib>

namespace lumivert::platform {

std::string resolve_path(const std::string& device_path) {
    // The variables that Android itself uses for the roots of its data and shared storage.
    static constexpr struct {
        const char* root;
        const char* variable;
    } kMoved[] = {{"/data", "ANDROID_DATA"}, {"/sdcard", "EXTERNAL_STORAGE"}};

    for (const auto& [root, variable] : kMoved) {
        const std::string prefix = root;
        const bool inside = device_path == prefix || device_path.rfind(prefix + '/', 0) == 0;
        const char* here = std::getenv(variable);
        if (inside && here && *here) return here + device_path.substr(prefix.size());
    }
    return device_path;
}

} // namespace lumivert::platform
