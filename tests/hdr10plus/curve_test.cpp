#include "hdr10plus/curve_oracle.h"
#include "hdr10plus/default_metadata.h"
#include "lumivert/hdr10plus.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <set>
#include <string>

using oracle::Branch;
using oracle::Source;
using testing::Each;
using testing::ElementsAre;
using testing::FloatEq;

namespace {

using Gains = std::vector<float>;

class Random {
public:
    explicit Random(unsigned seed) : engine_(seed) {}
    unsigned between(unsigned low, unsigned high) {
        return std::uniform_int_distribution<unsigned>(low, high)(engine_);
    }
    bool one_in(unsigned n) { return between(1, n) == 1; }

private:
    std::mt19937 engine_;
};

HDR10PLUS_TM_CURVE curve_of(HDR10PLUS_DYNAMIC_INFO info, unsigned target) {
    HDR10PLUS_TM_CURVE curve = {};
    hdr10plus_meta_to_curve(&curve, &info, target);
    return curve;
}

Gains plain_gains(HDR10PLUS_TM_CURVE curve, unsigned size = 256) {
    Gains gains(size);
    hdr10plus_curve_to_lut(gains.data(), size, &curve);
    return gains;
}

Gains gains_of(HDR10PLUS_TM_CURVE curve, unsigned size = 256) {
    Gains gains(size);
    hdr10plus_curve_kchoose_preapplied(&curve);
    hdr10plus_preappliedcurve_to_lut(gains.data(), size, &curve);
    return gains;
}

/// A luminance distribution of `count` points: percentages mostly in order, with or without 50 and 99, and rising
/// luminances except in the slot that carries something else.
void add_distribution(HDR10PLUS_DYNAMIC_INFO& info, unsigned count, Random& random) {
    for (unsigned i = 0; i < count; ++i) {
        info.maxrgb_percentages[i] = static_cast<uint8_t>(random.one_in(6)   ? 50
                                                          : random.one_in(5) ? 99
                                                                             : random.between(1, 100));
        info.maxrgb_percentiles[i] = random.between(0, random.one_in(2) ? 100000 : 5000);
    }
    if (!random.one_in(4)) std::sort(info.maxrgb_percentages, info.maxrgb_percentages + count);
    std::sort(info.maxrgb_percentiles, info.maxrgb_percentiles + count);
    if (count > 2) info.maxrgb_percentiles[2] = random.between(0, 100000);
    info.num_maxrgb_percentiles = static_cast<uint8_t>(count);
}

struct Frame {
    HDR10PLUS_DYNAMIC_INFO info;
    unsigned target;
};

/// A record and a display that lead to `branch`. Kept out is what single precision cannot resolve: displays so close to
/// each other or to the scene's peak that the mixing share is a quotient of rounding errors, and knees below the
/// diagonal, where rounding of x - kx weighs heavily in a small gain.
Frame make_frame(Branch branch, unsigned count, Random& random) {
    Frame frame = {};
    HDR10PLUS_DYNAMIC_INFO& info = frame.info;
    double scene = 0;
    do {
        add_distribution(info, branch == Branch::basis ? count : random.between(0, 15), random);
        for (uint32_t& peak : info.maxscl)
            peak = random.between(1, 150000);
        if (random.one_in(5)) std::fill_n(info.maxscl, 3, 0);
        scene = oracle::scene_peak(info);
    } while (scene < 400 && branch != Branch::basis);

    const auto share = [&](unsigned low, unsigned high) {
        return static_cast<unsigned>(scene * random.between(low, high) / 100);
    };
    info.tone_mapping_flag = branch == Branch::basis ? 0 : static_cast<uint8_t>(random.between(1, 255));
    info.knee_point_y = static_cast<uint16_t>(random.between(0, 4095));
    info.knee_point_x = static_cast<uint16_t>(random.between(0, info.knee_point_y));
    info.num_bezier_curve_anchors = static_cast<uint8_t>(count);
    for (uint16_t& anchor : info.bezier_curve_anchors)
        anchor = static_cast<uint16_t>(random.between(0, 1023));

    switch (branch) {
    case Branch::basis:
        frame.target = share(3, 120);
        break;
    case Branch::as_graded:
        frame.target = info.display_max_luminance = std::max(200u, share(20, 150));
        break;
    case Branch::identity:
        frame.target = static_cast<unsigned>(std::ceil(scene)) + random.between(0, 500);
        info.display_max_luminance = frame.target + random.between(0, 1) * 2 - 1;
        break;
    case Branch::dimmer:
        frame.target = share(5, 80);
        if (frame.target < 250) frame.target = 200;
        info.display_max_luminance = frame.target * 5 / 4 + random.between(0, 2000);
        break;
    case Branch::brighter:
        frame.target = std::max(220u, share(20, 95));
        info.display_max_luminance = frame.target * random.between(0, 80) / 100;
        break;
    }
    return frame;
}

testing::AssertionResult close_to(double expected, double actual, double relative, double smallest = 0) {
    const double error = std::abs(actual - expected) / std::max(std::abs(expected), smallest);
    if (actual == expected || error <= relative) return testing::AssertionSuccess();
    return testing::AssertionFailure() << actual << " for " << expected << ", relative error " << error;
}

std::string kind(const char* name, Source source) {
    const char* kinds[] = {" listed", " interpolated", " unknown"};
    return std::string(name) + kinds[static_cast<int>(source)];
}

TEST(Curve, AgreesWithClosedFormsInDoublePrecision) {
    // Fractions below 1 % of the scale are differences of nearly equal ratios, and round as the ratios do.
    constexpr double near_zero = 0.01;
    Random random(20940);
    std::set<std::string> seen;
    for (unsigned i = 0; i < 5 * 16 * 8; ++i) {
        SCOPED_TRACE(testing::Message() << "record " << i);
        const Branch branch = static_cast<Branch>(i % 5);
        const auto [info, target] = make_frame(branch, i / 5 % 16, random);
        const double scene = oracle::scene_peak(info);
        const oracle::Percentile median = oracle::percentile(info, 50, 50);
        const oracle::Percentile peak = oracle::percentile(info, 99, 99.95);
        const oracle::Curve expected = oracle::curve(info, target);
        ASSERT_EQ(expected.branch, branch);
        seen.insert({kind("50 %", median.source), kind("99 %", peak.source)});
        seen.insert(scene == 0 ? "no peak" : info.maxscl[0] == 0 ? "peak of distribution" : "peak of maxima");
        if (branch == Branch::basis) {
            const double m = median.luminance / peak.luminance;
            seen.insert(m <= 0.05 ? "basis, dark" : m < 0.55 ? "basis, between" : "basis, bright");
            seen.insert(target < scene ? "basis, scene above display" : "basis, scene within display");
        }

        float p50 = 0;
        float p99 = 0;
        LIB_HDR10PLUS_META::getPercentile_50_99(&info, p50, p99);
        EXPECT_TRUE(close_to(scene, LIB_HDR10PLUS_META::GetSceneMaxL(&info), 2e-6));
        EXPECT_TRUE(close_to(median.luminance, p50, 2e-6));
        EXPECT_TRUE(close_to(peak.luminance, p99, 2e-6));

        const HDR10PLUS_TM_CURVE curve = curve_of(info, target);
        EXPECT_TRUE(close_to(expected.normalize_x, curve.normalize_x, 2e-6));
        EXPECT_TRUE(close_to(expected.kx, curve.f_knee_point_x, 2e-6, near_zero));
        EXPECT_TRUE(close_to(expected.ky, curve.f_knee_point_y, 2e-6, near_zero));
        ASSERT_EQ(expected.anchors.size(), curve.num_bezier_curve_anchors);
        for (size_t k = 0; k < expected.anchors.size(); ++k)
            EXPECT_TRUE(close_to(expected.anchors[k], curve.f_bezier_curve_anchors[k], 2e-6, near_zero))
                << "anchor " << k;

        const Gains gains = gains_of(curve);
        const Gains plain = plain_gains(curve);
        for (int x = 1; x <= 254; ++x) {
            const double gain = oracle::gain(expected, x / 254.0);
            ASSERT_TRUE(close_to(gain, gains[x], 1e-5)) << "entry " << x;
            ASSERT_TRUE(close_to(gain, plain[x], 1e-5)) << "plain anchors, entry " << x;
        }
    }
    EXPECT_THAT(seen, ElementsAre("50 % interpolated", "50 % listed", "50 % unknown", "99 % interpolated",
                                  "99 % listed", "99 % unknown", "basis, between", "basis, bright", "basis, dark",
                                  "basis, scene above display", "basis, scene within display", "no peak",
                                  "peak of distribution", "peak of maxima"));
}

/// Everything that follows from a curve, in one row.
std::vector<float> numbers(const HDR10PLUS_TM_CURVE& curve) {
    std::vector<float> all = gains_of(curve);
    const Gains plain = plain_gains(curve);
    all.insert(all.end(), plain.begin(), plain.end());
    all.insert(all.end(), curve.f_bezier_curve_anchors, curve.f_bezier_curve_anchors + 15);
    all.insert(all.end(), {curve.normalize_x, curve.f_knee_point_x, curve.f_knee_point_y});
    return all;
}

/// Counts beyond the arrays read 15 entries, and no record whatsoever yields anything but finite numbers.
TEST(Curve, StandsAnyBytes) {
    Random random(7);
    for (unsigned i = 0; i < 600; ++i) {
        SCOPED_TRACE(testing::Message() << "record " << i);
        uint8_t bytes[sizeof(HDR10PLUS_DYNAMIC_INFO)];
        for (uint8_t& byte : bytes)
            byte = static_cast<uint8_t>(i == 0 ? 255 : i == 1 ? 0 : random.between(0, 255));
        HDR10PLUS_DYNAMIC_INFO info;
        std::memcpy(&info, bytes, sizeof info);
        if (i % 2 == 0) std::fill_n(info.maxscl, 3, 0); // lets the 99 % point reach 2^32
        if (i % 3 == 0) info.maxrgb_percentages[random.between(0, 14)] = 99;
        if (i % 4 == 0) info.tone_mapping_flag = 0;
        HDR10PLUS_DYNAMIC_INFO counted = info;
        counted.num_maxrgb_percentiles = std::min<uint8_t>(info.num_maxrgb_percentiles, 15);
        counted.num_bezier_curve_anchors = std::min<uint8_t>(info.num_bezier_curve_anchors, 15);

        for (unsigned target : {0u, info.display_max_luminance, random.between(200, 4000), 1u << 24, ~0u}) {
            const HDR10PLUS_TM_CURVE curve = curve_of(info, target);
            ASSERT_LE(curve.num_bezier_curve_anchors, 15);
            ASSERT_THAT(numbers(curve), Each(testing::Truly([](float n) { return std::isfinite(n); })));
            ASSERT_EQ(numbers(curve), numbers(curve_of(counted, target)));
        }
    }
}

TEST(Curve, SamplersReadFifteenAnchorsAtMost) {
    HDR10PLUS_TM_CURVE curve = {1, 0.1f, 0.2f, 15, {}};
    std::fill_n(curve.f_bezier_curve_anchors, 15, 0.5f);
    const std::vector<float> full = numbers(curve);
    curve.num_bezier_curve_anchors = 255;
    EXPECT_EQ(numbers(curve), full);
}

TEST(Curve, BuildersLeaveTheRestAlone) {
    HDR10PLUS_DYNAMIC_INFO info = {};
    info.num_bezier_curve_anchors = 3;
    for (const auto& [build, anchors] :
         {std::pair(&LIB_HDR10PLUS_META::BasisOOTF, 9u), {&LIB_HDR10PLUS_META::GuidedOOTF, 3u}})
        for (unsigned target : {100u, 250u, 700u}) {
            HDR10PLUS_TM_CURVE curve = {};
            curve.normalize_x = -7;
            std::fill_n(curve.f_bezier_curve_anchors, 15, -7.0f);
            build(&curve, &info, target, 600);
            EXPECT_EQ(curve.normalize_x, -7);
            EXPECT_EQ(curve.num_bezier_curve_anchors, anchors);
            EXPECT_EQ(std::count(curve.f_bezier_curve_anchors, curve.f_bezier_curve_anchors + 15, -7.0f), 15 - anchors);
        }
    HDR10PLUS_TM_CURVE too_dim = {0, 9, 9, 0, {}};
    LIB_HDR10PLUS_META::GuidedOOTF(&too_dim, &info, 199, 600);
    EXPECT_EQ(too_dim.f_knee_point_x + too_dim.f_knee_point_y, 0);
}

TEST(Curve, WorkedFigures) {
    HDR10PLUS_DYNAMIC_INFO usual = {}; // for 250 cd/m2
    lumivert::default_metadata(1000, 1000, &usual);
    const auto with_peak = [](HDR10PLUS_DYNAMIC_INFO info, uint32_t peak) {
        info.num_maxrgb_percentiles = 0;
        std::fill_n(info.maxscl, 3, peak * 10);
        return info;
    };
    const HDR10PLUS_DYNAMIC_INFO none = {}; // a scene without a distribution counts as dark
    HDR10PLUS_DYNAMIC_INFO beyond_pq = with_peak(none, 0);
    beyond_pq.num_maxrgb_percentiles = 1;
    beyond_pq.maxrgb_percentages[0] = 99;
    beyond_pq.maxrgb_percentiles[0] = 200000;
    HDR10PLUS_DYNAMIC_INFO knee_above_one = usual;
    knee_above_one.knee_point_y = 65535;
    const float third = 0.3f / 3 + 132 / 4095.0f * 2 / 3;
    const struct {
        HDR10PLUS_DYNAMIC_INFO info;
        unsigned target;
        float normalize_x, kx, ky, p1;
    } cases[] = {
        {usual, 250, 10, 33 / 4095.0f, 132 / 4095.0f, 380 / 1023.0f},
        {with_peak(usual, 100), 250, 40, 33 / 4095.0f, 132 / 4095.0f, 380 / 1023.0f}, // its own display goes first
        {with_peak(usual, 100), 251, 10000 / 251.0f, 0.3f, 0.3f, 0.1f},
        {usual, 500, 10, third / 2, third, (1 - third / 2) / (5 - 5 * third)},
        {knee_above_one, 500, 10, 0.5f, 1, 0.92f},
        {beyond_pq, 200, 1, 0, 0, 0.98f * 0.65f},
        {with_peak(none, 2000), 200, 5, 0, 0, 0.98f * 0.65f},
        {with_peak(none, 1000), 200, 10, 0, 0, 0.3346154f},
        {with_peak(none, 150), 0, 50, 0.3f, 0.3f, 0.1f},
        {with_peak(none, 150), 100, 50, 0.3f, 0.3f, 0.1f},
        {with_peak(none, 150), 201, 10000 / 201.0f, 0.3f, 0.3f, 0.1f},
    };
    for (const auto& [info, target, normalize_x, kx, ky, p1] : cases) {
        const HDR10PLUS_TM_CURVE curve = curve_of(info, target);
        SCOPED_TRACE(testing::Message() << "target " << target);
        EXPECT_FLOAT_EQ(curve.normalize_x, normalize_x);
        EXPECT_FLOAT_EQ(curve.f_knee_point_x, kx);
        EXPECT_FLOAT_EQ(curve.f_knee_point_y, ky);
        EXPECT_FLOAT_EQ(curve.f_bezier_curve_anchors[0], p1);
    }
    HDR10PLUS_TM_CURVE two_arguments = {};
    hdr10plus_meta_to_curve(&two_arguments, &usual);
    EXPECT_EQ(numbers(two_arguments), numbers(curve_of(usual, 250)));
}

TEST(GainTable, StraightLinesGainNothing) {
    EXPECT_THAT(gains_of({1, 0.5f, 0.5f, 0, {}}), Each(FloatEq(1)));
    EXPECT_THAT(gains_of({1, 0.3f, 0.3f, 3, {0.25f, 0.5f, 0.75f}}), Each(testing::FloatNear(1, 1e-6f)));
    EXPECT_THAT(plain_gains({1, 0.3f, 0.3f, 3, {0.25f, 0.5f, 0.75f}}), Each(testing::FloatNear(1, 1e-6f)));
}

TEST(GainTable, ShortCurvesLoseTheirAnchors) {
    for (const Gains& gains : {gains_of({1, 0, 0, 2, {0.9f, 0.9f}}), plain_gains({1, 0, 0, 2, {0.9f, 0.9f}})})
        EXPECT_THAT(gains[127], FloatEq(0.25f)); // t^3 / t at 1/2
}

TEST(GainTable, LineAboveOneIsClipped) {
    for (const Gains& gains : {gains_of({1, 0.5f, 2, 0, {}}), plain_gains({1, 0.5f, 2, 0, {}})}) {
        EXPECT_FLOAT_EQ(gains[32], 4);
        EXPECT_FLOAT_EQ(gains[127], 2);
    }
}

TEST(GainTable, EdgesRepeatTheirNeighbours) {
    const HDR10PLUS_TM_CURVE curve = {1, 0, 0, 3, {0.5f, 0.7f, 0.9f}};
    for (const Gains& gains : {gains_of(curve), plain_gains(curve)}) {
        EXPECT_EQ(gains[0], gains[1]);
        EXPECT_EQ(gains[254], 1);
        EXPECT_EQ(gains[255], 1);
    }
    EXPECT_THAT(gains_of(curve, 3), ElementsAre(1, 1, 1));
    Gains untouched = {5, 6};
    HDR10PLUS_TM_CURVE any = curve;
    hdr10plus_preappliedcurve_to_lut(untouched.data(), 2, &any);
    EXPECT_THAT(untouched, ElementsAre(6, 6));
}

} // namespace
