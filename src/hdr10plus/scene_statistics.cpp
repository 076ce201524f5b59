#include <algorithm>

#include "hdr10plus/units.h"
#include "lumivert/hdr10plus.h"

using lumivert::from_tenths;
using lumivert::peak_ratio;
using lumivert::valid_entries;

namespace {

struct Point {
    float percentage;
    float luminance; // cd/m2
};

/// The distribution point that marks the scene peak: the last entry in a well-ordered record, else the first that
/// says 99 %. Null where there is none.
const uint32_t* peak_percentile(const HDR10PLUS_DYNAMIC_INFO& info) {
    const unsigned count = valid_entries(info.num_maxrgb_percentiles);
    if (count == 0) return nullptr;
    if (info.maxrgb_percentages[count - 1] == 99) return &info.maxrgb_percentiles[count - 1];
    const uint8_t* end = info.maxrgb_percentages + count;
    const uint8_t* found = std::find(info.maxrgb_percentages, end, 99);
    return found == end ? nullptr : &info.maxrgb_percentiles[found - info.maxrgb_percentages];
}

/// Luminance in cd/m2 at `percentage` if the distribution lists it (the last one counts), else interpolated at
/// `target` between the neighbours of `percentage`; -1 where it has none on both sides.
float percentile(const HDR10PLUS_DYNAMIC_INFO& info, float percentage, float target) {
    constexpr Point kUnknown = {-1.0F, -1.0F};
    Point listed = kUnknown;
    Point below = kUnknown;
    Point above = kUnknown;
    Point previous = {0.0F, 0.0F};
    const unsigned count = valid_entries(info.num_maxrgb_percentiles);
    for (unsigned i = 0; i < count; ++i) {
        if (i == 1 || i == 2) // real streams keep other quantities here
            continue;
        const Point current = {static_cast<float>(info.maxrgb_percentages[i]), from_tenths(info.maxrgb_percentiles[i])};
        if (current.percentage == percentage) {
            listed = current;
        } else if (previous.percentage < percentage && current.percentage > percentage) {
            below = previous;
            above = current;
        }
        previous = current;
    }
    if (listed.luminance >= 0.0F) return listed.luminance;
    const float span = std::max(above.percentage - below.percentage, 1.0F);
    return (above.luminance - below.luminance) * (target - below.percentage) / span + below.luminance;
}

} // namespace

namespace LIB_HDR10PLUS_META {

float GetSceneMaxL(const HDR10PLUS_DYNAMIC_INFO* info) {
    const uint32_t* maxscl = info->maxscl;
    const float peak = std::min(from_tenths(std::max({maxscl[0], maxscl[1], maxscl[2]})), 10000.0F);
    const uint32_t* limit = peak_percentile(*info);
    if (limit == nullptr) return peak;
    return peak > 0.0F ? std::min(peak, from_tenths(*limit)) : from_tenths(*limit);
}

void getPercentile_50_99(const HDR10PLUS_DYNAMIC_INFO* info, float& p50, float& p99) {
    p50 = percentile(*info, 50.0F, 50.0F);
    p99 = percentile(*info, 99.0F, 99.95F); // deliberately nearer to the maximum than the point it stands for
}

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

    // The slope of an order-10 Bezier curve at its start is 10 P1 (1 - ky) / (1 - kx); this P1 makes it 1 / ratio.
    const float smooth = (1.0F - std::min(kx, 0.9999F)) / (ratio * (10.0F - 10.0F * std::min(ky, 0.9999F)));
    const float limited = std::max(std::min(smooth, cap), 0.0F);

    const float weight = rampWeight(1.0F, 0.0F, ky_x0, ky_x1, ky) * rampWeight(1.0F, 0.0F, r_x0, r_x1, ratio);
    if (weight_out != nullptr) *weight_out = weight;
    const float gain = rampWeight(1.0F, gain_hi, w_x0, w_x1, weight);
    return std::min(std::max(gain * limited, 0.1F), cap); // in this order: a cap below 0.1 wins
}

} // namespace LIB_HDR10PLUS_META
