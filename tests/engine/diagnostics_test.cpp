#include <cstring>
#include <regex>

#include <sys/mman.h>

#include "engine_test.h"
#include "util/diagnostics.h"

namespace lumivert {
namespace {

using testing::ElementsAre;

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
    /// What one dump appends to the file.
    std::string dump(int format, int width, int height, const _MULTIPLANE_t& plane0, const _MULTIPLANE_t& plane1) {
        const std::string path = folder.media("dump.yuv");
        const std::string before = read_file(path);
        log.clear();
        engine.filewrite(static_cast<_Image_ColorFormat>(format), width, height, &plane0, &plane1,
                         std::make_unique<std::string>("dump.yuv"));
        const std::string after = read_file(path);
        EXPECT_EQ(after.substr(0, before.size()), before);
        return after.substr(std::min(before.size(), after.size()));
    }

    Formatter engine{4, 2, HI_JACK};
    Plane luma{64};
    Plane chroma{64};
    const _MULTIPLANE_t y = luma.handle();
    const _MULTIPLANE_t uv = chroma.handle();
};

TEST_F(Filewrite, WritesWhatThereIsOfAFrame) {
    luma.fill('y');
    chroma.fill('c');
    const auto bytes = [](std::size_t in_luma, std::size_t in_chroma) {
        return std::string(in_luma, 'y') + std::string(in_chroma, 'c');
    };
    EXPECT_EQ(dump(P010_LINEAR, 4, 2, y, uv), bytes(16, 8));
    EXPECT_EQ(dump(NV12, 3, 3, y, uv), bytes(9, 4));
    EXPECT_EQ(dump(P010_LINEAR, 64, 64, y, uv), bytes(64, 64));                // planes smaller than the frame
    EXPECT_EQ(dump(P010_LINEAR, 4, 2, {-1, 0, 64}, uv), bytes(0, 8));          // one that cannot be mapped
    EXPECT_EQ(dump(RGBA, 512, 512, {y.handle, 0, 1 << 20}, uv).size(), 4096U); // a mapping past the object's end
    EXPECT_EQ(dump(NV12, 65536, 65536, y, uv), bytes(64, 64));                 // a product beyond 32 bits
    for (const int unwritten : {0, 4, 5}) {
        EXPECT_EQ(dump(unwritten, 4, 2, y, uv), "");
        EXPECT_THAT(log.texts(), ElementsAre("E filewrite entry !", "E This never happens"));
    }
}

TEST_F(Filewrite, WritesRawMemoryByItsAddress) {
    auto* const wish = reinterpret_cast<void*>(0x10000000); // the record's address has 32 bits
    auto* low = static_cast<char*>(mmap(wish, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_EQ(reinterpret_cast<uintptr_t>(low) >> 16 >> 16, 0U);
    std::strcpy(low, "raw bytes");
    const auto address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(low));
    EXPECT_EQ(dump(-1, 1, 1, {0, address, 9}, uv), "raw bytes");
    EXPECT_EQ(dump(-1, 1, 1, {0, address, -1}, uv), "");
    munmap(low, 4096);
}

TEST_F(Filewrite, TracesItsStepsAndSkipsAFileItCannotOpen) {
    debug_level = 4;
    dump(RGBA, 1, 1, y, uv);
    const std::string path = "D filewrite file name is " + folder.media("dump.yuv");
    EXPECT_THAT(log.texts(), ElementsAre("E filewrite entry !", path, path, "D filewrite exit !"));
    setenv("ANDROID_DATA", "/nonexistent", 1);
    dump(RGBA, 1, 1, y, uv);
    EXPECT_THAT(log.texts(),
                ElementsAre("E filewrite entry !", "D filewrite file name is /nonexistent/vendor/media/dump.yuv",
                            "D filewrite exit !"));
    debug_level = 1;
}

using DumpOcl = EngineTest;

TEST_F(DumpOcl, WritesThreeValuesPerColumnWithTwoFixedMarks) {
    Formatter engine(4, 2, HI_JACK);
    std::vector<float> values(std::size_t{2600} * 4, 0.125F);
    const cl_mem buffer =
        clCreateBuffer(engine.mContext, CL_MEM_COPY_HOST_PTR, values.size() * 4, values.data(), nullptr);
    testing::internal::CaptureStderr();
    engine.dump_ocl(buffer, 2600, 4);
    spy::fail("clEnqueueMapBuffer", CL_MAP_FAILURE);
    const std::string written = read_file(folder.media("ocl.txt"));
    engine.dump_ocl(buffer, 2600, 4);
    clReleaseMemObject(buffer);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "success-dump : ocl \n\tError -12 with clEnqueueMapBuffer\nsuccess-dump : ocl \n");
    std::string expected;
    for (int i = 0; i < 3 * 2600; ++i)
        expected += i == 3839 || i == 7679 ? "0.125, ##################\n" : "0.125, ";
    EXPECT_EQ(written, expected + "\n");
}

} // namespace
} // namespace lumivert
