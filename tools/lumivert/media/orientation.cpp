#include "media/orientation.h"

#include <cstring>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace lumivert::tool {
namespace {

int sign(int32_t value) {
    return (value > 0) - (value < 0);
}

} // namespace

Orientation::Orientation(const std::vector<int32_t>& matrix) {
    if (matrix.size() != 9) return;
    const int xx = sign(matrix[0]), xy = sign(matrix[1]), yx = sign(matrix[3]), yy = sign(matrix[4]);
    const bool quarter = (xx != 0 && yy != 0 && xy == 0 && yx == 0) || (xx == 0 && yy == 0 && xy != 0 && yx != 0);
    if (!quarter) return;
    xx_ = xx;
    xy_ = xy;
    yx_ = yx;
    yy_ = yy;
}

int Orientation::degrees() const {
    if (swaps_sides()) return xy_ > 0 ? 90 : 270;
    return xx_ < 0 ? 180 : 0;
}

FramePtr Orientation::turn(const AVFrame& picture) const {
    FramePtr turned =
        new_frame(static_cast<AVPixelFormat>(picture.format), swaps_sides() ? picture.height : picture.width,
                  swaps_sides() ? picture.width : picture.height);
    turned->color_range = picture.color_range;
    const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture.format));
    const int planes = av_pix_fmt_count_planes(static_cast<AVPixelFormat>(picture.format));
    for (int plane = 0; plane < planes; ++plane) {
        const bool chroma = plane > 0;
        const int width = picture.width >> (chroma ? format->log2_chroma_w : 0);
        const int height = picture.height >> (chroma ? format->log2_chroma_h : 0);
        const ptrdiff_t size = format->comp[plane].step;
        // Where the first pixel goes, and how far a step right or down leads from there.
        const int x0 = (xx_ < 0 ? width - 1 : 0) + (yx_ < 0 ? height - 1 : 0);
        const int y0 = (xy_ < 0 ? width - 1 : 0) + (yy_ < 0 ? height - 1 : 0);
        const ptrdiff_t pitch = turned->linesize[plane];
        const ptrdiff_t right = xx_ * size + xy_ * pitch, down = yx_ * size + yy_ * pitch;
        uint8_t* const origin = turned->data[plane] + y0 * pitch + x0 * size;
        for (int y = 0; y < height; ++y) {
            const uint8_t* from = picture.data[plane] + static_cast<ptrdiff_t>(y) * picture.linesize[plane];
            uint8_t* to = origin + y * down;
            for (int x = 0; x < width; ++x, from += size, to += right)
                std::memcpy(to, from, size);
        }
    }
    return turned;
}

} // namespace lumivert::tool
