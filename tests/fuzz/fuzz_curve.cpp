/// Any 144 bytes as a metadata record, for any display: the curve stays within its bounds, and both samplers give
/// finite tables that agree where the record is within its own.
#include <cmath>

#include "fuzz/fuzz.h"
#include "lumivert/hdr10plus.h"

namespace {

constexpr unsigned int kEntries = 256;

bool all_finite(const float* values, size_t count) {
    return std::all_of(values, values + count, [](float value) { return std::isfinite(value); });
}

/// Fields in the ranges that their comments give.
bool well_formed(const HDR10PLUS_DYNAMIC_INFO& info) {
    const auto* anchors = info.bezier_curve_anchors;
    return info.knee_point_x < 4000 && info.knee_point_y <= 4095 && // near 1 the segment above the knee has no width
           std::all_of(anchors, anchors + 15, [](uint16_t anchor) { return anchor <= 1023; });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    auto info = input.take<HDR10PLUS_DYNAMIC_INFO>();
    const auto target = input.take<uint32_t>();

    HDR10PLUS_TM_CURVE curve{};
    hdr10plus_meta_to_curve(&curve, &info, target);
    fuzz::require(curve.num_bezier_curve_anchors <= 15, "at most 15 anchors");
    fuzz::require(std::isfinite(curve.normalize_x) && curve.normalize_x > 0, "a normalisation above 0");
    fuzz::require(curve.f_knee_point_x >= 0 && std::isfinite(curve.f_knee_point_x), "a knee to the right of 0");
    fuzz::require(curve.f_knee_point_y >= 0 && std::isfinite(curve.f_knee_point_y), "a knee above 0");
    fuzz::require(all_finite(curve.f_bezier_curve_anchors, 15), "finite anchors");

    float plain[kEntries];
    hdr10plus_curve_to_lut(plain, kEntries, &curve);
    hdr10plus_curve_kchoose_preapplied(&curve);
    float preapplied[kEntries];
    hdr10plus_preappliedcurve_to_lut(preapplied, kEntries, &curve);
    fuzz::require(all_finite(plain, kEntries) && all_finite(preapplied, kEntries), "finite gains");
    if (!well_formed(info)) return 0;
    for (unsigned int i = 0; i < kEntries; ++i)
        fuzz::require(std::fabs(plain[i] - preapplied[i]) <= 1e-3f * std::max(1.0f, plain[i]), "the samplers agree");
    return 0;
}
