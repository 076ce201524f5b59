#include <algorithm>
#include <cmath>

#include "hdr10plus/pixel_chain.h"
#include "plot/canvas.h"
#include "plot/curves.h"
#include "plot/luminance_axis.h"

namespace lumivert::tool {
namespace {

using namespace colours;

constexpr int kWidth = 1280, kHeight = 680;
constexpr int kLeft = 86, kRight = 1080, kTop = 84, kBottom = 580;

/// Dark blue over green to yellow: even steps of lightness, also for the colour-blind.
Colour shade(double part) {
    constexpr Colour kStops[] = {{0.10, 0.07, 0.25}, {0.20, 0.28, 0.55}, {0.13, 0.50, 0.55},
                                 {0.25, 0.70, 0.42}, {0.65, 0.84, 0.22}, {0.99, 0.91, 0.30}};
    const double at = std::clamp(part, 0.0, 1.0) * (std::size(kStops) - 1);
    const size_t i = std::min<size_t>(static_cast<size_t>(at), std::size(kStops) - 2);
    const double t = at - static_cast<double>(i);
    const auto mix = [t](double a, double b) { return a + (b - a) * t; };
    return {mix(kStops[i].r, kStops[i + 1].r), mix(kStops[i].g, kStops[i + 1].g), mix(kStops[i].b, kStops[i + 1].b)};
}

uint32_t packed(Colour colour) {
    const auto byte = [](double value) { return static_cast<uint32_t>(std::lround(255 * value)); };
    return byte(colour.r) << 16 | byte(colour.g) << 8 | byte(colour.b);
}

/// One column per frame; where there are more frames than pixels, of a frame per pixel.
class Strip {
public:
    Strip(Canvas& canvas, const std::vector<FrameCurve>& curves)
        : canvas_(canvas), curves_(curves), columns_(std::min<size_t>(curves.size(), kRight - kLeft)),
          in_(1.1 * std::max_element(curves.begin(), curves.end(),
                                     [](const auto& a, const auto& b) { return a.full_scale < b.full_scale; })
                        ->full_scale,
              kBottom, kTop) {}

    void draw() {
        draw_shades();
        for (const double level : {1.0, 10.0, 50.0, 100.0, 200.0})
            draw_level(level);
        draw_over_time(kRed, 2.5, true, [](const FrameCurve& c) { return c.scene_peak; });
        draw_over_time(kOrange, 2.5, false, [](const FrameCurve& c) { return c.curve.f_knee_point_x * c.full_scale; });
        draw_axes();
        draw_scale();
    }

private:
    double column_start(size_t column) const {
        return kLeft + (kRight - kLeft) * static_cast<double>(column) / static_cast<double>(columns_);
    }
    const FrameCurve& at(size_t column) const { return curves_[column * curves_.size() / columns_]; }

    void draw_shades() {
        constexpr int kAcross = kRight - kLeft, kDown = kBottom - kTop;
        std::vector<uint32_t> pixels(size_t{kAcross} * kDown);
        for (int x = 0; x < kAcross; ++x) {
            const FrameCurve& curve = at(static_cast<size_t>(x) * columns_ / kAcross);
            const double highest = pq_from_luminance(curve.target);
            for (int y = 0; y < kDown; ++y)
                pixels[size_t{kAcross} * y + x] =
                    packed(shade(pq_from_luminance(curve.output(in_.luminance(kTop + y + 0.5))) / highest));
        }
        canvas_.image({kLeft, kTop}, pixels, kAcross);
    }

    template <typename Luminance>
    void draw_over_time(Colour colour, double thickness, bool dashed, Luminance luminance) {
        std::vector<Point> line;
        for (size_t column = 0; column < columns_; ++column) {
            const double y = in_.position(luminance(at(column)));
            line.emplace_back(column_start(column), y);
            line.emplace_back(column_start(column + 1), y);
        }
        canvas_.path(line, colour, thickness, dashed);
    }

    /// The input that comes out at `level`, frame by frame.
    void draw_level(double level) {
        const auto input = [&](const FrameCurve& curve) {
            double low = 0, high = curve.full_scale;
            for (int i = 0; i < 40; ++i)
                (curve.output((low + high) / 2) < level ? low : high) = (low + high) / 2;
            return high;
        };
        draw_over_time(kInk, 1, false, input);
        canvas_.text({kRight + 8, in_.position(input(curves_.back())) + 5}, "\u2192 " + luminance_text(level), kInk,
                     13);
    }

    void draw_axes() {
        for (const double tick : in_.ticks(24)) {
            const double y = in_.position(tick);
            canvas_.line({kLeft - 5, y}, {kLeft, y}, kQuiet);
            canvas_.text({kLeft - 9, y + 5}, luminance_text(tick), kInk, 14, Align::kRight);
        }
        const size_t frames = curves_.size();
        for (size_t i = 0; i < frames; i += round_step(frames, 14)) {
            const double x = kLeft + (kRight - kLeft) * (static_cast<double>(i) + 0.5) / static_cast<double>(frames);
            canvas_.line({x, kBottom}, {x, kBottom + 5}, kQuiet);
            canvas_.text({x, kBottom + 22}, std::to_string(curves_[i].frame), kInk, 14, Align::kCentre);
        }
        canvas_.frame({kLeft, kTop}, kRight - kLeft, kBottom - kTop, kQuiet);
        canvas_.text({(kLeft + kRight) / 2.0, kBottom + 46}, "frame", kInk, 15, Align::kCentre);
        canvas_.text_upwards({28, (kTop + kBottom) / 2.0}, "input luminance in cd/m\u00b2 (PQ-spaced)", kInk, 15);
        double x = kLeft;
        const auto entry = [&](Colour colour, bool dashed, const std::string& label, double advance) {
            canvas_.fill({x, kBottom + 66}, 40, 14, shade(0.25));
            canvas_.line({x, kBottom + 73}, {x + 40, kBottom + 73}, colour, 2.5, dashed);
            canvas_.text({x + 48, kBottom + 78}, label, kInk, 14);
            x += advance;
        };
        entry(kRed, true, "scene peak", 180);
        entry(kOrange, false, "knee", 140);
        canvas_.line({x, kBottom + 73}, {x + 40, kBottom + 73}, kInk, 1);
        canvas_.text({x + 48, kBottom + 78}, "equal output; the numbers at the right are cd/m\u00b2", kInk, 14);
    }

    /// What the shades mean.
    void draw_scale() {
        constexpr double kX = 1160, kBar = 24;
        const double target = curves_.back().target;
        const LuminanceAxis out(target, kBottom, kTop);
        for (int y = kTop; y < kBottom; ++y)
            canvas_.fill({kX, y}, kBar, 1, shade(static_cast<double>(kBottom - y) / (kBottom - kTop)));
        canvas_.frame({kX, kTop}, kBar, kBottom - kTop, kQuiet);
        for (const double tick : out.ticks(24))
            if (out.position(tick) > kTop + 18)
                canvas_.text({kX + kBar + 7, out.position(tick) + 5}, luminance_text(tick), kInk, 14);
        canvas_.text({kX + kBar + 7, kTop + 5}, luminance_text(target), kInk, 14);
        canvas_.text_upwards({kX + kBar + 58, (kTop + kBottom) / 2.0}, "output luminance in cd/m\u00b2", kInk, 15);
    }

    Canvas& canvas_;
    const std::vector<FrameCurve>& curves_;
    const size_t columns_;
    const LuminanceAxis in_;
};

} // namespace

void draw_strip(const std::string& path, const std::string& name, const std::vector<FrameCurve>& curves) {
    Canvas canvas(path, kWidth, kHeight);
    canvas.text({kLeft, 36}, name + ": tone curves over time", kInk, 20, Align::kLeft, true);
    const auto defaults = std::count_if(curves.begin(), curves.end(),
                                        [](const FrameCurve& c) { return c.origin == RecordOrigin::kNone; });
    canvas.text({kLeft, 62},
                "display of " + luminance_text(curves.front().target) + " cd/m\u00b2, frames " +
                    std::to_string(curves.front().frame) + " to " + std::to_string(curves.back().frame) +
                    (defaults > 0 ? ", " + std::to_string(defaults) + " of them before the first record" : ""),
                kQuiet, 15);
    Strip(canvas, curves).draw();
    canvas.save();
}

} // namespace lumivert::tool
