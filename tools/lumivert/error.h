/// The tool's only error: one line for its user. `main` catches it and prints it after "lumivert: COMMAND: ".
#pragma once

#include <stdexcept>
#include <string>

namespace lumivert::tool {

struct Error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// "PATH: No such file or directory", from errno.
Error system_error(const std::string& path);

/// Exit statuses of every command.
enum ExitStatus { kDone = 0, kDoneWithWarnings = 1, kFailed = 2 };

} // namespace lumivert::tool
