extern "C" {
#include <libavutil/pixdesc.h>
}

#include "error.h"
#include "media/source.h"
#include "report.h"

namespace lumivert::tool {
namespace {

class ClipSource : public FrameSource {
public:
    ClipSource(const std::string& path, bool as_pq, bool keep_others) : reader_(path, std::nullopt, keep_others) {
        const ClipInfo& clip = reader_.info();
        const auto refuse = [&](const std::string& why) {
            throw Error(reader_.path() + ": not an HDR10 clip: " + why + "; --as-pq converts it as if it were PQ");
        };
        if (as_pq) return;
        if (clip.transfer != AVCOL_TRC_SMPTE2084 && clip.transfer != AVCOL_TRC_UNSPECIFIED)
            refuse(std::string("its transfer is ") + av_color_transfer_name(clip.transfer));
        if (!is_10_bit_yuv(clip)) refuse("its samples are " + clip.pixel_format);
        if (clip.transfer == AVCOL_TRC_UNSPECIFIED) warn(reader_.path() + ": no transfer in its tags; taken as PQ");
    }

    const ClipInfo& info() const override { return reader_.info(); }
    bool has_records() override { return reader_.has_records_within(kFramesToLookAhead); }

    bool read(const Planes& p010, const Geometry& geometry, SourceFrame& out) override {
        ClipFrame clip;
        if (!advance(clip, out)) return false;
        const AVFrame& frame = *clip.frame;
        scaler_.reset(sws_getCachedContext(
            scaler_.release(), frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), geometry.width,
            geometry.height, AV_PIX_FMT_P010LE, SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
        if (!scaler_) throw Error(reader_.path() + ": " + info().pixel_format + " cannot be brought to P010");
        uint8_t* const planes[] = {p010.first.data(), p010.second.data()};
        const int pitches[] = {geometry.pitch * 2, geometry.pitch * 2};
        check(sws_scale(scaler_.get(), frame.data, frame.linesize, 0, frame.height, planes, pitches), reader_.path());
        return true;
    }

    bool skip(const Geometry&, SourceFrame& out) override {
        ClipFrame clip;
        if (!advance(clip, out)) return false;
        if (info().others) info().others->drop_before(av_rescale_q(clip.pts, info().time_base, kMicroseconds));
        return true;
    }

    double time_of_next() override { return reader_.time_of_next(); }
    bool loses_records() const override { return reader_.loses_records(); }
    void report() const override { reader_.report(); }

private:
    bool advance(ClipFrame& clip, SourceFrame& out) {
        if (!reader_.next(clip)) return false;
        out = {clip.number, clip.pts, clip.record};
        return true;
    }

    ClipReader reader_;
    ScalerPtr scaler_;
};

} // namespace

std::unique_ptr<FrameSource> open_clip(const std::string& path, bool as_pq, bool keep_others) {
    return std::make_unique<ClipSource>(path, as_pq, keep_others);
}

} // namespace lumivert::tool
