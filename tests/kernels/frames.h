/// RGBA test pictures.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <random>
#include <vector>

namespace lumivert::test {

/// A picture: from a position to the bytes of R, G and B.
struct Picture {
    const char* name;
    std::function<std::array<int, 3>(int x, int y, std::mt19937& random)> at;
};

inline std::vector<Picture> pictures() {
    using Rgb = std::array<int, 3>;
    return {
        {"random",
         [](int, int, auto& random) {
             const auto any = [&] { return static_cast<int>(random() % 256); };
             return Rgb{any(), any(), any()};
         }},
        {"grey ramp",
         [](int x, int y, auto&) {
             const int code = (x + 61 * y) % 256;
             return Rgb{code, code, code};
         }},
        {"saturated",
         [](int x, int y, auto&) {
             const int corner = x / 2 + y / 2;
             return Rgb{corner & 1 ? 255 : 0, corner & 2 ? 255 : 0, corner & 4 ? 255 : 0};
         }},
    };
}

/// A picture's bytes, with noise for alpha.
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

} // namespace lumivert::test
