#include <algorithm>
#include <cmath>
#include <optional>

#include "hdr10plus/pixel_chain.h"
#include "plot/curve_figure.h"
#include "plot/curves.h"

namespace lumivert::tool {
namespace {

using namespace colours;

constexpr double kPanel = CurveFigure::kPanel, kPanelEnd = CurveFigure::kPanelEnd;

/// The curve for the display that the metadata names, where that is another one.
std::optional<ToneCurve> authored_curve(const FrameCurve& c) {
    const unsigned made_for = std::min(c.record.display_max_luminance, 10000U);
    const bool carries_one = c.record.tone_mapping_flag != 0 && c.record.num_bezier_curve_anchors > 0;
    if (!carries_one || made_for < 200 || made_for == c.target) return std::nullopt;
    return ToneCurve(c.record, made_for);
}

/// The curve at every half pixel and at its knee, which is a corner.
std::vector<Point> lights_of(const ToneCurve& c, std::vector<double> inputs) {
    inputs.push_back(c.curve.f_knee_point_x * c.full_scale);
    std::sort(inputs.begin(), inputs.end());
    std::vector<Point> lights;
    lights.reserve(inputs.size());
    for (const double input : inputs)
        lights.emplace_back(input, c.output(input));
    return lights;
}

/// What each 8-bit level of the converter comes out as, at the middle of the four codes that share it.
std::vector<Point> lights_of_pixels(const ToneCurve& c) {
    std::vector<Point> lights;
    for (int code = 64; code < 940; code += 4)
        lights.emplace_back(luminance_from_code(code + 1.5), through_tone_curve(code, c).light);
    return lights;
}

void draw_lines(CurveFigure& figure, const FrameCurve& c) {
    figure.level(c.target, kGreen);
    figure.upright(c.scene_peak, kRed);
    figure.identity();
    if (const auto authored = authored_curve(c)) figure.line(lights_of(*authored, figure.inputs()), kBlue, 1.2, true);
    figure.line(lights_of_pixels(c), kViolet, 2);
    figure.line(lights_of(c, figure.inputs()), kBlue, 3);
}

/// The control points of the curve: between them the metadata's anchors, which shape it without lying on it.
void draw_points(CurveFigure& figure, const FrameCurve& c) {
    const double kx = c.curve.f_knee_point_x, ky = c.curve.f_knee_point_y;
    const auto at = [&](double x, double y) { return Point(figure.x(x * c.full_scale), figure.y(y * c.target)); };
    const int anchors = c.curve.num_bezier_curve_anchors;
    Canvas& canvas = figure.canvas();
    canvas.clip({CurveFigure::kLeft, CurveFigure::kTop}, CurveFigure::kRight - CurveFigure::kLeft,
                CurveFigure::kBottom - CurveFigure::kTop);
    for (int i = 0; i < anchors; ++i)
        canvas.dot(at(kx + (1 - kx) * (i + 1) / (anchors + 1), ky + (1 - ky) * c.curve.f_bezier_curve_anchors[i]), 4.5,
                   kOrange, true);
    canvas.dot(at(kx, ky), 6, kOrange);
    canvas.unclip();
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

void draw_legend(CurveFigure& figure, const FrameCurve& c) {
    figure.line_entry(kBlue, 3, false, "tone curve");
    if (const auto authored = authored_curve(c))
        figure.line_entry(kBlue, 1.2, true, "as authored", printed("for %.0f cd/m\u00b2", authored->target));
    figure.line_entry(kViolet, 2, false, "grey pixels as displayed", "from NV12");
    figure.line_entry(kQuiet, 1.2, true, "identity", "output = input");
    figure.dot_entry(6, kOrange, false, "knee",
                     luminance_text(c.curve.f_knee_point_x * c.full_scale) + " \u2192 " +
                         luminance_text(c.curve.f_knee_point_y * c.target) + " cd/m\u00b2");
    figure.dot_entry(4.5, kOrange, true, "Bezier anchors", printed("%.0f", c.curve.num_bezier_curve_anchors));
    figure.line_entry(kGreen, 1.5, true, "target display peak", printed("%.0f cd/m\u00b2", c.target));
    figure.line_entry(kRed, 1.5, true, "scene peak", printed("%.0f cd/m\u00b2", c.scene_peak));
    figure.entry("full scale of the input", printed("%.0f cd/m\u00b2", c.full_scale));
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

void draw_curve(const std::string& path, const std::string& name, const FrameCurve& curve,
                const LightHistogram* light) {
    const auto authored = authored_curve(curve);
    CurveFigure figure(path, name + ", frame " + std::to_string(curve.frame),
                       (curve.origin == RecordOrigin::kPrevious ? "record of the frame before; " : "") +
                           derivation(curve),
                       std::max(curve.full_scale, curve.scene_peak) * 1.05,
                       std::max(curve.target, authored ? authored->target : 0) * 1.4, light);
    draw_lines(figure, curve);
    draw_points(figure, curve);
    draw_legend(figure, curve);
    draw_gain_table(figure.canvas(), curve);
    figure.save();
}

} // namespace lumivert::tool
