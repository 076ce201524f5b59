/// The light in a PQ picture, as SMPTE ST 2094-40 and CTA-861.3 define it.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "frames/rgb_rows.h"

namespace lumivert::tool {

/// The percentiles that are computed: how many percent of the pixels are at most that bright.
constexpr std::array<double, 11> kPercentages = {1, 5, 10, 25, 50, 75, 90, 95, 98, 99, 99.98};

/// All in cd/m2, in linear light, of BT.2020 components.
struct FrameLight {
    std::array<double, 3> maximum = {};                       ///< of red, green and blue
    double average = 0;                                       ///< of max(R, G, B)
    std::array<double, kPercentages.size()> percentiles = {}; ///< of max(R, G, B)

    double peak() const;                        ///< the largest of `maximum`
    double percentile(double percentage) const; ///< one of kPercentages
};

/// How many pixels have how much light.
struct LightHistogram {
    /// Of the PQ signal, 0 to 1. One step is less than 0.25 % of the light from 0.1 cd/m2 on.
    static constexpr int kSteps = 1 << 14;

    std::vector<uint32_t> pixels;    ///< entry k: those whose max(R, G, B) is k / kSteps of the PQ signal
    std::array<int, 3> largest = {}; ///< step of the largest red, green and blue
};

/// Counts a picture in PQ and BT.2020. Codes out of range count as black or as 10000 cd/m2.
LightHistogram count_light(const YuvView& picture);

FrameLight light_of(const LightHistogram& histogram);

} // namespace lumivert::tool
