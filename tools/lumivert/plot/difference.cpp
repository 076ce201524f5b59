#include "plot/difference.h"

#include <algorithm>
#include <cmath>

#include "plot/canvas.h"

namespace lumivert::tool {
namespace {

using namespace colours;

constexpr double kMargin = 16, kHead = 64, kFoot = 70;

/// Blue where B is below A, red where it is above, white where they are equal. Small differences are lifted, so that
/// a single code can be seen beside large ones.
uint32_t shade(double part) {
    const double strength = std::sqrt(std::min(std::abs(part), 1.0));
    const Colour end = part < 0 ? Colour{0.02, 0.19, 0.58} : Colour{0.70, 0.04, 0.15};
    const auto mix = [strength](double to) {
        return static_cast<uint32_t>(std::lround(255 * (1 + (to - 1) * strength)));
    };
    return mix(end.r) << 16 | mix(end.g) << 8 | mix(end.b);
}

/// How many pixels of the drawing a pixel of a small picture takes.
int zoom_of(int width) {
    return std::max(1, 600 / width);
}

template <typename Pixel>
std::vector<uint32_t> enlarged(int width, int height, int zoom, Pixel pixel) {
    std::vector<uint32_t> pixels(static_cast<size_t>(width) * height * zoom * zoom);
    size_t i = 0;
    for (int y = 0; y < height * zoom; ++y)
        for (int x = 0; x < width * zoom; ++x)
            pixels[i++] = pixel(x / zoom, y / zoom);
    return pixels;
}

std::vector<uint32_t> pixels_of(const DifferenceMap& map, int zoom) {
    const double top = std::max(map.largest, 1);
    return enlarged(map.width, map.height, zoom,
                    [&](int x, int y) { return shade(map.values[static_cast<size_t>(y) * map.width + x] / top); });
}

void draw_scale(Canvas& canvas, Point corner, double width, int largest) {
    const int top = std::max(largest, 1);
    for (int i = 0; i < static_cast<int>(width); ++i) {
        const uint32_t colour = shade(2 * (i + 0.5) / width - 1);
        canvas.fill({corner.first + i, corner.second}, 1.5, 14,
                    {(colour >> 16) / 255.0, (colour >> 8 & 255) / 255.0, (colour & 255) / 255.0});
    }
    canvas.frame(corner, width, 14, kQuiet);
    const double below = corner.second + 32;
    canvas.text({corner.first, below}, "\u2212" + std::to_string(top) + " codes: B below A", kInk, 13);
    canvas.text({corner.first + width / 2, below}, "0", kInk, 13, Align::kCentre);
    canvas.text({corner.first + width, below}, "+" + std::to_string(top) + ": B above A", kInk, 13, Align::kRight);
}

} // namespace

void draw_difference(const std::string& path, const std::string& caption, const DifferenceMap& map) {
    const int zoom = zoom_of(map.width), width = map.width * zoom, height = map.height * zoom;
    Canvas canvas(path, width + static_cast<int>(2 * kMargin), height + static_cast<int>(kHead + kFoot));
    canvas.text({kMargin, 28}, "B minus A, frame " + std::to_string(map.frame), kInk, 17, Align::kLeft, true);
    canvas.text({kMargin, 50}, caption, kQuiet, 13);
    canvas.image({kMargin, kHead}, pixels_of(map, zoom), width);
    canvas.frame({kMargin, kHead}, width, height, kQuiet);
    draw_scale(canvas, {kMargin, kHead + height + 18.0}, std::min(width, 640), map.largest);
    canvas.save();
}

void draw_side_by_side(const std::string& path, const std::string& name_a, const AVFrame& a, const std::string& name_b,
                       const AVFrame& b, const std::string& caption, const DifferenceMap& map) {
    const int zoom = zoom_of(map.width), width = map.width * zoom, height = map.height * zoom;
    Canvas canvas(path, 3 * width + static_cast<int>(4 * kMargin), height + static_cast<int>(kHead + kFoot));
    canvas.text({kMargin, 28}, "frame " + std::to_string(map.frame) + ": " + caption, kInk, 17, Align::kLeft, true);
    double x = kMargin;
    const auto next = [&](const std::string& title, const std::vector<uint32_t>& pixels) {
        canvas.text({x, 54}, title, kInk, 14);
        canvas.image({x, kHead}, pixels, width);
        canvas.frame({x, kHead}, width, height, kQuiet);
        x += width + kMargin;
    };
    const auto rgb = [&](const AVFrame& frame) {
        return enlarged(map.width, map.height, zoom, [&](int px, int py) {
            const uint8_t* at = frame.data[0] + static_cast<ptrdiff_t>(py) * frame.linesize[0] + ptrdiff_t{3} * px;
            return static_cast<uint32_t>(at[0] << 16 | at[1] << 8 | at[2]);
        });
    };
    next("A: " + name_a, rgb(a));
    next("B: " + name_b, rgb(b));
    draw_scale(canvas, {x, kHead + height + 18.0}, std::min(width, 640), map.largest);
    next("B minus A", pixels_of(map, zoom));
    canvas.save();
}

} // namespace lumivert::tool
