#include <algorithm>

#include "hdr10plus/units.h"
#include "lumivert/hdr10plus.h"

using lumivert::from_tenths;
using lumivert::valid_entries;

namespace {

struct Point {
    float percentage;
    float luminance; // cd/m2
};

/// The distribution point that marks the scene peak: the last entry if its percentage is 99, otherwise the first entry
/// whose percentage is 99. Null if there is none.
const uint32_t* peak_percentile(const HDR10PLUS_DYNAMIC_INFO& info) {
    const unsigned count = valid_entries(info.num_maxrgb_percentiles);
    if (count == 0) return nullptr;
    if (info.maxrgb_percentages[count - 1] == 99) return &info.maxrgb_percentiles[count - 1];
    const uint8_t* end = info.maxrgb_percentages + count;
    const uint8_t* found = std::find(info.maxrgb_percentages, end, 99);
    return found == end ? nullptr : &info.maxrgb_percentiles[found - info.maxrgb_percentages];
}

/// The luminance in cd/m2 at `percentage`, if the distribution lists it; if it does so more than once, the last one
/// counts. Otherwise the value at `target`, interpolated between the neighbours of `percentage`; -1 if it does not have
/// both.
float percentile(const HDR10PLUS_DYNAMIC_INFO& info, float percentage, float target) {
    constexpr Point kUnknown = {-1.0F, -1.0F};
    Point listed = kUnknown;
    Point below = kUnknown;
    Point above = kUnknown;
    Point previous = {0.0F, 0.0F};
    const unsigned count = valid_entries(info.num_maxrgb_percentiles);
    for (unsigned i = 0; i < count; ++i) {
        if (i == 1 || i == 2) // real streams store other quantities here
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
    p99 = percentile(*info, 99.0F, 99.95F); // on purpose closer to the maximum than 99 %
}

} // namespace LIB_HDR10PLUS_META
