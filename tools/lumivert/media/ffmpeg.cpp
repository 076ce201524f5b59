#include "media/ffmpeg.h"

#include <mutex>
#include <utility>

#include "error.h"
#include "report.h"

namespace lumivert::tool {
namespace {

std::mutex mutex;
std::string first_error;
long error_count = 0;
thread_local bool quiet = false;

void on_log(void* context, int level, const char* format, va_list arguments) {
    if (level > (verbose ? AV_LOG_INFO : AV_LOG_ERROR)) return;
    char text[512];
    int print_prefix = 1;
    av_log_format_line2(context, level, format, arguments, text, sizeof text, &print_prefix);
    std::string line(text);
    // "[hevc @ 0x55d0c0ffee00] message": the address tells a user nothing.
    if (const auto at = line.find(" @ "), close = line.find("] "); at < close && close != std::string::npos)
        line.erase(at, close - at);
    while (!line.empty() && line.back() == '\n')
        line.pop_back();
    detail("FFmpeg: " + line);
    if (level > AV_LOG_ERROR || line.empty() || quiet) return;
    std::lock_guard lock(mutex);
    if (error_count++ == 0) first_error = line;
}

} // namespace

void collect_ffmpeg_log() {
    av_log_set_callback(on_log);
}

QuietFfmpeg::QuietFfmpeg() {
    quiet = true;
}
QuietFfmpeg::~QuietFfmpeg() {
    quiet = false;
}

std::string take_ffmpeg_errors() {
    std::lock_guard lock(mutex);
    const long count = std::exchange(error_count, 0);
    const std::string first = std::exchange(first_error, "");
    return count == 0 ? "" : "FFmpeg reported " + counted(count, "error") + ", the first: " + first;
}

int check(int result, const std::string& path) {
    if (result >= 0) return result;
    char reason[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(result, reason, sizeof reason);
    std::lock_guard lock(mutex);
    throw Error(path + ": " + reason + (first_error.empty() ? "" : " (" + first_error + ")"));
}

} // namespace lumivert::tool
