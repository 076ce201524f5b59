/// Shared by everything here that uses FFmpeg's libraries: ownership, errors, log lines.
#pragma once

#include <memory>
#include <mutex>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace lumivert::tool {

/// FFmpeg's own time base. Its macro for it does not compile as C++.
constexpr AVRational kMicroseconds = {1, AV_TIME_BASE};

/// Deletes through FFmpeg's functions that take the pointer's address.
template <auto Free>
struct FreeByAddress {
    template <typename T>
    void operator()(T* object) const {
        Free(&object);
    }
};

struct FreeScaler {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

using FramePtr = std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>>;
using PacketPtr = std::unique_ptr<AVPacket, FreeByAddress<av_packet_free>>;
using CodecPtr = std::unique_ptr<AVCodecContext, FreeByAddress<avcodec_free_context>>;
using DemuxerPtr = std::unique_ptr<AVFormatContext, FreeByAddress<avformat_close_input>>;
using ScalerPtr = std::unique_ptr<SwsContext, FreeScaler>;

/// Collects FFmpeg's error lines instead of printing them (--verbose prints all).
void collect_ffmpeg_log();

/// Errors that FFmpeg logged about one thing. A decoder logs in threads of its own too: theirs come here where the
/// `opaque` of the AVCodecContext points here.
class FfmpegErrors {
public:
    void add(const std::string& line);
    long count() const;
    std::string first() const;
    /// "FFmpeg reported 3 errors, the first: ..."; empty when there were none.
    std::string text() const;
    void clear();

private:
    mutable std::mutex mutex_;
    std::string first_;
    long count_ = 0;
};

/// While it lives, what this thread makes FFmpeg log comes to `errors`.
class ErrorsGoTo {
public:
    explicit ErrorsGoTo(FfmpegErrors& errors);
    ~ErrorsGoTo();
    ErrorsGoTo(const ErrorsGoTo&) = delete;
    ErrorsGoTo& operator=(const ErrorsGoTo&) = delete;

private:
    FfmpegErrors* const before_;
};

/// Takes the errors that went nowhere else.
std::string take_other_ffmpeg_errors();

/// The whole stream's side data of a type, null if there is none; and a new block of it to fill. FFmpeg 6.1 moved it
/// from the stream to the codec parameters.
const uint8_t* side_data_of(const AVStream& stream, AVPacketSideDataType type);
uint8_t* add_side_data(AVStream& stream, AVPacketSideDataType type, size_t bytes);
/// Makes decoded frames carry what the container says of light as well. FFmpeg 7 does so anyway where the stream says
/// nothing.
void give_side_data_to_frames(AVFormatContext& demuxer);

/// Throws "PATH: reason (what FFmpeg logged)" for a negative result; else gives it back.
int check(int result, const std::string& path);

/// A frame with memory of its own.
FramePtr new_frame(AVPixelFormat format, int width, int height);

} // namespace lumivert::tool
