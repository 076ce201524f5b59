#include "kernels/frames.h"

// RGBA to YUV and P010 to RGBA against a computation per sample in double precision. Wherever the real number is not
// within a thousandth of a code of the next integer, the kernels must hit the one right code.

namespace lumivert::test {
namespace {

constexpr double kUncertainty = 1e-3;
const std::pair<int, int> kSizes[] = {{4, 2}, {6, 4}, {12, 5}, {64, 32}, {202, 66}};

/// What a kernel does with the rows of even and of odd number.
struct YuvKernel {
    const char* name;
    int bits;
    int luma_offset[2];
    double ur[2], ug[2], vg[2], vb[2];
    bool cr_first;
};
const YuvKernel kP010 = {"rgba8888_to_p010", 10,   {64, 64}, {.1146, .1146}, {.3854, .3854}, {.4542, .4542},
                         {.0458, .0458},     false};
const YuvKernel kNv12 = {"rgba8888_to_nv12", 8,    {16, 16}, {.11457, .1146}, {.38543, .3854}, {.45415, .4542},
                         {.04585, .0458},    false};
const YuvKernel kNv21 = {"rgba8888_to_nv21", 8,   {0, 16}, {.11457, .1146}, {.38543, .3854}, {.45415, .4542},
                         {.04585, .0458},    true};

template <class Sample>
void check_yuv(Device& device, const YuvKernel& kernel, int width, int height, const Picture& picture) {
    const int scale = kernel.bits == 10 ? 4 : 1, top = (1 << kernel.bits) - 1, shift = kernel.bits == 10 ? 6 : 0;
    constexpr Sample kUntouched = 0x55;
    std::mt19937 random(width + height);
    Plane<uint8_t> rgba(4 * width * height);
    for (int i = 0; i < width * height; ++i) {
        const Code3 code = picture.at(i % width, i / width, random);
        for (int c = 0; c < 3; ++c)
            rgba[4 * i + c] = static_cast<uint8_t>(code[c]);
        rgba[4 * i + 3] = static_cast<uint8_t>(random());
    }
    Plane<Sample> y(width * height, kUntouched), uv(width * (height / 2), kUntouched);
    device.run(kernel.name, {size_t(width) / 4, size_t(height) / 2}, rgba, y, uv, cl_int(width));

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

    Checker checker(std::string(kernel.name) + ", " + picture.name + ", " + std::to_string(width) + "x" +
                    std::to_string(height));
    for (int row = 0; row < height; ++row) {
        for (int x = 0; x < width; ++x) {
            const int got_y = y[row * width + x];
            const bool converted = x < width / 4 * 4 && row < height / 2 * 2;
            if (!converted) {
                checker.expect({kUntouched, kUntouched}, got_y, "luma outside the blocks", x, row);
            } else {
                const Span span = luma(x, row);
                checker.expect({span.low << shift, span.high << shift}, got_y, "luma", x, row);
            }
            if (row >= height / 2) continue;
            const int got_uv = uv[row * width + x];
            if (x >= width / 4 * 4) {
                checker.expect({kUntouched, kUntouched}, got_uv, "chroma outside the blocks", x, row);
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

TEST(RgbaToYuv, AgreesWithTheOracle) {
    Device device;
    for (const Picture& picture : pictures(255, false)) {
        for (const auto& [width, height] : kSizes) {
            check_yuv<uint16_t>(device, kP010, width, height, picture);
            check_yuv<uint8_t>(device, kNv12, width, height, picture);
            check_yuv<uint8_t>(device, kNv21, width, height, picture);
        }
    }
}

TEST(P010ToRgba, AgreesWithTheOracle) {
    Device device;
    for (const Picture& picture : pictures(1023, true)) {
        for (const auto& [width, height] : kSizes) {
            const P010 frame(width, height, picture);
            Plane<uint16_t> y(frame.y.size(), frame.y), uv(frame.uv.size(), frame.uv);
            Plane<uint8_t> rgba(4 * width * height, 0x55);
            device.run("p010_to_rgba8888", {size_t(width) / 4, size_t(height) / 2}, y, uv, rgba, cl_int(width));
            expect_rgba_of(frame, rgba, 0, 0x55);
        }
    }
}

} // namespace
} // namespace lumivert::test
