#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "hdr10plus/default_metadata.h"
#include "lumivert/hdr10plus.h"

using namespace LIB_HDR10PLUS_META;
using testing::ElementsAreArray;

namespace {

HDR10PLUS_DYNAMIC_INFO scene(uint32_t brightest, const std::vector<std::pair<uint8_t, uint32_t>>& points) {
    HDR10PLUS_DYNAMIC_INFO info = {};
    info.maxscl[1] = brightest;
    for (const auto& [percentage, luminance] : points) {
        info.maxrgb_percentages[info.num_maxrgb_percentiles] = percentage;
        info.maxrgb_percentiles[info.num_maxrgb_percentiles++] = luminance;
    }
    return info;
}

TEST(SceneStatistics, WorkedFigures) {
    const struct {
        HDR10PLUS_DYNAMIC_INFO info;
        float peak, p50, p99;
    } cases[] = {
        {scene(200000, {{98, 5}}), 10000, 0.5F * 50 / 98, -1},
        {scene(0, {{99, 4000000000}}), 4e8F, 4e8F * 50 / 99, 4e8F},
        {scene(0, {{1, 10}, {50, 20}, {99, 30}}), 3, -1, -1}, // the second and third point count for the peak only
        {scene(0, {{40, 1000}, {45, 0}, {49, 0}, {60, 2000}}), 0, 150, -1},
        {scene(0, {{98, 1000}, {0, 0}, {0, 0}, {100, 3000}}), 0, 100 * 50 / 98.0F, 295}, // aims at 99.95 %
        // Of several entries the last: for the peak, if it is the last of all, else the first.
        {scene(30000, {{50, 1000}, {0, 0}, {0, 0}, {50, 3000}, {99, 70}, {99, 80}}), 8, 300, 8},
        {scene(30000, {{50, 1000}, {0, 0}, {0, 0}, {99, 70}, {99, 80}, {100, 1}}), 7, 100, 8},
    };
    for (const auto& [info, peak, p50, p99] : cases) {
        float median = 0;
        float near_peak = 0;
        getPercentile_50_99(&info, median, near_peak);
        EXPECT_FLOAT_EQ(GetSceneMaxL(&info), peak);
        EXPECT_FLOAT_EQ(median, p50);
        EXPECT_NEAR(near_peak, p99, 2e-6 * std::abs(p99)); // the difference 99.95 - 98 has lost bits
    }
}

TEST(RampWeight, StepsWhereItsEndsCoincide) {
    EXPECT_EQ(rampWeight(0.3F, 0.6F, 2, 2, 1.9F), 0.3F);
    EXPECT_EQ(rampWeight(0.3F, 0.6F, 2, 2, 2), 0.6F);
}

TEST(FirstAnchor, StaysBelowItsCapAndAboveATenth) {
    const auto with_cap = [](float cap, float kx, float ky, float* weight) {
        return calcP1(kx, ky, 500, 1000, 0.01F, 0.1F, cap, 0.98F, 0.005F, 0.04F, 0.12F, 0.4F, 0.1F, 0.75F, 0.65F,
                      weight);
    };
    float weight = -1;
    EXPECT_FLOAT_EQ(with_cap(0.92F, 0.2F, 0.4F, &weight), 0.8F / 3);
    EXPECT_EQ(weight, 0);
    EXPECT_NEAR(with_cap(0.92F, 0.9998F, 1, nullptr), 0.4F, 0.001F); // a knee at 1 counts as 0.9999
    EXPECT_FLOAT_EQ(with_cap(0.92F, 2, 0.4F, nullptr), 0.1F);
    EXPECT_FLOAT_EQ(with_cap(0.05F, 2, 0.4F, nullptr), 0.05F); // the cap wins over the floor
}

/// Static, as are the records below: the bytes between their fields are zero.
std::vector<uint8_t> default_bytes(float first, float second) {
    static HDR10PLUS_DYNAMIC_INFO info;
    info.maxrgb_percentages[9] = 7; // beyond what is written
    info.maxrgb_percentiles[9] = 7;
    info.bezier_curve_anchors[9] = 7;
    lumivert::default_metadata(first, second, &info);
    return {reinterpret_cast<uint8_t*>(&info), reinterpret_cast<uint8_t*>(&info + 1)};
}

TEST(DefaultMetadata, IsARecordForA250NitDisplayThatIsBrightAbove1000) {
    // clang-format off
    static const HDR10PLUS_DYNAMIC_INFO normal = {
        181, 60, 1, 4, 0, 250, {100000, 100000, 100000}, 0, 9, {1, 5, 10, 25, 50, 75, 90, 95, 99, 7},
        {13, 0, 13, 322, 782, 1368, 7497, 8389, 10000, 7}, 1, 33, 132, 9,
        {380, 620, 650, 770, 850, 900, 930, 980, 990, 7}};
    static const HDR10PLUS_DYNAMIC_INFO bright = {
        181, 60, 1, 4, 0, 250, {100000, 100000, 100000}, 0, 9, {1, 5, 10, 25, 50, 75, 90, 95, 99, 7},
        {13, 0, 13, 322, 982, 2368, 18497, 24389, 40000, 7}, 1, 20, 320, 9,
        {1023, 700, 850, 920, 950, 980, 1005, 1010, 1020, 7}};
    // clang-format on
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const struct {
        float first, second;
        const HDR10PLUS_DYNAMIC_INFO& record;
    } cases[] = {
        {4000, 0, bright},         {4000, 800, normal},  {4000, 1001, bright}, {500, 0, normal},
        {500, 1000.9F, normal},    {500, 1001, bright},  {1000, 4000, normal}, {4000, -1, bright},
        {kInfinity, kNan, bright}, {kNan, 4000, bright}, {kNan, kNan, normal}, {kNan, 1e30F, bright},
    };
    for (const auto& [first, second, record] : cases)
        EXPECT_THAT(default_bytes(first, second),
                    ElementsAreArray(reinterpret_cast<const uint8_t*>(&record), sizeof record))
            << first << ", " << second;
}

} // namespace
