#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>

#include "hdr10plus/pixel_chain.h"
#include "plot/canvas.h"
#include "plot/curves.h"
#include "plot/luminance_axis.h"

namespace lumivert::tool {
namespace {

using namespace colours;

constexpr int kWidth = 1280, kHeight = 760;
constexpr double kLeft = 86, kRight = 850, kTop = 84, kBottom = 686; // of the plot
constexpr double kPanel = 896, kPanelEnd = 1250;                     // beside it

template <typename... Values>
std::string printed(const char* format, Values... values) {
    char text[120];
    std::snprintf(text, sizeof text, format, static_cast<double>(values)...);
    return text;
}

/// The next round luminance at or above.
double round_up(double cd_m2) {
    for (const double round : {250.0, 400.0, 600.0, 1000.0, 1500.0, 2000.0, 4000.0})
        if (cd_m2 <= round) return round;
    return 10000;
}

/// The curve for the display that the metadata names, where that is another one.
std::optional<ToneCurve> authored_curve(const FrameCurve& c) {
    const unsigned made_for = std::min(c.record.display_max_luminance, 10000U);
    const bool carries_one = c.record.tone_mapping_flag != 0 && c.record.num_bezier_curve_anchors > 0;
    if (!carries_one || made_for < 200 || made_for == c.target) return std::nullopt;
    return ToneCurve(c.record, made_for);
}

void draw_axes(Canvas& canvas, const LuminanceAxis& in, const LuminanceAxis& out) {
    for (const double tick : in.ticks(46)) {
        const double x = in.position(tick);
        canvas.line({x, kTop}, {x, kBottom}, kGrid);
        canvas.text({x, kBottom + 20}, luminance_text(tick), kInk, 14, Align::kCentre);
    }
    for (const double tick : out.ticks(26)) {
        const double y = out.position(tick);
        canvas.line({kLeft, y}, {kRight, y}, kGrid);
        canvas.text({kLeft - 8, y + 5}, luminance_text(tick), kInk, 14, Align::kRight);
    }
    canvas.frame({kLeft, kTop}, kRight - kLeft, kBottom - kTop, kQuiet);
    canvas.text({(kLeft + kRight) / 2, kBottom + 50}, "input luminance in cd/m\u00b2 (PQ-spaced)", kInk, 15,
                Align::kCentre);
    canvas.text_upwards({28, (kTop + kBottom) / 2}, "output luminance in cd/m\u00b2 (PQ-spaced)", kInk, 15);
}

/// A line through points in cd/m2.
std::vector<Point> placed(const std::vector<Point>& lights, const LuminanceAxis& in, const LuminanceAxis& out) {
    std::vector<Point> line;
    line.reserve(lights.size());
    for (const auto& [from, to] : lights)
        line.emplace_back(in.position(from), out.position(to));
    return line;
}

/// The curve at every half pixel and at its knee, which is a corner.
std::vector<Point> lights_of(const ToneCurve& c, const LuminanceAxis& in) {
    std::vector<Point> lights;
    for (int half_pixel = 0; half_pixel <= 2 * (kRight - kLeft); ++half_pixel)
        lights.emplace_back(in.luminance(kLeft + half_pixel / 2.0), 0);
    lights.emplace_back(c.curve.f_knee_point_x * c.full_scale, 0);
    std::sort(lights.begin(), lights.end());
    for (auto& [from, to] : lights)
        to = c.output(from);
    return lights;
}

/// What each 8-bit level of the converter comes out as, at the middle of the four codes that share it.
std::vector<Point> lights_of_pixels(const ToneCurve& c) {
    std::vector<Point> lights;
    for (int code = 64; code < 940; code += 4)
        lights.emplace_back(luminance_from_code(code + 1.5), through_tone_curve(code, c).light);
    return lights;
}

void draw_lines(Canvas& canvas, const FrameCurve& c, const LuminanceAxis& in, const LuminanceAxis& out) {
    std::vector<Point> identity;
    for (double x = kLeft; x <= kRight && in.luminance(x) <= out.top(); ++x)
        identity.emplace_back(x, out.position(in.luminance(x)));
    canvas.line({kLeft, out.position(c.target)}, {kRight, out.position(c.target)}, kGreen, 1.5, true);
    canvas.line({in.position(c.scene_peak), kTop}, {in.position(c.scene_peak), kBottom}, kRed, 1.5, true);
    canvas.path(identity, kQuiet, 1.2, true);
    if (const auto authored = authored_curve(c))
        canvas.path(placed(lights_of(*authored, in), in, out), kBlue, 1.2, true);
    canvas.path(placed(lights_of_pixels(c), in, out), kViolet, 2);
    canvas.path(placed(lights_of(c, in), in, out), kBlue, 3);
}

/// The control points of the curve: between them the metadata's anchors, which shape it without lying on it.
void draw_points(Canvas& canvas, const FrameCurve& c, const LuminanceAxis& in, const LuminanceAxis& out) {
    const double kx = c.curve.f_knee_point_x, ky = c.curve.f_knee_point_y;
    const auto at = [&](double x, double y) {
        return Point(in.position(x * c.full_scale), out.position(y * c.target));
    };
    const int anchors = c.curve.num_bezier_curve_anchors;
    for (int i = 0; i < anchors; ++i)
        canvas.dot(at(kx + (1 - kx) * (i + 1) / (anchors + 1), ky + (1 - ky) * c.curve.f_bezier_curve_anchors[i]), 4.5,
                   kOrange, true);
    canvas.dot(at(kx, ky), 6, kOrange);
}

/// How the curve came about.
std::string derivation(const FrameCurve& c) {
    if (c.origin == RecordOrigin::kNone) return "no HDR10+ record up to here: the default curve";
    const double made_for = c.record.display_max_luminance;
    if (c.record.tone_mapping_flag == 0) return "basis curve: the metadata carries none";
    if (made_for == c.target) return "the metadata's curve as it stands";
    if (c.target >= c.scene_peak) return "identity: the display is as bright as the scene";
    return printed("the metadata's curve for %.0f cd/m\u00b2, ", made_for) +
           (made_for > c.target ? "mixed with a basis curve" : "mixed with the identity");
}

void draw_legend(Canvas& canvas, const FrameCurve& c) {
    double y = kTop + 10;
    const auto entry = [&](const std::string& label, const std::string& value) {
        canvas.text({kPanel + 44, y + 5}, label, kInk, 14);
        canvas.text({kPanelEnd, y + 5}, value, kInk, 14, Align::kRight);
        y += 28;
    };
    const auto swatch = [&](Colour colour, double thickness, bool dashed) {
        canvas.line({kPanel, y}, {kPanel + 32, y}, colour, thickness, dashed);
    };
    swatch(kBlue, 3, false);
    entry("tone curve", "");
    if (const auto authored = authored_curve(c)) {
        swatch(kBlue, 1.2, true);
        entry("as authored", printed("for %.0f cd/m\u00b2", authored->target));
    }
    swatch(kViolet, 2, false);
    entry("grey pixels as displayed", "from NV12");
    swatch(kQuiet, 1.2, true);
    entry("identity", "output = input");
    canvas.dot({kPanel + 16, y}, 6, kOrange);
    entry("knee", luminance_text(c.curve.f_knee_point_x * c.full_scale) + " \u2192 " +
                      luminance_text(c.curve.f_knee_point_y * c.target) + " cd/m\u00b2");
    canvas.dot({kPanel + 16, y}, 4.5, kOrange, true);
    entry("Bezier anchors", printed("%.0f", c.curve.num_bezier_curve_anchors));
    swatch(kGreen, 1.5, true);
    entry("target display peak", printed("%.0f cd/m\u00b2", c.target));
    swatch(kRed, 1.5, true);
    entry("scene peak", printed("%.0f cd/m\u00b2", c.scene_peak));
    entry("full scale of the input", printed("%.0f cd/m\u00b2", c.full_scale));
}

/// The table that the GPU reads: gain over the normalised input.
void draw_gain_table(Canvas& canvas, const FrameCurve& c) {
    constexpr double kX0 = kPanel + 44, kX1 = kPanelEnd, kY0 = 650, kY1 = 380;
    const double identity = c.full_scale / c.target;
    const double highest = std::max<double>(identity, *std::max_element(std::begin(c.gains), std::end(c.gains)));
    const double step = highest > 20 ? 10 : highest > 8 ? 4 : highest > 4 ? 2 : highest > 2 ? 1 : 0.5;
    canvas.text({kPanel, kY1 - 20}, "Gain table of the GPU, 256 entries", kInk, 14, Align::kLeft, true);
    const auto lines = static_cast<int>(std::ceil(highest / step));
    const double ceiling = lines * step;
    for (int i = 0; i <= lines; ++i) {
        const double gain = i * step;
        const double level = kY0 + (kY1 - kY0) * gain / ceiling;
        canvas.line({kX0, level}, {kX1, level}, kGrid);
        canvas.text({kX0 - 6, level + 4}, printed("%g", gain), kInk, 12, Align::kRight);
    }
    for (const int entry : {0, 64, 128, 192, 255}) {
        const double x = kX0 + (kX1 - kX0) * entry / 255;
        canvas.line({x, kY0}, {x, kY1}, kGrid);
        canvas.text({x, kY0 + 16}, printed("%.0f", entry), kInk, 12, Align::kCentre);
    }
    const double y = kY0 + (kY1 - kY0) * identity / ceiling;
    canvas.line({kX0, y}, {kX1, y}, kQuiet, 1.2, true);
    std::vector<Point> line(256);
    for (int i = 0; i < 256; ++i)
        line[i] = {kX0 + (kX1 - kX0) * i / 255, kY0 + (kY1 - kY0) * c.gains[i] / ceiling};
    canvas.path(line, kBlue, 2);
    canvas.frame({kX0, kY1}, kX1 - kX0, kY0 - kY1, kQuiet);
    canvas.text({(kX0 + kX1) / 2, kY0 + 36}, "entry (254 is the full scale of the input)", kInk, 13, Align::kCentre);
    canvas.text_upwards({kPanel + 10, (kY0 + kY1) / 2}, "gain: output / input, of full scale", kInk, 13);
}

} // namespace

void draw_curve(const std::string& path, const std::string& name, const FrameCurve& curve) {
    Canvas canvas(path, kWidth, kHeight);
    const LuminanceAxis in(round_up(std::max(curve.full_scale, curve.scene_peak) * 1.05), kLeft, kRight);
    const auto authored = authored_curve(curve);
    const LuminanceAxis out(std::max(curve.target, authored ? authored->target : 0) * 1.4, kBottom, kTop);
    canvas.text({kLeft, 36}, name + ", frame " + std::to_string(curve.frame), kInk, 20, Align::kLeft, true);
    canvas.text({kLeft, 62},
                (curve.origin == RecordOrigin::kPrevious ? "record of the frame before; " : "") + derivation(curve),
                kQuiet, 15);
    draw_axes(canvas, in, out);
    canvas.clip({kLeft, kTop}, kRight - kLeft, kBottom - kTop);
    draw_lines(canvas, curve, in, out);
    draw_points(canvas, curve, in, out);
    canvas.unclip();
    draw_legend(canvas, curve);
    draw_gain_table(canvas, curve);
    canvas.save();
}

} // namespace lumivert::tool
