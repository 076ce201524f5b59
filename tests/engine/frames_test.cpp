/// Frames through the entry points, every sample against an independent computation: static tables for both masters,
/// the HDR10+ path for every output format.
#include "engine_test.h"
#include "hdr10plus/curve_oracle.h"
#include "kernels/lookup_tables.h"
#include "kernels/oracle.h"

namespace lumivert {
namespace {

using test::Curve;
using test::P010;

/// Puts a picture's samples into a frame. The frames live as long as their instance: the retained paths know a buffer
/// by its descriptor alone.
void fill(Frame& frame, const P010& picture) {
    std::copy(picture.y.begin(), picture.y.end(), frame.luma.words());
    std::copy(picture.uv.begin(), picture.uv.end(), frame.chroma.words());
}

class Frames : public EngineTest, public testing::WithParamInterface<std::pair<int, int>> {
protected:
    const int width = GetParam().first;
    const int height = GetParam().second;
    const uint32_t w = static_cast<uint32_t>(width);
    const uint32_t h = static_cast<uint32_t>(height);
    Frame frame{P010_LINEAR, w, h};
};

using StaticFrames = Frames;
using Hdr10PlusFrames = Frames;

// The small ones go through a second OpenCL implementation as well, see tests/oclgrind.
INSTANTIATE_TEST_SUITE_P(Small, StaticFrames, testing::Values(std::pair{2, 2}, std::pair{10, 5}, std::pair{130, 34}));
INSTANTIATE_TEST_SUITE_P(Large, StaticFrames, testing::Values(std::pair{1920, 1080}, std::pair{3840, 2160}));
INSTANTIATE_TEST_SUITE_P(Small, Hdr10PlusFrames, testing::Values(std::pair{4, 2}, std::pair{132, 38}));
INSTANTIATE_TEST_SUITE_P(Large, Hdr10PlusFrames, testing::Values(std::pair{640, 360}));

TEST_P(StaticFrames, AgreeWithTheOracle) {
    Frame out(P010_LINEAR, w, h);
    const Instance pool(w, h, HI_JACK, true);
    const Instance retained(w, h, HI_JACK, false);
    for (const test::Picture& picture : test::pictures(1023, true)) {
        if (width > 130 && std::string(picture.name) != "random") continue; // it holds all the others
        const P010 in(width, height, picture);
        for (const uint32_t nits : {1000U, 4000U}) {
            const std::vector<int> table = nits == 1000 ? test::table_1000() : test::table_4000();
            fill(frame, in);
            ASSERT_EQ(pool.convert1(frame, out, nullptr, nits * 10000), 1);
            EXPECT_TRUE(std::equal(in.y.begin(), in.y.end(), frame.luma.words())) << "input changed";
            test::expect_static(table, in.y.data(), in.uv.data(), width, height, out.luma.words(), out.chroma.words(),
                                in.name + ", pool");
            ASSERT_EQ(retained.convert(frame, out, nullptr, nits), 1); // in place
            test::expect_static(table, in.y.data(), in.uv.data(), width, height, frame.luma.words(),
                                frame.chroma.words(), in.name + ", retained");
        }
    }
}

/// The gain table of a record for the 250 cd/m2 display of both paths.
Curve oracle_curve(const HDR10PLUS_DYNAMIC_INFO& info) {
    const oracle::Curve curve = oracle::curve(info, 250);
    Curve table{std::vector<float>(256), static_cast<float>(curve.normalize_x), static_cast<float>(curve.kx)};
    for (int i = 1; i < 255; ++i)
        table.gains[static_cast<std::size_t>(i)] = static_cast<float>(oracle::gain(curve, i / 254.0));
    table.gains[0] = table.gains[1];
    table.gains[255] = table.gains[254];
    return table;
}

/// Records that take every road: the metadata's own curve, one for another display, none at all, a dim scene.
std::vector<HDR10PLUS_DYNAMIC_INFO> records() {
    std::vector<HDR10PLUS_DYNAMIC_INFO> all(4, default_record());
    all[1].display_max_luminance = 400;
    all[2].tone_mapping_flag = 0;
    all[3].tone_mapping_flag = 0;
    for (uint32_t& value : all[3].maxscl)
        value = 1800; // 180 cd/m2, below the display's peak
    all[3].maxrgb_percentiles[8] = 1700;
    return all;
}

TEST_P(Hdr10PlusFrames, AgreeWithTheOracle) {
    Frame nv12(NV12, w, h);
    Frame p010(P010_LINEAR, w, h);
    Frame rgba_out(RGBA, w, h);
    const Instance instance(w, h, NORMAL);
    const auto* intermediate = static_cast<const uint8_t*>(engine_of(instance).mWorkHost0);
    const auto* own_rgba = static_cast<const uint8_t*>(engine_of(instance).mWorkHost1);
    const std::size_t bytes = std::size_t{w} * h * 4;
    // Of the retained and the pooled frames of each format, RGBA last: it takes the work buffer's place.
    const auto convert = [&](Frame& out, bool pool, const P010& in, HDR10PLUS_DYNAMIC_INFO& info) {
        fill(frame, in);
        ASSERT_EQ(pool ? instance.convert1(frame, out, &info) : instance.convert(frame, out, &info), 1);
        const std::string what = in.name + (pool ? ", pool" : ", retained");
        const std::vector<uint8_t> converted(intermediate, intermediate + bytes);
        test::expect_rgba_of(in, converted, 64, 0);
        const uint8_t* rgba = out.format == RGBA ? out.luma.bytes() : own_rgba;
        test::expect_tone_mapped(intermediate, rgba, bytes, width, oracle_curve(info), what);
        if (out.format == NV12) {
            test::expect_yuv_of<uint8_t>(test::kNv12, rgba, width, height, out.luma.bytes(), out.chroma.bytes(), 0,
                                         what);
        } else if (out.format == P010_LINEAR) {
            test::expect_yuv_of<uint16_t>(test::kP010, rgba, width, height, out.luma.words(), out.chroma.words(), 0,
                                          what);
        }
    };
    for (Frame* const out : {&nv12, &p010, &rgba_out}) {
        for (const test::Picture& picture : test::pictures(1023, true)) {
            const P010 in(width, height, picture);
            for (HDR10PLUS_DYNAMIC_INFO& info : records()) {
                if (width == 640 && info.tone_mapping_flag == 0) continue;
                convert(*out, true, in, info);
                if (out != &p010) convert(*out, false, in, info); // which the retained path leaves unwritten
            }
        }
    }
}

} // namespace
} // namespace lumivert
