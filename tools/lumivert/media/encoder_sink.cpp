#include <cstring>

extern "C" {
#include <libavutil/opt.h>
}

#include "error.h"
#include "io/output_file.h"
#include "media/pixel_converter.h"
#include "media/sink.h"

namespace lumivert::tool {
namespace {

struct FreeMuxer {
    void operator()(AVFormatContext* muxer) const {
        if (muxer->pb != nullptr) avio_closep(&muxer->pb);
        avformat_free_context(muxer);
    }
};

/// Encodes and muxes one video track.
class EncoderSink : public FrameSink {
public:
    EncoderSink(const OutputSpec& spec, const char* container)
        : path_(spec.path), deep_(spec.format == P010_LINEAR),
          planar_(spec.format, spec.width, spec.height, deep_ ? AV_PIX_FMT_YUV420P10LE : AV_PIX_FMT_YUV420P,
                  spec.colour.matrix) {
        if (spec.path != "-") file_ = std::make_unique<PendingFile>(spec.path);
        AVFormatContext* muxer = nullptr;
        check(avformat_alloc_output_context2(&muxer, nullptr, container, nullptr), path_);
        muxer_.reset(muxer);
        open_encoder(spec);
        stream_ = avformat_new_stream(muxer, nullptr);
        if (stream_ == nullptr) throw Error(path_ + ": out of memory");
        stream_->time_base = encoder_->time_base;
        stream_->avg_frame_rate = spec.clip.frame_rate;
        stream_->sample_aspect_ratio = encoder_->sample_aspect_ratio;
        check(avcodec_parameters_from_context(stream_->codecpar, encoder_.get()), path_);
        // The tag under which all players, not only some, take HEVC in MP4.
        if (encoder_->codec_id == AV_CODEC_ID_HEVC && strcmp(container, "mp4") == 0)
            stream_->codecpar->codec_tag = MKTAG('h', 'v', 'c', '1');
        add_rotation(spec.clip);
        const std::string target = file_ ? "file:" + file_->name() : "pipe:1";
        muxer->url = av_strdup(target.c_str()); // read again to move the index to the front
        check(avio_open(&muxer->pb, target.c_str(), AVIO_FLAG_WRITE), path_);
        av_opt_set(muxer->priv_data, "movflags", "+faststart", 0);
        check(avformat_write_header(muxer, nullptr), path_);
    }

    void write(const Picture& picture) override {
        AVFrame& frame = planar_.convert(picture);
        frame.pts = picture.pts;
        encode(&frame);
    }

    void finish() override {
        encode(nullptr);
        check(av_write_trailer(muxer_.get()), path_);
        check(avio_closep(&muxer_->pb), path_);
        if (file_) file_->commit();
    }

private:
    void open_encoder(const OutputSpec& spec) {
        const std::string name = !spec.codec.empty() ? spec.codec : deep_ ? "hevc" : "h264";
        const std::string library = name == "hevc" ? "libx265" : "libx264";
        const AVCodec* codec = avcodec_find_encoder_by_name(library.c_str());
        if (codec == nullptr) throw Error("this FFmpeg has no encoder " + library);
        encoder_.reset(avcodec_alloc_context3(codec));
        AVCodecContext& e = *encoder_;
        e.width = spec.width;
        e.height = spec.height;
        e.pix_fmt = deep_ ? AV_PIX_FMT_YUV420P10LE : AV_PIX_FMT_YUV420P;
        e.time_base = spec.clip.time_base;
        e.framerate = spec.clip.frame_rate;
        e.sample_aspect_ratio = spec.clip.sample_aspect_ratio;
        e.color_primaries = spec.colour.primaries;
        e.color_trc = spec.colour.transfer;
        e.colorspace = spec.colour.matrix;
        e.color_range = AVCOL_RANGE_MPEG;
        e.chroma_sample_location = AVCHROMA_LOC_LEFT;
        if ((muxer_->oformat->flags & AVFMT_GLOBALHEADER) != 0) e.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        av_opt_set(e.priv_data, "preset", spec.preset.empty() ? "veryfast" : spec.preset.c_str(), 0);
        av_opt_set_double(e.priv_data, "crf", spec.quality, 0);
        if (library == "libx265") av_opt_set(e.priv_data, "x265-params", "log-level=error", 0);
        check(avcodec_open2(&e, codec, nullptr), path_);
    }

    void add_rotation(const ClipInfo& clip) {
        if (clip.display_matrix.empty()) return;
        const size_t bytes = clip.display_matrix.size() * sizeof(int32_t);
        if (uint8_t* data = add_side_data(*stream_, AV_PKT_DATA_DISPLAYMATRIX, bytes))
            memcpy(data, clip.display_matrix.data(), bytes);
    }

    /// A frame, or null at the end.
    void encode(const AVFrame* frame) {
        check(avcodec_send_frame(encoder_.get(), frame), path_);
        while (true) {
            const int result = avcodec_receive_packet(encoder_.get(), packet_.get());
            if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
            check(result, path_);
            packet_->stream_index = stream_->index;
            av_packet_rescale_ts(packet_.get(), encoder_->time_base, stream_->time_base);
            check(av_interleaved_write_frame(muxer_.get(), packet_.get()), path_);
            check(muxer_->pb->error, path_); // a full disk shows here first
        }
    }

    const std::string path_;
    const bool deep_;
    PixelConverter planar_;
    std::unique_ptr<PendingFile> file_;
    std::unique_ptr<AVFormatContext, FreeMuxer> muxer_;
    CodecPtr encoder_;
    AVStream* stream_ = nullptr;
    const PacketPtr packet_{av_packet_alloc()};
};

} // namespace

std::unique_ptr<FrameSink> open_mp4(const OutputSpec& spec) {
    return std::make_unique<EncoderSink>(spec, "mp4");
}
std::unique_ptr<FrameSink> open_mkv(const OutputSpec& spec) {
    return std::make_unique<EncoderSink>(spec, "matroska");
}

} // namespace lumivert::tool
