#include "hdr10plus/pixel_chain.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace lumivert::tool {
namespace {

constexpr double kM1 = 2610.0 / 16384, kM2 = 2523.0 / 4096 * 128, kC1 = 3424.0 / 4096, kC2 = 2413.0 / 4096 * 32,
                 kC3 = 2392.0 / 4096 * 32, kPqPeak = 10000;

constexpr uint16_t kTable1000[1024] = {
#include "lookup_1000.inc"
};
constexpr uint16_t kTable4000[1024] = {
#include "lookup_4000.inc"
};

} // namespace

double pq_from_luminance(double cd_m2) {
    const double y = std::pow(std::max(cd_m2, 0.0) / kPqPeak, kM1);
    return std::pow((kC1 + kC2 * y) / (1 + kC3 * y), kM2);
}

double luminance_from_pq(double signal) {
    const double e = std::pow(std::max(signal, 0.0), 1 / kM2);
    return kPqPeak * std::pow(std::max(e - kC1, 0.0) / (kC2 - kC3 * e), 1 / kM1);
}

double luminance_from_code(double code) {
    return luminance_from_pq(std::clamp((code - 64) / 876, 0.0, 1.0));
}

double display_light(double code, double black, double white, double target) {
    return target * std::pow(std::clamp((code - black) / (white - black), 0.0, 1.0), 1 / 0.45);
}

GreyPixel through_tone_curve(int code_in, const ToneCurve& curve) {
    // Black comes off, but white is not stretched to 255: code 940 becomes 219.
    const int pq = std::clamp((code_in - 64) / 4, 0, 255);
    const auto x = static_cast<float>(std::min(luminance_from_pq(pq * 0.0039215) / curve.full_scale, 1.0));
    const float gain = curve.gain_by_table(x);
    // Without rounding, as on the GPU.
    const int rgba = static_cast<int>(255 * std::pow(std::clamp(x * gain, 0.0F, 1.0F), 0.45F));
    const auto channel = static_cast<float>(rgba);
    const int luma = static_cast<int>(0.2126F * channel + 0.7152F * channel + 0.0722F * channel);
    // 16 is added without making room for it, which undoes the missing stretch for a display that reads limited range.
    const int code_out = std::min(luma + 16, 255);
    return {code_in, luminance_from_code(code_in), gain, code_out, display_light(code_out, 16, 235, curve.target)};
}

int fixed_table_of(double mastering_peak) {
    const long peak = std::lround(mastering_peak);
    return peak > 1000 && peak <= 4000 ? 4000 : 1000;
}

GreyPixel through_fixed_table(int code_in, double mastering_peak, double target) {
    const int code_out = (fixed_table_of(mastering_peak) == 4000 ? kTable4000 : kTable1000)[code_in & 1023];
    return {code_in, luminance_from_code(code_in), 0, code_out, display_light(code_out, 64, 940, target)};
}

} // namespace lumivert::tool
