#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <limits>
#include <optional>

extern "C" {
#include <libavutil/opt.h>
}

#include "error.h"
#include "io/output_file.h"
#include "media/muxer.h"
#include "media/orientation.h"
#include "media/pixel_converter.h"
#include "media/sink.h"

namespace lumivert::tool {
namespace {

/// When packets are to be decoded, made from the times at which their pictures are shown. Encoders tell it as well, but
/// x265 3.5 takes it from memory that it never set where a clip has two pictures or fewer.
class DecodeTimes {
public:
    /// `lag` is how many pictures may come out of a decoder after one that follows them in the stream.
    DecodeTimes(int lag, int64_t step) : lag_(lag), step_(step) {}

    void shown_at(int64_t pts) {
        if (packets_ == 0 && shown_.empty()) first_ = pts;
        shown_.push_back(pts);
    }
    /// Of the next packet. It is never later than the packet's picture is shown: at most `lag` of the pictures before
    /// it come after it.
    int64_t next() {
        if (packets_++ < lag_) return first_ - (lag_ - packets_ + 1) * step_;
        const int64_t time = shown_.front();
        shown_.pop_front();
        return time;
    }

private:
    const int64_t lag_, step_;
    int64_t packets_ = 0, first_ = 0;
    std::deque<int64_t> shown_;
};

/// Encodes the pictures and muxes them with the clip's other tracks.
class EncoderSink : public FrameSink {
public:
    EncoderSink(const OutputSpec& spec, const char* container)
        : spec_(spec), path_(spec.path), deep_(spec.format == P010_LINEAR),
          // Players that know a rotation in Matroska are too few: the pictures themselves are turned there.
          orientation_(strcmp(container, "matroska") == 0 ? spec.clip.display_matrix : std::vector<int32_t>()),
          codec_(!spec.codec.empty() ? spec.codec
                 : deep_             ? "hevc"
                                     : "h264"),
          pixel_format_(choose_pixel_format()),
          pixels_(spec.format, spec.width, spec.height, pixel_format_, spec.colour.matrix) {
        if (path_ != "-") file_ = std::make_unique<PendingFile>(path_);
        AVFormatContext* muxer = nullptr;
        check(avformat_alloc_output_context2(&muxer, nullptr, container, nullptr), path_);
        muxer_.reset(muxer);
        open_encoder();
        stream_ = avformat_new_stream(muxer, nullptr);
        if (stream_ == nullptr) throw Error(path_ + ": out of memory");
        stream_->time_base = encoder_->time_base;
        stream_->avg_frame_rate = spec.clip.frame_rate;
        stream_->sample_aspect_ratio = encoder_->sample_aspect_ratio;
        stream_->disposition = AV_DISPOSITION_DEFAULT;
        check(avcodec_parameters_from_context(stream_->codecpar, encoder_.get()), path_);
        // The tag under which all players, not only some, take HEVC in MP4.
        if (encoder_->codec_id == AV_CODEC_ID_HEVC && strcmp(container, "matroska") != 0)
            stream_->codecpar->codec_tag = MKTAG('h', 'v', 'c', '1');
        if (orientation_.upright()) add_rotation();
        if (spec.clip.others) tracks_.emplace(spec.clip.others, *muxer);
        const std::string target = file_ ? "file:" + file_->name() : "pipe:1";
        muxer->url = av_strdup(target.c_str()); // read again to move the index to the front
        check(avio_open(&muxer->pb, target.c_str(), AVIO_FLAG_WRITE), path_);
        av_opt_set(muxer->priv_data, "movflags", "+faststart", 0);
    }

    void write(const Picture& picture) override {
        if (!times_) start(picture.pts);
        last_ = picture.pts;
        AVFrame& frame = pixels_.convert(picture);
        const FramePtr turned = orientation_.upright() ? nullptr : orientation_.turn(frame);
        AVFrame& upright = turned ? *turned : frame;
        upright.pts = picture.pts - start_;
        times_->shown_at(upright.pts);
        encode(&upright);
        copy_tracks_until(picture.pts);
    }

    void finish() override {
        encode(nullptr);
        copy_tracks_until(spec_.cut ? last_ + step() : std::numeric_limits<int64_t>::max());
        check(av_write_trailer(muxer_.get()), path_);
        check(avio_closep(&muxer_->pb), path_);
        if (file_) file_->commit();
    }

    std::string left_out() const override { return tracks_ ? tracks_->left_out() : ""; }

private:
    AVPixelFormat choose_pixel_format() const {
        if (deep_) return AV_PIX_FMT_YUV420P10LE;
        // x264 works on NV12 inside and copies the picture before it returns; only planar pictures can be turned.
        const bool as_it_is = spec_.format == NV12 && codec_ == "h264" && orientation_.upright();
        return as_it_is ? AV_PIX_FMT_NV12 : AV_PIX_FMT_YUV420P;
    }

    void open_encoder() {
        const std::string library = codec_ == "hevc" ? "libx265" : "libx264";
        const AVCodec* codec = avcodec_find_encoder_by_name(library.c_str());
        if (codec == nullptr) throw Error("this FFmpeg has no encoder " + library);
        encoder_.reset(avcodec_alloc_context3(codec));
        AVCodecContext& e = *encoder_;
        const bool on_its_side = orientation_.swaps_sides();
        const AVRational aspect = spec_.clip.sample_aspect_ratio;
        e.width = on_its_side ? spec_.height : spec_.width;
        e.height = on_its_side ? spec_.width : spec_.height;
        e.pix_fmt = pixel_format_;
        e.time_base = spec_.clip.time_base;
        e.framerate = spec_.clip.frame_rate;
        e.sample_aspect_ratio = on_its_side && aspect.num != 0 ? av_inv_q(aspect) : aspect;
        e.color_primaries = spec_.colour.primaries;
        e.color_trc = spec_.colour.transfer;
        e.colorspace = spec_.colour.matrix;
        e.color_range = AVCOL_RANGE_MPEG;
        e.chroma_sample_location = AVCHROMA_LOC_LEFT;
        if ((muxer_->oformat->flags & AVFMT_GLOBALHEADER) != 0) e.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        const std::string preset = spec_.preset.empty() ? "veryfast" : spec_.preset;
        av_opt_set(e.priv_data, "preset", preset.c_str(), 0);
        av_opt_set_double(e.priv_data, "crf", spec_.quality, 0);
        if (library == "libx265") av_opt_set(e.priv_data, "x265-params", "log-level=error", 0);
        const int opened = avcodec_open2(&e, codec, nullptr);
        if (opened < 0 && !spec_.preset.empty())
            throw Error("--preset " + preset + ": " + library +
                        " does not take it; presets go from ultrafast to placebo");
        check(opened, path_);
    }

    void add_rotation() {
        const auto& matrix = spec_.clip.display_matrix;
        if (matrix.empty() || strcmp(muxer_->oformat->name, "matroska") == 0) return;
        const size_t bytes = matrix.size() * sizeof(int32_t);
        if (uint8_t* data = add_side_data(*stream_, AV_PKT_DATA_DISPLAYMATRIX, bytes))
            memcpy(data, matrix.data(), bytes);
    }

    /// Duration of a frame in the clip's time base.
    int64_t step() const {
        return std::max<int64_t>(1, av_rescale_q(1, av_inv_q(spec_.clip.frame_rate), spec_.clip.time_base));
    }

    int64_t microseconds(int64_t time) const { return av_rescale_q(time, spec_.clip.time_base, kMicroseconds); }

    /// With the first picture, when it is known which time of the clip becomes 0.
    void start(int64_t first) {
        start_ = spec_.cut ? first : spec_.clip.start;
        constexpr int kMostLag = 2; // of x264 and x265: two levels of pictures that wait for a later one
        times_.emplace(encoder_->codec_id == AV_CODEC_ID_H264 ? encoder_->has_b_frames : kMostLag, step());
        const int64_t length = std::lround(spec_.seconds * AV_TIME_BASE);
        if (tracks_)
            tracks_->start(microseconds(start_),
                           length > 0 ? microseconds(start_) + length : std::numeric_limits<int64_t>::max(), spec_.cut);
        check(avformat_write_header(muxer_.get(), nullptr), path_);
    }

    void copy_tracks_until(int64_t time) {
        if (!tracks_) return;
        tracks_->write_until(time == std::numeric_limits<int64_t>::max() ? time : microseconds(time));
        check(muxer_->pb->error, path_);
    }

    /// A frame, or null at the end.
    void encode(const AVFrame* frame) {
        check(avcodec_send_frame(encoder_.get(), frame), path_);
        while (true) {
            const int result = avcodec_receive_packet(encoder_.get(), packet_.get());
            if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
            check(result, path_);
            packet_->stream_index = stream_->index;
            packet_->dts = times_->next();
            av_packet_rescale_ts(packet_.get(), encoder_->time_base, stream_->time_base);
            check(av_interleaved_write_frame(muxer_.get(), packet_.get()), path_);
            check(muxer_->pb->error, path_); // a full disk shows here first
        }
    }

    const OutputSpec spec_;
    const std::string path_;
    const bool deep_;
    const Orientation orientation_; ///< upright where the container tells players how to turn the pictures
    const std::string codec_;
    const AVPixelFormat pixel_format_;
    PixelConverter pixels_;
    std::unique_ptr<PendingFile> file_;
    MuxerPtr muxer_;
    CodecPtr encoder_;
    AVStream* stream_ = nullptr;
    std::optional<TrackCopier> tracks_;
    std::optional<DecodeTimes> times_;
    int64_t start_ = 0, last_ = 0;
    const PacketPtr packet_{av_packet_alloc()};
};

} // namespace

std::unique_ptr<FrameSink> open_mp4(const OutputSpec& spec) {
    return std::make_unique<EncoderSink>(spec, "mp4");
}
std::unique_ptr<FrameSink> open_mov(const OutputSpec& spec) {
    return std::make_unique<EncoderSink>(spec, "mov");
}
std::unique_ptr<FrameSink> open_mkv(const OutputSpec& spec) {
    return std::make_unique<EncoderSink>(spec, "matroska");
}

} // namespace lumivert::tool
