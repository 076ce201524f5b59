#include "kernels/frames.h"

#include <cmath>
#include <limits>

// The HDR10+ tone map, alone and fused with the conversion from P010, against a computation per pixel in double
// precision.

namespace lumivert::test {
namespace {

using Vec3 = std::array<double, 3>;
using Mat3 = std::array<Vec3, 3>;

constexpr Mat3 kBt2020ToP3 = {{{1.34357822000, -0.2821796830, -0.0613986254},
                               {-0.06529748440, 1.0757881400, -0.0104904491},
                               {0.00282178819, -0.0195985250, 1.0167768000}}};
constexpr Mat3 kP3ToBt709 = {{{1.2249401800, -0.2249401810, 0},
                              {-0.0420569777, 1.0420568000, -7.45058060e-09},
                              {-0.0196375493, -0.0786359608, 1.098273400}}};

Vec3 to_gamut(const Mat3& m, const Vec3& v) {
    Vec3 out;
    for (int i = 0; i < 3; ++i)
        out[i] = std::clamp(m[i][0] * v[0] + m[i][1] * v[1] + m[i][2] * v[2], 0.0, 1.0);
    return out;
}

/// ST 2084 EOTF of an 8-bit code; 1.0 is 10000 cd/m2.
double pq_eotf(int code) {
    const double m1 = 2610.0 / 16384, m2 = 2523.0 / 32, kc1 = 3424.0 / 4096, kc2 = 2413.0 / 128, kc3 = 2392.0 / 128;
    const double t = std::pow(code * 0.0039215, 1 / m2);
    return std::pow(std::max(t - kc1, 0.0) / (kc2 - kc3 * t), 1 / m1);
}

struct Curve {
    std::vector<float> gains;
    float normalize_x, knee_x;
};

/// The gains that a lookup variable near `m` may get. The weights are reversed, so the gain jumps at every entry: right
/// below entry k + 1 it is nearly gain k, at it gain k + 2.
std::vector<double> gains_near(const Curve& curve, double m, double uncertainty) {
    std::vector<double> gains;
    const auto add = [&](int k, double w) { gains.push_back(w * curve.gains[k] + (1 - w) * curve.gains[k + 1]); };
    const double low = std::min((m - uncertainty) * 254, 254.0), high = std::min((m + uncertainty) * 254, 254.0);
    const int k_low = static_cast<int>(low), k_high = static_cast<int>(high);
    add(k_low, low - k_low);
    add(k_high, high - k_high);
    if (k_low != k_high) {
        add(k_low, 1);
        add(k_high, 0);
    }
    return gains;
}

std::array<Span, 3> tone_mapped(const uint8_t* rgba, const Curve& curve) {
    Vec3 light;
    for (int c = 0; c < 3; ++c)
        light[c] = std::min(pq_eotf(rgba[c]) * curve.normalize_x, 1.0);
    const Vec3 p3 = to_gamut(kBt2020ToP3, light);
    const double peak = *std::max_element(p3.begin(), p3.end()), m = std::max<double>(curve.knee_x, peak);

    // Relaxed powers are off by up to 1e-4 of the light; where the knee decides there is only the product's rounding.
    std::array<Span, 3> spans;
    spans.fill({255, 0});
    for (const double gain : gains_near(curve, m, (m > curve.knee_x ? 1e-4 : 1e-7) * m)) {
        const Vec3 bt709 = to_gamut(kP3ToBt709, {p3[0] * gain, p3[1] * gain, p3[2] * gain});
        for (int c = 0; c < 3; ++c) {
            const Span span = Span::truncated(255 * std::pow(bt709[c], 0.45), 0.03).clamped(0, 255);
            spans[c] = {std::min(spans[c].low, span.low), std::max(spans[c].high, span.high)};
        }
    }
    return spans;
}

void expect_tone_mapped(Plane<uint8_t>& in, Plane<uint8_t>& out, int width, const Curve& curve,
                        const std::string& what) {
    Checker checker(what);
    for (size_t i = 0; i < out.size(); i += 4) {
        const int x = static_cast<int>(i) / 4 % width, y = static_cast<int>(i) / 4 / width;
        const std::array<Span, 3> spans = tone_mapped(&in[i], curve);
        for (int c = 0; c < 3; ++c)
            checker.expect(spans[c], out[i + c], c == 0 ? "R" : c == 1 ? "G" : "B", x, y);
        checker.expect({255, 255}, out[i + 3], "A", x, y);
    }
}

/// A plausible curve, and gains that jump so that every mix-up of entries or weights shows.
std::vector<Curve> curves() {
    std::vector<float> smooth(256), jagged(256);
    std::mt19937 random(7);
    for (int i = 0; i < 256; ++i) {
        smooth[i] = 1.0f / (0.3f + 0.7f * i / 254);
        jagged[i] = 0.3f + 0.7f * (random() % 1000) / 1000;
    }
    return {{smooth, 10, 0.05f}, {jagged, 1, 0}, {jagged, 10, 0.3f}, {jagged, 10, 76 / 254.0f}, {jagged, 40, 1}};
}

TEST(ToneMap, AgreesWithTheOracle) {
    Device device;
    for (Curve curve : curves()) {
        Plane<float> gains(256, curve.gains);
        for (const Picture& picture : pictures(255, false)) {
            const int width = 86, height = 66;
            std::mt19937 random(5);
            Plane<uint8_t> in(4 * width * height), out(in.size());
            for (size_t i = 0; i < in.size(); i += 4) {
                const int pixel = static_cast<int>(i / 4);
                const Code3 code = picture.at(pixel % width, pixel / width, random);
                for (int c = 0; c < 3; ++c)
                    in[i + c] = static_cast<uint8_t>(code[c]);
            }
            device.run("process_10plus_clut", {width, height}, in, out, curve.normalize_x, curve.knee_x, gains,
                       cl_int(width));
            expect_tone_mapped(in, out, width, curve, picture.name);
        }
    }
}

// The pixel's block is converted into in_rgba, black to 0, and the result is the tone map of what is there.
TEST(FusedToneMap, AgreesWithTheOracle) {
    Device device;
    const Curve curve = curves()[2];
    Plane<float> gains(256, curve.gains);
    for (const Picture& picture : pictures(1023, true)) {
        for (const auto& [width, height] : {std::pair{4, 2}, {8, 4}, {132, 38}}) {
            const P010 frame(width, height, picture);
            Plane<uint16_t> y(frame.y.size(), frame.y), uv(frame.uv.size(), frame.uv);
            Plane<uint8_t> in(4 * width * height), out(in.size());
            device.run("p010_to_rgba8888_process_10plus_clut", {size_t(width), size_t(height)}, y, uv, in,
                       cl_int(width), cl_int(0) /* the height is not used */, out, curve.normalize_x, curve.knee_x,
                       gains);
            expect_rgba_of(frame, in, 64, 0);
            expect_tone_mapped(in, out, width, curve, frame.name);
        }
    }
}

TEST(FusedToneMap, OneWorkItemConvertsItsWholeBlock) {
    Device device;
    const P010 frame(4, 2, pictures(1023, true)[0]);
    Plane<uint16_t> y(8, frame.y), uv(4, frame.uv);
    Plane<uint8_t> in(32), out(32, 0x55);
    Plane<float> gains(256, 1.0f);
    device.run("p010_to_rgba8888_process_10plus_clut", {1, 1}, y, uv, in, cl_int(4), cl_int(2), out, 1.0f, 0.0f, gains);
    expect_rgba_of(frame, in, 64, 0);
    EXPECT_THAT(std::vector<uint8_t>(out.begin() + 4, out.end()), ::testing::Each(0x55));
}

/// The tone map of a dim grey whose lookup variable is the knee, with these gains.
std::array<uint8_t, 4> at_knee(Device& device, float knee_x, const std::vector<float>& gains) {
    Plane<uint8_t> in(4, {90, 90, 90, 0}), out(4);
    Plane<float> table(256, gains);
    device.run("process_10plus_clut", {1, 1}, in, out, 100.0f, knee_x, table, cl_int(1));
    return {out[0], out[1], out[2], out[3]};
}

// A gain is taken from one entry alone where the knee lies on an entry, and that is the next one.
TEST(ToneMap, WholeEntriesTakeTheUpperGain) {
    Device device;
    for (const auto& [knee, entry] : {std::pair{0.5f, 128}, {1.0f, 255}}) {
        std::vector<float> gains(256, 0.2f), flat(256, 0.8f);
        gains[entry] = 0.8f;
        EXPECT_EQ(at_knee(device, knee, gains), at_knee(device, knee, flat)) << knee;
        EXPECT_NE(at_knee(device, knee, gains), at_knee(device, knee, std::vector<float>(256, 0.2f))) << knee;
    }
}

// Metadata out of its range gives knees above 1: the last gain then, and never one from beyond the table.
TEST(ToneMap, KneesOutOfRangeStayInsideTheTable) {
    Device device;
    const std::vector<float> gains(256, 0.8f);
    const auto last = at_knee(device, 1.0f, gains);
    for (const float knee : {1.0001f, 1.5f, 16.0f})
        EXPECT_EQ(at_knee(device, knee, gains), last) << knee;
    for (const float knee :
         {1e30f, -1e30f, std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()}) {
        EXPECT_EQ(at_knee(device, knee, gains)[3], 255) << knee;
    }
}

} // namespace
} // namespace lumivert::test
