#include "platform/paths.h"

namespace lumivert::platform {

std::string resolve_path(const std::string& device_path) {
    return device_path;
}

} // namespace lumivert::platform
