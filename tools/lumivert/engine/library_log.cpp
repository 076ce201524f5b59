#include "engine/library_log.h"

#include <atomic>
#include <cstring>
#include <string>

#include <android/log.h>

#include "android_log_sink.h"
#include "io/cleanup.h"
#include "report.h"

namespace lumivert::tool {
namespace {

std::atomic<int> errors = 0;

/// Errors that mean nothing here. Workstations have no /dev/ion, which the library reports at init and deinit. Frames
/// without metadata are counted in the command's summary.
bool is_routine(const char* message) {
    constexpr const char* kRoutine[] = {"[Formatter] error 85", "line is 143", "There is no HDR10 dynamic metadata!"};
    for (const char* part : kRoutine)
        if (std::strstr(message, part) != nullptr) return true;
    return false;
}

void on_line(int priority, const char* /*tag*/, const char* message) {
    std::string line = message;
    while (!line.empty() && (line.back() == '\n' || line.back() == ' '))
        line.pop_back();
    if (priority >= ANDROID_LOG_ERROR && !is_routine(message)) {
        ++errors;
        fail(line);
    } else {
        detail(line);
    }
}

void on_abort(const char* message) {
    give_up((std::string("the library gave up: ") + message).c_str());
}

} // namespace

void take_over_library_log() {
    platform::set_log_sink<on_line>();
    __android_log_set_aborter(on_abort);
    __android_log_set_minimum_priority(verbose ? ANDROID_LOG_DEBUG : ANDROID_LOG_INFO);
}

int library_errors() {
    return errors;
}

} // namespace lumivert::tool
