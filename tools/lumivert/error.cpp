#include "error.h"

#include <cerrno>
#include <cstring>

namespace lumivert::tool {

Error system_error(const std::string& path) {
    return Error(path + ": " + std::strerror(errno));
}

} // namespace lumivert::tool
