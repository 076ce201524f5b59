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

    /// The converted frame, valid until the next call; its buffers are not changed afterwards. Where
    /// both formats are the same, it is the picture itself, valid as long as that is.
    AVFrame& convert(const Picture& picture);

private:
    AVFrame& wrap(const Picture& picture);

    FramePtr frame_;
    ScalerPtr scaler_; ///< null where nothing is to be converted
};

AVPixelFormat av_format(_Image_ColorFormat format);

} // namespace lumivert::tool
