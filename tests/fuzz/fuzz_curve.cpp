/// Any 144 bytes as a metadata record, for any display: the curve stays within its bounds, and both samplers give
/// finite tables.
#include <cmath>

#include "fuzz/fuzz.h"
#include "lumivert/hdr10plus.h"

namespace {

constexpr unsigned int kEntries = 256;

bool all_finite(const float* values, size_t count) {
    return std::all_of(values, values + count, [](float value) { return std::isfinite(value); });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    struct {
        HDR10PLUS_DYNAMIC_INFO info;
        uint32_t target;
    } input = {};
    if (size > 0) std::memcpy(&input, data, std::min(size, sizeof input));

    HDR10PLUS_TM_CURVE curve{};
    hdr10plus_meta_to_curve(&curve, &input.info, input.target);
    fuzz::require(curve.num_bezier_curve_anchors <= 15, "at most 15 anchors");
    fuzz::require(std::isfinite(curve.normalize_x) && curve.normalize_x > 0, "a normalisation above 0");
    fuzz::require(curve.f_knee_point_x >= 0 && std::isfinite(curve.f_knee_point_x), "a knee to the right of 0");
    fuzz::require(curve.f_knee_point_y >= 0 && std::isfinite(curve.f_knee_point_y), "a knee above 0");
    fuzz::require(all_finite(curve.f_bezier_curve_anchors, 15), "finite anchors");

    float gains[kEntries];
    hdr10plus_curve_to_lut(gains, kEntries, &curve);
    fuzz::require(all_finite(gains, kEntries), "finite gains");
    hdr10plus_curve_kchoose_preapplied(&curve);
    hdr10plus_preappliedcurve_to_lut(gains, kEntries, &curve);
    fuzz::require(all_finite(gains, kEntries), "finite gains from weighted anchors");
    return 0;
}
