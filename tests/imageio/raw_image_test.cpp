#include "imageio/write_plane.h"
#include "lumivert/raw_image.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <sstream>
#include <string>
#include <unistd.h>

using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::ExitedWithCode;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes counting(size_t size) {
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), uint8_t{1});
    return bytes;
}

class RawImage : public testing::Test {
protected:
    RawImage() : path_(testing::TempDir() + "raw_image_" + std::to_string(getpid())) {}
    ~RawImage() override { std::filesystem::remove(path_); }

    void file(const Bytes& bytes) const {
        std::ofstream(path_, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
    Bytes file() const {
        std::ifstream in(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    const std::string path_;
};

TEST_F(RawImage, Nv12IsTightlyPackedAndReadsWholePairs) {
    file(counting(40));
    const nv12_image_t image = load_nv12_image_data(path_, 5, 3);
    EXPECT_EQ(image.width, 5);
    EXPECT_EQ(image.height, 3);
    EXPECT_EQ(image.y, counting(15));
    EXPECT_THAT(image.uv, ElementsAre(16, 17, 18, 19, 20, 21, 0));
}

TEST_F(RawImage, ShortFilesReadAsZero) {
    file(counting(5));
    const nv12_image_t fixed = load_nv12_image_data(path_);
    EXPECT_EQ(fixed.width, 3840);
    EXPECT_EQ(fixed.height, 2160);
    EXPECT_EQ(fixed.y.size(), 8294400);
    EXPECT_EQ(fixed.uv.size(), 4147200);
    EXPECT_EQ(std::accumulate(fixed.y.begin(), fixed.y.end(), 0), 1 + 2 + 3 + 4 + 5);
    EXPECT_THAT(load_rgba_image_data(path_, 2, 1).data, ElementsAre(1, 2, 3, 4, 5, 0, 0, 0));
    file({});
    EXPECT_THAT(load_p010_image_data(path_, 8, 2).uv, Each(0));
}

TEST_F(RawImage, P010KeepsTheDecodersPadding) {
    const struct {
        uint32_t width, height;
        size_t y, uv;
    } cases[] = {{1920, 1080, 4177920, 2088960}, {1000, 10, 32000, 16128}, {1, 1, 256, 256}, {9, 17, 1024, 512}};
    for (const auto& [width, height, y, uv] : cases) {
        const Bytes bytes = counting(y + uv);
        file(bytes);
        const p010_image_t image = load_p010_image_data(path_, width, height);
        EXPECT_EQ(image.width, width);
        EXPECT_EQ(image.height, height);
        EXPECT_TRUE(std::equal(image.y.begin(), image.y.end(), bytes.begin(), bytes.begin() + y));
        EXPECT_TRUE(std::equal(image.uv.begin(), image.uv.end(), bytes.begin() + y, bytes.end()));
        save_p010_image_data(path_, image);
        EXPECT_EQ(file(), bytes);
    }
}

TEST_F(RawImage, HalfAP010SampleStandsForBothBytes) {
    for (const size_t size : {7u, 256u + 7u}) { // in luma, in chroma
        file(counting(size));
        const p010_image_t image = load_p010_image_data(path_, 8, 8);
        const Bytes& plane = size < 256 ? image.y : image.uv;
        EXPECT_THAT(Bytes(plane.begin(), plane.begin() + 10), ElementsAre(1, 2, 3, 4, 5, 6, 7, 7, 0, 0));
    }
}

TEST_F(RawImage, RgbaIsSavedWithAHeaderThatTheLoaderTakesForPixels) {
    save_rgba_image_data(path_, {0x01020304, 2, counting(9)});
    const Bytes saved = file();
    EXPECT_THAT(saved, ElementsAre(4, 3, 2, 1, 2, 0, 0, 0, 0xD2, 0x10, 0, 0, 0xB5, 0x10, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8));
    EXPECT_THAT(load_rgba_image_data(path_, 1, 5).data, ElementsAreArray(saved.begin(), saved.begin() + 20));
}

TEST_F(RawImage, Nv12IsSavedInWholePairsOverAnOlderFile) {
    file(counting(100));
    save_nv12_image_data(path_, {{2, 2, {1, 2, 3}, {4, 5, 6}}});
    EXPECT_THAT(file(), ElementsAre(1, 2, 3, 4, 5));
    save_nv12_image_data(path_, {{2, 1, {1, 2}, {}}});
    EXPECT_THAT(file(), ElementsAre(1, 2));
}

TEST_F(RawImage, FilesThatDoNotOpenEndTheProcess) {
    const std::string nowhere = path_ + "/none";
    const auto for_reading = "^Can't open " + nowhere + " for reading\n$";
    const auto for_writing = "^Can't open " + nowhere + " for writing\\.\n$";
    EXPECT_EXIT(load_nv12_image_data(nowhere, 2, 2), ExitedWithCode(1), for_reading);
    EXPECT_EXIT(load_nv12_image_data(nowhere), ExitedWithCode(1), for_reading);
    EXPECT_EXIT(load_p010_image_data(nowhere, 2, 2), ExitedWithCode(1), for_reading);
    EXPECT_EXIT(load_rgba_image_data(nowhere, 2, 2), ExitedWithCode(1), for_reading);
    EXPECT_EXIT(save_nv12_image_data(nowhere, {}), ExitedWithCode(1), for_writing);
    EXPECT_EXIT(save_p010_image_data(nowhere, {}), ExitedWithCode(1), for_writing);
    EXPECT_EXIT(save_rgba_image_data(nowhere, {}), ExitedWithCode(1), for_writing);
}

TEST(WritePlane, WritesWholeGroups) {
    const struct {
        unsigned bytes_per_sample, samples_per_group;
        size_t plane, written;
    } cases[] = {{1, 1, 7, 7}, {1, 2, 7, 6}, {2, 1, 7, 6},          {2, 2, 7, 4}, {4, 1, 7, 4},
                 {4, 2, 7, 0}, {1, 8, 7, 0}, {3, 1, 2, 0},          {3, 0, 7, 0}, {1, 0, 7, 0},
                 {0, 1, 7, 0}, {1, 1, 0, 0}, {0x80000001u, 2, 7, 0}};
    for (const auto& [bytes_per_sample, samples_per_group, plane, written] : cases) {
        std::ostringstream out;
        lumivert::write_plane(out, bytes_per_sample, samples_per_group, counting(plane));
        EXPECT_EQ(out.str(), std::string("\1\2\3\4\5\6\7").substr(0, written));
    }
}

TEST(WritePlane, UnknownSampleWidthEndsTheProcess) {
    std::ostringstream out;
    EXPECT_EXIT(lumivert::write_plane(out, 3, 1, counting(3)), ExitedWithCode(1),
                "^Error, can't write 3 bytes at a time\\.\n$");
}

} // namespace
