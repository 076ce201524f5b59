#include "report.h"

#include <atomic>
#include <cstdio>

#include "error.h"

namespace lumivert::tool {

bool verbose = false;

namespace {

std::string prefix = "lumivert: ";
std::atomic<int> warning_count = 0;

void print(const char* kind, const std::string& line) {
    std::fprintf(stderr, "%s%s%s\n", prefix.c_str(), kind, line.c_str());
}

} // namespace

void set_command(const std::string& name) {
    prefix = "lumivert: " + name + ": ";
}

void tell(const std::string& line) {
    print("", line);
}

void warn(const std::string& line) {
    ++warning_count;
    print("warning: ", line);
}

void detail(const std::string& line) {
    if (verbose) print("", line);
}

int status_so_far() {
    return warning_count == 0 ? kDone : kDoneWithWarnings;
}

std::string counted(long count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

} // namespace lumivert::tool
