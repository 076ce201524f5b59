/// From the converter's formats to the ones that encoders and files want.
#pragma once

#include "frames/picture.h"
#include "media/ffmpeg.h"

namespace lumivert::tool {

/// Repacks pictures exactly where only the packing differs (P010 and NV12 to planes), and converts between RGB and
/// limited-range Y'CbCr where a writer needs the other.
class PixelConverter {
public:
    /// `matrix` is that of the Y'CbCr side, whichever that is.
    PixelConverter(_Image_ColorFormat from, int width, int height, AVPixelFormat to, AVColorSpace matrix);

    /// The converted frame, valid until the next call; its buffers are never changed after they were handed on.
    AVFrame& convert(const Picture& picture);

private:
    FramePtr frame_;
    ScalerPtr scaler_;
};

AVPixelFormat av_format(_Image_ColorFormat format);

} // namespace lumivert::tool
