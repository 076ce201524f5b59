#include <limits>

#include "kernels/device.h"
#include "kernels/frames.h"
#include "support/agreement.h"

// The HDR10+ tone map against the reference. Fused with the conversion from P010 it is part of the engine's frames;
// here it is held against the form in which it is described.

namespace lumivert::test {
namespace {

struct Curve {
    std::vector<float> gains;
    float normalize_x, knee_x;
};

/// These very numbers, as the kernel gets them.
reference::ToneMap exactly(const Curve& curve) {
    using reference::Interval;
    reference::ToneMap map = {{}, Interval::exactly(curve.normalize_x), Interval::exactly(curve.knee_x)};
    std::transform(curve.gains.begin(), curve.gains.end(), map.gains.begin(), Interval::exactly);
    return map;
}

/// A plausible curve, and gains that jump so that every mix-up of entries or weights shows. Knees of 0.5 and 1 lie on
/// an entry, which takes the next one's gain.
std::vector<Curve> curves() {
    std::vector<float> smooth(256), jagged(256);
    std::mt19937 random(7);
    for (int i = 0; i < 256; ++i) {
        smooth[i] = 1.0F / (0.3F + 0.7F * i / 254);
        jagged[i] = 0.3F + 0.7F * (random() % 1000) / 1000;
    }
    return {{smooth, 10, 0.05F}, {jagged, 1, 0}, {jagged, 10, 0.3F}, {jagged, 10, 0.5F}, {jagged, 40, 1}};
}

TEST(ToneMap, AgreesWithTheReference) {
    Device device;
    const int width = 86, height = 66;
    for (const Curve& curve : curves()) {
        for (const Picture& picture : pictures()) {
            Plane<uint8_t> in(rgba_of(picture, width, height)), out(in.size());
            Plane<float> gains(curve.gains);
            device.run("process_10plus_clut", {width, height}, in, out, curve.normalize_x, curve.knee_x, gains,
                       cl_int(width));
            EXPECT_TRUE(agrees(reference::compare_tone_mapped(in.begin(), width, height, exactly(curve), out.begin())))
                << picture.name;
        }
    }
}

// Metadata out of its range gives knees above 1: the last gain then, and never one from beyond the table.
TEST(ToneMap, KneesOutOfRangeStayInsideTheTable) {
    Device device;
    const auto grey = [&](float knee_x) {
        Plane<uint8_t> in(4, 90), out(4);
        Plane<float> gains(256, 0.8F);
        device.run("process_10plus_clut", {1, 1}, in, out, 100.0F, knee_x, gains, cl_int(1));
        return out.copy();
    };
    for (const float knee_x : {1.0001F, 1.5F, 16.0F})
        EXPECT_EQ(grey(knee_x), grey(1)) << knee_x;
    const float infinity = std::numeric_limits<float>::infinity();
    for (const float knee_x : {1e30F, -1e30F, infinity, std::numeric_limits<float>::quiet_NaN()})
        EXPECT_EQ(grey(knee_x)[3], 255) << knee_x;
}

/// The fused kernel as it is described: each of a block's eight work-items converts and writes all eight pixels, then
/// reads its own one back. Pixels outside the picture, where a block is only partly inside, are not written.
constexpr char kWholeBlocks[] = R"CL(
    __kernel void whole_blocks(__global ushort* p_y, __global ushort* p_uv, __global uchar* in_rgba, int width,
                               int height, __global uchar* out_rgba, const float normalize_x, const float knee_x,
                               __global float* dtm_lut)
    {
        const int x = get_global_id(0), y = get_global_id(1);
        __global uint* const pixels = (__global uint*)in_rgba;
        for (int row = y / 2 * 2; row < min(y / 2 * 2 + 2, height); ++row)
            for (int column = x / 4 * 4; column < min(x / 4 * 4 + 4, width); ++column) {
                const __global ushort* const pair = p_uv + row / 2 * width + column / 2 * 2;
                const uint word = p_y[row * width + column];
                pixels[row * width + column] = p010_to_pixel(word, pair[0] | (uint)pair[1] << 16, 64);
            }
        ((__global uint*)out_rgba)[y * width + x] = tone_map(pixels[y * width + x], normalize_x, knee_x, dtm_lut);
    })CL";

TEST(FusedToneMap, WritesWhatWholeBlocksDo) {
    Device device("-cl-fast-relaxed-math", kWholeBlocks);
    const Curve curve = curves()[0];
    for (const unsigned seed : {1U, 2U, 3U, 4U}) {
        for (const auto& [width, height] : {std::pair{4, 2}, {1, 1}, {3, 5}, {6, 4}, {13, 7}, {64, 32}, {203, 67}}) {
            const reference::P010 frame = reference::test_frame(width, height, seed);
            Plane<uint16_t> y(frame.luma), uv(frame.chroma);
            Plane<float> gains(curve.gains);
            const auto convert = [&](const char* kernel) {
                const size_t bytes = size_t(4) * width * height;
                std::array<Plane<uint8_t>, 2> rgba = {Plane<uint8_t>(bytes, 0x55), Plane<uint8_t>(bytes, 0x55)};
                device.run(kernel, {size_t(width), size_t(height)}, y, uv, rgba[0], cl_int(width), cl_int(height),
                           rgba[1], curve.normalize_x, curve.knee_x, gains);
                return std::array{rgba[0].copy(), rgba[1].copy()};
            };
            EXPECT_EQ(convert("p010_to_rgba8888_process_10plus_clut"), convert("whole_blocks"))
                << width << "x" << height << ", seed " << seed;
        }
    }
}

} // namespace
} // namespace lumivert::test
