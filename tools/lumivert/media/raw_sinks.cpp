#include <memory>

#include "error.h"
#include "io/output_file.h"
#include "media/muxer.h"
#include "media/pixel_converter.h"
#include "media/sink.h"

namespace lumivert::tool {
namespace {

/// Packed frames without any header: rows cropped to the picture.
class PackedSink : public FrameSink {
public:
    explicit PackedSink(const OutputSpec& spec) : out_(spec.path) {}

    void write(const Picture& picture) override {
        const FormatInfo& format = info_of(picture.format);
        const size_t row_bytes = static_cast<size_t>(picture.width) * format.row_bytes;
        for (int plane = 0; plane < format.planes; ++plane) {
            const int rows = plane_rows(plane, picture.height);
            if (picture.width == picture.pitch)
                out_.write(picture.plane[plane], rows * row_bytes);
            else
                for (int y = 0; y < rows; ++y)
                    out_.write(row(picture, plane, y), row_bytes);
        }
    }
    void finish() override { out_.commit(); }

private:
    OutputStream out_;
};

/// Through FFmpeg's muxer, which writes frames' samples after a header that tells the range, but no matrix.
class Y4mSink : public FrameSink {
public:
    explicit Y4mSink(const OutputSpec& spec)
        : path_(spec.path), pixel_format_(spec.format == P010_LINEAR ? AV_PIX_FMT_YUV420P10LE : AV_PIX_FMT_YUV420P),
          planar_(spec.format, spec.width, spec.height, pixel_format_, spec.colour.matrix) {
        if (path_ != "-") file_ = std::make_unique<PendingFile>(path_);
        AVFormatContext* muxer = nullptr;
        check(avformat_alloc_output_context2(&muxer, nullptr, "yuv4mpegpipe", nullptr), path_);
        muxer_.reset(muxer);
        muxer->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL; // 10 bits
        const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_WRAPPED_AVFRAME);
        if (codec == nullptr) throw Error("this FFmpeg cannot write Y4M");
        encoder_.reset(avcodec_alloc_context3(codec));
        encoder_->width = spec.width;
        encoder_->height = spec.height;
        encoder_->pix_fmt = pixel_format_;
        encoder_->time_base = av_inv_q(spec.clip.frame_rate);
        encoder_->sample_aspect_ratio = spec.clip.sample_aspect_ratio;
        encoder_->color_range = AVCOL_RANGE_MPEG;
        encoder_->chroma_sample_location = AVCHROMA_LOC_LEFT;
        check(avcodec_open2(encoder_.get(), codec, nullptr), path_);
        AVStream* stream = avformat_new_stream(muxer, nullptr);
        if (stream == nullptr) throw Error(path_ + ": out of memory");
        stream->time_base = encoder_->time_base;
        stream->avg_frame_rate = spec.clip.frame_rate;
        stream->sample_aspect_ratio = encoder_->sample_aspect_ratio;
        check(avcodec_parameters_from_context(stream->codecpar, encoder_.get()), path_);
        check(avio_open(&muxer->pb, (file_ ? "file:" + file_->name() : "pipe:1").c_str(), AVIO_FLAG_WRITE), path_);
        check(avformat_write_header(muxer, nullptr), path_);
    }

    void write(const Picture& picture) override {
        AVFrame& frame = planar_.convert(picture);
        frame.pts = number_++;
        check(avcodec_send_frame(encoder_.get(), &frame), path_);
        check(avcodec_receive_packet(encoder_.get(), packet_.get()), path_);
        check(av_write_frame(muxer_.get(), packet_.get()), path_);
        av_packet_unref(packet_.get()); // lets go of the frame before the next one
        check(muxer_->pb->error, path_);
    }
    void finish() override {
        check(av_write_trailer(muxer_.get()), path_);
        check(avio_closep(&muxer_->pb), path_);
        if (file_) file_->commit();
    }

private:
    const std::string path_;
    const AVPixelFormat pixel_format_;
    PixelConverter planar_;
    std::unique_ptr<PendingFile> file_;
    MuxerPtr muxer_;
    CodecPtr encoder_;
    const PacketPtr packet_{av_packet_alloc()};
    int64_t number_ = 0;
};

} // namespace

std::unique_ptr<FrameSink> open_packed(const OutputSpec& spec) {
    return std::make_unique<PackedSink>(spec);
}
std::unique_ptr<FrameSink> open_y4m(const OutputSpec& spec) {
    return std::make_unique<Y4mSink>(spec);
}

} // namespace lumivert::tool
