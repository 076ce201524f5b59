#include <algorithm>

#include "plot/curves.h"

namespace lumivert::tool {
namespace {

constexpr int kSteps = 4096;

} // namespace

FrameCurve::FrameCurve(int64_t number, RecordOrigin from, const Record& metadata, unsigned display)
    : frame(number), origin(from), record(metadata), curve(), gains(), target(std::max(display, 200U)),
      scene_peak(LIB_HDR10PLUS_META::GetSceneMaxL(&metadata)) {
    hdr10plus_meta_to_curve(&curve, &record, display);
    full_scale = 10000 / curve.normalize_x;
    make_gains(gains, 256);
}

void FrameCurve::make_gains(float* table, unsigned size) const {
    HDR10PLUS_TM_CURVE multiplied = curve;
    hdr10plus_curve_kchoose_preapplied(&multiplied);
    hdr10plus_preappliedcurve_to_lut(table, size, &multiplied);
}

double FrameCurve::output(double input) const {
    if (fine_.empty()) {
        fine_.resize(kSteps + 2);
        make_gains(fine_.data(), kSteps + 2);
    }
    const double at = std::min(input / full_scale, 1.0) * kSteps;
    const auto entry = static_cast<int>(at);
    const double part = at - entry;
    return at / kSteps * (fine_[entry] * (1 - part) + fine_[entry + 1] * part) * target;
}

double FrameCurve::output_by_table(double input) const {
    // The GPU's way: nothing below the knee is looked up, and the weights of neighbours are exchanged.
    const double x = std::min(input / full_scale, 1.0);
    const double at = std::max<double>(x, curve.f_knee_point_x) * 254;
    const int entry = std::min(static_cast<int>(at), 254); // knees beyond 1 come from metadata out of its range
    const double part = at - entry;
    return x * (gains[entry] * part + gains[entry + 1] * (1 - part)) * target;
}

} // namespace lumivert::tool
