/// Line charts over time as SVG inside a page. Colours come from the page's style.
#pragma once

#include <string>
#include <vector>

namespace lumivert::tool {

/// One line: a value in cd/m2 for each frame; negative ones leave a gap.
struct Series {
    std::string name; ///< CSS class and, in the legend, its sample
    std::string label;
    bool claimed; ///< dashed
    std::vector<double> values;
};

/// Where the plot lies in the chart's own units; the page's script puts its cursor there.
struct ChartFrame {
    static constexpr double kWidth = 760, kHeight = 300, kLeft = 52, kRight = 748, kTop = 10, kBottom = 262;
};

std::string line_chart(const std::string& id, const std::string& description, double top,
                       const std::vector<Series>& series);

/// Text made safe inside HTML and its attributes.
std::string escaped(const std::string& text);

} // namespace lumivert::tool
