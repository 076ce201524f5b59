#include <algorithm>
#include <cmath>

#include "hdr10plus/units.h"
#include "lumivert/hdr10plus.h"

using lumivert::kMaxEntries;
using lumivert::valid_entries;

namespace {

/// Row N holds C(N + 1, k + 1), the weight of anchor k in a Bezier curve of order N + 1. Two irregularities are on
/// purpose: rows 1 and 2 drop their anchors, and row 15 lacks 120 at either end.
constexpr float kBinomials[kMaxEntries + 1][kMaxEntries] = {
    {},
    {},
    {},
    {4, 6, 4},
    {5, 10, 10, 5},
    {6, 15, 20, 15, 6},
    {7, 21, 35, 35, 21, 7},
    {8, 28, 56, 70, 56, 28, 8},
    {9, 36, 84, 126, 126, 84, 36, 9},
    {10, 45, 120, 210, 252, 210, 120, 45, 10},
    {11, 55, 165, 330, 462, 462, 330, 165, 55, 11},
    {12, 66, 220, 495, 792, 924, 792, 495, 220, 66, 12},
    {13, 78, 286, 715, 1287, 1716, 1716, 1287, 715, 286, 78, 13},
    {14, 91, 364, 1001, 2002, 3003, 3432, 3003, 2002, 1001, 364, 91, 14},
    {15, 105, 455, 1365, 3003, 5005, 6435, 6435, 5005, 3003, 1365, 455, 105, 15},
    {16, 560, 1820, 4368, 8008, 11440, 12870, 11440, 8008, 4368, 1820, 560, 16},
};

float power(float base, unsigned exponent) {
    float result = 1.0F;
    for (unsigned i = 0; i < exponent; ++i)
        result *= base;
    return result;
}

/// Fills `lut` with curve(x) / x, where `output` computes curve(x). The first and last entries repeat their neighbours,
/// so that a reader can interpolate between two entries anywhere.
template <typename Curve>
void sample_gains(float* lut, unsigned size, Curve output) {
    if (size > 2) {
        const float step = 1.0F / static_cast<float>(size - 2);
        for (unsigned i = 1; i < size - 1; ++i) {
            const float x = static_cast<float>(i) * step;
            lut[i] = output(x) / x;
        }
    }
    lut[0] = lut[1];
    lut[size - 1] = lut[size - 2];
}

} // namespace

void hdr10plus_curve_kchoose_preapplied(HDR10PLUS_TM_CURVE* curve) {
    const unsigned anchors = valid_entries(curve->num_bezier_curve_anchors);
    for (unsigned k = 0; k < anchors; ++k)
        curve->f_bezier_curve_anchors[k] *= kBinomials[anchors][k];
}

void hdr10plus_preappliedcurve_to_lut(float* lut, unsigned int size, HDR10PLUS_TM_CURVE* curve) {
    const float kx = curve->f_knee_point_x;
    const float ky = curve->f_knee_point_y;
    const unsigned anchors = valid_entries(curve->num_bezier_curve_anchors);
    const float* weighted = curve->f_bezier_curve_anchors;

    sample_gains(lut, size, [=](float x) {
        if (kx >= x) return std::max(std::min(ky * x / kx, 1.0F), 0.0F);
        const float t = (x - kx) / (1.0F - kx);
        if (!(t < 1.0F)) return x;
        // One running product instead of two powers per anchor: it starts at (1 - t)^(N + 1), and each step multiplies
        // by t / (1 - t).
        float bezier = power(t, anchors) * t;
        float weight = std::pow(1.0F - t, static_cast<float>(anchors + 1));
        const float reciprocal = 1.0F / (1.0F - t);
        for (unsigned k = 0; k < anchors; ++k) {
            weight = weight * t * reciprocal;
            bezier = std::fma(weight, weighted[k], bezier);
        }
        return std::fma(1.0F - ky, bezier, ky);
    });
}

void hdr10plus_curve_to_lut(float* lut, unsigned int size, HDR10PLUS_TM_CURVE* curve) {
    const float kx = curve->f_knee_point_x;
    const float ky = curve->f_knee_point_y;
    const unsigned anchors = valid_entries(curve->num_bezier_curve_anchors);
    const float* plain = curve->f_bezier_curve_anchors;

    sample_gains(lut, size, [=](float x) {
        if (kx >= x) return std::min(std::max(ky / kx * x, 0.0F), 1.0F);
        const float t = (x - kx) / (1.0F - kx);
        float t_to[kMaxEntries + 1] = {1.0F};
        float rest_to[kMaxEntries + 1] = {1.0F};
        for (unsigned k = 1; k <= anchors; ++k) {
            t_to[k] = t_to[k - 1] * t;
            rest_to[k] = rest_to[k - 1] * (1.0F - t);
        }
        float bezier = 0.0F;
        for (unsigned k = 0; k < anchors; ++k)
            bezier += kBinomials[anchors][k] * t_to[k + 1] * rest_to[anchors - k] * plain[k];
        bezier += t_to[anchors] * t;
        return ky + (1.0F - ky) * bezier;
    });
}
