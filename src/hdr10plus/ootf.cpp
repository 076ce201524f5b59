#include "hdr10plus/units.h"
#include "lumivert/hdr10plus.h"

#include <algorithm>
#include <cmath>

using lumivert::peak_ratio;
using lumivert::valid_entries;

namespace {

constexpr unsigned basis_anchors = 9;
constexpr unsigned dimmest_display = 200; // cd/m2; a display below it shows the scene unmapped

/// One anchor of a generated curve: its height for a dark scene (median at most 5 % of the 99 % point) and for a bright
/// one (55 % or more), and how far the former lies above the straight line.
struct AnchorShape {
    float dark;
    float bright;
    float lift;

    constexpr float step() const { return bright - dark; }
};

/// P2 to P9.
constexpr AnchorShape anchor_shapes[] = {
    {0.4839f, 0.5582f, 0.2839f}, {0.6325f, 0.6745f, 0.3325f}, {0.7253f, 0.7703f, 0.3253f}, {0.7722f, 0.8231f, 0.2722f},
    {0.8201f, 0.8729f, 0.2201f}, {0.8837f, 0.9130f, 0.1837f}, {0.9208f, 0.9599f, 0.1208f}, {0.9580f, 0.9844f, 0.0580f},
};

float shape_at(const AnchorShape& shape, float median) {
    if (median <= 0.05f) return shape.dark;
    if (median >= 0.55f) return shape.bright;
    return shape.dark + std::fma(2.0f, median, -0.1f) * shape.step();
}

float first_anchor(float kx, float ky, float display, float scene_peak, float* weight) {
    return LIB_HDR10PLUS_META::calcP1(kx, ky, display, scene_peak, 0.01f, 0.1f, 0.92f, 0.98f, 0.005f, 0.04f, 0.12f,
                                      0.4f, 0.1f, 0.75f, 0.65f, weight);
}

/// Writes what a curve builder owns: knee, count and as many anchors, nothing else.
void store(HDR10PLUS_TM_CURVE* curve, const HDR10PLUS_TM_CURVE& built) {
    curve->f_knee_point_x = built.f_knee_point_x;
    curve->f_knee_point_y = built.f_knee_point_y;
    curve->num_bezier_curve_anchors = built.num_bezier_curve_anchors;
    std::copy_n(built.f_bezier_curve_anchors, built.num_bezier_curve_anchors, curve->f_bezier_curve_anchors);
}

/// The identity: a knee on the diagonal and the control points of a straight line.
HDR10PLUS_TM_CURVE straight_line(unsigned anchors, float knee) {
    HDR10PLUS_TM_CURVE line = {};
    line.f_knee_point_x = knee;
    line.f_knee_point_y = knee;
    line.num_bezier_curve_anchors = static_cast<uint8_t>(anchors);
    for (unsigned i = 0; i < anchors; ++i)
        line.f_bezier_curve_anchors[i] = static_cast<float>(i + 1) / static_cast<float>(anchors + 1);
    return line;
}

/// The curve as the metadata carries it, from 12-bit and 10-bit fractions.
HDR10PLUS_TM_CURVE metadata_curve(const HDR10PLUS_DYNAMIC_INFO& info) {
    constexpr float per_4095 = 0.00024420026f;
    constexpr float per_1023 = 0.0009775171f;
    const unsigned anchors = valid_entries(info.num_bezier_curve_anchors);
    HDR10PLUS_TM_CURVE carried = {};
    carried.f_knee_point_x = static_cast<float>(info.knee_point_x) * per_4095;
    carried.f_knee_point_y = static_cast<float>(info.knee_point_y) * per_4095;
    carried.num_bezier_curve_anchors = static_cast<uint8_t>(anchors);
    for (unsigned i = 0; i < anchors; ++i)
        carried.f_bezier_curve_anchors[i] = static_cast<float>(info.bezier_curve_anchors[i]) * per_1023;
    return carried;
}

/// A curve together with the peak ratio it was made for.
struct RatedCurve {
    HDR10PLUS_TM_CURVE curve;
    float ratio;
};

/// Knee ordinate and the first `anchors` anchors for a display of peak ratio `ratio`, mixed index by index from two
/// curves; one with fewer anchors counts as zero there.
HDR10PLUS_TM_CURVE between(const RatedCurve& low, const RatedCurve& high, float ratio, unsigned anchors) {
    const float share = std::clamp((ratio - low.ratio) / (high.ratio - low.ratio), 0.0f, 1.0f);
    const auto mix = [share](float a, float b) { return (1.0f - share) * a + share * b; };
    HDR10PLUS_TM_CURVE mixed = {};
    mixed.f_knee_point_y = std::clamp(mix(low.curve.f_knee_point_y, high.curve.f_knee_point_y), 0.0f, 1.0f);
    mixed.num_bezier_curve_anchors = static_cast<uint8_t>(anchors);
    for (unsigned i = 0; i < anchors; ++i)
        mixed.f_bezier_curve_anchors[i] =
            mix(low.curve.f_bezier_curve_anchors[i], high.curve.f_bezier_curve_anchors[i]);
    return mixed;
}

/// Makes the Bezier curve leave the knee in line with the segment below it, whose slope is 1 / `ratio`.
void join_at_knee(HDR10PLUS_TM_CURVE& curve, float ratio, float display, float scene_peak) {
    curve.f_knee_point_x = curve.f_knee_point_y * ratio;
    const float p1 = first_anchor(curve.f_knee_point_x, curve.f_knee_point_y, display, scene_peak, nullptr);
    curve.f_bezier_curve_anchors[0] = p1;
    for (unsigned i = 1; i < curve.num_bezier_curve_anchors; ++i)
        curve.f_bezier_curve_anchors[i] = std::min(curve.f_bezier_curve_anchors[i], static_cast<float>(i + 1) * p1);
}

} // namespace

namespace LIB_HDR10PLUS_META {

void BasisOOTF(HDR10PLUS_TM_CURVE* curve, const HDR10PLUS_DYNAMIC_INFO* info, unsigned int target, float scene_peak) {
    const float display = static_cast<float>(target);
    const float ratio = peak_ratio(display, scene_peak);
    float p50 = 0.0f;
    float p99 = 0.0f;
    getPercentile_50_99(info, p50, p99);
    const float median = p50 / std::max(p99, 0.0001f); // an unknown -1 counts as a very dark scene

    // The line below the knee has slope 1 / ratio, so luminances there reach the display unchanged.
    const float dark_knee = rampWeight(0.0f, 0.3f, 0.22f, 1.0f, ratio);
    const float bright_knee = rampWeight(0.0f, 0.2f, 0.25f, 0.95f, ratio);
    const float darkness = rampWeight(1.0f, 0.05f, 0.05f, 0.5f, median);
    const float ky = std::fma(darkness, dark_knee - bright_knee, bright_knee);
    const float kx = ky * ratio;

    float weight = 0.0f;
    const float p1 = first_anchor(kx, ky, display, scene_peak, &weight);
    HDR10PLUS_TM_CURVE built = {};
    built.f_knee_point_x = kx;
    built.f_knee_point_y = ky;
    built.num_bezier_curve_anchors = basis_anchors;
    float* const anchors = built.f_bezier_curve_anchors;
    anchors[0] = p1;

    const float bend = rampWeight(1.0f, 0.0f, 0.125f, 0.95f, ratio);
    for (unsigned i = 1; i < basis_anchors; ++i) {
        const AnchorShape& shape = anchor_shapes[i - 1];
        const float line = static_cast<float>(i + 1) * 0.1f;
        const float limit = static_cast<float>(i + 1) * p1;
        // On purpose the step enters twice, in shape_at and here.
        const float lift = shape_at(shape, median) * shape.step() + shape.lift;
        anchors[i] = std::max(std::min(std::fma(lift, bend, line), limit), line);
    }
    const float damping = rampWeight(1.0f, 0.8f, 0.1f, 0.75f, weight);
    anchors[1] = std::max(std::min(anchors[1] * damping, 2.0f * p1), 0.2f);
    store(curve, built);
}

void GuidedOOTF(HDR10PLUS_TM_CURVE* curve, const HDR10PLUS_DYNAMIC_INFO* info, unsigned int target, float scene_peak) {
    const unsigned anchors = valid_entries(info->num_bezier_curve_anchors);
    const float display = static_cast<float>(target);
    if (target < dimmest_display) return store(curve, straight_line(anchors, 0.0f));
    // Before the comparison with the scene: on the display it was graded for, a curve is never replaced.
    if (target == info->display_max_luminance) return store(curve, metadata_curve(*info));
    if (display >= scene_peak) return store(curve, straight_line(anchors, 0.3f));

    const float ratio = peak_ratio(display, scene_peak);
    const float graded_ratio = peak_ratio(static_cast<float>(info->display_max_luminance), scene_peak);
    const RatedCurve graded = {metadata_curve(*info), graded_ratio};
    HDR10PLUS_TM_CURVE built = {};
    if (target < info->display_max_luminance) {
        RatedCurve dimmest = {{}, peak_ratio(static_cast<float>(dimmest_display), scene_peak)};
        BasisOOTF(&dimmest.curve, info, dimmest_display, scene_peak);
        built = between(dimmest, graded, ratio, anchors);
    } else {
        built = between(graded, {straight_line(anchors, 0.3f), 1.0f}, ratio, anchors);
    }
    join_at_knee(built, ratio, display, scene_peak);
    store(curve, built);
}

} // namespace LIB_HDR10PLUS_META
