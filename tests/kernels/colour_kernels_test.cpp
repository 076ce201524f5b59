#include "kernels/device.h"
#include "kernels/frames.h"
#include "support/agreement.h"

// RGBA to YUV and P010 to RGBA against the reference, sample by sample.

namespace lumivert::test {
namespace {

constexpr std::pair<int, int> kSizes[] = {{4, 2}, {6, 4}, {12, 5}, {64, 32}, {202, 66}};

std::array<size_t, 2> blocks(int width, int height) {
    return {size_t(width) / 4, size_t(height) / 2};
}

template <typename Sample>
void check_yuv(Device& device, const reference::YuvKernel& kernel) {
    constexpr Sample kUntouched = 0x55;
    for (const Picture& picture : pictures()) {
        for (const auto& [width, height] : kSizes) {
            SCOPED_TRACE(testing::Message() << kernel.name << ", " << picture.name << ", " << width << "x" << height);
            Plane<uint8_t> rgba(rgba_of(picture, width, height));
            Plane<Sample> y(reference::luma_samples(width, height), kUntouched);
            Plane<Sample> uv(reference::chroma_samples(width, height), kUntouched);
            device.run(kernel.name, blocks(width, height), rgba, y, uv, cl_int(width));
            EXPECT_TRUE(agrees(reference::compare_yuv_of_rgba(kernel, rgba.begin(), width, height, y.begin(),
                                                              uv.begin(), kUntouched)));
        }
    }
}

TEST(RgbaToYuv, AgreesWithTheReference) {
    Device device;
    check_yuv<uint16_t>(device, reference::kToP010);
    check_yuv<uint8_t>(device, reference::kToNv12);
    check_yuv<uint8_t>(device, reference::kToNv21);
}

TEST(P010ToRgba, AgreesWithTheReference) {
    Device device;
    for (const auto& [width, height] : kSizes) {
        for (const unsigned seed : {1U, 2U, 3U, 4U}) {
            SCOPED_TRACE(testing::Message() << width << "x" << height << ", seed " << seed);
            const reference::P010 frame = reference::test_frame(width, height, seed);
            Plane<uint16_t> y(frame.luma), uv(frame.chroma);
            Plane<uint8_t> rgba(size_t(4) * width * height, 0x55);
            device.run("p010_to_rgba8888", blocks(width, height), y, uv, rgba, cl_int(width));
            EXPECT_TRUE(agrees(reference::compare_unmapped(frame, 0, rgba.begin(), 0x55)));
        }
    }
}

} // namespace
} // namespace lumivert::test
