#include <limits>

#include "kernels/device.h"
#include "kernels/oracle.h"

// The HDR10+ tone map against a computation per pixel in double precision; fused with the conversion from P010 it is
// part of the engine's frames.

namespace lumivert::test {
namespace {

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

TEST(ToneMap, AgreesWithTheOracle) {
    Device device;
    const int width = 86, height = 66;
    for (const Curve& curve : curves()) {
        for (const Picture& picture : pictures(255, false)) {
            Plane<uint8_t> in(rgba_of(picture, width, height)), out(in.size());
            Plane<float> gains(curve.gains);
            device.run("process_10plus_clut", {width, height}, in, out, curve.normalize_x, curve.knee_x, gains,
                       cl_int(width));
            expect_tone_mapped(in.begin(), out.begin(), out.size(), width, curve, picture.name);
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

} // namespace
} // namespace lumivert::test
