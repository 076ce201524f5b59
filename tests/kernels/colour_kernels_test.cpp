#include "kernels/oracle.h"

// RGBA to YUV and P010 to RGBA against a computation per sample in double precision. Wherever the real number is not
// within a thousandth of a code of the next integer, the kernels must hit the one right code.

namespace lumivert::test {
namespace {

const std::pair<int, int> kSizes[] = {{4, 2}, {6, 4}, {12, 5}, {64, 32}, {202, 66}};

template <class Sample>
void check_yuv(Device& device, const YuvKernel& kernel, int width, int height, const Picture& picture) {
    constexpr Sample kUntouched = 0x55;
    std::mt19937 random(width + height);
    Plane<uint8_t> rgba(size_t(4) * width * height);
    for (int i = 0; i < width * height; ++i) {
        const Code3 code = picture.at(i % width, i / width, random);
        for (int c = 0; c < 3; ++c)
            rgba[4 * i + c] = static_cast<uint8_t>(code[c]);
        rgba[4 * i + 3] = static_cast<uint8_t>(random());
    }
    Plane<Sample> y(width * height, kUntouched), uv(width * (height / 2), kUntouched);
    device.run(kernel.name, {size_t(width) / 4, size_t(height) / 2}, rgba, y, uv, cl_int(width));

    expect_yuv_of(kernel, rgba.begin(), width, height, y.begin(), uv.begin(), kUntouched,
                  picture.name + (", " + std::to_string(width)) + "x" + std::to_string(height));
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
            Plane<uint8_t> rgba(size_t(4) * width * height, 0x55);
            device.run("p010_to_rgba8888", {size_t(width) / 4, size_t(height) / 2}, y, uv, rgba, cl_int(width));
            expect_rgba_of(frame, rgba, 0, 0x55);
        }
    }
}

} // namespace
} // namespace lumivert::test
