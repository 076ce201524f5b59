#include <algorithm>
#include <cmath>

#include "hdr10plus/units.h"
#include "lumivert/hdr10plus.h"

using lumivert::valid_entries;

namespace {

constexpr unsigned kBasisAnchors = 9;
constexpr unsigned kDimmestDisplay = 200; // in cd/m2; below it the curve is the identity

/// One anchor of a generated curve: its height for a dark scene (median up to 5 % of the 99 % luminance) and for a
/// bright scene (55 % or more), and how far `dark` lies above the straight line.
struct AnchorShape {
    float dark;
    float bright;
    float lift;

    constexpr float step() const { return bright - dark; }
};

/// P2 to P9.
constexpr AnchorShape kAnchorShapes[] = {
    {0.4839F, 0.5582F, 0.2839F}, {0.6325F, 0.6745F, 0.3325F}, {0.7253F, 0.7703F, 0.3253F}, {0.7722F, 0.8231F, 0.2722F},
    {0.8201F, 0.8729F, 0.2201F}, {0.8837F, 0.9130F, 0.1837F}, {0.9208F, 0.9599F, 0.1208F}, {0.9580F, 0.9844F, 0.0580F},
};

/// The display's peak divided by the larger of its peak and the scene's. 1 if the display can show the whole scene.
float peak_ratio(float display, float scene) {
    return display / std::max(display, scene);
}

float shape_at(const AnchorShape& shape, float median) {
    if (median <= 0.05F) return shape.dark;
    if (median >= 0.55F) return shape.bright;
    return shape.dark + std::fma(2.0F, median, -0.1F) * shape.step();
}

float first_anchor(float kx, float ky, float display, float scene_peak, float* weight) {
    return LIB_HDR10PLUS_META::calcP1(kx, ky, display, scene_peak, 0.01F, 0.1F, 0.92F, 0.98F, 0.005F, 0.04F, 0.12F,
                                      0.4F, 0.1F, 0.75F, 0.65F, weight);
}

/// Writes the fields that a curve builder sets: the knee point, the count and that many anchors.
void store(HDR10PLUS_TM_CURVE* curve, const HDR10PLUS_TM_CURVE& built) {
    curve->f_knee_point_x = built.f_knee_point_x;
    curve->f_knee_point_y = built.f_knee_point_y;
    curve->num_bezier_curve_anchors = built.num_bezier_curve_anchors;
    std::copy_n(built.f_bezier_curve_anchors, built.num_bezier_curve_anchors, curve->f_bezier_curve_anchors);
}

/// The identity: a knee point on the diagonal and the control points of a straight line.
HDR10PLUS_TM_CURVE straight_line(unsigned anchors, float knee) {
    HDR10PLUS_TM_CURVE line = {};
    line.f_knee_point_x = knee;
    line.f_knee_point_y = knee;
    line.num_bezier_curve_anchors = static_cast<uint8_t>(anchors);
    for (unsigned i = 0; i < anchors; ++i)
        line.f_bezier_curve_anchors[i] = static_cast<float>(i + 1) / static_cast<float>(anchors + 1);
    return line;
}

/// The curve in the metadata, converted from fractions of 12 bits (knee point) and 10 bits (anchors).
HDR10PLUS_TM_CURVE metadata_curve(const HDR10PLUS_DYNAMIC_INFO& info) {
    constexpr float kPer4095 = 0.00024420026F;
    constexpr float kPer1023 = 0.0009775171F;
    const unsigned anchors = valid_entries(info.num_bezier_curve_anchors);
    HDR10PLUS_TM_CURVE carried = {};
    carried.f_knee_point_x = static_cast<float>(info.knee_point_x) * kPer4095;
    carried.f_knee_point_y = static_cast<float>(info.knee_point_y) * kPer4095;
    carried.num_bezier_curve_anchors = static_cast<uint8_t>(anchors);
    for (unsigned i = 0; i < anchors; ++i)
        carried.f_bezier_curve_anchors[i] = static_cast<float>(info.bezier_curve_anchors[i]) * kPer1023;
    return carried;
}

/// A curve and the peak ratio that it was made for.
struct RatedCurve {
    HDR10PLUS_TM_CURVE curve;
    float ratio;
};

/// A mix of two curves for a display with the peak ratio `ratio`: the knee point's output and the first `anchors`
/// anchors, index by index. Anchors that a curve does not have count as zero.
HDR10PLUS_TM_CURVE between(const RatedCurve& low, const RatedCurve& high, float ratio, unsigned anchors) {
    const float share = std::clamp((ratio - low.ratio) / (high.ratio - low.ratio), 0.0F, 1.0F);
    const auto mix = [share](float a, float b) { return (1.0F - share) * a + share * b; };
    HDR10PLUS_TM_CURVE mixed = {};
    mixed.f_knee_point_y = std::clamp(mix(low.curve.f_knee_point_y, high.curve.f_knee_point_y), 0.0F, 1.0F);
    mixed.num_bezier_curve_anchors = static_cast<uint8_t>(anchors);
    for (unsigned i = 0; i < anchors; ++i)
        mixed.f_bezier_curve_anchors[i] =
            mix(low.curve.f_bezier_curve_anchors[i], high.curve.f_bezier_curve_anchors[i]);
    return mixed;
}

/// Moves the knee point and the first anchor so that the Bezier curve continues the line below the knee, whose slope is
/// 1 / `ratio`, and limits the other anchors accordingly.
void join_at_knee(HDR10PLUS_TM_CURVE& curve, float ratio, float display, float scene_peak) {
    curve.f_knee_point_x = curve.f_knee_point_y * ratio;
    const float p1 = first_anchor(curve.f_knee_point_x, curve.f_knee_point_y, display, scene_peak, nullptr);
    curve.f_bezier_curve_anchors[0] = p1;
    for (unsigned i = 1; i < curve.num_bezier_curve_anchors; ++i)
        curve.f_bezier_curve_anchors[i] = std::min(curve.f_bezier_curve_anchors[i], static_cast<float>(i + 1) * p1);
}

} // namespace

namespace LIB_HDR10PLUS_META {

float rampWeight(float w0, float w1, float x0, float x1, float x) {
    if (x0 == x1) return x < x0 ? w0 : w1;
    if (!(x > x0)) return w0;
    if (x >= x1) return w1;
    return (x - x0) * (w1 - w0) / (x1 - x0) + w0;
}

float calcP1(float kx, float ky, float target_lum, float scene_lum, float cap_x0, float cap_x1, float cap_hi,
             float cap_lo, float ky_x0, float ky_x1, float r_x0, float r_x1, float w_x0, float w_x1, float gain_hi,
             float* weight_out) {
    const float ratio = peak_ratio(target_lum, scene_lum);
    const float cap = rampWeight(cap_lo, cap_hi, cap_x0, cap_x1, ky);

    // At its start, a Bezier curve of order 10 has the slope 10 P1 (1 - ky) / (1 - kx). This P1 makes it 1 / ratio.
    const float smooth = (1.0F - std::min(kx, 0.9999F)) / (ratio * (10.0F - 10.0F * std::min(ky, 0.9999F)));
    const float limited = std::max(std::min(smooth, cap), 0.0F);

    const float weight = rampWeight(1.0F, 0.0F, ky_x0, ky_x1, ky) * rampWeight(1.0F, 0.0F, r_x0, r_x1, ratio);
    if (weight_out != nullptr) *weight_out = weight;
    const float gain = rampWeight(1.0F, gain_hi, w_x0, w_x1, weight);
    return std::min(std::max(gain * limited, 0.1F), cap); // the order matters: a cap below 0.1 wins
}

void BasisOOTF(HDR10PLUS_TM_CURVE* curve, const HDR10PLUS_DYNAMIC_INFO* info, unsigned int target, float scene_peak) {
    const float display = static_cast<float>(target);
    const float ratio = peak_ratio(display, scene_peak);
    float p50 = 0.0F;
    float p99 = 0.0F;
    getPercentile_50_99(info, p50, p99);
    const float median = p50 / std::max(p99, 0.0001F); // -1, for unknown, counts as a very dark scene

    // The line below the knee has the slope 1 / ratio, which leaves luminances there unchanged on the display.
    const float dark_knee = rampWeight(0.0F, 0.3F, 0.22F, 1.0F, ratio);
    const float bright_knee = rampWeight(0.0F, 0.2F, 0.25F, 0.95F, ratio);
    const float darkness = rampWeight(1.0F, 0.05F, 0.05F, 0.5F, median);
    const float ky = std::fma(darkness, dark_knee - bright_knee, bright_knee);
    const float kx = ky * ratio;

    float weight = 0.0F;
    const float p1 = first_anchor(kx, ky, display, scene_peak, &weight);
    HDR10PLUS_TM_CURVE built = {};
    built.f_knee_point_x = kx;
    built.f_knee_point_y = ky;
    built.num_bezier_curve_anchors = kBasisAnchors;
    float* const anchors = built.f_bezier_curve_anchors;
    anchors[0] = p1;

    const float bend = rampWeight(1.0F, 0.0F, 0.125F, 0.95F, ratio);
    for (unsigned i = 1; i < kBasisAnchors; ++i) {
        const AnchorShape& shape = kAnchorShapes[i - 1];
        const float line = static_cast<float>(i + 1) * 0.1F;
        const float limit = static_cast<float>(i + 1) * p1;
        // The step is used twice on purpose, in shape_at and here.
        const float lift = shape_at(shape, median) * shape.step() + shape.lift;
        anchors[i] = std::max(std::min(std::fma(lift, bend, line), limit), line);
    }
    const float damping = rampWeight(1.0F, 0.8F, 0.1F, 0.75F, weight);
    anchors[1] = std::max(std::min(anchors[1] * damping, 2.0F * p1), 0.2F);
    store(curve, built);
}

void GuidedOOTF(HDR10PLUS_TM_CURVE* curve, const HDR10PLUS_DYNAMIC_INFO* info, unsigned int target, float scene_peak) {
    const unsigned anchors = valid_entries(info->num_bezier_curve_anchors);
    const float display = static_cast<float>(target);
    if (target < kDimmestDisplay) return store(curve, straight_line(anchors, 0.0F));
    // This comes before the comparison with the scene: on the display that it was graded for, a curve is never
    // replaced.
    if (target == info->display_max_luminance) return store(curve, metadata_curve(*info));
    if (display >= scene_peak) return store(curve, straight_line(anchors, 0.3F));

    const float ratio = peak_ratio(display, scene_peak);
    const float graded_ratio = peak_ratio(static_cast<float>(info->display_max_luminance), scene_peak);
    const RatedCurve graded = {metadata_curve(*info), graded_ratio};
    HDR10PLUS_TM_CURVE built = {};
    if (target < info->display_max_luminance) {
        RatedCurve dimmest = {{}, peak_ratio(static_cast<float>(kDimmestDisplay), scene_peak)};
        BasisOOTF(&dimmest.curve, info, kDimmestDisplay, scene_peak);
        built = between(dimmest, graded, ratio, anchors);
    } else {
        built = between(graded, {straight_line(anchors, 0.3F), 1.0F}, ratio, anchors);
    }
    join_at_knee(built, ratio, display, scene_peak);
    store(curve, built);
}

} // namespace LIB_HDR10PLUS_META
