#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <numeric>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <unistd.h>

#include "imageio/write_plane.h"
#include "lumivert/raw_image.h"

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
    ~RawImage() override { std::remove(path_.c_str()); }

    void file(const Bytes& bytes) const {
        std::ofstream(path_, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
    Bytes file() const {
        std::ifstream in(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    const std::string path_;
};

TEST_F(RawImage, Nv12IsTightlyPackedAndComesInWholePairs) {
    file(counting(40));
    const nv12_image_t image = load_nv12_image_data(path_, 5, 3);
    EXPECT_EQ(image.width, 5U);
    EXPECT_EQ(image.height, 3U);
    EXPECT_EQ(image.y, counting(15));
    EXPECT_THAT(image.uv, ElementsAre(16, 17, 18, 19, 20, 21, 0));
    save_nv12_image_data(path_, image); // over the longer file
    EXPECT_EQ(file(), counting(21));
    save_nv12_image_data(path_, {{2, 1, {1, 2}, {}}});
    EXPECT_THAT(file(), ElementsAre(1, 2));
}

TEST_F(RawImage, ShortFilesReadAsZero) {
    file(counting(5));
    const nv12_image_t fixed = load_nv12_image_data(path_);
    EXPECT_EQ(fixed.width, 3840U);
    EXPECT_EQ(fixed.height, 2160U);
    EXPECT_EQ(fixed.uv, Bytes(4147200));
    Bytes luma = counting(5);
    luma.resize(8294400);
    EXPECT_EQ(fixed.y, luma);
    EXPECT_THAT(load_rgba_image_data(path_, 2, 1).data, ElementsAre(1, 2, 3, 4, 5, 0, 0, 0));
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

TEST_F(RawImage, RgbaIsSavedWithAHeaderThatTheLoaderTakesForPixels) {
    save_rgba_image_data(path_, {0x01020304, 2, counting(9)});
    const Bytes saved = file();
    EXPECT_THAT(saved, ElementsAre(4, 3, 2, 1, 2, 0, 0, 0, 0xD2, 0x10, 0, 0, 0xB5, 0x10, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8));
    EXPECT_THAT(load_rgba_image_data(path_, 1, 5).data, ElementsAreArray(saved.begin(), saved.begin() + 20));
}

TEST_F(RawImage, FilesThatDoNotOpenEndTheProcess) {
    const std::string nowhere = path_ + "/none";
    EXPECT_EXIT(load_p010_image_data(nowhere, 2, 2), ExitedWithCode(1), "^Can't open " + nowhere + " for reading\n$");
    EXPECT_EXIT(save_rgba_image_data(nowhere, {}), ExitedWithCode(1), "^Can't open " + nowhere + " for writing\\.\n$");
}

TEST(WritePlane, WritesWholeGroupsOfSamplesItKnows) {
    const struct {
        unsigned bytes_per_sample, samples_per_group;
        size_t written; // of 7 bytes
    } cases[] = {{1, 2, 6}, {2, 1, 6}, {2, 2, 4}, {4, 1, 4}, {4, 2, 0}, {3, 3, 0}, {3, 0, 0}, {0x80000001U, 2, 0}};
    for (const auto& [bytes_per_sample, samples_per_group, written] : cases) {
        std::ostringstream out;
        lumivert::write_plane(out, bytes_per_sample, samples_per_group, counting(7));
        EXPECT_EQ(out.str(), std::string("\1\2\3\4\5\6\7").substr(0, written));
    }
    std::ostringstream out;
    EXPECT_EXIT(lumivert::write_plane(out, 3, 1, counting(3)), ExitedWithCode(1),
                "^Error, can't write 3 bytes at a time\\.\n$");
}

} // namespace
