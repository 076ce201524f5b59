/// What pictures of a curve have in common: axes in cd/m2, the histogram of a frame under them, and room beside them.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "light/frame_light.h"
#include "plot/canvas.h"
#include "plot/luminance_axis.h"

namespace lumivert::tool {

/// Formats numbers of any kind as doubles.
template <typename... Values>
std::string printed(const char* format, Values... values) {
    char text[120];
    std::snprintf(text, sizeof text, format, static_cast<double>(values)...);
    return text;
}

class CurveFigure {
public:
    static constexpr double kLeft = 86, kRight = 850, kTop = 84, kBottom = 686; // of the plot
    static constexpr double kPanel = 896, kPanelEnd = 1250;                     // beside it

    /// Draws title and axes. The axes end at or above `highest_in` and at `highest_out` cd/m2; `light` may be null.
    CurveFigure(const std::string& path, const std::string& title, const std::string& subtitle, double highest_in,
                double highest_out, const LightHistogram* light);

    Canvas& canvas() { return canvas_; }
    double x(double in) const { return in_.position(in); }
    double y(double out) const { return out_.position(out); }
    /// Inputs at every half pixel, in cd/m2.
    std::vector<double> inputs() const;

    /// A line through points (input, output) in cd/m2.
    void line(const std::vector<Point>& lights, Colour colour, double thickness, bool dashed = false);
    void upright(double in, Colour colour);
    void level(double out, Colour colour);
    void identity();

    /// Rows of the legend, from the top.
    void entry(const std::string& label, const std::string& value = "");
    void line_entry(Colour colour, double thickness, bool dashed, const std::string& label,
                    const std::string& value = "");
    void dot_entry(double radius, Colour colour, bool hollow, const std::string& label, const std::string& value);

    void save() { canvas_.save(); }

private:
    void draw_axes(double bottom);
    void draw_light(const LightHistogram& light);

    Canvas canvas_;
    const LuminanceAxis in_, out_;
    double legend_ = kTop + 10;
};

} // namespace lumivert::tool
