/// What the kernels compute, a second time: per sample, in double precision, from the formulas. Wherever the real
/// number is not next to a step, there is one right code.
#pragma once

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include "kernels/frames.h"

namespace lumivert::test {

/// The results that rounding in the last place permits where a real number is cut to an integer: one, unless the
/// number is next to a step.
struct Span {
    int low, high;

    static Span truncated(double value, double uncertainty) {
        return {static_cast<int>(value - uncertainty), static_cast<int>(value + uncertainty)};
    }
    Span operator+(Span other) const { return {low + other.low, high + other.high}; }
    Span operator*(int factor) const { return {low * factor, high * factor}; }
    Span operator/(int divisor) const { return {low / divisor, high / divisor}; }
    Span clamped(int lowest, int highest) const {
        return {std::clamp(low, lowest, highest), std::clamp(high, lowest, highest)};
    }
};

/// Compares samples with spans and reports the first few that lie outside.
class Checker {
public:
    explicit Checker(std::string what) : what_(std::move(what)) {}
    ~Checker() { EXPECT_EQ(wrong_, 0) << what_; }
    void expect(Span span, int got, const char* sample, int x, int y) {
        if ((got >= span.low && got <= span.high) || ++wrong_ > 5) return;
        ADD_FAILURE() << what_ << ": " << sample << " at (" << x << ", " << y << ") is " << got << ", not " << span.low
                      << ".." << span.high;
    }

private:
    std::string what_;
    int wrong_ = 0;
};

// ---- static tables: luma by table, chroma by the luma of the block's top left sample ----

inline Span enhanced_chroma(int code, int luma, double gain) {
    if (code == 512) return {512, 512}; // neutral stays neutral, to the code
    const double limited = (code / 4.0 - 128) / 224;
    const double full = std::clamp(limited * luma / 1024 * gain, -0.5, 0.5);
    return Span::truncated(512 + 896 * full, 1e-3).clamped(64, 960);
}

/// Expects the planes of a static conversion of `in`; what lies outside whole blocks is not looked at.
inline void expect_static(const std::vector<int>& table, const uint16_t* in_y, const uint16_t* in_uv, int width,
                          int height, const uint16_t* y, const uint16_t* uv, const std::string& what) {
    Checker checker(what);
    for (int row = 0; row < height / 2 * 2; ++row) {
        for (int x = 0; x < width; ++x) {
            const size_t i = row * width + x;
            const int luma = table[in_y[i] >> 6] << 6;
            checker.expect({luma, luma}, y[i], "luma", x, row);
            if (row >= height / 2) continue;
            const int top_left = table[in_y[2 * row * width + x / 2 * 2] >> 6];
            checker.expect(enhanced_chroma(in_uv[i] >> 6, top_left, x % 2 ? 8.0 : 4.5), uv[i] >> 6, x % 2 ? "Cr" : "Cb",
                           x, row);
            checker.expect({0, 0}, uv[i] & 63, "low chroma bits", x, row);
        }
    }
}

// ---- P010 to RGBA ----

/// Expects the RGBA of every whole 4x2 block of the frame, the luma code `black` giving 0, and `untouched` elsewhere.
inline void expect_rgba_of(const P010& frame, const std::vector<uint8_t>& rgba, int black, int untouched) {
    Checker checker("P010 to RGBA, " + frame.name);
    for (size_t i = 0; i < rgba.size(); ++i) {
        const int width = frame.width, x = static_cast<int>(i) / 4 % width, row = static_cast<int>(i) / 4 / width;
        if (x >= width / 4 * 4 || row >= frame.height / 2 * 2) {
            checker.expect({untouched, untouched}, rgba[i], "byte outside the blocks", x, row);
            continue;
        }
        const uint16_t* const pair = &frame.uv[row / 2 * width + x / 2 * 2];
        const double luma = (frame.y[row * width + x] >> 6) - black;
        const double cb = (pair[0] >> 6) - 512, cr = (pair[1] >> 6) - 512;
        const double channels[] = {luma + 1.47460 * cr, luma - 0.16455 * cb - 0.57135 * cr, luma + 1.88140 * cb, 1020};
        checker.expect(Span::truncated(channels[i % 4] / 4, 1e-3).clamped(0, 255), rgba[i], "byte", x, row);
    }
}

// ---- RGBA to YUV ----

struct YuvKernel {
    const char* name;
    int bits;
    int luma_offset[2]; ///< in rows of even and of odd number
    bool cr_first;
};
inline constexpr YuvKernel kP010 = {"rgba8888_to_p010", 10, {64, 64}, false};
inline constexpr YuvKernel kNv12 = {"rgba8888_to_nv12", 8, {16, 16}, false};
inline constexpr YuvKernel kNv21 = {"rgba8888_to_nv21", 8, {0, 16}, true};

/// Expects these planes to be what the kernel makes of an RGBA picture; samples outside whole blocks are `untouched`.
template <typename Sample>
void expect_yuv_of(const YuvKernel& kernel, const uint8_t* rgba, int width, int height, const Sample* y,
                   const Sample* uv, Sample untouched, const std::string& what) {
    const int scale = kernel.bits == 10 ? 4 : 1, top = (1 << kernel.bits) - 1, unit = kernel.bits == 10 ? 64 : 1;
    // Y, Cb or Cr of one pixel.
    const auto code = [&](int component, int x, int row) {
        const uint8_t* const p = &rgba[4 * (row * width + x)];
        const bool five_digits = kernel.bits == 8 && row % 2 == 0;
        const double ur = five_digits ? .11457 : .1146, ug = five_digits ? .38543 : .3854;
        const double vg = five_digits ? .45415 : .4542, vb = five_digits ? .04585 : .0458;
        const double weights[3][3] = {{.2126, .7152, .0722}, {-ur, -ug, .5}, {.5, -vg, -vb}};
        const double* const w = weights[component];
        const int offset = component == 0 ? kernel.luma_offset[row % 2] : (top + 1) / 2;
        const Span sum = Span::truncated(scale * (w[0] * p[0] + w[1] * p[1] + w[2] * p[2]), 1e-3);
        return (sum + Span{offset, offset}).clamped(0, top);
    };
    const Span outside = {untouched, untouched};

    Checker checker(std::string(kernel.name) + ", " + what);
    for (int row = 0; row < height; ++row) {
        for (int x = 0; x < width; ++x) {
            const bool whole_columns = x < width / 4 * 4, whole_rows = row < height / 2 * 2;
            checker.expect(whole_columns && whole_rows ? code(0, x, row) * unit : outside, y[row * width + x], "luma",
                           x, row);
            if (row >= height / 2) continue;
            const int left = x / 2 * 2, component = (x % 2 == 0) == kernel.cr_first ? 2 : 1;
            const auto column = [&](int at) { return code(component, at, 2 * row) + code(component, at, 2 * row + 1); };
            checker.expect(whole_columns ? (column(left) + column(left + 1)) / 4 * unit : outside, uv[row * width + x],
                           component == 1 ? "Cb" : "Cr", x, row);
        }
    }
}

// ---- the HDR10+ tone map ----

using Vec3 = std::array<double, 3>;
using Mat3 = std::array<Vec3, 3>;

inline constexpr Mat3 kBt2020ToP3 = {{{1.34357822000, -0.2821796830, -0.0613986254},
                                      {-0.06529748440, 1.0757881400, -0.0104904491},
                                      {0.00282178819, -0.0195985250, 1.0167768000}}};
inline constexpr Mat3 kP3ToBt709 = {{{1.2249401800, -0.2249401810, 0},
                                     {-0.0420569777, 1.0420568000, -7.45058060e-09},
                                     {-0.0196375493, -0.0786359608, 1.098273400}}};

inline Vec3 to_gamut(const Mat3& m, const Vec3& v) {
    Vec3 out;
    for (int i = 0; i < 3; ++i)
        out[i] = std::clamp(m[i][0] * v[0] + m[i][1] * v[1] + m[i][2] * v[2], 0.0, 1.0);
    return out;
}

/// ST 2084 EOTF of an 8-bit code; 1.0 is 10000 cd/m2.
inline double pq_eotf(int code) {
    const double m1 = 2610.0 / 16384, m2 = 2523.0 / 32, kc1 = 3424.0 / 4096, kc2 = 2413.0 / 128, kc3 = 2392.0 / 128;
    const double t = std::pow(code * 0.0039215, 1 / m2);
    return std::pow(std::max(t - kc1, 0.0) / (kc2 - kc3 * t), 1 / m1);
}

struct Curve {
    std::vector<float> gains;
    float normalize_x, knee_x;
};

/// The gains that a lookup variable from `low` to `high`, less than an entry apart, may get. The weights are reversed,
/// so the gain jumps at every entry: right below entry k + 1 it is nearly gain k, at it gain k + 2.
inline std::vector<double> gains_between(const Curve& curve, double low, double high) {
    const auto gain = [&](int k, double w) { return w * curve.gains[k] + (1 - w) * curve.gains[k + 1]; };
    low = std::min(low * 254, 254.0);
    high = std::min(high * 254, 254.0);
    const int k_low = static_cast<int>(low), k_high = static_cast<int>(high);
    std::vector<double> gains = {gain(k_low, low - k_low), gain(k_high, high - k_high)};
    if (k_low != k_high) gains.insert(gains.end(), {gain(k_low, 1), gain(k_high, 0)});
    return gains;
}

inline std::array<Span, 3> tone_mapped(const uint8_t* rgba, const Curve& curve) {
    Vec3 light;
    for (int c = 0; c < 3; ++c)
        light[c] = std::min(pq_eotf(rgba[c]) * curve.normalize_x, 1.0);
    const Vec3 p3 = to_gamut(kBt2020ToP3, light);

    // Relaxed powers are off by up to 1e-4 of the light; where the knee decides there is one gain.
    const double peak = *std::max_element(p3.begin(), p3.end()), knee = curve.knee_x;
    std::array<Span, 3> spans;
    spans.fill({255, 0});
    for (const double gain :
         gains_between(curve, std::max(knee, peak * (1 - 1e-4)), std::max(knee, peak * (1 + 1e-4)))) {
        const Vec3 bt709 = to_gamut(kP3ToBt709, {p3[0] * gain, p3[1] * gain, p3[2] * gain});
        for (int c = 0; c < 3; ++c) {
            const Span span = Span::truncated(255 * std::pow(bt709[c], 0.45), 0.03).clamped(0, 255);
            spans[c] = {std::min(spans[c].low, span.low), std::max(spans[c].high, span.high)};
        }
    }
    return spans;
}

/// Expects `out` to be the tone map of `in`, both RGBA of `count` bytes.
inline void expect_tone_mapped(const uint8_t* in, const uint8_t* out, size_t count, int width, const Curve& curve,
                               const std::string& what) {
    Checker checker(what);
    for (size_t i = 0; i < count; i += 4) {
        const int x = static_cast<int>(i) / 4 % width, y = static_cast<int>(i) / 4 / width;
        const std::array<Span, 3> spans = tone_mapped(&in[i], curve);
        for (int c = 0; c < 3; ++c)
            checker.expect(spans[c], out[i + c], c == 0 ? "R" : c == 1 ? "G" : "B", x, y);
        checker.expect({255, 255}, out[i + 3], "A", x, y);
    }
}

} // namespace lumivert::test
