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
    : frame_(av_frame_alloc()) {
    frame_->format = to;
    frame_->width = width;
    frame_->height = height;
    frame_->color_range = to == AV_PIX_FMT_RGB24 ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    if (to == av_format(from)) return;
    scaler_.reset(sws_getContext(width, height, av_format(from), width, height, to,
                                 SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP, nullptr,
                                 nullptr, nullptr));
    if (!scaler_) throw Error("FFmpeg cannot convert the pictures to the output's pixel format");
    const int* weights = sws_getCoefficients(static_cast<int>(matrix)); // numbered alike
    sws_setColorspaceDetails(scaler_.get(), weights, 0, weights, 0, 0, 1 << 16, 1 << 16);
    check(av_frame_get_buffer(frame_.get(), 0), "frame memory");
}

AVFrame& PixelConverter::wrap(const Picture& picture) {
    const auto& format = info_of(picture.format);
    for (int i = 0; i < format.planes; ++i) {
        const int pitch = picture.pitch * format.row_bytes;
        auto* const plane = const_cast<uint8_t*>(picture.plane[i]); // marked as read-only
        const auto keep = [](void*, uint8_t*) {};
        av_buffer_unref(&frame_->buf[i]);
        frame_->buf[i] = av_buffer_create(plane, static_cast<size_t>(pitch) * plane_rows(i, picture.height), keep,
                                          nullptr, AV_BUFFER_FLAG_READONLY);
        if (frame_->buf[i] == nullptr) throw Error("frame memory: out of memory");
        frame_->data[i] = plane;
        frame_->linesize[i] = pitch;
    }
    return *frame_;
}

AVFrame& PixelConverter::convert(const Picture& picture) {
    if (!scaler_) return wrap(picture);
    check(av_frame_make_writable(frame_.get()), "frame memory");
    const int pitch = picture.pitch * info_of(picture.format).row_bytes;
    const uint8_t* const planes[] = {picture.plane[0], picture.plane[1]};
    const int pitches[] = {pitch, pitch};
    check(sws_scale(scaler_.get(), planes, pitches, 0, picture.height, frame_->data, frame_->linesize),
          "converting pixels");
    return *frame_;
}

} // namespace lumivert::tool
