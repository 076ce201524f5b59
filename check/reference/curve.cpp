#include "reference/curve.h"

#include <algorithm>
#include <array>

namespace lumivert::reference {
namespace {

constexpr int kMaxEntries = 15;

/// `before` up to `from`, `after` from `to` on, a straight line between.
struct Ramp {
    double before, after, from, to;

    double at(double x) const {
        if (x <= from) return before;
        if (x >= to) return after;
        const double share = (x - from) / (to - from);
        return before * (1 - share) + after * share;
    }
};

double mixed(double share_of_second, double first, double second) {
    return first + share_of_second * (second - first);
}

// ---- the scene ----

/// One point of the luminance distribution.
struct Point {
    int percentage;
    double light; ///< cd/m2
};

struct Distribution {
    int count;
    Point points[kMaxEntries + 1];
};

Point point_of(const HDR10PLUS_DYNAMIC_INFO& info, int i) {
    return {info.maxrgb_percentages[i], info.maxrgb_percentiles[i] / 10.0};
}

int points_in(const HDR10PLUS_DYNAMIC_INFO& info) {
    return std::min<int>(info.num_maxrgb_percentiles, kMaxEntries);
}

/// The points that the percentiles are taken from: the second and third are something else, and darkness comes first.
Distribution trusted_points(const HDR10PLUS_DYNAMIC_INFO& info) {
    Distribution trusted = {1, {{0, 0.0}}};
    for (int i = 0; i < points_in(info); ++i)
        if (i != 1 && i != 2) trusted.points[trusted.count++] = point_of(info, i);
    return trusted;
}

/// How bright a scene is against a display.
struct Scene {
    double peak;  ///< cd/m2
    double shape; ///< median over 99th percentile: small in dark scenes
};

Scene scene_of(const HDR10PLUS_DYNAMIC_INFO& info) {
    return {scene_peak(info), percentile(info, 50) / std::max(percentile(info, 99), 0.0001)};
}

/// The part of the scene's range that a display shows, at most 1.
double reach(double display, double scene) {
    return display / std::max(display, scene);
}

// ---- the generated curve ----

/// 1 for a knee near black on a display far below the scene, falling to 0.
double deep_shadow(double knee_y, double r) {
    constexpr Ramp kByKnee = {1, 0, 0.005, 0.04};
    constexpr Ramp kByReach = {1, 0, 0.12, 0.4};
    return kByKnee.at(knee_y) * kByReach.at(r);
}

/// The first anchor continues the slope 1/r of the line below the knee.
double first_anchor(double knee_x, double knee_y, double r) {
    constexpr Ramp kCap = {0.98, 0.92, 0.01, 0.1};
    constexpr Ramp kDamping = {1, 0.65, 0.1, 0.75};
    constexpr double kAlmostOne = 0.9999;
    const double cap = kCap.at(knee_y);
    const double run = 1 - std::min(knee_x, kAlmostOne);
    const double rise = 1 - std::min(knee_y, kAlmostOne);
    const double continued = std::max(0.0, std::min(run / (10 * r * rise), cap));
    return std::min(cap, std::max(0.1, continued * kDamping.at(deep_shadow(knee_y, r))));
}

/// Anchors 2 to 9 of the generated curve: shapes for dark and for bright scenes, the step between them, and the offset.
struct AnchorShape {
    double dark, bright, step, offset;
};
constexpr AnchorShape kAnchorShapes[] = {
    {0.4839, 0.5582, 0.0743, 0.2839}, {0.6325, 0.6745, 0.0420, 0.3325}, {0.7253, 0.7703, 0.0450, 0.3253},
    {0.7722, 0.8231, 0.0509, 0.2722}, {0.8201, 0.8729, 0.0528, 0.2201}, {0.8837, 0.9130, 0.0293, 0.1837},
    {0.9208, 0.9599, 0.0391, 0.1208}, {0.9580, 0.9844, 0.0264, 0.0580},
};

double shape_of(const AnchorShape& row, double scene_shape) {
    if (scene_shape <= 0.05) return row.dark;
    if (scene_shape >= 0.55) return row.bright;
    return row.dark + (2 * scene_shape - 0.1) * row.step;
}

Curve generated(double display, const Scene& scene) {
    constexpr Ramp kHighKnee = {0, 0.3, 0.22, 1.0};
    constexpr Ramp kLowKnee = {0, 0.2, 0.25, 0.95};
    constexpr Ramp kDarkScene = {1, 0.05, 0.05, 0.5};
    constexpr Ramp kBend = {1, 0, 0.125, 0.95};
    constexpr Ramp kSecondAnchor = {1, 0.8, 0.1, 0.75};

    const double r = reach(display, scene.peak);
    Curve curve = {};
    curve.knee_y = mixed(kDarkScene.at(scene.shape), kLowKnee.at(r), kHighKnee.at(r));
    curve.knee_x = curve.knee_y * r;
    curve.anchor_count = 9;
    const double first = first_anchor(curve.knee_x, curve.knee_y, r);
    curve.anchors[0] = first;
    for (int k = 2; k <= 9; ++k) {
        const AnchorShape& row = kAnchorShapes[k - 2];
        const double line = k / 10.0;
        const double bend = shape_of(row, scene.shape) * row.step + row.offset;
        const double bounded = std::min(line + bend * kBend.at(r), k * first);
        curve.anchors[k - 1] = std::max(bounded, line);
    }
    const double damped = curve.anchors[1] * kSecondAnchor.at(deep_shadow(curve.knee_y, r));
    curve.anchors[1] = std::max(std::min(damped, 2 * first), 0.2);
    return curve;
}

// ---- the curve in the metadata ----

Curve as_graded(const HDR10PLUS_DYNAMIC_INFO& info) {
    Curve curve = {};
    curve.knee_x = info.knee_point_x / 4095.0;
    curve.knee_y = info.knee_point_y / 4095.0;
    curve.anchor_count = std::min<int>(info.num_bezier_curve_anchors, kMaxEntries);
    for (int i = 0; i < curve.anchor_count; ++i)
        curve.anchors[i] = info.bezier_curve_anchors[i] / 1023.0;
    return curve;
}

/// Output is input, as a curve of so many anchors.
Curve identity(double knee, int anchor_count) {
    Curve curve = {};
    curve.knee_x = curve.knee_y = knee;
    curve.anchor_count = anchor_count;
    for (int i = 0; i < anchor_count; ++i)
        curve.anchors[i] = (i + 1.0) / (anchor_count + 1.0);
    return curve;
}

/// The graded curve where the display is the one it was graded for; between that and the basis curve of a 200 cd/m2
/// display on dimmer ones, between that and the identity on brighter ones.
Curve guided(const HDR10PLUS_DYNAMIC_INFO& info, unsigned display, const Scene& scene) {
    const Curve graded = as_graded(info);
    const int count = graded.anchor_count;
    if (display < 200) return identity(0, count);
    if (display == info.display_max_luminance) return graded;
    if (display >= scene.peak) return identity(0.3, count);

    const double r = reach(display, scene.peak);
    const double r_graded = reach(info.display_max_luminance, scene.peak);
    const bool dimmer = display < info.display_max_luminance;
    const Curve far_end = dimmer ? generated(200, scene) : identity(0.3, count);
    const double r_far = dimmer ? 200 / std::max<double>(display, scene.peak) : 1;
    const double to_graded = std::clamp((r - r_far) / (r_graded - r_far), 0.0, 1.0);

    Curve curve = {};
    curve.knee_y = std::clamp(mixed(to_graded, far_end.knee_y, graded.knee_y), 0.0, 1.0);
    curve.knee_x = curve.knee_y * r;
    curve.anchor_count = count;
    const double first = first_anchor(curve.knee_x, curve.knee_y, r);
    for (int i = 0; i < count; ++i) {
        const double blend = mixed(to_graded, far_end.anchors[i], graded.anchors[i]);
        curve.anchors[i] = i == 0 ? first : std::min(blend, (i + 1) * first);
    }
    return curve;
}

// ---- the weights of the anchors ----

double pascal(int row, int column) {
    double value = 1;
    for (int i = 1; i <= column; ++i)
        value = value * (row - column + i) / i;
    return value;
}

/// The weight of anchor k (from 0) of a curve of N. The table that the library goes by gives curves of fewer than three
/// anchors no weights, and its row of 15 lacks the two 120 and so runs ahead of the triangle.
double weight(int anchor_count, int k) {
    constexpr double kLastRow[] = {16, 560, 1820, 4368, 8008, 11440, 12870, 11440, 8008, 4368, 1820, 560, 16, 0, 0};
    if (anchor_count < 3) return 0;
    if (anchor_count == kMaxEntries) return kLastRow[k];
    return pascal(anchor_count + 1, k + 1);
}

} // namespace

double scene_peak(const HDR10PLUS_DYNAMIC_INFO& info) {
    const double brightest = std::min(*std::max_element(info.maxscl, info.maxscl + 3) / 10.0, 10000.0);
    const int count = points_in(info);
    for (int i = 0; i <= count; ++i) { // the last point is asked first, then all in turn
        if (count == 0) break;
        const Point point = point_of(info, i == 0 ? count - 1 : i - 1);
        if (point.percentage == 99) return brightest > 0 ? std::min(brightest, point.light) : point.light;
    }
    return brightest;
}

double percentile(const HDR10PLUS_DYNAMIC_INFO& info, int percentage) {
    const Distribution trusted = trusted_points(info);
    for (int i = trusted.count - 1; i > 0; --i)
        if (trusted.points[i].percentage == percentage) return trusted.points[i].light;
    const double sought = percentage == 99 ? 99.95 : percentage; // towards the peak
    for (int i = trusted.count - 1; i > 0; --i) {
        const Point& dark = trusted.points[i - 1];
        const Point& bright = trusted.points[i];
        if (dark.percentage < percentage && bright.percentage > percentage)
            return mixed((sought - dark.percentage) / (bright.percentage - dark.percentage), dark.light, bright.light);
    }
    return -1;
}

Curve curve_for(const HDR10PLUS_DYNAMIC_INFO& info, unsigned target) {
    const unsigned display = std::max(target, 200U);
    const Scene scene = scene_of(info);
    Curve curve = info.tone_mapping_flag != 0 ? guided(info, display, scene) : generated(display, scene);
    curve.normalize_x = 10000 / std::max<double>(std::min(scene.peak, 10000.0), display);
    return curve;
}

double gain_at(const Curve& curve, double x) {
    if (x <= curve.knee_x) return std::clamp(curve.knee_y * x / curve.knee_x, 0.0, 1.0) / x;
    const double t = (x - curve.knee_x) / (1 - curve.knee_x);
    if (t >= 1) return 1;

    // Control points: 0, the anchors, 1. An anchor whose weight is not that of its place counts in proportion.
    std::array<double, kMaxEntries + 2> points = {};
    const int order = curve.anchor_count + 1;
    for (int k = 0; k < curve.anchor_count; ++k)
        points[k + 1] = curve.anchors[k] * weight(curve.anchor_count, k) / pascal(order, k + 1);
    points[order] = 1;
    for (int left = order; left > 0; --left)
        for (int i = 0; i < left; ++i)
            points[i] = mixed(t, points[i], points[i + 1]);
    return mixed(points[0], curve.knee_y, 1) / x;
}

HDR10PLUS_DYNAMIC_INFO default_record(double first, double second) {
    HDR10PLUS_DYNAMIC_INFO record = {
        181, 60, 1, 4, 0, 250, {100000, 100000, 100000}, 0, 9, {1, 5, 10, 25, 50, 75, 90, 95, 99}, {}, 1, 0, 0, 9, {}};
    const bool has_second = second > 0;
    double peak = first >= 1000 ? first : has_second ? second : 1000;
    if (has_second) peak = std::min(peak, second);
    const bool bright = peak >= 1001; // whole cd/m2 above 1000
    constexpr uint32_t kLights[2][9] = {{13, 0, 13, 322, 782, 1368, 7497, 8389, 10000},
                                        {13, 0, 13, 322, 982, 2368, 18497, 24389, 40000}};
    constexpr uint16_t kAnchors[2][9] = {{380, 620, 650, 770, 850, 900, 930, 980, 990},
                                         {1023, 700, 850, 920, 950, 980, 1005, 1010, 1020}};
    std::copy_n(kLights[bright], 9, record.maxrgb_percentiles);
    std::copy_n(kAnchors[bright], 9, record.bezier_curve_anchors);
    record.knee_point_x = bright ? 20 : 33;
    record.knee_point_y = bright ? 320 : 132;
    return record;
}

} // namespace lumivert::reference
