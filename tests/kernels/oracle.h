/// What the kernels compute, a second time: per sample, in double precision, from the formulas.
#pragma once

#include "kernels/frames.h"

#include <cmath>

namespace lumivert::test {

// ---- static tables: luma by table, chroma by the luma of the block's top left sample ----

inline Span enhanced_chroma(int code, int luma, double gain) {
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

// ---- RGBA to YUV: wherever the real number is not next to a step, there is one right code ----

inline constexpr double kUncertainty = 1e-3;

/// What a kernel does with the rows of even and of odd number.
struct YuvKernel {
    const char* name;
    int bits;
    int luma_offset[2];
    double ur[2], ug[2], vg[2], vb[2];
    bool cr_first;
};
inline const YuvKernel kP010 = {"rgba8888_to_p010", 10,   {64, 64}, {.1146, .1146}, {.3854, .3854}, {.4542, .4542},
                                {.0458, .0458},     false};
inline const YuvKernel kNv12 = {"rgba8888_to_nv12", 8,    {16, 16}, {.11457, .1146}, {.38543, .3854}, {.45415, .4542},
                                {.04585, .0458},    false};
inline const YuvKernel kNv21 = {"rgba8888_to_nv21", 8,   {0, 16}, {.11457, .1146}, {.38543, .3854}, {.45415, .4542},
                                {.04585, .0458},    true};

/// Expects these planes to be what the kernel makes of an RGBA picture; samples outside whole blocks are `untouched`.
template <class Sample>
void expect_yuv_of(const YuvKernel& kernel, const uint8_t* rgba, int width, int height, const Sample* y,
                   const Sample* uv, Sample untouched, const std::string& what) {
    const int scale = kernel.bits == 10 ? 4 : 1, top = (1 << kernel.bits) - 1, shift = kernel.bits == 10 ? 6 : 0;
    const auto weighted = [&](int column, int row, double r, double g, double b, int offset) {
        const uint8_t* const p = &rgba[4 * (row * width + column)];
        return (Span::truncated(scale * (r * p[0] + g * p[1] + b * p[2]), kUncertainty) + offset).clamped(0, top);
    };
    const auto luma = [&](int column, int row) {
        return weighted(column, row, .2126, .7152, .0722, kernel.luma_offset[row % 2]);
    };
    const auto chroma = [&](int column, int row, bool cr) {
        const int odd = row % 2, centre = (top + 1) / 2;
        return cr ? weighted(column, row, .5, -kernel.vg[odd], -kernel.vb[odd], centre)
                  : weighted(column, row, -kernel.ur[odd], -kernel.ug[odd], .5, centre);
    };

    Checker checker(std::string(kernel.name) + ", " + what);
    for (int row = 0; row < height; ++row) {
        for (int x = 0; x < width; ++x) {
            const int got_y = y[row * width + x];
            const bool converted = x < width / 4 * 4 && row < height / 2 * 2;
            if (!converted) {
                checker.expect({untouched, untouched}, got_y, "luma outside the blocks", x, row);
            } else {
                const Span span = luma(x, row);
                checker.expect({span.low << shift, span.high << shift}, got_y, "luma", x, row);
            }
            if (row >= height / 2) continue;
            const int got_uv = uv[row * width + x];
            if (x >= width / 4 * 4) {
                checker.expect({untouched, untouched}, got_uv, "chroma outside the blocks", x, row);
                continue;
            }
            const bool cr = (x % 2 == 1) != kernel.cr_first;
            const int left = x / 2 * 2;
            const Span mean = (chroma(left, 2 * row, cr) + chroma(left + 1, 2 * row, cr) +
                               chroma(left, 2 * row + 1, cr) + chroma(left + 1, 2 * row + 1, cr)) /
                              4;
            checker.expect({mean.low << shift, mean.high << shift}, got_uv, cr ? "Cr" : "Cb", x, row);
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

/// The gains that a lookup variable near `m` may get. The weights are reversed, so the gain jumps at every entry:
/// right below entry k + 1 it is nearly gain k, at it gain k + 2.
inline std::vector<double> gains_near(const Curve& curve, double m, double uncertainty) {
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

inline std::array<Span, 3> tone_mapped(const uint8_t* rgba, const Curve& curve) {
    Vec3 light;
    for (int c = 0; c < 3; ++c)
        light[c] = std::min(pq_eotf(rgba[c]) * curve.normalize_x, 1.0);
    const Vec3 p3 = to_gamut(kBt2020ToP3, light);
    const double peak = *std::max_element(p3.begin(), p3.end()), m = std::max<double>(curve.knee_x, peak);

    // Relaxed powers are off by up to 1e-4 of the light; where the knee decides there is only the product's
    // rounding.
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
