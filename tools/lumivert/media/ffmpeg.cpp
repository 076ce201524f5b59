#include "media/ffmpeg.h"

#include <utility>

#include "error.h"
#include "io/limits.h"
#include "report.h"

namespace lumivert::tool {
namespace {

FfmpegErrors others;
thread_local FfmpegErrors* current = &others;

/// Where a line about `context` counts.
FfmpegErrors& errors_about(void* context) {
    const bool is_codec = context != nullptr && *static_cast<const AVClass**>(context) == avcodec_get_class();
    void* const own = is_codec ? static_cast<AVCodecContext*>(context)->opaque : nullptr;
    return own != nullptr ? *static_cast<FfmpegErrors*>(own) : *current;
}

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
    if (level > AV_LOG_ERROR || line.empty()) return;
    errors_about(context).add(line);
}

} // namespace

void collect_ffmpeg_log() {
    av_log_set_callback(on_log);
}

void FfmpegErrors::add(const std::string& line) {
    std::lock_guard lock(mutex_);
    if (count_++ == 0) first_ = line;
}

long FfmpegErrors::count() const {
    std::lock_guard lock(mutex_);
    return count_;
}

std::string FfmpegErrors::first() const {
    std::lock_guard lock(mutex_);
    return first_;
}

std::string FfmpegErrors::text() const {
    std::lock_guard lock(mutex_);
    return count_ == 0 ? "" : "FFmpeg reported " + counted(count_, "error") + ", the first: " + first_;
}

void FfmpegErrors::clear() {
    std::lock_guard lock(mutex_);
    count_ = 0;
    first_.clear();
}

ErrorsGoTo::ErrorsGoTo(FfmpegErrors& errors) : before_(std::exchange(current, &errors)) {}

ErrorsGoTo::~ErrorsGoTo() {
    current = before_;
}

std::string take_other_ffmpeg_errors() {
    std::string text = others.text();
    others.clear();
    return text;
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

void give_side_data_to_frames(AVFormatContext&) {}
#else
const uint8_t* side_data_of(const AVStream& stream, AVPacketSideDataType type) {
    return av_stream_get_side_data(&stream, type, nullptr);
}

uint8_t* add_side_data(AVStream& stream, AVPacketSideDataType type, size_t bytes) {
    return av_stream_new_side_data(&stream, type, bytes);
}

void give_side_data_to_frames(AVFormatContext& demuxer) {
    av_format_inject_global_side_data(&demuxer);
}
#endif

int check(int result, const std::string& path) {
    if (result >= 0) return result;
    if (result == AVERROR(EAGAIN)) throw Error(path + ": FFmpeg cannot start its threads" + limits_note());
    char reason[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(result, reason, sizeof reason);
    const std::string logged = current->first();
    throw Error(path + ": " + reason + (logged.empty() ? "" : " (" + logged + ")"));
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
