/// Test pictures in the kernels' sample formats.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace lumivert::test {

/// A picture: from a position to the codes of three components.
using Code3 = std::array<int, 3>;
struct Picture {
    const char* name;
    std::function<Code3(int x, int y, std::mt19937& random)> at;
};

/// Pictures whose components go from 0 to `top`; the second and third centre on (top + 1) / 2 when they are chroma.
inline std::vector<Picture> pictures(int top, bool chroma) {
    return {
        {"random",
         [top](int, int, auto& random) {
             const auto any = [&] { return static_cast<int>(random() % (top + 1)); };
             return Code3{any(), any(), any()};
         }},
        {"neutral ramp",
         [top, chroma](int x, int y, auto&) {
             const int code = (x + 61 * y) % (top + 1), centre = (top + 1) / 2;
             return chroma ? Code3{code, centre, centre} : Code3{code, code, code};
         }},
        {"saturated",
         [top](int x, int y, auto&) {
             const int corner = x / 2 + y / 2;
             return Code3{corner & 1 ? top : 0, corner & 2 ? top : 0, corner & 4 ? top : 0};
         }},
    };
}

/// An RGBA frame with noise for alpha.
inline std::vector<uint8_t> rgba_of(const Picture& picture, int width, int height) {
    std::mt19937 random(width + height);
    std::vector<uint8_t> rgba;
    for (int i = 0; i < width * height; ++i) {
        for (const int code : picture.at(i % width, i / width, random))
            rgba.push_back(static_cast<uint8_t>(code));
        rgba.push_back(static_cast<uint8_t>(random()));
    }
    return rgba;
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

} // namespace lumivert::test
