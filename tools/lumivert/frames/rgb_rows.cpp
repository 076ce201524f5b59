#include "frames/rgb_rows.h"

#include <algorithm>
#include <cmath>

namespace lumivert::tool {
namespace {

/// out[x] = weight * sample(x), or that added to what is there.
template <typename Sample, bool Add>
void accumulate(const YuvView::Component& from, int row, int count, float weight, float* out) {
    const auto* in = reinterpret_cast<const Sample*>(from.first + row * from.pitch);
    const int step = from.step / static_cast<int>(sizeof(Sample));
    const int shift = from.shift;
    const auto each = [&](auto distance) {
        for (int x = 0; x < count; ++x) {
            const float value = weight * static_cast<float>(in[x * distance] >> shift);
            out[x] = Add ? out[x] + value : value;
        }
    };
    if (step == 1)
        each(std::integral_constant<int, 1>());
    else if (step == 2)
        each(std::integral_constant<int, 2>());
    else
        each(step);
}

template <bool Add>
void accumulate(const YuvView& view, int component, int row, int count, float weight, float* out) {
    if (view.bits > 8)
        accumulate<uint16_t, Add>(view.component[component], row, count, weight, out);
    else
        accumulate<uint8_t, Add>(view.component[component], row, count, weight, out);
}

/// Two samples that a position lies between, and the weight of the second.
struct Between {
    int first, second;
    float weight;
};

Between between(int position, double site, int log2_step, int count) {
    const double at = (position - site) / (1 << log2_step);
    const double below = std::floor(at);
    const int first = static_cast<int>(below);
    return {std::clamp(first, 0, count - 1), std::clamp(first + 1, 0, count - 1), static_cast<float>(at - below)};
}

} // namespace

RgbRows::RgbRows(const YuvView& view, LumaWeights weights) : view_(view) {
    const double unit = 1 << (view.bits - 8), top = (1 << view.bits) - 1;
    const double luma_span = view.full_range ? top : 219 * unit;
    const double chroma_span = view.full_range ? top : 224 * unit;
    luma_scale_ = static_cast<float>(1 / luma_span);
    luma_offset_ = static_cast<float>(view.full_range ? 0 : -16 / 219.0);
    chroma_zero_ = static_cast<float>(128 * unit);
    const double green = 1 - weights.red - weights.blue;
    const double cr = 2 * (1 - weights.red), cb = 2 * (1 - weights.blue);
    red_from_cr_ = static_cast<float>(cr / chroma_span);
    blue_from_cb_ = static_cast<float>(cb / chroma_span);
    green_from_cr_ = static_cast<float>(-weights.red / green * cr / chroma_span);
    green_from_cb_ = static_cast<float>(-weights.blue / green * cb / chroma_span);
    const size_t width = static_cast<size_t>(view.width);
    for (auto* row : {&red_, &green_, &blue_, &wide_[0], &wide_[1]})
        row->resize(width);
    for (auto& row : narrow_)
        row.resize(((width + (1 << view.chroma_x) - 1) >> view.chroma_x) + 1);
}

void RgbRows::read_chroma(int y) {
    const int rows = (view_.height + (1 << view_.chroma_y) - 1) >> view_.chroma_y;
    const int columns = static_cast<int>(narrow_[0].size()) - 1;
    const Between line = view_.chroma_y == 0 ? Between{y, y, 0} : between(y, view_.site.y, view_.chroma_y, rows);
    for (int c = 0; c < 2; ++c) {
        float* narrow = narrow_[c].data();
        accumulate<false>(view_, c + 1, line.first, columns, 1 - line.weight, narrow);
        if (line.weight > 0) accumulate<true>(view_, c + 1, line.second, columns, line.weight, narrow);
        narrow[columns] = narrow[columns - 1]; // the right neighbour of the last
        float* wide = wide_[c].data();
        const int width = view_.width;
        if (view_.chroma_x == 0) {
            std::copy_n(narrow, width, wide);
        } else if (view_.chroma_x == 1 && view_.site.x == 0) {
            for (ptrdiff_t i = 0; i < width / 2; ++i) {
                wide[2 * i] = narrow[i];
                wide[2 * i + 1] = 0.5F * (narrow[i] + narrow[i + 1]);
            }
            if (width % 2 != 0) wide[width - 1] = narrow[columns - 1];
        } else {
            for (int x = 0; x < width; ++x) {
                const Between at = between(x, view_.site.x, view_.chroma_x, columns);
                wide[x] = narrow[at.first] + at.weight * (narrow[at.second] - narrow[at.first]);
            }
        }
    }
}

void RgbRows::read(int y) {
    read_chroma(y);
    const int width = view_.width;
    float* red = red_.data();
    float* green = green_.data();
    float* blue = blue_.data();
    accumulate<false>(view_, 0, y, width, luma_scale_, green);
    const float *cb = wide_[0].data(), *cr = wide_[1].data();
    const float zero = chroma_zero_, offset = luma_offset_;
    const float red_cr = red_from_cr_, green_cb = green_from_cb_, green_cr = green_from_cr_, blue_cb = blue_from_cb_;
    for (int x = 0; x < width; ++x) {
        const float luma = green[x] + offset, u = cb[x] - zero, v = cr[x] - zero;
        red[x] = luma + red_cr * v;
        green[x] = luma + green_cb * u + green_cr * v;
        blue[x] = luma + blue_cb * u;
    }
}

} // namespace lumivert::tool
