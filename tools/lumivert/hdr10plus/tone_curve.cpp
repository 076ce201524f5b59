#include "hdr10plus/tone_curve.h"

#include <algorithm>
#include <cmath>

namespace lumivert::tool {

ToneCurve::ToneCurve(const Record& record, unsigned display)
    : curve(), gains(), target(std::max(display, 200U)), scene_peak(LIB_HDR10PLUS_META::GetSceneMaxL(&record)) {
    Record copy = record;
    hdr10plus_meta_to_curve(&curve, &copy, display);
    full_scale = 10000 / curve.normalize_x;
    multiplied_ = curve;
    hdr10plus_curve_kchoose_preapplied(&multiplied_);
    hdr10plus_preappliedcurve_to_lut(gains, 256, &multiplied_);
}

double ToneCurve::output(double input) const {
    const double kx = curve.f_knee_point_x, ky = curve.f_knee_point_y;
    const double x = std::min(input / full_scale, 1.0);
    if (x <= 0) return 0;
    if (x <= kx) return std::clamp(ky * x / kx, 0.0, 1.0) * target;
    const double t = (x - kx) / (1 - kx);
    const int order = std::min<int>(multiplied_.num_bezier_curve_anchors, kMaxPoints) + 1;
    double bezier = std::pow(t, order);
    for (int k = 1; k < order; ++k)
        bezier += multiplied_.f_bezier_curve_anchors[k - 1] * std::pow(t, k) * std::pow(1 - t, order - k);
    return (ky + (1 - ky) * bezier) * target;
}

float ToneCurve::gain_by_table(float input) const {
    const float at = std::max(curve.f_knee_point_x, std::min(input, 1.0F)) * 254;
    const int entry = std::clamp(static_cast<int>(at), 0, 254); // knees beyond 1 come from metadata out of its range
    const float part = at - static_cast<float>(static_cast<int>(at));
    return gains[entry] * part + gains[entry + 1] * (1 - part);
}

} // namespace lumivert::tool
