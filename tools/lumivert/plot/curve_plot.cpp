#include <algorithm>
#include <cmath>
#include <cstdio>

#include "plot/canvas.h"
#include "plot/curves.h"
#include "plot/luminance_axis.h"

namespace lumivert::tool {
namespace {

using namespace colours;

constexpr int width = 1280, height = 760;
constexpr double left = 86, right = 850, top = 84, bottom = 686; // of the plot
constexpr double panel = 896, panel_end = 1250;                  // beside it

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

void draw_axes(Canvas& canvas, const LuminanceAxis& in, const LuminanceAxis& out) {
    for (const double tick : in.ticks(46)) {
        const double x = in.position(tick);
        canvas.line({x, top}, {x, bottom}, grid);
        canvas.text({x, bottom + 20}, luminance_text(tick), ink, 14, Align::centre);
    }
    for (const double tick : out.ticks(26)) {
        const double y = out.position(tick);
        canvas.line({left, y}, {right, y}, grid);
        canvas.text({left - 8, y + 5}, luminance_text(tick), ink, 14, Align::right);
    }
    canvas.frame({left, top}, right - left, bottom - top, quiet);
    canvas.text({(left + right) / 2, bottom + 50}, "input luminance in cd/m\u00b2 (PQ-spaced)", ink, 15, Align::centre);
    canvas.text_upwards({28, (top + bottom) / 2}, "output luminance in cd/m\u00b2 (PQ-spaced)", ink, 15);
}

void draw_lines(Canvas& canvas, const FrameCurve& c, const LuminanceAxis& in, const LuminanceAxis& out) {
    std::vector<Point> curve, table, identity;
    for (int half_pixel = 0; half_pixel <= 2 * (right - left); ++half_pixel) {
        const double x = left + half_pixel / 2.0;
        const double luminance = in.luminance(x);
        curve.emplace_back(x, out.position(c.output(luminance)));
        table.emplace_back(x, out.position(c.output_by_table(luminance)));
        if (luminance <= out.top()) identity.emplace_back(x, out.position(luminance));
    }
    canvas.line({left, out.position(c.target)}, {right, out.position(c.target)}, green, 1.5, true);
    canvas.line({in.position(c.scene_peak), top}, {in.position(c.scene_peak), bottom}, red, 1.5, true);
    canvas.path(identity, quiet, 1.2, true);
    canvas.path(table, violet, 1.5);
    canvas.path(curve, blue, 3);
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
                   orange, true);
    canvas.dot(at(kx, ky), 6, orange);
}

/// How the curve came about.
std::string derivation(const FrameCurve& c) {
    if (c.origin == RecordOrigin::none) return "no HDR10+ record up to here: the default curve";
    const double made_for = c.record.display_max_luminance;
    if (c.record.tone_mapping_flag == 0) return "basis curve: the metadata carries none";
    if (made_for == c.target) return "the metadata's curve as it stands";
    if (c.target >= c.scene_peak) return "identity: the display is as bright as the scene";
    return printed("the metadata's curve for %.0f cd/m\u00b2, ", made_for) +
           (made_for > c.target ? "mixed with a basis curve" : "mixed with the identity");
}

void draw_legend(Canvas& canvas, const FrameCurve& c) {
    double y = top + 10;
    const auto entry = [&](const std::string& label, const std::string& value) {
        canvas.text({panel + 44, y + 5}, label, ink, 14);
        canvas.text({panel_end, y + 5}, value, ink, 14, Align::right);
        y += 28;
    };
    const auto swatch = [&](Colour colour, double thickness, bool dashed) {
        canvas.line({panel, y}, {panel + 32, y}, colour, thickness, dashed);
    };
    swatch(blue, 3, false);
    entry("tone curve", "");
    swatch(violet, 1.5, false);
    entry("as the GPU's table gives it", "");
    swatch(quiet, 1.2, true);
    entry("identity", "output = input");
    canvas.dot({panel + 16, y}, 6, orange);
    entry("knee", luminance_text(c.curve.f_knee_point_x * c.full_scale) + " \u2192 " +
                      luminance_text(c.curve.f_knee_point_y * c.target) + " cd/m\u00b2");
    canvas.dot({panel + 16, y}, 4.5, orange, true);
    entry("Bezier anchors", printed("%.0f", c.curve.num_bezier_curve_anchors));
    swatch(green, 1.5, true);
    entry("target display peak", printed("%.0f cd/m\u00b2", c.target));
    swatch(red, 1.5, true);
    entry("scene peak", printed("%.0f cd/m\u00b2", c.scene_peak));
    entry("full scale of the input", printed("%.0f cd/m\u00b2", c.full_scale));
}

/// The table that the GPU reads: gain over the normalised input.
void draw_gain_table(Canvas& canvas, const FrameCurve& c) {
    constexpr double x0 = panel + 44, x1 = panel_end, y0 = 650, y1 = 380;
    const double identity = c.full_scale / c.target;
    const double highest = std::max<double>(identity, *std::max_element(std::begin(c.gains), std::end(c.gains)));
    const double step = highest > 20 ? 10 : highest > 8 ? 4 : highest > 4 ? 2 : highest > 2 ? 1 : 0.5;
    canvas.text({panel, y1 - 20}, "Gain table of the GPU, 256 entries", ink, 14, Align::left, true);
    const auto lines = static_cast<int>(std::ceil(highest / step));
    const double ceiling = lines * step;
    for (int i = 0; i <= lines; ++i) {
        const double gain = i * step;
        const double level = y0 + (y1 - y0) * gain / ceiling;
        canvas.line({x0, level}, {x1, level}, grid);
        canvas.text({x0 - 6, level + 4}, printed("%g", gain), ink, 12, Align::right);
    }
    for (const int entry : {0, 64, 128, 192, 255}) {
        const double x = x0 + (x1 - x0) * entry / 255;
        canvas.line({x, y0}, {x, y1}, grid);
        canvas.text({x, y0 + 16}, printed("%.0f", entry), ink, 12, Align::centre);
    }
    const double y = y0 + (y1 - y0) * identity / ceiling;
    canvas.line({x0, y}, {x1, y}, quiet, 1.2, true);
    std::vector<Point> line(256);
    for (int i = 0; i < 256; ++i)
        line[i] = {x0 + (x1 - x0) * i / 255, y0 + (y1 - y0) * c.gains[i] / ceiling};
    canvas.path(line, blue, 2);
    canvas.frame({x0, y1}, x1 - x0, y0 - y1, quiet);
    canvas.text({(x0 + x1) / 2, y0 + 36}, "entry (254 is the full scale of the input)", ink, 13, Align::centre);
    canvas.text_upwards({panel + 10, (y0 + y1) / 2}, "gain: output / input, of full scale", ink, 13);
}

} // namespace

void draw_curve(const std::string& path, const std::string& name, const FrameCurve& curve) {
    Canvas canvas(path, width, height);
    const LuminanceAxis in(round_up(std::max(curve.full_scale, curve.scene_peak) * 1.05), left, right);
    const LuminanceAxis out(curve.target * 1.4, bottom, top);
    canvas.text({left, 36}, name + ", frame " + std::to_string(curve.frame), ink, 20, Align::left, true);
    canvas.text({left, 62},
                (curve.origin == RecordOrigin::previous ? "record of the frame before; " : "") + derivation(curve),
                quiet, 15);
    draw_axes(canvas, in, out);
    canvas.clip({left, top}, right - left, bottom - top);
    draw_lines(canvas, curve, in, out);
    draw_points(canvas, curve, in, out);
    canvas.unclip();
    draw_legend(canvas, curve);
    draw_gain_table(canvas, curve);
    canvas.save();
}

} // namespace lumivert::tool
