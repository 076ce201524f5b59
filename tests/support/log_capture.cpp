#include "support/log_capture.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include <android/log.h>

#include "android_log_sink.h"

namespace {

std::mutex g_mutex;
std::vector<LogCapture::Line> g_lines;

void collect(int priority, const char* tag, const char* message) {
    const std::lock_guard lock(g_mutex);
    g_lines.push_back({priority, tag == nullptr ? "" : tag, message});
}

} // namespace

/// In place of the platform's: shows condition, tag and message, which liblog would merge.
extern "C" void __android_log_assert(const char* condition, const char* tag, const char* format, ...) {
    char message[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message, sizeof(message), format, arguments);
    va_end(arguments);
    std::fprintf(stderr, "ASSERT [%s] tag %s: %s\n", condition, tag == nullptr ? "none" : tag, message);
    std::_Exit(134);
}

LogCapture::LogCapture() {
    clear();
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    lumivert::platform::set_log_sink<collect>();
}

LogCapture::~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
}

const std::vector<LogCapture::Line>& LogCapture::lines() const {
    return g_lines;
}

std::vector<std::string> LogCapture::texts() const {
    std::vector<std::string> texts;
    for (const Line& line : g_lines) {
        const char* letter = line.priority == ANDROID_LOG_ERROR   ? "E "
                             : line.priority == ANDROID_LOG_INFO  ? "I "
                             : line.priority == ANDROID_LOG_DEBUG ? "D "
                                                                  : "wrong priority: ";
        texts.push_back((line.tag == "Lumivert" ? letter : "wrong tag: ") + line.text);
    }
    return texts;
}

int LogCapture::count(const std::string& line) const {
    const auto all = texts();
    return static_cast<int>(std::count(all.begin(), all.end(), line));
}

void LogCapture::clear() {
    const std::lock_guard lock(g_mutex);
    g_lines.clear();
}
