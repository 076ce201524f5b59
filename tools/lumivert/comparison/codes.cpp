#include "comparison/codes.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace lumivert::tool {
namespace {

/// The samples of a row as numbers.
void read_row(const AVFrame& frame, const AVComponentDescriptor& component, int y, std::vector<int>& out) {
    const uint8_t* row =
        frame.data[component.plane] + static_cast<ptrdiff_t>(y) * frame.linesize[component.plane] + component.offset;
    const ptrdiff_t step = component.step;
    const auto width = static_cast<ptrdiff_t>(out.size());
    if (component.depth > 8)
        for (ptrdiff_t x = 0; x < width; ++x)
            out[x] = row[x * step] | row[x * step + 1] << 8;
    else
        for (ptrdiff_t x = 0; x < width; ++x)
            out[x] = row[x * step];
}

} // namespace

double Component::psnr(int depth) const {
    const double peak = std::ldexp(1.0, depth) - 1;
    return 10 * std::log10(peak * peak * samples / squares);
}

CodeComparison::CodeComparison(const AVPixFmtDescriptor& format, int width, int height)
    : current{width, height, 0, -1, {}}, worst{width, height, 0, -1, {}}, format_(format) {
    const bool rgb = (format.flags & AV_PIX_FMT_FLAG_RGB) != 0;
    const char* names[] = {rgb ? "R" : "Y", rgb ? "G" : "Cb", rgb ? "B" : "Cr"};
    for (int i = 0; i < std::min<int>(format.nb_components, 3); ++i)
        components.push_back({names[i]});
}

void CodeComparison::add(const AVFrame& a, const AVFrame& b, int tolerance) {
    current.largest = 0;
    current.frame = frames++;
    current.values.assign(static_cast<size_t>(a.width) * a.height, 0);
    latest.clear();
    for (size_t i = 0; i < components.size(); ++i) {
        const bool chroma = i > 0 && (format_.flags & AV_PIX_FMT_FLAG_RGB) == 0;
        Component one = {components[i].name};
        add_component(a, b, format_.comp[i], one, chroma ? format_.log2_chroma_w : 0,
                      chroma ? format_.log2_chroma_h : 0);
        Component& all = components[i];
        all.squares += one.squares;
        all.samples += one.samples;
        if (one.largest > all.largest) {
            all.largest = one.largest;
            all.x = one.x;
            all.y = one.y;
            all.frame = one.frame;
        }
        latest.push_back(std::move(one));
    }
    if (current.largest > tolerance && first_differing < 0) first_differing = current.frame;
    if (current.largest > worst.largest) worst = current;
}

void CodeComparison::add_component(const AVFrame& a, const AVFrame& b, const AVComponentDescriptor& where,
                                   Component& component, int shift_x, int shift_y) {
    const int width = AV_CEIL_RSHIFT(a.width, shift_x), height = AV_CEIL_RSHIFT(a.height, shift_y);
    std::vector<int> row_a(static_cast<size_t>(width)), row_b(row_a);
    int64_t squares = 0;
    for (int y = 0; y < height; ++y) {
        read_row(a, where, y, row_a);
        read_row(b, where, y, row_b);
        for (int x = 0; x < width; ++x) {
            const int difference = row_b[x] - row_a[x];
            if (difference == 0) continue;
            const int size = std::abs(difference);
            squares += int64_t{size} * size;
            if (size > component.largest) {
                component.largest = size;
                component.x = x;
                component.y = y;
                component.frame = current.frame;
            }
            current.largest = std::max(current.largest, size);
            int32_t& mark = current.values[static_cast<size_t>(y << shift_y) * a.width + (x << shift_x)];
            if (size > std::abs(mark)) mark = difference;
        }
    }
    component.squares += static_cast<double>(squares);
    component.samples += static_cast<double>(width) * height;
}

} // namespace lumivert::tool
