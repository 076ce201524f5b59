#include <cstdio>

#include "io/output_file.h"
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

class Y4mSink : public FrameSink {
public:
    explicit Y4mSink(const OutputSpec& spec)
        : deep_(spec.format == P010_LINEAR), out_(spec.path),
          planar_(spec.format, spec.width, spec.height, deep_ ? AV_PIX_FMT_YUV420P10LE : AV_PIX_FMT_YUV420P,
                  spec.colour.matrix) {
        char header[200];
        const AVRational aspect = spec.clip.sample_aspect_ratio;
        std::snprintf(header, sizeof header, "YUV4MPEG2 W%d H%d F%d:%d Ip A%d:%d %s XCOLORRANGE=LIMITED\n", spec.width,
                      spec.height, spec.clip.frame_rate.num, spec.clip.frame_rate.den, aspect.num,
                      aspect.num == 0 ? 0 : aspect.den, deep_ ? "C420p10 XYSCSS=420P10" : "C420mpeg2 XYSCSS=420MPEG2");
        out_.write(header);
    }

    void write(const Picture& picture) override {
        out_.write("FRAME\n");
        const AVFrame& frame = planar_.convert(picture);
        for (int plane = 0; plane < 3; ++plane) {
            const int columns = plane == 0 ? picture.width : picture.width / 2;
            for (int y = 0; y < plane_rows(plane, picture.height); ++y)
                out_.write(frame.data[plane] + static_cast<ptrdiff_t>(y) * frame.linesize[plane],
                           static_cast<size_t>(columns) * (deep_ ? 2 : 1));
        }
    }
    void finish() override { out_.commit(); }

private:
    const bool deep_;
    OutputStream out_;
    PixelConverter planar_;
};

} // namespace

std::unique_ptr<FrameSink> open_packed(const OutputSpec& spec) {
    return std::make_unique<PackedSink>(spec);
}
std::unique_ptr<FrameSink> open_y4m(const OutputSpec& spec) {
    return std::make_unique<Y4mSink>(spec);
}

} // namespace lumivert::tool
