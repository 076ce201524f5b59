#include "plot/curve_figure.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "hdr10plus/pixel_chain.h"

namespace lumivert::tool {
namespace {

using namespace colours;

constexpr int kWidth = 1280, kHeight = 760;
constexpr double kGap = 16, kBars = 120; // between plot and histogram; the histogram's height

/// The next round luminance at or above.
double round_up(double cd_m2) {
    for (const double round : {250.0, 400.0, 600.0, 1000.0, 1500.0, 2000.0, 4000.0})
        if (cd_m2 <= round) return round;
    return 10000;
}

double brightest(const LightHistogram* light) {
    return light != nullptr ? light_of(*light).peak() : 0;
}

} // namespace

CurveFigure::CurveFigure(const std::string& path, const std::string& title, const std::string& subtitle,
                         double highest_in, double highest_out, const LightHistogram* light)
    : canvas_(path, kWidth, kHeight + static_cast<int>(light != nullptr ? kGap + kBars : 0)),
      in_(round_up(std::max(highest_in, brightest(light))), kLeft, kRight), out_(highest_out, kBottom, kTop) {
    canvas_.text({kLeft, 36}, title, kInk, 20, Align::kLeft, true);
    canvas_.text({kLeft, 62}, subtitle, kQuiet, 15);
    draw_axes(light != nullptr ? kBottom + kGap + kBars : kBottom);
    if (light != nullptr) draw_light(*light);
}

void CurveFigure::draw_axes(double bottom) {
    for (const double tick : in_.ticks(46)) {
        canvas_.line({x(tick), kTop}, {x(tick), bottom}, kGrid);
        canvas_.text({x(tick), bottom + 20}, luminance_text(tick), kInk, 14, Align::kCentre);
    }
    for (const double tick : out_.ticks(26)) {
        canvas_.line({kLeft, y(tick)}, {kRight, y(tick)}, kGrid);
        canvas_.text({kLeft - 8, y(tick) + 5}, luminance_text(tick), kInk, 14, Align::kRight);
    }
    canvas_.frame({kLeft, kTop}, kRight - kLeft, kBottom - kTop, kQuiet);
    canvas_.text({(kLeft + kRight) / 2, bottom + 50}, "input luminance in cd/m\u00b2 (PQ-spaced)", kInk, 15,
                 Align::kCentre);
    canvas_.text_upwards({28, (kTop + kBottom) / 2}, "output luminance in cd/m\u00b2 (PQ-spaced)", kInk, 15);
}

/// A bar for each four 10-bit codes, the converter's 8-bit levels. The heights are logarithmic: highlights of a few
/// pixels matter, and black borders would dwarf all else.
void CurveFigure::draw_light(const LightHistogram& light) {
    constexpr double kFirst = kBottom + kGap, kLast = kFirst + kBars, kDecades = 5; // from 0.001 % to 100 %
    constexpr int kCodes = 876, kLevels = kCodes / 4;
    std::vector<double> levels(kLevels + 1);
    for (int step = 0; step <= LightHistogram::kSteps; ++step)
        levels[static_cast<int>((step * double{kCodes} / LightHistogram::kSteps + 0.5) / 4)] += light.pixels[step];
    const double pixels = std::accumulate(levels.begin(), levels.end(), 0.0);
    const auto height = [&](double share) { return kBars * std::max(1 + std::log10(share) / kDecades, 0.0); };
    for (const double share : {1.0, 1e-2, 1e-4}) {
        canvas_.line({kLeft, kLast - height(share)}, {kRight, kLast - height(share)}, kGrid);
        canvas_.text({kLeft - 8, kLast - height(share) + (share == 1 ? 10 : 5)}, printed("%g %%", 100 * share), kInk,
                     12, Align::kRight);
    }
    canvas_.clip({kLeft, kFirst}, kRight - kLeft, kBars);
    for (int level = 0; level <= kLevels; ++level) {
        if (levels[level] == 0) continue;
        const double start = x(luminance_from_code(64 + 4 * level - 0.5));
        const double end = x(luminance_from_code(64 + 4 * level + 3.5));
        const double top = std::max(height(levels[level] / pixels), 1.0);
        canvas_.fill({start, kLast - top}, std::max(end - start - 0.6, 1.0), top, kQuiet);
    }
    canvas_.unclip();
    canvas_.frame({kLeft, kFirst}, kRight - kLeft, kBars, kQuiet);

    const FrameLight summary = light_of(light);
    double row = kFirst + 28;
    canvas_.text({kPanel, row}, "Pixels of the frame by max(R, G, B)", kInk, 14, Align::kLeft, true);
    const auto fact = [&](const char* label, double cd_m2) {
        canvas_.text({kPanel + 44, row += 26}, label, kInk, 14);
        canvas_.text({kPanelEnd, row}, luminance_text(cd_m2) + " cd/m\u00b2", kInk, 14, Align::kRight);
    };
    fact("brightest", summary.peak());
    fact("average", summary.average);
}

std::vector<double> CurveFigure::inputs() const {
    std::vector<double> list;
    for (int half_pixel = 0; half_pixel <= 2 * (kRight - kLeft); ++half_pixel)
        list.push_back(in_.luminance(kLeft + half_pixel / 2.0));
    return list;
}

void CurveFigure::line(const std::vector<Point>& lights, Colour colour, double thickness, bool dashed) {
    std::vector<Point> path;
    path.reserve(lights.size());
    for (const auto& [from, to] : lights)
        path.emplace_back(x(from), y(to));
    canvas_.clip({kLeft, kTop}, kRight - kLeft, kBottom - kTop);
    canvas_.path(path, colour, thickness, dashed);
    canvas_.unclip();
}

void CurveFigure::upright(double in, Colour colour) {
    line({{in, 0}, {in, out_.top()}}, colour, 1.5, true);
}

void CurveFigure::level(double out, Colour colour) {
    line({{0, out}, {in_.top(), out}}, colour, 1.5, true);
}

void CurveFigure::identity() {
    std::vector<Point> lights;
    for (const double light : inputs())
        if (light <= out_.top()) lights.emplace_back(light, light);
    line(lights, kQuiet, 1.2, true);
}

void CurveFigure::entry(const std::string& label, const std::string& value) {
    canvas_.text({kPanel + 44, legend_ + 5}, label, kInk, 14);
    canvas_.text({kPanelEnd, legend_ + 5}, value, kInk, 14, Align::kRight);
    legend_ += 28;
}

void CurveFigure::line_entry(Colour colour, double thickness, bool dashed, const std::string& label,
                             const std::string& value) {
    canvas_.line({kPanel, legend_}, {kPanel + 32, legend_}, colour, thickness, dashed);
    entry(label, value);
}

void CurveFigure::dot_entry(double radius, Colour colour, bool hollow, const std::string& label,
                            const std::string& value) {
    canvas_.dot({kPanel + 16, legend_}, radius, colour, hollow);
    entry(label, value);
}

} // namespace lumivert::tool
