#include "hdr10plus/default_metadata.h"

#include <algorithm>
#include <iterator>

namespace lumivert {
namespace {

constexpr uint8_t kPercentages[] = {1, 5, 10, 25, 50, 75, 90, 95, 99};

/// The values that depend on how bright the content is.
struct Scene {
    uint32_t percentiles[9]; // in 0.1 cd/m2; the entry for 5 % holds no luminance, so it is 0
    uint16_t knee_x, knee_y; // 12 bits
    uint16_t anchors[9];     // 10 bits
};

constexpr Scene kNormalScene = {
    {13, 0, 13, 322, 782, 1368, 7497, 8389, 10000}, 33, 132, {380, 620, 650, 770, 850, 900, 930, 980, 990}};

// The first anchor is higher than those after it on purpose: it lifts the tones just above the knee.
constexpr Scene kBrightScene = {
    {13, 0, 13, 322, 982, 2368, 18497, 24389, 40000}, 20, 320, {1023, 700, 850, 920, 950, 980, 1005, 1010, 1020}};

float reference_peak(float first, float second) {
    const bool has_first = first >= 1000.0F;
    const bool has_second = second > 0.0F;
    if (has_first && has_second) return std::min(first, second);
    if (has_first) return first;
    return has_second ? second : 1000.0F;
}

} // namespace

void default_metadata(float first, float second, HDR10PLUS_DYNAMIC_INFO* info) {
    // The limit is 1000 in whole cd/m2. Comparing the fraction with 1001 avoids converting a huge peak to an integer.
    const Scene& scene = reference_peak(first, second) >= 1001.0F ? kBrightScene : kNormalScene;

    info->country_code = 181;
    info->provider_code = 60;
    info->provider_oriented_code = 1;
    info->application_identifier = 4;
    info->application_version = 0;
    info->display_max_luminance = 250;
    std::fill(std::begin(info->maxscl), std::end(info->maxscl), 100000);
    info->avg_maxrgb = 0;
    info->num_maxrgb_percentiles = std::size(kPercentages);
    std::copy(std::begin(kPercentages), std::end(kPercentages), info->maxrgb_percentages);
    std::copy(std::begin(scene.percentiles), std::end(scene.percentiles), info->maxrgb_percentiles);
    info->tone_mapping_flag = 1;
    info->knee_point_x = scene.knee_x;
    info->knee_point_y = scene.knee_y;
    info->num_bezier_curve_anchors = std::size(scene.anchors);
    std::copy(std::begin(scene.anchors), std::end(scene.anchors), info->bezier_curve_anchors);
}

} // namespace lumivert
