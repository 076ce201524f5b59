#include "media/ffmpeg.h"

#include <mutex>
#include <utility>

#include "error.h"
#include "io/limits.h"
#include "report.h"

namespace lumivert::tool {
namespace {

std::mutex mutex;
std::string first_error;
long error_count = 0, errors_taken = 0;
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
    errors_taken += count;
    const std::string first = std::exchange(first_error, "");
    return count == 0 ? "" : "FFmpeg reported " + counted(count, "error") + ", the first: " + first;
}

#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(60, 31, 100) // 6.1
const uint8_t* side_data_of(const AVStream& stream, AVPacketSideDataType type) {
    const AVCodecParameters& codec = *stream.codecpar;
    const auto* found = av_packet_side_data_get(codec.coded_side_data, codec.nb_coded_side_data, type);
    return found != nullptr ? found->data : nullptr;
}

uint8_t* add_side_data(AVStream& stream, AVPacketSideDataType type, size_t bytes) {
    AVCodecParameters& codec = *stream.codecpar;
    auto* added = av_packet_side_data_new(&codec.coded_side_data, &codec.nb_coded_side_data, type, bytes, 0);
    return added != nullptr ? added->data : nullptr;
}
#else
const uint8_t* side_data_of(const AVStream& stream, AVPacketSideDataType type) {
    return av_stream_get_side_data(&stream, type, nullptr);
}

uint8_t* add_side_data(AVStream& stream, AVPacketSideDataType type, size_t bytes) {
    return av_stream_new_side_data(&stream, type, bytes);
}
#endif

long ffmpeg_error_count() {
    const std::lock_guard lock(mutex);
    return errors_taken + error_count;
}

int check(int result, const std::string& path) {
    if (result >= 0) return result;
    if (result == AVERROR(EAGAIN)) throw Error(path + ": FFmpeg cannot start its threads" + limits_note());
    char reason[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(result, reason, sizeof reason);
    std::lock_guard lock(mutex);
    throw Error(path + ": " + reason + (first_error.empty() ? "" : " (" + first_error + ")"));
}

FramePtr new_frame(AVPixelFormat format, int width, int height) {
    FramePtr frame(av_frame_alloc());
    frame->format = format;
    frame->width = width;
    frame->height = height;
    check(av_frame_get_buffer(frame.get(), 0), "frame memory");
    return frame;
}

} // namespace lumivert::tool
