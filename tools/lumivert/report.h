/// Lines for the user on standard error: "lumivert: COMMAND: ...".
#pragma once

#include <string>

namespace lumivert::tool {

/// Whether --verbose was given: shows what the library and FFmpeg log.
extern bool verbose;

void set_command(const std::string& name);

/// The result in a line.
void tell(const std::string& line);

/// Something the user should know; makes the exit status 1.
void warn(const std::string& line);

/// What --verbose adds.
void detail(const std::string& line);

/// Exit status of a command that came to its end.
int status_so_far();

/// "1 frame", "2 frames".
std::string counted(long count, const std::string& noun);

} // namespace lumivert::tool
