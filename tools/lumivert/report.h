/// Lines for the user on standard error: "lumivert: COMMAND: ...".
#pragma once

#include <string>
#include <vector>

namespace lumivert::tool {

/// Whether --verbose was given: shows what the library and FFmpeg log.
extern bool verbose;

/// Whether --quiet was given: no lines but warnings and errors.
extern bool only_warnings;

void set_command(const std::string& name);

/// The result in a line.
void tell(const std::string& line);

/// Why a command failed.
void fail(const std::string& line);

/// Something the user should know; makes the exit status 1.
void warn(const std::string& line);

/// The warnings since the last call.
std::vector<std::string> take_warnings();

/// What --verbose adds.
void detail(const std::string& line);

/// Exit status of a command that came to its end.
int status_so_far();

/// What a line on standard error begins with, so that it takes the place of the progress.
const char* over_progress();

/// A number with six digits at most.
std::string six_digits(double value);

/// "1 frame", "2 frames".
std::string counted(long count, const std::string& noun);

} // namespace lumivert::tool
