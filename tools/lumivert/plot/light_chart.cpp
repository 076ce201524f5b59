#include "plot/light_chart.h"

#include <algorithm>
#include <filesystem>

#include "error.h"
#include "plot/canvas.h"
#include "plot/luminance_axis.h"

namespace lumivert::tool {
namespace {

using namespace colours;

constexpr int kWidth = 1280, kHeight = 680;
constexpr double kLeft = 86, kRight = 1250, kTop = 84, kBottom = 560;

class LightChart {
public:
    LightChart(Canvas& canvas, const ClipLight& light, const StaticMetadata& claimed)
        : canvas_(canvas), frames_(light.frames), axis_(top(light, claimed), kBottom, kTop) {}

    void draw() {
        draw_grid();
        canvas_.clip({kLeft, kTop}, kRight - kLeft, kBottom - kTop);
        const auto percentile = [](double percentage) {
            return [percentage](const MeasuredFrame& frame) { return frame.light.percentile(percentage); };
        };
        draw_line(kGreen, 1.5, percentile(50));
        draw_line(kViolet, 1.5, percentile(99));
        draw_line(kBlue, 2.5, [](const MeasuredFrame& frame) { return frame.light.average; });
        draw_line(kRed, 2.5, [](const MeasuredFrame& frame) { return frame.light.peak(); });
        draw_claim(kBlue, [](const MeasuredFrame& frame) { return frame.record.avg_maxrgb / 10.0; });
        draw_claim(kRed, [](const MeasuredFrame& frame) { return claimed_peak(frame.record); });
        canvas_.unclip();
        canvas_.frame({kLeft, kTop}, kRight - kLeft, kBottom - kTop, kQuiet);
        draw_legend();
    }

private:
    static double top(const ClipLight& light, const StaticMetadata& claimed) {
        double highest = std::max<double>(light.max_cll, claimed.max_cll);
        for (const MeasuredFrame& frame : light.frames)
            if (frame.origin != RecordOrigin::kNone) highest = std::max(highest, claimed_peak(frame.record));
        return std::clamp(1.15 * highest, 10.0, 10000.0);
    }

    double x(size_t i) const {
        return kLeft + (kRight - kLeft) * (static_cast<double>(i) + 0.5) / static_cast<double>(frames_.size());
    }
    double y(double cd_m2) const { return axis_.position(std::min(cd_m2, axis_.top())); }

    void draw_grid() {
        for (const double tick : axis_.ticks(24)) {
            canvas_.line({kLeft, y(tick)}, {kRight, y(tick)}, kGrid);
            canvas_.text({kLeft - 9, y(tick) + 5}, luminance_text(tick), kInk, 14, Align::kRight);
        }
        for (size_t i = 0; i < frames_.size(); i += round_step(frames_.size(), 14)) {
            canvas_.line({x(i), kBottom}, {x(i), kBottom + 5}, kQuiet);
            canvas_.text({x(i), kBottom + 22}, std::to_string(frames_[i].number), kInk, 14, Align::kCentre);
        }
        canvas_.text({(kLeft + kRight) / 2, kBottom + 46}, "frame", kInk, 15, Align::kCentre);
        canvas_.text_upwards({28, (kTop + kBottom) / 2}, "light in cd/m\u00b2 (PQ-spaced)", kInk, 15);
    }

    /// With one frame, a line across the chart.
    template <typename Value>
    void draw_line(Colour colour, double thickness, Value value) {
        std::vector<Point> line;
        for (size_t i = 0; i < frames_.size(); ++i)
            line.emplace_back(x(i), y(value(frames_[i])));
        if (line.size() == 1) line = {{kLeft, line[0].second}, {kRight, line[0].second}};
        canvas_.path(line, colour, thickness);
    }

    /// A dashed line that breaks where no record is in force.
    template <typename Value>
    void draw_claim(Colour colour, Value value) {
        std::vector<Point> line;
        for (size_t i = 0; i <= frames_.size(); ++i) {
            if (i < frames_.size() && frames_[i].origin != RecordOrigin::kNone) {
                const double half = (kRight - kLeft) / 2 / static_cast<double>(frames_.size());
                line.emplace_back(x(i) - half, y(value(frames_[i])));
                line.emplace_back(x(i) + half, y(value(frames_[i])));
            } else if (!line.empty()) {
                canvas_.path(line, colour, 1.5, true);
                line.clear();
            }
        }
    }

    void draw_legend() {
        double at = kLeft;
        const double level = kBottom + 84;
        const auto entry = [&](Colour colour, double thickness, bool dashed, const char* label, double advance) {
            canvas_.line({at, level}, {at + 36, level}, colour, thickness, dashed);
            canvas_.text({at + 44, level + 5}, label, kInk, 14);
            at += advance;
        };
        entry(kRed, 2.5, false, "brightest pixel", 180);
        entry(kViolet, 1.5, false, "99 %", 110);
        entry(kBlue, 2.5, false, "average of max(R, G, B)", 240);
        entry(kGreen, 1.5, false, "median", 130);
        entry(kRed, 1.5, true, "record's maximum", 195);
        entry(kBlue, 1.5, true, "record's average", 180);
    }

    Canvas& canvas_;
    const std::vector<MeasuredFrame>& frames_;
    const LuminanceAxis axis_;
};

} // namespace

void check_chart_name(const std::string& path) {
    const std::string kind = std::filesystem::path(path).extension().string();
    if (kind != ".png" && kind != ".svg") throw Error(path + ": a chart is written as .png or .svg");
}

void draw_light(const std::string& path, const std::string& name, const ClipLight& light,
                const StaticMetadata& claimed) {
    Canvas canvas(path, kWidth, kHeight);
    canvas.text({kLeft, 36}, name + ": light over time", kInk, 20, Align::kLeft, true);
    std::string line = "measured MaxCLL " + luminance_text(light.max_cll) + " cd/m\u00b2, MaxFALL " +
                       luminance_text(light.max_fall) + " cd/m\u00b2";
    if (claimed.has_content_light)
        line += "; the clip says " + std::to_string(claimed.max_cll) + " and " + std::to_string(claimed.max_fall);
    canvas.text({kLeft, 62}, line, kQuiet, 15);
    LightChart(canvas, light, claimed).draw();
    canvas.save();
}

} // namespace lumivert::tool
