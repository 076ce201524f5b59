#include "hdr10plus/default_metadata.h"
#include "lumivert/hdr10plus.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

using namespace LIB_HDR10PLUS_META;
using testing::ElementsAre;

namespace {

HDR10PLUS_DYNAMIC_INFO scene(uint32_t r, uint32_t g, uint32_t b,
                             const std::vector<std::pair<uint8_t, uint32_t>>& points) {
    HDR10PLUS_DYNAMIC_INFO info = {};
    info.maxscl[0] = r;
    info.maxscl[1] = g;
    info.maxscl[2] = b;
    for (const auto& [percentage, luminance] : points) {
        info.maxrgb_percentages[info.num_maxrgb_percentiles] = percentage;
        info.maxrgb_percentiles[info.num_maxrgb_percentiles++] = luminance;
    }
    return info;
}

TEST(ScenePeak, IsTheBrightestComponentCappedByThe99PercentPoint) {
    const std::pair<HDR10PLUS_DYNAMIC_INFO, float> cases[] = {
        {scene(0, 0, 0, {{50, 100}, {99, 4000}}), 400},
        {scene(0, 0, 0, {{50, 100}}), 0},
        {scene(0, 0, 0, {{99, 4000000000}}), 4e8f},
        {scene(100000, 100000, 100000, {}), 10000},
        {scene(7, 200000, 7, {{98, 5}}), 10000},
        {scene(20000, 30000, 10000, {{1, 0}, {99, 25000}}), 2500},
        {scene(20000, 30000, 10000, {{99, 35000}, {100, 1}}), 3000},
        {scene(20000, 30000, 10000, {{1, 0}, {99, 20}, {99, 30}, {100, 1}}), 2}, // the first, wherever it stands
        {scene(20000, 30000, 10000, {{99, 20}, {99, 30}}), 3},                   // but the last entry before all others
    };
    for (const auto& [info, peak] : cases)
        EXPECT_FLOAT_EQ(GetSceneMaxL(&info), peak);
}

TEST(Percentiles, AreListedOrInterpolatedButNeverFromTheSecondAndThirdPoint) {
    HDR10PLUS_DYNAMIC_INFO standard = {};
    lumivert::default_metadata(1000, 0, &standard);
    const struct {
        HDR10PLUS_DYNAMIC_INFO info;
        float p50, p99;
    } cases[] = {
        {standard, 78.2f, 1000},
        {scene(0, 0, 0, {}), -1, -1},
        {scene(0, 0, 0, {{1, 10}, {50, 20}, {99, 30}}), -1, -1},
        {scene(0, 0, 0, {{40, 1000}, {45, 0}, {49, 0}, {60, 2000}}), 150, -1},
        {scene(0, 0, 0, {{100, 1000}}), 50, 99.95f},                                        // from the origin
        {scene(0, 0, 0, {{98, 1000}, {0, 0}, {0, 0}, {100, 3000}}), 100 * 50 / 98.0f, 295}, // aims at 99.95 %
        {scene(0, 0, 0, {{50, 1000}, {0, 0}, {0, 0}, {50, 3000}, {99, 70}, {99, 80}}), 300, 8},
    };
    for (const auto& [info, p50, p99] : cases) {
        float median = 0;
        float peak = 0;
        getPercentile_50_99(&info, median, peak);
        EXPECT_FLOAT_EQ(median, p50);
        EXPECT_NEAR(peak, p99, 2e-6 * std::abs(p99)); // the difference 99.95 - 98 has lost bits
    }
}

TEST(RampWeight, HoldsItsEndsAndStepsWhereTheyCoincide) {
    EXPECT_FLOAT_EQ(rampWeight(0.3f, 0.6f, 1, 3, 2), 0.45f);
    EXPECT_EQ(rampWeight(0.3f, 0.6f, 1, 3, 1), 0.3f);
    EXPECT_EQ(rampWeight(0.3f, 0.6f, 1, 3, 3), 0.6f);
    EXPECT_EQ(rampWeight(0.3f, 0.6f, 2, 2, 1.9f), 0.3f);
    EXPECT_EQ(rampWeight(0.3f, 0.6f, 2, 2, 2), 0.6f);
}

TEST(FirstAnchor, ContinuesTheSlopeWithinItsBounds) {
    const auto with_cap = [](float cap, float kx, float ky, float display, float* weight) {
        return calcP1(kx, ky, display, 1000, 0.01f, 0.1f, cap, 0.98f, 0.005f, 0.04f, 0.12f, 0.4f, 0.1f, 0.75f, 0.65f,
                      weight);
    };
    float weight = -1;
    EXPECT_FLOAT_EQ(with_cap(0.92f, 0.2f, 0.4f, 500, &weight), 0.8f / 3);
    EXPECT_EQ(weight, 0);
    EXPECT_FLOAT_EQ(with_cap(0.92f, 0, 0, 100, &weight), 0.98f * 0.65f);
    EXPECT_EQ(weight, 1);
    EXPECT_FLOAT_EQ(with_cap(0.92f, 0.2f, 1, 500, nullptr), 0.92f);
    EXPECT_NEAR(with_cap(0.92f, 0.9998f, 1, 500, nullptr), 0.4f, 0.001f); // a knee at 1 counts as 0.9999
    EXPECT_FLOAT_EQ(with_cap(0.92f, 2, 0.4f, 500, nullptr), 0.1f);
    EXPECT_FLOAT_EQ(with_cap(0.05f, 2, 0.4f, 500, nullptr), 0.05f); // the cap wins over the floor
}

TEST(DefaultMetadata, IsARecordForA250NitDisplay) {
    HDR10PLUS_DYNAMIC_INFO info = {};
    lumivert::default_metadata(1000, 0, &info);
    EXPECT_THAT(std::vector<unsigned>({info.country_code, info.provider_code, info.provider_oriented_code,
                                       info.application_identifier, info.application_version}),
                ElementsAre(181, 60, 1, 4, 0));
    EXPECT_EQ(info.display_max_luminance, 250);
    EXPECT_THAT(info.maxscl, ElementsAre(100000, 100000, 100000));
    EXPECT_EQ(info.num_maxrgb_percentiles, 9);
    EXPECT_THAT(info.maxrgb_percentages, ElementsAre(1, 5, 10, 25, 50, 75, 90, 95, 99, 0, 0, 0, 0, 0, 0));
    EXPECT_THAT(info.maxrgb_percentiles, ElementsAre(13, 0, 13, 322, 782, 1368, 7497, 8389, 10000, 0, 0, 0, 0, 0, 0));
    EXPECT_NE(info.tone_mapping_flag, 0);
    EXPECT_EQ(info.num_bezier_curve_anchors, 9);
    EXPECT_THAT(info.bezier_curve_anchors, ElementsAre(380, 620, 650, 770, 850, 900, 930, 980, 990, 0, 0, 0, 0, 0, 0));

    std::fill_n(info.maxrgb_percentages, 15, uint8_t{7});
    std::fill_n(info.maxrgb_percentiles, 15, 7);
    std::fill_n(info.bezier_curve_anchors, 15, uint16_t{7}); // what is beyond the ninth entry stays
    lumivert::default_metadata(4000, 0, &info);
    EXPECT_THAT(info.maxrgb_percentages, ElementsAre(1, 5, 10, 25, 50, 75, 90, 95, 99, 7, 7, 7, 7, 7, 7));
    EXPECT_THAT(info.maxrgb_percentiles, ElementsAre(13, 0, 13, 322, 982, 2368, 18497, 24389, 40000, 7, 7, 7, 7, 7, 7));
    EXPECT_THAT(info.bezier_curve_anchors,
                ElementsAre(1023, 700, 850, 920, 950, 980, 1005, 1010, 1020, 7, 7, 7, 7, 7, 7));
}

TEST(DefaultMetadata, IsBrightAbove1000) {
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    constexpr float infinity = std::numeric_limits<float>::infinity();
    const struct {
        float first, second;
        bool bright;
    } cases[] = {
        {4000, 0, true},       {4000, 800, false}, {4000, 1001, true},  {500, 0, false},   {999.9f, 0, false},
        {500, 1000.9f, false}, {500, 1001, true},  {1000, 4000, false}, {0, 1e30f, true},  {infinity, nan, true},
        {4000, -1, true},      {nan, 4000, true},  {nan, nan, false},   {4000, nan, true}, {nan, -infinity, false},
    };
    for (const auto& [first, second, bright] : cases) {
        HDR10PLUS_DYNAMIC_INFO info = {};
        lumivert::default_metadata(first, second, &info);
        SCOPED_TRACE(testing::Message() << first << ", " << second);
        EXPECT_EQ(info.knee_point_x, bright ? 20 : 33);
        EXPECT_EQ(info.knee_point_y, bright ? 320 : 132);
    }
}

} // namespace
