/// Frames through the entry points, every sample against the reference: static tables for both masters,
/// the HDR10+ path for every output format.
#include "engine_test.h"
#include "support/agreement.h"

namespace lumivert {
namespace {

using reference::P010;
using test::agrees;

/// Puts samples into a frame. The frames live as long as their instance: the retained paths know a buffer by its
/// descriptor alone.
void fill(Frame& frame, const P010& samples) {
    std::copy(samples.luma.begin(), samples.luma.end(), frame.luma.words());
    std::copy(samples.chroma.begin(), samples.chroma.end(), frame.chroma.words());
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

TEST_P(StaticFrames, AgreeWithTheReference) {
    Frame out(P010_LINEAR, w, h);
    const Instance pool(w, h, HI_JACK, true);
    const Instance retained(w, h, HI_JACK, false);
    const P010 in = reference::test_frame(width, height, 1);
    const P010 zeros(width, height);
    for (const uint32_t nits : {1000U, 4000U}) {
        SCOPED_TRACE(nits);
        const reference::StaticTable& table = reference::table_for(nits);
        fill(frame, in);
        ASSERT_EQ(pool.convert1(frame, out, nullptr, nits * 10000), 1);
        EXPECT_TRUE(std::equal(in.luma.begin(), in.luma.end(), frame.luma.words())) << "input changed";
        EXPECT_TRUE(agrees(reference::compare_static(table, in, zeros, out.luma.words(), out.chroma.words())));
        ASSERT_EQ(retained.convert(frame, out, nullptr, nits), 1); // in place
        EXPECT_TRUE(agrees(reference::compare_static(table, in, in, frame.luma.words(), frame.chroma.words())));
    }
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

TEST_P(Hdr10PlusFrames, AgreeWithTheReference) {
    Frame nv12(NV12, w, h);
    Frame p010(P010_LINEAR, w, h);
    Frame rgba_out(RGBA, w, h);
    const Instance instance(w, h, NORMAL);
    auto* const intermediate = static_cast<uint8_t*>(engine_of(instance).mWorkHost0);
    auto* const own_rgba = static_cast<uint8_t*>(engine_of(instance).mWorkHost1);
    // Of the retained and the pooled frames of each format, RGBA last: it takes the work buffer's place.
    const auto convert = [&](Frame& out, bool pool, const P010& in, HDR10PLUS_DYNAMIC_INFO& info) {
        SCOPED_TRACE(testing::Message() << "format " << out.format << (pool ? ", pool" : ", retained"));
        fill(frame, in);
        // Nothing of the frame before may pass for this one.
        out.luma.fill(0);
        out.chroma.fill(0);
        std::fill_n(intermediate, 4UL * w * h, 0);
        std::fill_n(own_rgba, 4UL * w * h, 0);
        ASSERT_EQ(pool ? instance.convert1(frame, out, &info) : instance.convert(frame, out, &info), 1);
        const reference::ToneMap map = reference::tone_map_of(reference::curve_for(info, 250));
        EXPECT_TRUE(agrees(reference::compare_unmapped(in, 64, intermediate, 0)));
        const uint8_t* rgba = out.format == RGBA ? out.luma.bytes() : own_rgba;
        EXPECT_TRUE(agrees(reference::compare_tone_mapped(intermediate, width, height, map, rgba)));
        if (out.format == NV12) {
            EXPECT_TRUE(agrees(reference::compare_yuv_of_rgba<uint8_t>(reference::kToNv12, rgba, width, height,
                                                                       out.luma.bytes(), out.chroma.bytes(), 0)));
        } else if (out.format == P010_LINEAR) {
            EXPECT_TRUE(agrees(reference::compare_yuv_of_rgba<uint16_t>(reference::kToP010, rgba, width, height,
                                                                        out.luma.words(), out.chroma.words(), 0)));
        }
    };
    for (Frame* const out : {&nv12, &p010, &rgba_out}) {
        for (HDR10PLUS_DYNAMIC_INFO& info : records()) {
            if (width == 640 && info.tone_mapping_flag == 0) continue;
            const P010 in = reference::test_frame(width, height, info.display_max_luminance);
            convert(*out, true, in, info);
            if (out != &p010) convert(*out, false, in, info); // which the retained path leaves unwritten
        }
    }
}

} // namespace
} // namespace lumivert
