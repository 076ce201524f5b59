#include "report.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <utility>

#include <unistd.h>

#include "error.h"

namespace lumivert::tool {

bool verbose = false;
bool only_warnings = false;

namespace {

std::string prefix = "lumivert: ";
std::mutex mutex;
std::vector<std::string> warnings; ///< not yet taken
std::atomic<int> warning_count = 0;

void print(const char* kind, const std::string& line) {
    std::fprintf(stderr, "%s%s%s%s\n", over_progress(), prefix.c_str(), kind, line.c_str());
}

} // namespace

void set_command(const std::string& name) {
    prefix = "lumivert: " + name + ": ";
}

void tell(const std::string& line) {
    if (!only_warnings) print("", line);
}

void fail(const std::string& line) {
    print("", line);
}

std::vector<std::string> take_warnings() {
    std::lock_guard lock(mutex);
    return std::exchange(warnings, {});
}

void warn(const std::string& line) {
    ++warning_count;
    {
        std::lock_guard lock(mutex);
        warnings.push_back(line);
    }
    print("warning: ", line);
}

void detail(const std::string& line) {
    if (verbose) print("", line);
}

int status_so_far() {
    return warning_count == 0 ? kDone : kDoneWithWarnings;
}

const char* over_progress() {
    return isatty(STDERR_FILENO) == 1 ? "\r\033[K" : "";
}

std::string six_digits(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::string counted(long count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

} // namespace lumivert::tool
