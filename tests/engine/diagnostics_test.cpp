#include "util/diagnostics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/mman.h>

#include <cstring>
#include <regex>
#include <sstream>

#include "engine_test.h"

namespace lumivert {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(AsString, NamesEveryOpenCl12CodeAndNothingElse) {
    // The names come from the system's own header, so the table cannot be off by one.
    const std::string header = read_file("/usr/include/CL/cl.h");
    const std::regex define(R"(#define (CL_(?!BUILD_(?:NONE|ERROR|IN_PROGRESS))\w+) +(-(?:\d|[1-5]\d|6[0-8]))\n)");
    int named = 0;
    for (std::sregex_iterator code(header.begin(), header.end(), define), end; code != end; ++code, ++named)
        EXPECT_STREQ(asString(std::stoi((*code)[2])), (*code)[1].str().c_str());
    EXPECT_STREQ(asString(0), "CL_SUCCESS");
    EXPECT_EQ(named, 58);
    for (const int code : {1, 32, -20, -25, -29, -69, -70, -1000, -2147483647}) {
        EXPECT_STREQ(asString(code, "ignored"), "Unknown err") << code;
    }
}

TEST(Checked, EvaluatesAFailingCallTwiceAndNamesTheSecondCode) {
    LogCapture log;
    int calls = 0;
    const auto failing = [&] { return ++calls == 1 ? CL_INVALID_VALUE : CL_INVALID_KERNEL; };
    EXPECT_FALSE(checked("path", 191, failing));
    EXPECT_EQ(calls, 2);
    EXPECT_THAT(log.texts(), ElementsAre(failure_line("path", "CL_INVALID_KERNEL", 191)));

    calls = 0;
    EXPECT_TRUE(checked("path", 191, [&] { return ++calls, CL_SUCCESS; }));
    EXPECT_EQ(calls, 1);
}

class Filewrite : public EngineTest {
protected:
    void dump(int format, int width, int height, const Plane* plane0, const Plane* plane1) {
        const _MULTIPLANE_t a = plane0 == nullptr ? _MULTIPLANE_t{-1, 0, 64} : plane0->handle();
        const _MULTIPLANE_t b = plane1 == nullptr ? _MULTIPLANE_t{-1, 0, 64} : plane1->handle();
        engine.filewrite(static_cast<_Image_ColorFormat>(format), width, height, &a, &b,
                         std::make_unique<std::string>("dump.yuv"));
    }

    Formatter engine{4, 2, HI_JACK};
    Plane luma{64};
    Plane chroma{64};
};

TEST_F(Filewrite, AppendsAsManyBytesAsTheFormatHas) {
    for (int i = 0; i < 64; ++i)
        luma.bytes()[i] = static_cast<uint8_t>(i), chroma.bytes()[i] = static_cast<uint8_t>(100 + i);
    std::string expected;
    const auto append = [&](Plane& plane, int count) {
        expected.append(reinterpret_cast<char*>(plane.bytes()), count);
    };

    dump(P010_LINEAR, 4, 2, &luma, &chroma);
    append(luma, 16), append(chroma, 8);
    dump(NV12, 3, 3, &luma, &chroma);
    append(luma, 9), append(chroma, 4);
    dump(RGBA, 4, 2, &luma, nullptr);
    append(luma, 32);
    EXPECT_EQ(read_file(folder.media("dump.yuv")), expected);

    log.clear();
    for (const int unwritten : {0, 4, 5})
        dump(unwritten, 4, 2, &luma, &chroma);
    EXPECT_EQ(read_file(folder.media("dump.yuv")), expected);
    EXPECT_EQ(log.count("E This never happens"), 3);
    EXPECT_EQ(log.count("E filewrite entry !"), 3);
}

TEST_F(Filewrite, WritesRawMemoryByItsAddress) {
    auto* const wish = reinterpret_cast<void*>(0x10000000); // the record's address has 32 bits
    auto* low = static_cast<char*>(mmap(wish, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_EQ(reinterpret_cast<uintptr_t>(low) >> 16 >> 16, 0U);
    std::strcpy(low, "raw bytes");
    const auto address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(low));
    for (const int32_t size : {9, -1}) {
        const _MULTIPLANE_t plane = {0, address, size};
        engine.filewrite(static_cast<_Image_ColorFormat>(-1), 1, 1, &plane, nullptr,
                         std::make_unique<std::string>("dump.yuv"));
    }
    EXPECT_EQ(read_file(folder.media("dump.yuv")), "raw bytes");
    munmap(low, 4096);
}

TEST_F(Filewrite, SurvivesPlanesThatAreNotWhatTheFrameNeeds) {
    dump(P010_LINEAR, 64, 64, &luma, &chroma); // planes smaller than the frame: what there is
    EXPECT_EQ(read_file(folder.media("dump.yuv")).size(), 128U);
    dump(P010_LINEAR, 4, 2, nullptr, &chroma); // a plane that cannot be mapped is left out
    EXPECT_EQ(read_file(folder.media("dump.yuv")).size(), 136U);
    Plane shrunk(64);
    _MULTIPLANE_t claims_more = shrunk.handle();
    claims_more.size = 1 << 20; // the mapping reaches past the end of the object
    engine.filewrite(RGBA, 512, 512, &claims_more, nullptr, std::make_unique<std::string>("past.yuv"));
    EXPECT_EQ(read_file(folder.media("past.yuv")).size(), 4096U);
}

TEST_F(Filewrite, TracesItsStepsAndSkipsAFileItCannotOpen) {
    debug_level = 4;
    log.clear();
    dump(RGBA, 1, 1, &luma, nullptr);
    const std::string path = "D filewrite file name is " + folder.media("dump.yuv");
    EXPECT_THAT(log.texts(), ElementsAre("E filewrite entry !", path, path, "D filewrite exit !"));

    setenv("ANDROID_DATA", "/nonexistent", 1);
    log.clear();
    dump(RGBA, 1, 1, &luma, nullptr);
    EXPECT_THAT(log.texts(),
                ElementsAre("E filewrite entry !", "D filewrite file name is /nonexistent/vendor/media/dump.yuv",
                            "D filewrite exit !"));
    debug_level = 1;
}

class DumpOcl : public EngineTest {};

TEST_F(DumpOcl, WritesThreeValuesPerColumnWithTwoFixedMarks) {
    Formatter engine(4, 2, HI_JACK);
    for (const int width : {1000, 2560}) {
        std::vector<float> values(static_cast<std::size_t>(width) * 4);
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = static_cast<float>(i) / 8;
        cl_int error = CL_SUCCESS;
        const cl_mem buffer =
            clCreateBuffer(engine.mContext, CL_MEM_COPY_HOST_PTR, values.size() * 4, values.data(), &error);
        testing::internal::CaptureStderr();
        engine.dump_ocl(buffer, width, 4);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "success-dump : ocl \n");

        const std::string mark = "##################\n";
        std::ostringstream expected;
        for (int i = 0; i < 3 * width; ++i) {
            expected << values[static_cast<std::size_t>(i)] << ", " << (i == 3839 || i == 7679 ? mark : "");
        }
        EXPECT_EQ(read_file(folder.media("ocl.txt")), expected.str() + "\n");
        clReleaseMemObject(buffer);
    }

    spy::fail("clEnqueueMapBuffer", CL_MAP_FAILURE);
    testing::internal::CaptureStderr();
    engine.dump_ocl(nullptr, 10, 10);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\tError -12 with clEnqueueMapBuffer\nsuccess-dump : ocl \n");
}

} // namespace
} // namespace lumivert
