#include "kernels/device.h"
#include "kernels/oracle.h"

// RGBA to YUV and P010 to RGBA against a computation per sample in double precision.

namespace lumivert::test {
namespace {

constexpr std::pair<int, int> kSizes[] = {{4, 2}, {6, 4}, {12, 5}, {64, 32}, {202, 66}};

std::array<size_t, 2> blocks(int width, int height) {
    return {size_t(width) / 4, size_t(height) / 2};
}

template <typename Sample>
void check_yuv(Device& device, const YuvKernel& kernel) {
    constexpr Sample kUntouched = 0x55;
    for (const Picture& picture : pictures(255, false)) {
        for (const auto& [width, height] : kSizes) {
            Plane<uint8_t> rgba(rgba_of(picture, width, height));
            Plane<Sample> y(width * height, kUntouched), uv(width * (height / 2), kUntouched);
            device.run(kernel.name, blocks(width, height), rgba, y, uv, cl_int(width));
            expect_yuv_of(kernel, rgba.begin(), width, height, y.begin(), uv.begin(), kUntouched, picture.name);
        }
    }
}

TEST(RgbaToYuv, AgreesWithTheOracle) {
    Device device;
    check_yuv<uint16_t>(device, kP010);
    check_yuv<uint8_t>(device, kNv12);
    check_yuv<uint8_t>(device, kNv21);
}

TEST(P010ToRgba, AgreesWithTheOracle) {
    Device device;
    for (const Picture& picture : pictures(1023, true)) {
        for (const auto& [width, height] : kSizes) {
            const P010 frame(width, height, picture);
            Plane<uint16_t> y(frame.y), uv(frame.uv);
            Plane<uint8_t> rgba(size_t(4) * width * height, 0x55);
            device.run("p010_to_rgba8888", blocks(width, height), y, uv, rgba, cl_int(width));
            expect_rgba_of(frame, rgba.copy(), 0, 0x55);
        }
    }
}

} // namespace
} // namespace lumivert::test
