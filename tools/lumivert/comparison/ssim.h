/// Structural similarity, by FFmpeg's filter.
#pragma once

#include <vector>

#include "media/ffmpeg.h"

struct AVFilterGraph;
struct AVFilterContext;

namespace lumivert::tool {

class Ssim {
public:
    Ssim(int width, int height, AVPixelFormat format);
    ~Ssim();
    Ssim(const Ssim&) = delete;
    Ssim& operator=(const Ssim&) = delete;

    /// The next pair. The filter keeps references to both.
    void add(const AVFrame& a, const AVFrame& b);
    /// All values, in order: 1 for equal frames.
    const std::vector<double>& finish();

private:
    void push(AVFilterContext* input, const AVFrame* frame) const;
    void pull();

    AVFilterGraph* graph_ = nullptr;
    AVFilterContext *inputs_[2] = {}, *output_ = nullptr;
    int64_t frames_ = 0;
    std::vector<double> values_;
};

} // namespace lumivert::tool
