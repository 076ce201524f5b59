#include "hdr10plus/curve_oracle.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace oracle {
namespace {

using Entry = std::pair<int, double>; // percentage, cd/m2

std::vector<Entry> distribution(const HDR10PLUS_DYNAMIC_INFO& info) {
    std::vector<Entry> entries;
    for (int i = 0; i < std::min<int>(info.num_maxrgb_percentiles, 15); ++i)
        entries.emplace_back(info.maxrgb_percentages[i], info.maxrgb_percentiles[i] / 10.0);
    return entries;
}

double ramp(double w0, double w1, double x0, double x1, double x) {
    return w0 + (w1 - w0) * std::clamp((x - x0) / (x1 - x0), 0.0, 1.0);
}

double ratio(double display, double scene) {
    return scene > display ? display / scene : 1.0;
}

double low_knee_weight(double ky, double r) {
    return ramp(1, 0, 0.005, 0.04, ky) * ramp(1, 0, 0.12, 0.4, r);
}

/// Slope continuity at the knee, scaled for low knees on dim displays, between 0.1 and the cap.
double first_anchor(double kx, double ky, double r) {
    const double cap = ramp(0.98, 0.92, 0.01, 0.1, ky);
    const double smooth = (1 - std::min(kx, 0.9999)) / (1 - std::min(ky, 0.9999)) / r / 10;
    const double gain = ramp(1, 0.65, 0.1, 0.75, low_knee_weight(ky, r));
    return std::clamp(gain * std::clamp(smooth, 0.0, cap), 0.1, cap);
}

Curve basis(const HDR10PLUS_DYNAMIC_INFO& info, double display, double scene) {
    const double r = ratio(display, scene);
    const double m = percentile(info, 50, 50) / std::max(percentile(info, 99, 99.95), 1e-4);
    const double dark = ramp(1, 0.05, 0.05, 0.5, m);
    Curve built = {0, 0, 0, std::vector<double>(9)};
    built.ky = dark * ramp(0, 0.3, 0.22, 1, r) + (1 - dark) * ramp(0, 0.2, 0.25, 0.95, r);
    built.kx = built.ky * r;
    const double p1 = built.anchors[0] = first_anchor(built.kx, built.ky, r);

    const double in_dark[] = {0.4839, 0.6325, 0.7253, 0.7722, 0.8201, 0.8837, 0.9208, 0.958};
    const double in_bright[] = {0.5582, 0.6745, 0.7703, 0.8231, 0.8729, 0.913, 0.9599, 0.9844};
    for (int i = 1; i < 9; ++i) {
        const double line = (i + 1) / 10.0;
        const double step = in_bright[i - 1] - in_dark[i - 1];
        const double shape = ramp(in_dark[i - 1], in_bright[i - 1], 0.05, 0.55, m);
        const double bent = line + ramp(1, 0, 0.125, 0.95, r) * (shape * step + in_dark[i - 1] - line);
        built.anchors[i] = std::max(line, std::min(bent, (i + 1) * p1));
    }
    const double damped = built.anchors[1] * ramp(1, 0.8, 0.1, 0.75, low_knee_weight(built.ky, r));
    built.anchors[1] = std::max(0.2, std::min(damped, 2 * p1));
    return built;
}

Curve guided(const HDR10PLUS_DYNAMIC_INFO& info, double display, double scene) {
    const double graded = info.display_max_luminance;
    const int count = std::min<int>(info.num_bezier_curve_anchors, 15);
    Curve built = {0, info.knee_point_x / 4095.0, info.knee_point_y / 4095.0, {}};
    Curve line = {0, 0.3, 0.3, {}};
    for (int i = 0; i < count; ++i) {
        built.anchors.push_back(info.bezier_curve_anchors[i] / 1023.0);
        line.anchors.push_back((i + 1.0) / (count + 1.0));
    }
    if (display == graded) return built;
    if (display >= scene) return line;

    const double r = ratio(display, scene);
    const double graded_r = ratio(graded, scene);
    const bool dimmer = display < graded;
    Curve other = dimmer ? basis(info, 200, scene) : line;
    const double other_r = dimmer ? 200 / scene : 1;
    const double own_share = std::clamp((r - other_r) / (graded_r - other_r), 0.0, 1.0);
    const auto mix = [=](double own, double others) { return others + own_share * (own - others); };

    other.anchors.resize(count, 0.0);
    built.ky = std::clamp(mix(built.ky, other.ky), 0.0, 1.0);
    built.kx = built.ky * r;
    const double p1 = first_anchor(built.kx, built.ky, r);
    for (int i = 0; i < count; ++i)
        built.anchors[i] = i == 0 ? p1 : std::min(mix(built.anchors[i], other.anchors[i]), (i + 1) * p1);
    return built;
}

double choose(int n, int k) {
    return k == 0 ? 1 : choose(n, k - 1) * (n - k + 1) / k;
}

/// The weight that anchor `k` of `count` really gets, relative to its place in Pascal's triangle: none in short curves;
/// in curves of 15 the two 120 are missing and everything after them has moved up.
double irregularity(int count, int k) {
    if (count < 3) return 0;
    if (count < 15) return 1;
    const int column = k == 0 ? 1 : k < 12 ? k + 2 : k + 3;
    return column <= 15 ? choose(16, column) / choose(16, k + 1) : 0;
}

} // namespace

double scene_peak(const HDR10PLUS_DYNAMIC_INFO& info) {
    const double brightest = *std::max_element(info.maxscl, info.maxscl + 3) / 10.0;
    auto entries = distribution(info);
    if (!entries.empty()) std::rotate(entries.begin(), entries.end() - 1, entries.end()); // the last is asked first
    const auto found = std::find_if(entries.begin(), entries.end(), [](const Entry& e) { return e.first == 99; });
    const double limit = found == entries.end() ? 10000.0 : found->second;
    if (brightest == 0) return found == entries.end() ? 0.0 : limit;
    return std::min({brightest, limit, 10000.0});
}

double percentile(const HDR10PLUS_DYNAMIC_INFO& info, int percentage, double target) {
    auto entries = distribution(info);
    if (entries.size() > 1) entries.erase(entries.begin() + 1, entries.begin() + std::min<size_t>(3, entries.size()));
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry)
        if (entry->first == percentage) return entry->second;
    entries.insert(entries.begin(), {0, 0.0});
    for (size_t i = entries.size() - 1; i > 0; --i) {
        const auto [low, dark] = entries[i - 1];
        const auto [high, bright] = entries[i];
        if (low < percentage && percentage < high) return dark + (bright - dark) * (target - low) / (high - low);
    }
    return -1;
}

Curve curve(const HDR10PLUS_DYNAMIC_INFO& info, unsigned target) {
    const double display = std::max(target, 200U);
    const double scene = scene_peak(info);
    Curve built = info.tone_mapping_flag == 0 ? basis(info, display, scene) : guided(info, display, scene);
    built.normalize_x = 10000 / std::clamp(scene, display, std::max(display, 10000.0));
    return built;
}

/// De Casteljau's construction on 0, the anchors and 1.
double gain(const Curve& curve, double x) {
    if (x <= curve.kx) return std::clamp(curve.ky / curve.kx, 0.0, 1.0 / x);
    const double t = (x - curve.kx) / (1 - curve.kx);
    std::vector<double> points = {0.0};
    for (size_t k = 0; k < curve.anchors.size(); ++k)
        points.push_back(curve.anchors[k] * irregularity(static_cast<int>(curve.anchors.size()), static_cast<int>(k)));
    points.push_back(1.0);
    for (; points.size() > 1; points.pop_back())
        for (size_t i = 0; i + 1 < points.size(); ++i)
            points[i] += t * (points[i + 1] - points[i]);
    return (curve.ky + (1 - curve.ky) * points[0]) / x;
}

} // namespace oracle
