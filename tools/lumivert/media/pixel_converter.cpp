#include "media/pixel_converter.h"

#include "error.h"

namespace lumivert::tool {

AVPixelFormat av_format(_Image_ColorFormat format) {
    switch (format) {
    case P010_LINEAR:
        return AV_PIX_FMT_P010LE;
    case NV12:
        return AV_PIX_FMT_NV12;
    default:
        return AV_PIX_FMT_RGBA;
    }
}

PixelConverter::PixelConverter(_Image_ColorFormat from, int width, int height, AVPixelFormat to, AVColorSpace matrix)
    : frame_(av_frame_alloc()),
      scaler_(sws_getContext(width, height, av_format(from), width, height, to,
                             SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP, nullptr, nullptr,
                             nullptr)) {
    if (!scaler_) throw Error("FFmpeg cannot convert the pictures to the output's pixel format");
    const int* weights = sws_getCoefficients(static_cast<int>(matrix)); // numbered alike
    sws_setColorspaceDetails(scaler_.get(), weights, 0, weights, 0, 0, 1 << 16, 1 << 16);
    frame_->format = to;
    frame_->width = width;
    frame_->height = height;
    frame_->color_range = to == AV_PIX_FMT_RGB24 ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    check(av_frame_get_buffer(frame_.get(), 0), "frame memory");
}

AVFrame& PixelConverter::convert(const Picture& picture) {
    check(av_frame_make_writable(frame_.get()), "frame memory");
    const int pitch = picture.pitch * info_of(picture.format).row_bytes;
    const uint8_t* const planes[] = {picture.plane[0], picture.plane[1]};
    const int pitches[] = {pitch, pitch};
    check(sws_scale(scaler_.get(), planes, pitches, 0, picture.height, frame_->data, frame_->linesize),
          "converting pixels");
    return *frame_;
}

} // namespace lumivert::tool
