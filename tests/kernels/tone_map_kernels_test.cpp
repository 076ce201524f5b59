#include <limits>

#include "kernels/device.h"
#include "kernels/frames.h"
#include "support/agreement.h"

// The HDR10+ tone map against the reference. Fused with the conversion from P010 it is part of the engine's frames;
// here it is compared with the form in which it is described.

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

/// The first half of the fused kernel as it is described: each of a block's eight work-items converts and writes all
/// eight pixels, except those outside the picture where a block is only partly inside.
constexpr char kWholeBlocks[] = R"CL(
    __kernel void whole_blocks(__global ushort* p_y, __global ushort* p_uv, __global uchar* in_rgba, int width,
                               int height)
    {
        const int left = get_global_id(0) / 4 * 4, top = get_global_id(1) / 2 * 2;
        for (int y = top; y < min(top + 2, height); ++y)
            for (int x = left; x < min(left + 4, width); ++x) {
                __global const ushort* const pair = p_uv + y / 2 * width + x / 2 * 2;
                ((__global uint*)in_rgba)[y * width + x] =
                    p010_to_pixel(p_y[y * width + x], pair[0] | (uint)pair[1] << 16, 64);
            }
    })CL";

TEST(FusedToneMap, LeavesWhatItsTwoHalvesLeave) {
    Device device("-cl-fast-relaxed-math", kWholeBlocks);
    const Curve curve = curves()[0];
    for (const unsigned seed : {1U, 2U, 3U, 4U}) {
        for (const auto& [w, h] : {std::pair{4, 2}, {1, 1}, {3, 5}, {6, 4}, {13, 7}, {64, 32}, {203, 67}}) {
            const reference::P010 frame = reference::test_frame(w, h, seed);
            SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h) + ", seed " + std::to_string(seed));
            const std::array<size_t, 2> size = {size_t(w), size_t(h)};
            Plane<uint16_t> y(frame.luma), uv(frame.chroma);
            Plane<float> gains(curve.gains);
            Plane<uint8_t> pq(size_t(4) * w * h), sdr(pq.size()), fused_pq(pq.size()), fused_sdr(pq.size());
            device.run("whole_blocks", size, y, uv, pq, cl_int(w), cl_int(h));
            device.run("process_10plus_clut", size, pq, sdr, curve.normalize_x, curve.knee_x, gains, cl_int(w));
            device.run("p010_to_rgba8888_process_10plus_clut", size, y, uv, fused_pq, cl_int(w), cl_int(h), fused_sdr,
                       curve.normalize_x, curve.knee_x, gains);
            EXPECT_EQ(fused_pq.copy(), pq.copy());
            EXPECT_EQ(fused_sdr.copy(), sdr.copy());
        }
    }
}

} // namespace
} // namespace lumivert::test
