/// The four paths as OpenCL sees them: which calls, in which order, and what a failing one leaves behind.
#include "instance.h"
#include "path_steps.h"

namespace lumivert {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Not;

const std::vector<std::string> kPathCalls = {"clImportMemoryARM",      "clSetKernelArg", "clEnqueueWriteBuffer",
                                             "clEnqueueNDRangeKernel", "clFinish",       "clGetMemObjectInfo",
                                             "clReleaseMemObject"};

/// "clSetKernelArg index size" for arguments of these sizes.
std::vector<std::string> arguments(const std::vector<std::size_t>& sizes) {
    std::vector<std::string> calls;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        calls.push_back("clSetKernelArg " + std::to_string(i) + " " + std::to_string(sizes[i]));
    }
    return calls;
}

std::vector<std::string> concat(const std::vector<std::vector<std::string>>& parts) {
    std::vector<std::string> all;
    for (const auto& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

constexpr std::size_t kMem = sizeof(cl_mem);
const std::vector<std::string> kFusedArguments = arguments({kMem, kMem, kMem, 4, 4, kMem, 4, 4, kMem});
const std::vector<std::string> kYuvArguments = arguments({kMem, kMem, kMem, 4});
const std::string kQuery = "clGetMemObjectInfo " + std::to_string(CL_MEM_REFERENCE_COUNT) + " 4";

/// What one conversion asks for, and how it differs by output format.
struct PathCase {
    const char* path;
    _ALGO_t mode;
    bool pool;
    _Image_ColorFormat format;
    std::vector<std::string> calls; ///< of the first frame
    std::vector<int> argument_tags;
    std::vector<int> launch_tags;
};

std::vector<PathCase> path_cases() {
    // 10 x 6 pixels: 12 x 6 samples in whole blocks, so 144 bytes of P010 luma, 256 after rounding up to 128.
    const std::vector<std::string> import_p010 = {"clImportMemoryARM dma_buf 256", "clImportMemoryARM dma_buf 128"};
    const std::vector<std::string> import_nv12 = {"clImportMemoryARM dma_buf 128", "clImportMemoryARM dma_buf 128"};
    const std::vector<std::string> import_rgba = {"clImportMemoryARM dma_buf 384"};
    const std::vector<std::string> upload = {"clEnqueueWriteBuffer blocking 0 1024"};
    const std::vector<std::string> finish = {"clFinish"};
    const std::vector<std::string> fused = {"clEnqueueNDRangeKernel p010_to_rgba8888_process_10plus_clut 10x6",
                                            "clFinish"};
    const std::vector<std::string> release = {kQuery, "clReleaseMemObject"};
    const auto launch = [](const std::string& kernel, const std::string& size) {
        return std::vector<std::string>{"clEnqueueNDRangeKernel " + kernel + " " + size, "clFinish"};
    };
    const std::vector<int> fused_tags = {277, 278, 279, 280, 281, 282, 283, 284, 285};
    const auto tags_from = [](int first, int count) {
        std::vector<int> tags;
        for (int i = 0; i < count; ++i)
            tags.push_back(first + i);
        return tags;
    };
    const auto both = [](std::vector<int> a, const std::vector<int>& b) {
        a.insert(a.end(), b.begin(), b.end());
        return a;
    };
    return {
        {"SimpleConvert_Retain",
         HI_JACK,
         false,
         P010_LINEAR,
         concat({import_p010, arguments({kMem, kMem}), launch("process_hdr_to_sdr_io_1000", "5x3")}),
         {191, 192},
         {195}},
        {"SimpleConvert_FetchBlockPool",
         HI_JACK,
         true,
         P010_LINEAR,
         concat({import_p010, import_p010, arguments({kMem, kMem, kMem, kMem}),
                 launch("process_hdr_to_sdr_1000_inout", "5x3"), std::vector<std::string>(4, "clReleaseMemObject")}),
         {128, 129, 130, 131},
         {134}},
        {"NormalConvert_Retain",
         NORMAL,
         false,
         NV12,
         concat({import_p010, import_nv12, upload, kFusedArguments, fused, kYuvArguments,
                 launch("rgba8888_to_nv12", "2x3")}),
         both(fused_tags, tags_from(310, 4)),
         {288, 315}},
        {"NormalConvert_Retain",
         NORMAL,
         false,
         RGBA,
         concat({import_p010, import_rgba, upload, kFusedArguments, fused}),
         fused_tags,
         {288}},
        {"NormalConvert_Retain",
         NORMAL,
         false,
         P010_LINEAR,
         concat({import_p010, import_p010, upload, kFusedArguments, fused}),
         fused_tags,
         {288}},
        {"NormalConvert_FetchBlockPool",
         NORMAL,
         true,
         NV12,
         concat({import_p010, import_nv12, upload, finish, kFusedArguments, fused, kYuvArguments,
                 launch("rgba8888_to_nv12", "2x3"), release, release, release, release}),
         both(tags_from(386, 9), tags_from(420, 4)),
         {397, 425}},
        {"NormalConvert_FetchBlockPool",
         NORMAL,
         true,
         P010_LINEAR,
         concat({import_p010, import_p010, upload, finish, kFusedArguments, fused, kYuvArguments,
                 launch("rgba8888_to_p010", "2x3"), release, release, release, release}),
         both(tags_from(386, 9), tags_from(443, 4)),
         {397, 448}},
        {"NormalConvert_FetchBlockPool",
         NORMAL,
         true,
         RGBA,
         concat({import_p010, import_rgba, upload, finish, kFusedArguments, fused, release, release}),
         tags_from(386, 9),
         {397}},
    };
}

class PathsTest : public EngineTest {
protected:
    int convert(const PathCase& c, const Instance& instance, Frame& in, Frame& out) {
        return c.pool ? instance.convert1(in, out, &info) : instance.convert(in, out, &info);
    }

    HDR10PLUS_DYNAMIC_INFO info = default_record();
};

TEST_F(PathsTest, CallOpenClInTheirOrder) {
    for (const PathCase& c : path_cases()) {
        SCOPED_TRACE(std::string(c.path) + " to format " + std::to_string(c.format));
        const Instance instance(10, 6, c.mode, c.pool);
        Frame in(P010_LINEAR, 10, 6);
        Frame out(c.format, 10, 6);
        spy::reset();
        log.clear();
        EXPECT_EQ(convert(c, instance, in, out), 1);
        EXPECT_THAT(spy::calls_of(kPathCalls), ElementsAreArray(c.calls));
        EXPECT_TRUE(log.texts().empty());

        // The retained paths import once; the block pool imports and releases every frame.
        spy::reset();
        convert(c, instance, in, out);
        std::vector<std::string> again = c.calls;
        if (!c.pool) {
            again.erase(std::remove_if(again.begin(), again.end(),
                                       [](const std::string& call) { return call.rfind("clImport", 0) == 0; }),
                        again.end());
        }
        EXPECT_THAT(spy::calls_of(kPathCalls), ElementsAreArray(again));
    }
}

TEST_F(PathsTest, ReportAFailingCallByItsTagAndCarryOn) {
    for (const PathCase& c : path_cases()) {
        const Instance instance(10, 6, c.mode, c.pool);
        Frame in(P010_LINEAR, 10, 6);
        Frame out(c.format, 10, 6);
        const auto expect_line = [&](const std::string& call, int nth, int tag) {
            SCOPED_TRACE(std::string(c.path) + " to format " + std::to_string(c.format) + ", " + call + " " +
                         std::to_string(nth));
            spy::reset();
            log.clear();
            spy::fail(call, CL_OUT_OF_RESOURCES, nth, 2);
            EXPECT_EQ(convert(c, instance, in, out), 1);
            EXPECT_THAT(log.texts(), Contains(failure_line(c.path, "CL_OUT_OF_RESOURCES", tag)));
            // Nothing is left out but the imports: the calls of a good frame and the repeated one.
            const auto once = static_cast<std::size_t>(std::count_if(
                c.calls.begin(), c.calls.end(), [&](const std::string& name) { return name.rfind(call, 0) == 0; }));
            EXPECT_EQ(spy::calls_of({call}).size(), once + 1);
        };
        for (std::size_t i = 0; i < c.argument_tags.size(); ++i) {
            expect_line("clSetKernelArg", static_cast<int>(i) + 1, c.argument_tags[i]);
        }
        for (std::size_t i = 0; i < c.launch_tags.size(); ++i) {
            expect_line("clEnqueueNDRangeKernel", static_cast<int>(i) + 1, c.launch_tags[i]);
        }
        if (c.mode == NORMAL) expect_line("clEnqueueWriteBuffer", 1, c.pool ? 381 : 273);
        if (c.mode == HI_JACK && c.pool) {
            for (int i = 0; i < 4; ++i)
                expect_line("clReleaseMemObject", i + 1, 144 + i);
        }
    }
}

TEST_F(PathsTest, AnInstanceOfTheOtherFrameworkFindsNoStaticKernel) {
    const Instance c2(10, 6, HI_JACK, true);
    Frame in(P010_LINEAR, 10, 6);
    log.clear();
    EXPECT_EQ(c2.convert(in, in, nullptr, 4000), 1);
    EXPECT_THAT(log.texts(),
                ElementsAre("E It is not found among the compiled kernels! kernel_name is process_hdr_to_sdr_io_4000",
                            failure_line("SimpleConvert_Retain", "CL_INVALID_KERNEL", 191),
                            failure_line("SimpleConvert_Retain", "CL_INVALID_KERNEL", 192),
                            failure_line("SimpleConvert_Retain", "CL_INVALID_KERNEL", 195)));
}

TEST_F(PathsTest, TheMastersPeakSelectsTheTable) {
    const Instance instance(10, 6, HI_JACK, false);
    Frame in(P010_LINEAR, 10, 6);
    const std::pair<uint32_t, const char*> cases[] = {{0, "1000"},    {1000, "1000"}, {1001, "4000"},
                                                      {4000, "4000"}, {4001, "1000"}, {4294967295U, "1000"}};
    for (const auto& [nits, table] : cases) {
        spy::reset();
        instance.convert(in, in, nullptr, nits);
        EXPECT_THAT(spy::calls_of({"clEnqueueNDRangeKernel"}),
                    ElementsAre(std::string("clEnqueueNDRangeKernel process_hdr_to_sdr_io_") + table + " 5x3"));
    }
}

TEST_F(PathsTest, TheTraceListsTheMapsAndTheStepTaken) {
    const Instance instance(10, 6, HI_JACK, false);
    Frame in(P010_LINEAR, 10, 6);
    instance.convert(in, in, nullptr);
    debug_level = 4;
    log.clear();
    instance.convert(in, in, nullptr);
    EXPECT_EQ(log.count("D map_y_in size() is 1 and this is the list"), 1);
    EXPECT_EQ(log.count("D map_uv_in size() is 1 and this is the list"), 1);
    EXPECT_THAT(log.texts(), Not(Contains(testing::StartsWith("D print out"))));
    debug_level = 6;
    log.clear();
    instance.convert(in, in, nullptr);
    EXPECT_THAT(log.texts(), Contains(testing::StartsWith("D print out exported_memory")).Times(2));
    EXPECT_EQ(log.count("D direct_IO approach!"), 1);
    debug_level = 4;
    const Instance normal(10, 6, NORMAL);
    Frame rgba(RGBA, 10, 6);
    debug_level = 4;
    log.clear();
    normal.convert1(in, rgba, &info);
    EXPECT_EQ(log.count("D Nothing to do"), 1);
    debug_level = 1;
}

TEST_F(PathsTest, ARetainedRgbaFrameKeepsTheTargetForLaterFrames) {
    Frame in(P010_LINEAR, 12, 6);
    Frame rgba(RGBA, 12, 6);
    Frame nv12(NV12, 12, 6);
    Frame expected(NV12, 12, 6);
    fill_random(in, 1);
    {
        const Instance instance(12, 6, NORMAL);
        instance.convert(in, expected, &info);
        const cl_mem own = instance.engine().target_rgba_buffer;
        instance.convert(in, rgba, &info);
        EXPECT_NE(instance.engine().target_rgba_buffer, own);
        const std::string picture(reinterpret_cast<char*>(rgba.luma.bytes()), rgba.luma.size());
        std::fill_n(rgba.luma.bytes(), rgba.luma.size(), uint8_t{7});
        EXPECT_EQ(instance.convert(in, nv12, &info), 1);
        // The NV12 frame went through the caller's RGBA buffer.
        EXPECT_EQ(picture, std::string(reinterpret_cast<char*>(rgba.luma.bytes()), rgba.luma.size()));
        EXPECT_TRUE(std::equal(nv12.luma.bytes(), nv12.luma.bytes() + 72, expected.luma.bytes()));
        EXPECT_TRUE(std::equal(nv12.chroma.bytes(), nv12.chroma.bytes() + 36, expected.chroma.bytes()));
        log.clear();
    }
    EXPECT_THAT(log.texts(), Not(Contains(testing::HasSubstr("delete_mem_object")))); // no second release
}

TEST_F(PathsTest, P010OutputOfTheRetainedPathIsLeftUnwritten) {
    const Instance instance(12, 6, NORMAL);
    Frame in(P010_LINEAR, 12, 6);
    Frame out(P010_LINEAR, 12, 6);
    fill_random(in, 2);
    std::fill_n(out.luma.bytes(), out.luma.size(), uint8_t{0xA5});
    std::fill_n(out.chroma.bytes(), out.chroma.size(), uint8_t{0xA5});
    EXPECT_EQ(instance.convert(in, out, &info), 1);
    EXPECT_EQ(std::count(out.luma.bytes(), out.luma.bytes() + out.luma.size(), 0xA5),
              static_cast<long>(out.luma.size()));
    EXPECT_EQ(std::count(out.chroma.bytes(), out.chroma.bytes() + out.chroma.size(), 0xA5),
              static_cast<long>(out.chroma.size()));
    EXPECT_EQ(instance.convert1(in, out, &info), 1);
    EXPECT_LT(std::count(out.luma.bytes(), out.luma.bytes() + out.luma.size(), 0xA5), 20);
}

TEST_F(PathsTest, DumpsOfTheDynamicPaths) {
    Frame in(P010_LINEAR, 12, 6);
    fill_random(in, 3);
    const std::size_t pixels = 12 * 6;
    for (const bool pool : {false, true}) {
        set_property("vendor.Lumivert.debug.dump", "1");
        const Instance instance(12, 6, NORMAL);
        const auto convert = [&](Frame& out) {
            dump_request = 1; // the block pool clears it after a frame
            return pool ? instance.convert1(in, out, &info) : instance.convert(in, out, &info);
        };
        Frame nv12(NV12, 12, 6);
        convert(nv12);
        const std::string bytes = read_file(folder.media("final_nv12.yuv"));
        ASSERT_EQ(bytes.size(), pixels * 3 / 2);
        EXPECT_TRUE(std::equal(bytes.begin(), bytes.begin() + 72, reinterpret_cast<char*>(nv12.luma.bytes())));
        EXPECT_EQ(read_file(folder.camera("rgba_out.yuv")).size(), pixels * 4);
        EXPECT_EQ(read_file(folder.media("rgba_out.yuv")).size(), 0U);

        Frame rgba(RGBA, 12, 6);
        convert(rgba);
        const std::string picture = read_file(folder.media("rgba_out.yuv"));
        ASSERT_EQ(picture.size(), pixels * 4);
        EXPECT_TRUE(std::equal(picture.begin(), picture.end(), reinterpret_cast<char*>(rgba.luma.bytes())));

        Frame p010(P010_LINEAR, 12, 6);
        convert(p010);
        EXPECT_EQ(read_file(folder.media("out_p010.yuv")).size(), pool ? pixels * 3 : 0U);
        for (const char* name : {"final_nv12.yuv", "rgba_out.yuv"})
            std::remove(folder.media(name).c_str());
    }
}

} // namespace
} // namespace lumivert
