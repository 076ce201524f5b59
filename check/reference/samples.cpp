#include "reference/samples.h"

#include <cmath>

namespace lumivert::reference {
namespace {

/// A weighted sum of three terms in single precision: three products and two sums, in any order.
template <typename Numbers>
Interval weighted(const std::array<double, 3>& weights, const Numbers& terms) {
    Interval sum = {0, 0};
    double magnitude = 0;
    for (int i = 0; i < 3; ++i) {
        const double w = weights[i];
        const double low = terms[i].low;
        const double high = terms[i].high;
        sum.low += w * (w < 0 ? high : low);
        sum.high += w * (w < 0 ? low : high);
        magnitude += std::abs(w) * std::max(std::abs(low), std::abs(high));
    }
    return sum.widened(magnitude * 4 * kHalfUlp);
}

/// Relative error of powr(x, y).
double powr_error(double x, double y) {
    constexpr double kUlp = 2 * kHalfUlp;
    constexpr double kLn2 = 0.693147180559945;
    const double log2_x = std::log2(x);
    const double log2_error = std::max(1.0 / (1 << 21), 3 * kUlp * std::abs(log2_x));
    const double exponent = std::abs(y * log2_x);
    const double by_exp2 = (y * log2_error + exponent * kHalfUlp) * kLn2 + (3 + std::floor(2 * exponent)) * kUlp;
    return std::max(16 * kUlp, by_exp2);
}

/// powr of numbers from 0 up.
Interval powr(Interval x, double y) {
    const auto at = [y](double base, double sign) {
        return base <= 0 ? 0 : std::pow(base, y) * (1 + sign * powr_error(base, y));
    };
    return {at(x.low, -1), at(x.high, 1)};
}

/// Linear light, 1.0 being 10000 cd/m2, of an 8-bit PQ code (ST 2084).
Interval pq_eotf(int code) {
    constexpr double kM1 = 2610.0 / 16384;
    constexpr double kM2 = 2523.0 / 32;
    constexpr double kC1 = 3424.0 / 4096;
    constexpr double kC2 = 2413.0 / 128;
    constexpr double kC3 = 2392.0 / 128;
    constexpr double kDivision = 5 * kHalfUlp;
    const Interval t = powr(Interval::about(code * 0.0039215, 2 * kHalfUlp), 1 / kM2);
    const auto above = [](double x) { return std::max(x - kC1, 0.0); };
    const auto below = [](double x, double sign) { return kC2 - kC3 * x + sign * 2 * kC2 * kHalfUlp; };
    const Interval base = {above(t.low - kHalfUlp) / below(t.low, 1) * (1 - kDivision),
                           above(t.high + kHalfUlp) / below(t.high, -1) * (1 + kDivision)};
    return powr(base, 1 / kM1);
}

/// The light of all 8-bit codes.
std::array<Interval, 256> all_light() {
    std::array<Interval, 256> light = {};
    for (int code = 0; code < 256; ++code)
        light[code] = pq_eotf(code);
    return light;
}

/// 8-bit codes of linear light under an exponent of 0.45, by the light at which each code may begin and must begin.
struct DisplayEncoding {
    std::array<double, 256> may_begin, must_begin;

    DisplayEncoding() : may_begin{}, must_begin{} {
        constexpr double kExponent = 0.45;
        for (int code = 1; code < 256; ++code) {
            const double light = std::pow(code / 255.0, 1 / kExponent);
            const double error = (powr_error(light, kExponent) + 2 * kHalfUlp) / kExponent;
            may_begin[code] = light * (1 - error);
            must_begin[code] = light * (1 + error);
        }
    }
    static int code(const std::array<double, 256>& begin, double light) {
        return static_cast<int>(std::upper_bound(begin.begin(), begin.end(), light) - begin.begin()) - 1;
    }
    Span codes(Interval light) const { return {code(must_begin, light.low), code(may_begin, light.high)}; }
};

using Rgb3 = std::array<Interval, 3>;
using Matrix = std::array<std::array<double, 3>, 3>;

Rgb3 to_gamut(const Matrix& matrix, const Rgb3& rgb) {
    Rgb3 mapped = {};
    for (int i = 0; i < 3; ++i)
        mapped[i] = weighted(matrix[i], rgb).clamped(0, 1);
    return mapped;
}

/// The gains that a lookup variable may get. The weights are reversed, so the gain jumps at every entry: right below
/// entry k + 1 it is nearly gain k, at it gain k + 2.
Interval gains_between(const ToneMap& map, Interval variable) {
    Interval gains = {1e30, 0};
    const auto add = [&](int k, double w) {
        const Interval& here = map.gains[k];
        const Interval& next = map.gains[std::min(k + 1, 255)];
        gains.low = std::min(gains.low, w * here.low + (1 - w) * next.low);
        gains.high = std::max(gains.high, w * here.high + (1 - w) * next.high);
    };
    const double rounding = variable.low < variable.high ? kHalfUlp : 0; // a knee is one number and stays it
    const double low = std::min(variable.low * (1 - rounding) * 254, 254.0);
    const double high = std::min(variable.high * (1 + rounding) * 254, 254.0);
    const int first = static_cast<int>(low);
    const int last = static_cast<int>(high);
    add(first, low - first);
    for (int k = first; k < last; ++k) {
        add(k, 1);
        add(k + 1, 0);
    }
    add(last, high - last);
    return {gains.low * (1 - 4 * kHalfUlp), gains.high * (1 + 4 * kHalfUlp)};
}

} // namespace

// For U, 512 + 896 * ((code / 4 - 128) / 224 * luma / 1024 * 4.5) is 512 + (code - 512) * luma * 9 / 2048, for V the 9
// is a 16. Single precision is off by less than 1/2048, which matters only where the exact result is a whole number.
Span static_chroma(int code, int mapped_luma, bool cr) {
    constexpr int kCentre = 512;
    constexpr int kHalfRange = 448;
    const int scaled = (code - kCentre) * mapped_luma * (cr ? 16 : 9);
    if (scaled == 0) return Span::exactly(kCentre);
    const int from_zero = kCentre * 2048 + std::clamp(scaled, -kHalfRange * 2048, kHalfRange * 2048);
    const int whole = from_zero / 2048;
    const bool may_fall_short = from_zero % 2048 == 0 && std::abs(scaled) <= kHalfRange * 2048;
    return Span{may_fall_short ? whole - 1 : whole, whole}.clamped(kCentre - kHalfRange, kCentre + kHalfRange);
}

Rgb rgb_of(int luma, int cb, int cr, int black) {
    const double y = luma - black;
    const double u = cb - 512;
    const double v = cr - 512;
    // Whole numbers alone do not round.
    const double error = u == 0 && v == 0 ? 0 : kHalfUlp * (std::abs(y) + 2 * std::abs(u) + 2 * std::abs(v));
    const auto code = [&](double channel) {
        return Span::truncated(Interval::exactly(channel * 0.25).widened(error)).clamped(0, 255);
    };
    return {code(y + 1.47460 * v), code(y - 0.16455 * u - 0.57135 * v), code(y + 1.88140 * u)};
}

ToneMap tone_map_of(const Curve& curve) {
    constexpr double kCurveError = 2e-6;
    constexpr double kGainError = 1e-5;
    ToneMap map = {};
    map.normalize_x = Interval::about(curve.normalize_x, kCurveError);
    map.knee_x = Interval::about(curve.knee_x, kCurveError);
    for (int i = 1; i < 255; ++i)
        map.gains[i] = Interval::about(gain_at(curve, i / 254.0), kGainError);
    map.gains[0] = map.gains[1];
    map.gains[255] = map.gains[254];
    return map;
}

Rgb tone_mapped(const Rgb& pq, const ToneMap& map) {
    static const std::array<Interval, 256> light_of_code = all_light();
    static const DisplayEncoding display;
    constexpr Matrix kBt2020ToP3 = {{{1.34357822000, -0.2821796830, -0.0613986254},
                                     {-0.06529748440, 1.0757881400, -0.0104904491},
                                     {0.00282178819, -0.0195985250, 1.0167768000}}};
    constexpr Matrix kP3ToBt709 = {{{1.2249401800, -0.2249401810, 0},
                                    {-0.0420569777, 1.0420568000, -7.45058060e-09},
                                    {-0.0196375493, -0.0786359608, 1.098273400}}};

    Rgb3 light = {};
    for (int i = 0; i < 3; ++i) {
        const double low = light_of_code[pq[i].low].low * map.normalize_x.low * (1 - kHalfUlp);
        const double high = light_of_code[pq[i].high].high * map.normalize_x.high * (1 + kHalfUlp);
        light[i] = Interval{low, high}.clamped(0, 1);
    }
    Rgb3 p3 = to_gamut(kBt2020ToP3, light);
    const Interval peak = {std::max({map.knee_x.low, p3[0].low, p3[1].low, p3[2].low}),
                           std::max({map.knee_x.high, p3[0].high, p3[1].high, p3[2].high})};
    const Interval gain = gains_between(map, peak);
    for (Interval& channel : p3)
        channel = {channel.low * gain.low * (1 - kHalfUlp), channel.high * gain.high * (1 + kHalfUlp)};
    const Rgb3 bt709 = to_gamut(kP3ToBt709, p3);
    return {display.codes(bt709[0]), display.codes(bt709[1]), display.codes(bt709[2])};
}

Span yuv_of(const YuvKernel& kernel, Component component, const Rgb& rgb, bool odd_row) {
    // Weights of 8 bits have five digits in rows of even number and four in the others.
    constexpr std::array<double, 3> kWeights[2][3] = {
        {{0.2126, 0.7152, 0.0722}, {-0.11457, -0.38543, 0.5}, {0.5, -0.45415, -0.04585}},
        {{0.2126, 0.7152, 0.0722}, {-0.1146, -0.3854, 0.5}, {0.5, -0.4542, -0.0458}}};
    const auto& weights = kWeights[kernel.bits == 10 || odd_row ? 1 : 0][component];
    const Interval sum = weighted(weights, rgb);
    const int scale = kernel.bits == 10 ? 4 : 1;
    const int offset = component == kLuma ? kernel.luma_offset[odd_row ? 1 : 0] : (kernel.top() + 1) / 2;
    const Span code = Span::truncated({scale * sum.low, scale * sum.high});
    return (code + Span::exactly(offset)).clamped(0, kernel.top());
}

} // namespace lumivert::reference
