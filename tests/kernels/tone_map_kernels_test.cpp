#include "kernels/oracle.h"

#include <limits>

// The HDR10+ tone map, alone and fused with the conversion from P010, against a computation per pixel in double
// precision.

namespace lumivert::test {
namespace {

/// A plausible curve, and gains that jump so that every mix-up of entries or weights shows.
std::vector<Curve> curves() {
    std::vector<float> smooth(256), jagged(256);
    std::mt19937 random(7);
    for (int i = 0; i < 256; ++i) {
        smooth[i] = 1.0f / (0.3f + 0.7f * i / 254);
        jagged[i] = 0.3f + 0.7f * (random() % 1000) / 1000;
    }
    return {{smooth, 10, 0.05f}, {jagged, 1, 0}, {jagged, 10, 0.3f}, {jagged, 10, 76 / 254.0f}, {jagged, 40, 1}};
}

TEST(ToneMap, AgreesWithTheOracle) {
    Device device;
    for (const Curve& curve : curves()) {
        Plane<float> gains(256, curve.gains);
        for (const Picture& picture : pictures(255, false)) {
            const int width = 86, height = 66;
            std::mt19937 random(5);
            Plane<uint8_t> in(size_t(4) * width * height), out(in.size());
            for (size_t i = 0; i < in.size(); i += 4) {
                const int pixel = static_cast<int>(i / 4);
                const Code3 code = picture.at(pixel % width, pixel / width, random);
                for (int c = 0; c < 3; ++c)
                    in[i + c] = static_cast<uint8_t>(code[c]);
            }
            device.run("process_10plus_clut", {width, height}, in, out, curve.normalize_x, curve.knee_x, gains,
                       cl_int(width));
            expect_tone_mapped(in.begin(), out.begin(), out.size(), width, curve, picture.name);
        }
    }
}

// The pixel's block is converted into in_rgba, black to 0, and the result is the tone map of what is there.
TEST(FusedToneMap, AgreesWithTheOracle) {
    Device device;
    const Curve curve = curves()[2];
    Plane<float> gains(256, curve.gains);
    for (const Picture& picture : pictures(1023, true)) {
        for (const auto& [width, height] : {std::pair{4, 2}, {8, 4}, {132, 38}}) {
            const P010 frame(width, height, picture);
            Plane<uint16_t> y(frame.y.size(), frame.y), uv(frame.uv.size(), frame.uv);
            Plane<uint8_t> in(size_t(4) * width * height), out(in.size());
            device.run("p010_to_rgba8888_process_10plus_clut", {size_t(width), size_t(height)}, y, uv, in,
                       cl_int(width), cl_int(0) /* the height is not used */, out, curve.normalize_x, curve.knee_x,
                       gains);
            expect_rgba_of(frame, in, 64, 0);
            expect_tone_mapped(in.begin(), out.begin(), out.size(), width, curve, frame.name);
        }
    }
}

TEST(FusedToneMap, OneWorkItemConvertsItsWholeBlock) {
    Device device;
    const P010 frame(4, 2, pictures(1023, true)[0]);
    Plane<uint16_t> y(8, frame.y), uv(4, frame.uv);
    Plane<uint8_t> in(32), out(32, 0x55);
    Plane<float> gains(256, 1.0f);
    device.run("p010_to_rgba8888_process_10plus_clut", {1, 1}, y, uv, in, cl_int(4), cl_int(2), out, 1.0f, 0.0f, gains);
    expect_rgba_of(frame, in, 64, 0);
    EXPECT_THAT(std::vector<uint8_t>(out.begin() + 4, out.end()), ::testing::Each(0x55));
}

/// The tone map of a dim grey whose lookup variable is the knee, with these gains.
std::array<uint8_t, 4> at_knee(Device& device, float knee_x, const std::vector<float>& gains) {
    Plane<uint8_t> in(4, {90, 90, 90, 0}), out(4);
    Plane<float> table(256, gains);
    device.run("process_10plus_clut", {1, 1}, in, out, 100.0f, knee_x, table, cl_int(1));
    return {out[0], out[1], out[2], out[3]};
}

// A gain is taken from one entry alone where the knee lies on an entry, and that is the next one.
TEST(ToneMap, WholeEntriesTakeTheUpperGain) {
    Device device;
    for (const auto& [knee, entry] : {std::pair{0.5f, 128}, {1.0f, 255}}) {
        std::vector<float> gains(256, 0.2f), flat(256, 0.8f);
        gains[entry] = 0.8f;
        EXPECT_EQ(at_knee(device, knee, gains), at_knee(device, knee, flat)) << knee;
        EXPECT_NE(at_knee(device, knee, gains), at_knee(device, knee, std::vector<float>(256, 0.2f))) << knee;
    }
}

// Metadata out of its range gives knees above 1: the last gain then, and never one from beyond the table.
TEST(ToneMap, KneesOutOfRangeStayInsideTheTable) {
    Device device;
    const std::vector<float> gains(256, 0.8f);
    const auto last = at_knee(device, 1.0f, gains);
    for (const float knee : {1.0001f, 1.5f, 16.0f})
        EXPECT_EQ(at_knee(device, knee, gains), last) << knee;
    for (const float knee :
         {1e30f, -1e30f, std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()}) {
        EXPECT_EQ(at_knee(device, knee, gains)[3], 255) << knee;
    }
}

} // namespace
} // namespace lumivert::test
