/// Test pictures in the kernels' sample formats, and what to expect of them.
#pragma once

#include "kernels/device.h"

#include <functional>
#include <random>

namespace lumivert::test {

/// The results that rounding in the last place permits where a real number is cut to an integer: one, unless the
/// number is next to a step.
struct Span {
    int low, high;

    static Span truncated(double value, double uncertainty) {
        return {static_cast<int>(value - uncertainty), static_cast<int>(value + uncertainty)};
    }
    Span operator+(Span other) const { return {low + other.low, high + other.high}; }
    Span operator+(int offset) const { return {low + offset, high + offset}; }
    Span operator/(int divisor) const { return {low / divisor, high / divisor}; }
    Span clamped(int lowest, int highest) const {
        return {std::clamp(low, lowest, highest), std::clamp(high, lowest, highest)};
    }
};

/// Compares samples with spans and reports the first few that lie outside.
class Checker {
public:
    explicit Checker(std::string what) : what_(std::move(what)) {}
    ~Checker() { EXPECT_EQ(wrong_, 0) << what_ << ": of " << total_ << " samples"; }
    void expect(Span span, int got, const char* sample, int x, int y) {
        ++total_;
        if (got >= span.low && got <= span.high) return;
        if (++wrong_ <= 5) {
            ADD_FAILURE() << what_ << ": " << sample << " at (" << x << ", " << y << ") is " << got << ", not "
                          << span.low << ".." << span.high;
        }
    }

private:
    std::string what_;
    int wrong_ = 0, total_ = 0;
};

/// A picture: from a position to the codes of three components.
using Code3 = std::array<int, 3>;
struct Picture {
    const char* name;
    std::function<Code3(int x, int y, std::mt19937& random)> at;
};

/// Pictures whose components go from 0 to `top`; the second and third centre on (top + 1) / 2 when they are chroma.
inline std::vector<Picture> pictures(int top, bool chroma) {
    const int centre = chroma ? (top + 1) / 2 : -1;
    const auto grey = [centre](int code) { return centre < 0 ? Code3{code, code, code} : Code3{code, centre, centre}; };
    return {
        {"random",
         [top](int, int, auto& random) {
             const auto any = [&] { return static_cast<int>(random() % (top + 1)); };
             return Code3{any(), any(), any()};
         }},
        {"black", [grey](int, int, auto&) { return grey(0); }},
        {"white", [grey, top](int, int, auto&) { return grey(top); }},
        {"neutral ramp", [grey, top](int x, int y, auto&) { return grey((x + 61 * y) % (top + 1)); }},
        {"saturated",
         [top](int x, int y, auto&) {
             const int corner = x / 2 + y / 2;
             return Code3{corner & 1 ? top : 0, corner & 2 ? top : 0, corner & 4 ? top : 0};
         }},
    };
}

/// A P010 frame. Whatever the picture, the low six bits of every word are set at random. An odd last row has no chroma.
struct P010 {
    P010(int w, int h, const Picture& picture) : name(picture.name), width(w), height(h), y(w * h), uv(w * (h / 2)) {
        name += ", " + std::to_string(w) + "x" + std::to_string(h);
        std::mt19937 random(w * 131 + h);
        for (size_t i = 0; i < y.size(); ++i) {
            const int x = static_cast<int>(i) % w;
            const Code3 code = picture.at(x, static_cast<int>(i) / w, random);
            const auto word = [&](int c) { return static_cast<uint16_t>(code[c] << 6 | (random() & 63)); };
            y[i] = word(0);
            if (i < uv.size()) uv[i] = word(1 + x % 2);
        }
    }
    std::string name;
    int width, height;
    std::vector<uint16_t> y, uv;
};

/// Expects the RGBA of every whole 4x2 block of the frame, the luma code `black` giving 0, and `untouched` elsewhere.
template <class Bytes>
void expect_rgba_of(const P010& frame, Bytes& rgba, int black, int untouched) {
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

} // namespace lumivert::test
