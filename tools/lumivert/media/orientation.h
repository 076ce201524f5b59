/// How a clip's pictures are to be turned for showing, and pictures turned that way.
#pragma once

#include <cstdint>
#include <vector>

#include "media/ffmpeg.h"

namespace lumivert::tool {

/// One of the eight ways to lay a picture over itself: quarter turns, mirrored or not.
class Orientation {
public:
    /// From a display matrix, which may be empty. Other angles than quarter turns count as upright.
    explicit Orientation(const std::vector<int32_t>& display_matrix);

    bool upright() const { return xx_ == 1 && yy_ == 1; }
    /// Whether width and height change places.
    bool swaps_sides() const { return xx_ == 0; }
    /// Clockwise degrees: 0, 90, 180 or 270.
    int degrees() const;

    /// The picture as it is to be shown. Planar YUV or packed RGB.
    FramePtr turn(const AVFrame& picture) const;

private:
    int xx_ = 1, xy_ = 0, yx_ = 0, yy_ = 1; ///< a step right goes (xx, xy), a step down (yx, yy)
};

} // namespace lumivert::tool
