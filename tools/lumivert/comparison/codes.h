/// Differences of two pictures code by code.
#pragma once

#include <string>
#include <vector>

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "media/ffmpeg.h"

namespace lumivert::tool {

/// Differences of one component.
struct Component {
    std::string name;
    double squares = 0, samples = 0;
    int largest = 0, x = 0, y = 0;
    int64_t frame = 0;

    /// In dB; infinite when equal.
    double psnr(int depth) const;
};

/// What differs in one frame at each pixel: of its components' differences the largest, with its sign (B minus A).
struct DifferenceMap {
    int width, height, largest = 0;
    int64_t frame = -1;
    std::vector<int32_t> values;
};

class CodeComparison {
public:
    CodeComparison(const AVPixFmtDescriptor& format, int width, int height);

    /// Compares the next pair of frames.
    void add(const AVFrame& a, const AVFrame& b, int tolerance);

    int depth() const { return format_.comp[0].depth; }
    std::vector<Component> components; ///< over all frames
    std::vector<Component> latest;     ///< of the last pair
    DifferenceMap current;             ///< of the last pair
    DifferenceMap worst;               ///< of the frame with the largest difference
    int64_t frames = 0, first_differing = -1;

private:
    void add_component(const AVFrame& a, const AVFrame& b, const AVComponentDescriptor& where, Component& component,
                       int shift_x, int shift_y);

    const AVPixFmtDescriptor& format_;
};

} // namespace lumivert::tool
