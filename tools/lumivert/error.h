/// The one error of the tool: a line for its user. Caught in main, which puts "lumivert: COMMAND: " before it.
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
enum ExitStatus { done = 0, done_with_warnings = 1, failed = 2 };

} // namespace lumivert::tool
