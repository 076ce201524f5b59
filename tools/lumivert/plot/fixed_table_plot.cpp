#include <algorithm>

#include "hdr10plus/pixel_chain.h"
#include "plot/curve_figure.h"
#include "plot/curves.h"

namespace lumivert::tool {
namespace {

using namespace colours;

constexpr int kBlack = 64, kWhite = 940; // 10-bit limited-range luma

std::vector<GreyPixel> greys(const FixedTable& table) {
    std::vector<GreyPixel> list;
    for (int code = kBlack; code <= kWhite; ++code)
        list.push_back(through_fixed_table(code, table.mastering_peak, table.target));
    return list;
}

void draw_codes(Canvas& canvas, const std::vector<GreyPixel>& pixels) {
    constexpr double kX0 = CurveFigure::kPanel + 44, kX1 = CurveFigure::kPanelEnd, kY0 = 650, kY1 = 346;
    const auto at = [&](double in, double out) {
        return Point(kX0 + (kX1 - kX0) * (in - kBlack) / (kWhite - kBlack),
                     kY0 + (kY1 - kY0) * (out - kBlack) / (kWhite - kBlack));
    };
    canvas.text({CurveFigure::kPanel, kY1 - 20}, "The table itself", kInk, 14, Align::kLeft, true);
    for (const int code : {kBlack, 256, 512, 768, kWhite}) {
        canvas.line(at(kBlack, code), at(kWhite, code), kGrid);
        canvas.line(at(code, kBlack), at(code, kWhite), kGrid);
        canvas.text({kX0 - 6, at(kBlack, code).second + 4}, printed("%.0f", code), kInk, 12, Align::kRight);
        canvas.text({at(code, kBlack).first, kY0 + 16}, printed("%.0f", code), kInk, 12, Align::kCentre);
    }
    canvas.path({at(kBlack, kBlack), at(kWhite, kWhite)}, kQuiet, 1.2, true);
    std::vector<Point> line;
    line.reserve(pixels.size());
    for (const GreyPixel& pixel : pixels)
        line.push_back(at(pixel.code_in, std::max(pixel.code_out, kBlack)));
    canvas.path(line, kBlue, 2);
    canvas.frame({kX0, kY1}, kX1 - kX0, kY0 - kY1, kQuiet);
    canvas.text({(kX0 + kX1) / 2, kY0 + 36}, "luma code in (10 bits, PQ)", kInk, 13, Align::kCentre);
    canvas.text_upwards({CurveFigure::kPanel + 6, (kY0 + kY1) / 2}, "luma code out (10 bits)", kInk, 13);
}

} // namespace

void draw_fixed_table(const std::string& path, const std::string& title, const std::string& why,
                      const FixedTable& table, const LightHistogram* light) {
    const int master = fixed_table_of(table.mastering_peak);
    const std::string name = printed("fixed table for masters up to %.0f cd/m\u00b2", master);
    CurveFigure figure(path, title, why.empty() ? name : why + ": " + name,
                       1.05 * std::max<double>(master, table.mastering_peak), table.target * 1.4, light);
    const std::vector<GreyPixel> pixels = greys(table);
    std::vector<Point> lights;
    lights.reserve(pixels.size());
    for (const GreyPixel& pixel : pixels)
        lights.emplace_back(pixel.input, pixel.light);
    figure.level(table.target, kGreen);
    if (table.mastering_peak > 0) figure.upright(table.mastering_peak, kRed);
    figure.identity();
    figure.line(lights, kBlue, 3);
    figure.line_entry(kBlue, 3, false, "grey pixels as displayed", "from P010");
    figure.line_entry(kQuiet, 1.2, true, "identity", "output = input");
    figure.line_entry(kGreen, 1.5, true, "target display peak", printed("%.0f cd/m\u00b2", table.target));
    if (table.mastering_peak > 0)
        figure.line_entry(kRed, 1.5, true, "mastering peak", printed("%.0f cd/m\u00b2", table.mastering_peak));
    else
        figure.entry("mastering peak", "unknown");
    draw_codes(figure.canvas(), pixels);
    figure.save();
}

} // namespace lumivert::tool
