#include <algorithm>
#include <cmath>
#include <random>
#include <utility>

#include <gtest/gtest.h>

#include "hdr10plus/default_metadata.h"
#include "lumivert/hdr10plus.h"
#include "reference/curve.h"

namespace {

namespace reference = lumivert::reference;

using Gains = std::vector<float>;

constexpr float kUntouched = -7;

HDR10PLUS_TM_CURVE curve_of(HDR10PLUS_DYNAMIC_INFO info, unsigned target) {
    HDR10PLUS_TM_CURVE curve = {};
    std::fill_n(curve.f_bezier_curve_anchors, 15, kUntouched);
    hdr10plus_meta_to_curve(&curve, &info, target);
    return curve;
}

/// The tables of the two samplers; the first wants its anchors multiplied beforehand.
std::pair<Gains, Gains> gains_of(HDR10PLUS_TM_CURVE curve, unsigned size = 256) {
    std::pair<Gains, Gains> gains(size, size);
    hdr10plus_curve_to_lut(gains.second.data(), size, &curve);
    hdr10plus_curve_kchoose_preapplied(&curve);
    hdr10plus_preappliedcurve_to_lut(gains.first.data(), size, &curve);
    return gains;
}

class Random {
public:
    unsigned between(unsigned low, unsigned high) {
        return std::uniform_int_distribution<unsigned>(low, high)(engine_);
    }
    bool one_in(unsigned n) { return between(1, n) == 1; }

private:
    std::mt19937 engine_{20940};
};

/// A count of entries as records have it; beyond the arrays it stands for all of them.
uint8_t claimed(unsigned count) {
    return static_cast<uint8_t>(count == 15 ? 200 : count);
}

/// A luminance distribution: percentages mostly in order, with or without 50 and 99, and rising luminances except in
/// the slot that carries something else.
void add_distribution(HDR10PLUS_DYNAMIC_INFO& info, unsigned count, Random& random) {
    for (unsigned i = 0; i < count; ++i) {
        const unsigned any = random.between(1, 100);
        info.maxrgb_percentages[i] = static_cast<uint8_t>(random.one_in(6) ? 50 : random.one_in(5) ? 99 : any);
        info.maxrgb_percentiles[i] = random.between(0, random.one_in(2) ? 150000 : 5000);
    }
    if (!random.one_in(4)) std::sort(info.maxrgb_percentages, info.maxrgb_percentages + count);
    std::sort(info.maxrgb_percentiles, info.maxrgb_percentiles + count);
    if (count > 2) info.maxrgb_percentiles[2] = random.between(0, 100000);
    info.num_maxrgb_percentiles = claimed(count);
}

struct Frame {
    HDR10PLUS_DYNAMIC_INFO info;
    unsigned target;
};

/// A record and a display. Kept out is what single precision cannot resolve: displays so close to each other or to the
/// scene's peak that the mixing share is a quotient of rounding errors, and knees below the diagonal, where rounding of
/// x - kx weighs heavily in a small gain.
Frame make_frame(bool carries_curve, unsigned count, Random& random) {
    Frame frame = {};
    HDR10PLUS_DYNAMIC_INFO& info = frame.info;
    do {
        add_distribution(info, carries_curve ? random.between(0, 15) : count, random);
        for (uint32_t& peak : info.maxscl)
            peak = random.one_in(5) ? 0 : random.between(1, 150000);
        if (random.one_in(5)) std::fill_n(info.maxscl, 3, 0);
    } while (carries_curve && reference::scene_peak(info) < 400);
    info.tone_mapping_flag = carries_curve ? claimed(random.between(1, 15)) : 0;
    info.knee_point_y = static_cast<uint16_t>(random.between(0, 4095));
    info.knee_point_x = static_cast<uint16_t>(random.between(0, info.knee_point_y));
    info.num_bezier_curve_anchors = claimed(count);
    for (uint16_t& anchor : info.bezier_curve_anchors)
        anchor = static_cast<uint16_t>(random.between(0, 1023));

    const unsigned percent_of_peak = random.one_in(5) ? random.between(105, 150) : random.between(3, 95);
    frame.target = static_cast<unsigned>(reference::scene_peak(info) * percent_of_peak / 100);
    if (carries_curve && frame.target < 250) frame.target = 200;
    const unsigned percent_of_target[] = {0, 40, 80, 100, 125, 200, 600};
    info.display_max_luminance = frame.target * percent_of_target[random.between(0, 6)] / 100;
    return frame;
}

testing::AssertionResult close_to(double expected, double actual, double relative, double smallest = 0) {
    const double error = std::abs(actual - expected) / std::max(std::abs(expected), smallest);
    if (actual == expected || error <= relative) return testing::AssertionSuccess();
    return testing::AssertionFailure() << actual << " for " << expected << ", relative error " << error;
}

TEST(Curve, AgreesWithTheReference) {
    // Fractions below 1 % of the scale are differences of nearly equal ratios, and round as the ratios do.
    constexpr double kNearZero = 0.01;
    Random random;
    for (unsigned i = 0; i < 4 * 16 * 10; ++i) {
        SCOPED_TRACE(testing::Message() << "record " << i);
        const unsigned count = i / 4 % 16;
        const auto [info, target] = make_frame(i % 4 != 0, count, random);
        float p50 = 0;
        float p99 = 0;
        LIB_HDR10PLUS_META::getPercentile_50_99(&info, p50, p99);
        EXPECT_TRUE(close_to(reference::scene_peak(info), LIB_HDR10PLUS_META::GetSceneMaxL(&info), 2e-6));
        EXPECT_TRUE(close_to(reference::percentile(info, 50), p50, 2e-6));
        EXPECT_TRUE(close_to(reference::percentile(info, 99), p99, 2e-6));

        const reference::Curve expected = reference::curve_for(info, target);
        HDR10PLUS_TM_CURVE curve = curve_of(info, target);
        EXPECT_TRUE(close_to(expected.normalize_x, curve.normalize_x, 2e-6));
        EXPECT_TRUE(close_to(expected.knee_x, curve.f_knee_point_x, 2e-6, kNearZero));
        EXPECT_TRUE(close_to(expected.knee_y, curve.f_knee_point_y, 2e-6, kNearZero));
        ASSERT_EQ(expected.anchor_count, curve.num_bezier_curve_anchors);
        const float* const anchors = curve.f_bezier_curve_anchors;
        for (int k = 0; k < expected.anchor_count; ++k)
            EXPECT_TRUE(close_to(expected.anchors[k], anchors[k], 2e-6, kNearZero)) << "anchor " << k;
        EXPECT_EQ(std::count(anchors + expected.anchor_count, anchors + 15, kUntouched), 15 - expected.anchor_count);

        curve.num_bezier_curve_anchors = claimed(curve.num_bezier_curve_anchors);
        const auto& [preapplied, plain] = gains_of(curve);
        for (int x = 1; x <= 254; ++x) {
            const double gain = reference::gain_at(expected, x / 254.0);
            ASSERT_TRUE(close_to(gain, preapplied[x], 1e-5)) << "entry " << x;
            ASSERT_TRUE(close_to(gain, plain[x], 1e-5)) << "plain anchors, entry " << x;
        }
    }
}

/// What must hold for a curve whatever the record, looked at from outside: output over input.
TEST(Curve, KeepsItsShape) {
    constexpr unsigned kInputs = 254; // of the table that conversions use
    Random random;
    for (unsigned i = 0; i < 4 * 16 * 10; ++i) {
        SCOPED_TRACE(testing::Message() << "record " << i);
        const bool carries_curve = i % 4 != 0;
        const unsigned count = i / 4 % 16;
        const auto [info, target] = make_frame(carries_curve, count, random);
        const unsigned display = std::max(target, 200U);
        const float peak = LIB_HDR10PLUS_META::GetSceneMaxL(&info);
        const bool as_graded = carries_curve && display == info.display_max_luminance;
        const bool shows_all = carries_curve && !as_graded && static_cast<float>(display) >= peak;
        const HDR10PLUS_TM_CURVE curve = curve_of(info, target);
        const float kx = curve.f_knee_point_x;
        const float ky = curve.f_knee_point_y;
        const float* const anchors = curve.f_bezier_curve_anchors;
        const unsigned order = curve.num_bezier_curve_anchors + 1U;
        const bool regular = order > 3 && order < 16; // the shortest curves and the longest weigh their anchors oddly
        const bool rises = regular && std::is_sorted(anchors, anchors + order - 1);
        EXPECT_GT(curve.normalize_x, 0);
        EXPECT_LE(curve.normalize_x, 50) << "10000 cd/m2 over a display of 200 at least";
        EXPECT_TRUE(kx >= 0 && kx <= ky && ky <= 1) << kx << ", " << ky << ": nothing gets darker below the knee";
        EXPECT_TRUE(std::all_of(anchors, anchors + order - 1, [](float a) { return a >= 0 && a <= 1; }));

        const auto& [preapplied, plain] = gains_of(curve, kInputs + 2);
        for (const Gains& gains : {preapplied, plain}) {
            EXPECT_EQ(gains.front(), gains[1]);
            EXPECT_EQ(gains.back(), gains[kInputs]);
            EXPECT_TRUE(close_to(1, gains[kInputs], 1e-6)) << "white stays white";
            float below = 0; // the output for the input before
            for (unsigned x = 1; x <= kInputs; ++x) {
                const float input = static_cast<float>(x) / kInputs;
                const float output = gains[x] * input;
                ASSERT_TRUE(output >= 0 && output <= (order == 16 ? 2.1F : 1 + 1e-5F)) << x << ": " << output;
                ASSERT_TRUE(input > kx || close_to(ky / kx, gains[x], 1e-6)) << x << ": a line below the knee";
                ASSERT_TRUE(!rises || output >= below - 2e-6F) << x << ": brighter in, darker out";
                ASSERT_TRUE(carries_curve || gains[x] >= 1 - 1e-6F) << x << ": a generated curve darkens nothing";
                ASSERT_TRUE(!shows_all || !regular || close_to(1, gains[x], 1e-5))
                    << x << ": the display shows the whole scene";
                const bool just_above_knee = input > kx && input - kx <= 1.0F / kInputs && kx < 0.99F;
                const float steepest = static_cast<float>(order) * (1 - ky) / (1 - kx);
                ASSERT_TRUE(!regular || !just_above_knee || std::abs(output - ky) <= steepest * (input - kx) + 1e-5F)
                    << x << ": a jump at the knee from " << ky << " to " << output;
                below = output;
            }
        }
        // Below the knee a display shows the scene's own luminances, unless the curve is taken as it was graded.
        EXPECT_TRUE(as_graded || kx == 0 || peak > 10000 ||
                    close_to(10000 / curve.normalize_x, ky / kx * static_cast<float>(display), 1e-5));
    }
}

TEST(Curve, WorkedFigures) {
    HDR10PLUS_DYNAMIC_INFO usual = {}; // for 250 cd/m2
    lumivert::default_metadata(1000, 1000, &usual);
    HDR10PLUS_DYNAMIC_INFO knee_above_one = usual;
    knee_above_one.knee_point_y = 65535;
    HDR10PLUS_DYNAMIC_INFO for_4000 = usual;
    for_4000.display_max_luminance = 4000;
    HDR10PLUS_DYNAMIC_INFO dark = {}; // as is a scene without a distribution
    std::fill_n(dark.maxscl, 3, 20000);
    const float third = 0.3F / 3 + 132 / 4095.0F * 2 / 3;
    const struct {
        HDR10PLUS_DYNAMIC_INFO info;
        unsigned target;
        float normalize_x, kx, ky, p1;
    } cases[] = {
        {usual, 250, 10, 33 / 4095.0F, 132 / 4095.0F, 380 / 1023.0F},
        {usual, 500, 10, third / 2, third, (1 - third / 2) / (5 - 5 * third)},
        {knee_above_one, 500, 10, 0.5F, 1, 0.92F},
        {for_4000, 1000, 10, 0.3F, 0.3F, 0.1F}, // just as bright as the scene: nothing to map
        {dark, 0, 5, 0, 0, 0.98F * 0.65F},
        {dark, 4000, 2.5F, 0.3F, 0.3F, 0.1F},
    };
    for (const auto& [info, target, normalize_x, kx, ky, p1] : cases) {
        const HDR10PLUS_TM_CURVE curve = curve_of(info, target);
        SCOPED_TRACE(testing::Message() << "target " << target);
        EXPECT_FLOAT_EQ(curve.normalize_x, normalize_x);
        EXPECT_FLOAT_EQ(curve.f_knee_point_x, kx);
        EXPECT_FLOAT_EQ(curve.f_knee_point_y, ky);
        EXPECT_FLOAT_EQ(curve.f_bezier_curve_anchors[0], p1);
    }

    HDR10PLUS_TM_CURVE curve = {};
    hdr10plus_meta_to_curve(&curve, &usual);
    EXPECT_FLOAT_EQ(curve.f_knee_point_y, 132 / 4095.0F); // a display of 250 cd/m2
    LIB_HDR10PLUS_META::GuidedOOTF(&curve, &usual, 199, 600);
    EXPECT_EQ(curve.f_knee_point_x + curve.f_knee_point_y, 0); // too dim for any knee
    EXPECT_FLOAT_EQ(curve.f_bezier_curve_anchors[8], 0.9F);
}

TEST(GainTable, WorkedFigures) {
    HDR10PLUS_TM_CURVE ones = {1, 0, 0, 15, {}};
    std::fill_n(ones.f_bezier_curve_anchors, 15, 1.0F);
    const HDR10PLUS_TM_CURVE line_above_one = {1, 0.5F, 2, 0, {}};
    const HDR10PLUS_TM_CURVE usual = {1, 0, 0, 3, {0.5F, 0.7F, 0.9F}};
    const struct {
        HDR10PLUS_TM_CURVE curve;
        unsigned size, entry;
        float gain;
    } cases[] = {
        {{1, 0.5F, 0.5F, 0, {}}, 256, 200, 1},
        {{1, 0, 0, 2, {0.9F, 0.9F}}, 256, 127, 0.25F}, // t^3 / t at 1/2: short curves lose their anchors
        {ones, 256, 127, 65295 / 32768.0F},            // 16 + 560 + ... + 560 + 16 + 1
        {line_above_one, 256, 32, 4},
        {line_above_one, 256, 127, 2},
        {usual, 256, 254, 1},
        {usual, 256, 255, 1},
        {usual, 4, 0, 1.35F}, // as at 1/2
        {usual, 3, 0, 1},
        {usual, 2, 1, 0}, // only the edges, of what was there
    };
    for (const auto& [curve, size, entry, gain] : cases) {
        SCOPED_TRACE(testing::Message() << "entry " << entry << " of " << size);
        const auto& [preapplied, plain] = gains_of(curve, size);
        EXPECT_FLOAT_EQ(preapplied[entry], gain);
        EXPECT_FLOAT_EQ(plain[entry], gain);
    }
}

} // namespace
