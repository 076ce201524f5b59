#include "html_report/chart.h"

#include <algorithm>
#include <cstdio>

#include "plot/luminance_axis.h"

namespace lumivert::tool {
namespace {

using F = ChartFrame;
constexpr size_t kMostColumns = 1000;

std::string coordinate(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

/// With more frames than columns, the largest value of a column's frames.
double of_column(const std::vector<double>& values, size_t column, size_t columns) {
    const size_t begin = column * values.size() / columns;
    const size_t end = std::max(begin + 1, (column + 1) * values.size() / columns);
    return *std::max_element(values.begin() + static_cast<ptrdiff_t>(begin),
                             values.begin() + static_cast<ptrdiff_t>(end));
}

std::string path_of(const Series& series, const LuminanceAxis& axis) {
    const size_t columns = std::min(series.values.size(), kMostColumns);
    const double step = (F::kRight - F::kLeft) / static_cast<double>(columns);
    std::string path;
    bool pen_down = false;
    for (size_t i = 0; i < columns; ++i) {
        const double value = of_column(series.values, i, columns);
        if (value < 0) {
            pen_down = false;
            continue;
        }
        const double y = axis.position(std::min(value, axis.top())), x = F::kLeft + step * static_cast<double>(i);
        const auto to = [&](double at) {
            path += (pen_down ? "L" : "M") + coordinate(at) + " " + coordinate(y);
            pen_down = true;
        };
        if (series.claimed || columns == 1) { // a record holds for the whole frame
            to(x);
            to(x + step);
        } else {
            to(x + step / 2);
        }
    }
    return path;
}

} // namespace

std::string escaped(const std::string& text) {
    std::string safe;
    for (const char c : text)
        switch (c) {
        case '&':
            safe += "&amp;";
            break;
        case '<':
            safe += "&lt;";
            break;
        case '>':
            safe += "&gt;";
            break;
        case '"':
            safe += "&quot;";
            break;
        default:
            safe += c;
        }
    return safe;
}

std::string line_chart(const std::string& id, const std::string& description, double top,
                       const std::vector<Series>& series) {
    const LuminanceAxis axis(top, F::kBottom, F::kTop);
    std::string svg = "<div class=\"scroll\"><svg class=\"chart\" id=\"" + id + "\" viewBox=\"0 0 " +
                      coordinate(F::kWidth) + " " + coordinate(F::kHeight) + "\" role=\"img\" aria-label=\"" +
                      escaped(description) + "\">\n";
    for (const double tick : axis.ticks(20)) {
        const std::string y = coordinate(axis.position(tick));
        svg += "<line class=\"grid\" x1=\"" + coordinate(F::kLeft) + "\" x2=\"" + coordinate(F::kRight) + "\" y1=\"" +
               y + "\" y2=\"" + y + "\"/><text x=\"" + coordinate(F::kLeft - 6) + "\" y=\"" +
               coordinate(axis.position(tick) + 4) + "\" text-anchor=\"end\">" + luminance_text(tick) + "</text>\n";
    }
    const size_t frames = series.front().values.size();
    for (size_t i = 0; i < frames; i += round_step(frames, 10))
        svg += "<text x=\"" +
               coordinate(F::kLeft +
                          (F::kRight - F::kLeft) * (static_cast<double>(i) + 0.5) / static_cast<double>(frames)) +
               "\" y=\"" + coordinate(F::kBottom + 18) + "\" text-anchor=\"middle\">" + std::to_string(i) + "</text>\n";
    svg += "<text x=\"" + coordinate((F::kLeft + F::kRight) / 2) + "\" y=\"" + coordinate(F::kBottom + 35) +
           "\" text-anchor=\"middle\">frame; the scale is cd/m\u00b2, spaced by PQ</text>\n";
    std::string legend = "<p class=\"legend\">";
    for (const Series& line : series) {
        const std::string style = line.name + (line.claimed ? " claimed" : "");
        svg += "<path class=\"line " + style + "\" d=\"" + path_of(line, axis) + "\"/>\n";
        legend += "<span><svg viewBox=\"0 0 28 8\" aria-hidden=\"true\"><path class=\"line " + style +
                  "\" d=\"M0 4H28\"/></svg> " + escaped(line.label) + "</span> ";
    }
    const std::string x = coordinate(F::kLeft);
    svg += "<line class=\"cursor\" x1=\"" + x + "\" x2=\"" + x + "\" y1=\"" + coordinate(F::kTop) + "\" y2=\"" +
           coordinate(F::kBottom) + "\"/>\n</svg></div>\n";
    return svg + legend + "</p>\n";
}

} // namespace lumivert::tool
