#include "html_report/stills.h"

#include <algorithm>

#include "error.h"
#include "hdr10plus/record_track.h"
#include "media/orientation.h"
#include "media/pixel_converter.h"

namespace lumivert::tool {
namespace {

constexpr int kQuality = 4; // of JPEG's quantiser, 1 (best) to 31

std::string jpeg(AVFrame& frame) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    if (codec == nullptr) throw Error("this FFmpeg cannot write JPEG");
    const CodecPtr encoder(avcodec_alloc_context3(codec));
    encoder->width = frame.width;
    encoder->height = frame.height;
    encoder->pix_fmt = static_cast<AVPixelFormat>(frame.format);
    encoder->color_range = AVCOL_RANGE_JPEG;
    encoder->time_base = {1, 25};
    encoder->thread_count = 1;
    encoder->flags |= AV_CODEC_FLAG_QSCALE;
    encoder->global_quality = FF_QP2LAMBDA * kQuality;
    frame.quality = encoder->global_quality;
    frame.pts = 0;
    check(avcodec_open2(encoder.get(), codec, nullptr), "JPEG");
    check(avcodec_send_frame(encoder.get(), &frame), "JPEG");
    const PacketPtr packet(av_packet_alloc());
    check(avcodec_receive_packet(encoder.get(), packet.get()), "JPEG");
    return {reinterpret_cast<const char*>(packet->data), static_cast<size_t>(packet->size)};
}

/// From limited-range planes over RGB, where both sides' matrices count, to JPEG.
class Shrinker {
public:
    Shrinker(const Geometry& geometry, _Image_ColorFormat from, AVColorSpace matrix, int width, int height,
             const Orientation& orientation)
        : geometry_(geometry), orientation_(orientation), rgb_(new_frame(AV_PIX_FMT_RGB24, width, height)),
          yuv_(new_frame(AV_PIX_FMT_YUVJ444P, width, height)),
          to_rgb_(sws_getContext(geometry.width, geometry.height, av_format(from), width, height, AV_PIX_FMT_RGB24,
                                 SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP, nullptr, nullptr, nullptr)),
          to_yuv_(sws_getContext(width, height, AV_PIX_FMT_RGB24, width, height, AV_PIX_FMT_YUVJ444P, SWS_BICUBIC,
                                 nullptr, nullptr, nullptr)) {
        if (!to_rgb_ || !to_yuv_) throw Error("FFmpeg cannot make stills of these pictures");
        const int* weights = sws_getCoefficients(static_cast<int>(matrix)); // numbered alike
        sws_setColorspaceDetails(to_rgb_.get(), weights, 0, weights, 0, 0, 1 << 16, 1 << 16);
    }

    std::string shrink(const Planes& planes) {
        const int pitch = geometry_.pitch * info_of(planes.format).row_bytes;
        const uint8_t* const data[] = {planes.first.data(), planes.second.data()};
        const int pitches[] = {pitch, pitch};
        check(sws_scale(to_rgb_.get(), data, pitches, 0, geometry_.height, rgb_->data, rgb_->linesize), "scaling");
        check(sws_scale(to_yuv_.get(), rgb_->data, rgb_->linesize, 0, rgb_->height, yuv_->data, yuv_->linesize),
              "scaling");
        return jpeg(orientation_.upright() ? *yuv_ : *orientation_.turn(*yuv_));
    }

private:
    const Geometry geometry_;
    const Orientation orientation_;
    FramePtr rgb_, yuv_;
    ScalerPtr to_rgb_, to_yuv_;
};

} // namespace

std::vector<Still> make_stills(FrameSource& source, const std::vector<int64_t>& frames, int widest, Mode automatic,
                               const Luminances& luminances, const Environment& environment,
                               const std::function<void(int64_t)>& progress) {
    const Geometry geometry(source.info().width, source.info().height);
    const int width = std::min(geometry.width, widest) / 2 * 2;
    const int height = std::max(2, static_cast<int>(int64_t{geometry.height} * width / geometry.width) / 2 * 2);
    const bool table = automatic == Mode::kStaticTable;
    const _Image_ColorFormat format = table ? P010_LINEAR : NV12;
    const Planes in(P010_LINEAR, geometry), out(format, geometry), plain(NV12, geometry);
    Converter automatically(geometry, automatic, Entry::kPool, environment);
    Converter by_default(geometry, Mode::kHdr10plus, Entry::kPool, environment);
    const Orientation orientation(source.info().display_matrix);
    const bool on_its_side = orientation.swaps_sides();
    Shrinker of_source(geometry, P010_LINEAR, AVCOL_SPC_BT2020_NCL, width, height, orientation);
    Shrinker of_result(geometry, format, AVCOL_SPC_BT709, width, height, orientation);
    Shrinker of_default(geometry, NV12, AVCOL_SPC_BT709, width, height, orientation);

    std::vector<Still> stills;
    RecordTrack track;
    SourceFrame found;
    auto wanted = frames.begin();
    for (int64_t number = 0; wanted != frames.end(); ++number) {
        const bool take = number == *wanted;
        if (!(take ? source.read(in, geometry, found) : source.skip(geometry, found))) break;
        track.advance(number, found.record);
        progress(number + 1);
        if (!take) continue;
        ++wanted;
        const Record* record = track.current() ? &*track.current() : nullptr;
        automatically.convert(in, out, record, luminances);
        by_default.convert(in, plain, nullptr, luminances);
        stills.push_back({number, on_its_side ? height : width, on_its_side ? width : height, of_source.shrink(in),
                          of_result.shrink(out), of_default.shrink(plain)});
    }
    return stills;
}

std::string base64(const std::string& bytes) {
    constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        uint32_t three = 0;
        for (size_t k = 0; k < 3; ++k)
            three = three << 8 | (i + k < bytes.size() ? static_cast<uint8_t>(bytes[i + k]) : 0U);
        for (size_t k = 0; k < 4; ++k)
            text += k <= bytes.size() - i ? kDigits[three >> (18 - 6 * k) & 63] : '=';
    }
    return text;
}

} // namespace lumivert::tool
