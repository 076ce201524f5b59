#include "media/raw_reader.h"
#include "media/source.h"

namespace lumivert::tool {
namespace {

class RawSource : public FrameSource {
public:
    RawSource(const std::string& path, int width, int height, AVRational frame_rate)
        : reader_(path, {width, height, AV_PIX_FMT_P010LE}) {
        info_.container = "raw";
        info_.codec = "rawvideo";
        info_.pixel_format = "p010le";
        info_.width = width;
        info_.height = height;
        info_.depth = 10;
        info_.transfer = AVCOL_TRC_SMPTE2084;
        info_.frame_rate = frame_rate;
        info_.time_base = av_inv_q(frame_rate);
        info_.frames = reader_.frames();
    }

    const ClipInfo& info() const override { return info_; }

    bool read(const Planes& p010, const Geometry& geometry, SourceFrame& out) override {
        uint8_t* const planes[] = {p010.first.data(), p010.second.data()};
        const int pitches[] = {geometry.pitch * 2, geometry.pitch * 2};
        out.number = out.pts = number_;
        if (!reader_.read(planes, pitches)) return false;
        ++number_;
        return true;
    }

    bool skip(const Geometry& geometry, SourceFrame& out) override {
        if (!scratch_) scratch_ = std::make_unique<Planes>(P010_LINEAR, geometry);
        return read(*scratch_, geometry, out);
    }

    double time_of_next() override { return static_cast<double>(number_) * av_q2d(info_.time_base); }

private:
    RawReader reader_;
    int64_t number_ = 0;
    ClipInfo info_;
    std::unique_ptr<Planes> scratch_;
};

} // namespace

std::unique_ptr<FrameSource> open_raw(const std::string& path, int width, int height, AVRational frame_rate) {
    return std::make_unique<RawSource>(path, width, height, frame_rate);
}

} // namespace lumivert::tool
