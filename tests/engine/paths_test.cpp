/// The four paths as OpenCL sees them: which calls, in which order, and what a failing one leaves behind.
#include <map>
#include <regex>

#include "engine_test.h"
#include "path_steps.h"

namespace lumivert {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

/// The calls of a conversion in short: "; set 0 8, 1 8; launch KERNEL WxH; finish".
std::string brief_calls() {
    static const std::map<std::string, std::string> k_verbs = {
        {"clImportMemoryARM", "import"},      {"clSetKernelArg", "set"}, {"clEnqueueWriteBuffer", "upload"},
        {"clEnqueueNDRangeKernel", "launch"}, {"clFinish", "finish"},    {"clGetMemObjectInfo", "query"},
        {"clReleaseMemObject", "release"},
    };
    std::string text, last;
    for (const spy::Call& call : spy::calls()) {
        const auto verb = k_verbs.find(call.name);
        if (verb == k_verbs.end()) continue;
        const bool goes_on = call.name == last && !call.detail.empty();
        text += goes_on ? ", " + call.detail : "; " + verb->second + (call.detail.empty() ? "" : " " + call.detail);
        last = call.name;
    }
    return text;
}

struct Launch {
    int first_argument_tag; ///< the further ones' count up
    int arguments;
    int tag;
};

struct Path {
    const char* name;
    _ALGO_t mode;
    bool pool;
};

struct PathCase {
    Path path;
    _Image_ColorFormat format;
    std::string calls; ///< of the first frame in short; M stands for the size of a cl_mem
    std::vector<Launch> launches;
};

/// Frames of 10 x 6 pixels: 12 x 6 samples in whole blocks, so 144 bytes of P010 luma, 256 after rounding up to 128.
std::vector<PathCase> path_cases() {
    const Path in_place{"SimpleConvert_Retain", HI_JACK, false};
    const Path static_pool{"SimpleConvert_FetchBlockPool", HI_JACK, true};
    const Path retained{"NormalConvert_Retain", NORMAL, false};
    const Path pool{"NormalConvert_FetchBlockPool", NORMAL, true};
    const std::string in = "; import dma_buf 256, dma_buf 128";
    const std::string nv12 = in + ", dma_buf 128, dma_buf 128";
    const std::string p010 = in + ", dma_buf 256, dma_buf 128";
    const std::string rgba = in + ", dma_buf 384";
    const std::string set2 = "; set 0 M, 1 M";
    const std::string static_in_place = "; launch process_hdr_to_sdr_io_1000 5x3; finish";
    const std::string static_in_out = ", 2 M, 3 M; launch process_hdr_to_sdr_1000_inout 5x3; finish";
    const std::string fused = set2 + ", 2 M, 3 4, 4 4, 5 M, 6 4, 7 4, 8 M"
                                     "; launch p010_to_rgba8888_process_10plus_clut 10x6; finish";
    const std::string to_nv12 = set2 + ", 2 M, 3 4; launch rgba8888_to_nv12 2x3; finish";
    const std::string to_p010 = set2 + ", 2 M, 3 4; launch rgba8888_to_p010 2x3; finish";
    const std::string upload = "; upload blocking 0 1024";
    const std::string waited = upload + "; finish";
    const std::string release = "; query " + std::to_string(CL_MEM_REFERENCE_COUNT) + " 4; release";
    const std::string release2 = release + release;
    const std::string release4 = release2 + release2;
    const std::string releases = "; release; release; release; release";
    return {
        {in_place, P010_LINEAR, in + set2 + static_in_place, {{191, 2, 195}}},
        {static_pool, P010_LINEAR, p010 + set2 + static_in_out + releases, {{128, 4, 134}}},
        {retained, NV12, nv12 + upload + fused + to_nv12, {{277, 9, 288}, {310, 4, 315}}},
        {retained, RGBA, rgba + upload + fused, {{277, 9, 288}}},
        {retained, P010_LINEAR, p010 + upload + fused, {{277, 9, 288}}},
        {pool, NV12, nv12 + waited + fused + to_nv12 + release4, {{386, 9, 397}, {420, 4, 425}}},
        {pool, P010_LINEAR, p010 + waited + fused + to_p010 + release4, {{386, 9, 397}, {443, 4, 448}}},
        {pool, RGBA, rgba + waited + fused + release2, {{386, 9, 397}}},
    };
}

class PathsTest : public EngineTest {
protected:
    /// Converts a frame with the calls and lines of it alone.
    int convert(const PathCase& c, const Instance& instance, Frame& in, Frame& out) {
        log.clear();
        return c.path.pool ? instance.convert1(in, out, &info) : instance.convert(in, out, &info);
    }

    HDR10PLUS_DYNAMIC_INFO info = default_record();
};

TEST_F(PathsTest, CallOpenClInTheirOrderAndCarryOnWhereOneFails) {
    for (const PathCase& c : path_cases()) {
        SCOPED_TRACE(std::string(c.path.name) + " to format " + std::to_string(c.format));
        const Instance instance(10, 6, c.path.mode, c.path.pool);
        Frame in(P010_LINEAR, 10, 6);
        Frame out(c.format, 10, 6);
        const std::string calls = std::regex_replace(c.calls, std::regex("M"), std::to_string(sizeof(cl_mem)));
        spy::reset();
        EXPECT_EQ(convert(c, instance, in, out), 1);
        EXPECT_EQ(brief_calls(), calls);
        EXPECT_TRUE(log.texts().empty());
        // The retained paths import once; the block pool imports and releases every frame.
        spy::reset();
        convert(c, instance, in, out);
        EXPECT_EQ(brief_calls(), c.path.pool ? calls : calls.substr(calls.find(';', 1)));

        const auto expect_line = [&](const std::string& call, int nth, int tag) {
            const int once = spy::count(call);
            spy::fail(call, CL_OUT_OF_RESOURCES, nth, 2);
            EXPECT_EQ(convert(c, instance, in, out), 1);
            EXPECT_THAT(log.texts(), Contains(failure_line(c.path.name, "CL_OUT_OF_RESOURCES", tag)));
            EXPECT_EQ(spy::count(call), once + once + 1) << call << ' ' << nth; // the failing one is made again
            spy::reset();
            convert(c, instance, in, out);
        };
        int argument = 0, launch = 0;
        for (const Launch& l : c.launches) {
            for (int i = 0; i < l.arguments; ++i)
                expect_line("clSetKernelArg", ++argument, l.first_argument_tag + i);
            expect_line("clEnqueueNDRangeKernel", ++launch, l.tag);
        }
        if (c.path.mode == NORMAL) expect_line("clEnqueueWriteBuffer", 1, c.path.pool ? 381 : 273);
        if (c.path.mode == HI_JACK && c.path.pool) {
            for (int i = 0; i < 4; ++i)
                expect_line("clReleaseMemObject", i + 1, 144 + i);
        }
    }
}

TEST_F(PathsTest, LaunchNothingForFramesWhoseSizeWrapsAt32Bits) {
    for (const PathCase& c : path_cases()) {
        SCOPED_TRACE(std::string(c.path.name) + " to format " + std::to_string(c.format));
        const Instance instance(10, 6, c.path.mode, c.path.pool);
        engine_of(instance).mWidth = 65536; // times 16386 and 4: 524288 bytes, and more than 2^32
        engine_of(instance).mHeight = 16386;
        Frame in(P010_LINEAR, 10, 6);
        Frame out(c.format, 10, 6);
        spy::reset();
        EXPECT_EQ(convert(c, instance, in, out), 1);
        EXPECT_EQ(spy::count("clEnqueueNDRangeKernel"), 0);
        std::vector<std::string> lines;
        for (const Launch& l : c.launches)
            lines.push_back(failure_line(c.path.name, "CL_INVALID_GLOBAL_WORK_SIZE", l.tag));
        EXPECT_EQ(log.texts(), lines);
    }
    EXPECT_TRUE(Formatter(4, 268435448, HI_JACK).frame_fits());
    EXPECT_FALSE(Formatter(4, 268435449, HI_JACK).frame_fits());
    EXPECT_FALSE(Formatter(UINT32_MAX, 1, HI_JACK).frame_fits());
    EXPECT_FALSE(Formatter(UINT32_MAX, UINT32_MAX, HI_JACK).frame_fits());
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

TEST_F(PathsTest, ARetainedRgbaFrameKeepsTheTargetForLaterFrames) {
    Frame in(P010_LINEAR, 12, 6);
    Frame rgba(RGBA, 12, 6);
    Frame nv12(NV12, 12, 6);
    Frame expected(NV12, 12, 6);
    fill_random(in, 1);
    {
        const Instance instance(12, 6, NORMAL);
        instance.convert(in, expected, &info);
        const cl_mem own = engine_of(instance).target_rgba_buffer;
        instance.convert(in, rgba, &info);
        EXPECT_NE(engine_of(instance).target_rgba_buffer, own);
        const std::string picture = rgba.luma.contents();
        rgba.luma.fill(7);
        EXPECT_EQ(instance.convert(in, nv12, &info), 1);
        // The NV12 frame went through the caller's RGBA buffer.
        EXPECT_EQ(rgba.luma.contents(), picture);
        EXPECT_EQ(nv12.luma.contents(), expected.luma.contents());
        EXPECT_EQ(nv12.chroma.contents(), expected.chroma.contents());
        log.clear();
    }
    EXPECT_THAT(log.texts(), Not(Contains(testing::HasSubstr("delete_mem_object")))); // no second release
}

TEST_F(PathsTest, P010OutputOfTheRetainedPathIsLeftUnwritten) {
    const Instance instance(12, 6, NORMAL);
    Frame in(P010_LINEAR, 12, 6);
    Frame out(P010_LINEAR, 12, 6);
    fill_random(in, 2);
    out.luma.fill(0xA5);
    out.chroma.fill(0xA5);
    EXPECT_EQ(instance.convert(in, out, &info), 1);
    EXPECT_EQ(out.luma.contents(), std::string(out.luma.size(), '\xA5'));
    EXPECT_EQ(out.chroma.contents(), std::string(out.chroma.size(), '\xA5'));
}

TEST_F(PathsTest, DumpWhatWentInAndCameOut) {
    const struct {
        _ALGO_t mode;
        bool pool;
        _Image_ColorFormat format;
        const char* file; ///< of the output
    } cases[] = {
        {HI_JACK, false, P010_LINEAR, "io_p010_out.yuv"},
        {HI_JACK, true, P010_LINEAR, "p010_out.yuv"},
        {NORMAL, false, NV12, "final_nv12.yuv"},
        {NORMAL, true, NV12, "final_nv12.yuv"},
        {NORMAL, false, RGBA, "rgba_out.yuv"},
        {NORMAL, true, RGBA, "rgba_out.yuv"},
        {NORMAL, false, P010_LINEAR, "none"},
        {NORMAL, true, P010_LINEAR, "out_p010.yuv"},
    };
    set_property("vendor.Lumivert.debug.dump", "1");
    const auto samples = [](const Frame& frame) {
        return frame.luma.contents() + (frame.format == RGBA ? "" : frame.chroma.contents());
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.file) + (c.pool ? ", pool" : ", retained"));
        const DataFolder fresh;
        Frame in(P010_LINEAR, 12, 6);
        const Frame out(c.format, 12, 6);
        fill_random(in, 3);
        const std::string input = samples(in);
        const Instance instance(12, 6, c.mode, c.pool);
        EXPECT_EQ(c.pool ? instance.convert1(in, out, &info) : instance.convert(in, out, &info), 1);
        EXPECT_EQ(dump_request, c.pool ? 0 : 1); // a block-pool frame ends the request
        EXPECT_EQ(read_file(fresh.media("Input_p010.yuv")), input);
        const bool written = std::string(c.file) != "none";
        const std::string expected = written ? samples(c.mode == HI_JACK && !c.pool ? in : out) : std::string();
        EXPECT_EQ(read_file(fresh.media(c.file)), expected);
        EXPECT_EQ(fresh.media_files().size(), written ? 3U : 2U); // the program cache among them
        const bool work_buffer = c.mode == NORMAL && c.format != RGBA;
        const auto* own_rgba = static_cast<const char*>(engine_of(instance).mWorkHost1);
        EXPECT_EQ(read_file(fresh.camera("rgba_out.yuv")), work_buffer ? std::string(own_rgba, 12 * 6 * 4) : "");
        dump_request = 1; // once more: the planes are appended, the work buffer's dump is replaced
        if (c.mode == HI_JACK && !c.pool) fill_random(in, 3); // was converted in place
        EXPECT_EQ(c.pool ? instance.convert1(in, out, &info) : instance.convert(in, out, &info), 1);
        EXPECT_EQ(read_file(fresh.media("Input_p010.yuv")), input + input);
        EXPECT_EQ(read_file(fresh.media(c.file)), expected + expected);
        EXPECT_EQ(read_file(fresh.camera("rgba_out.yuv")).size(), work_buffer ? 12 * 6 * 4U : 0U);
    }
}

TEST_F(PathsTest, DumpsIntoFoldersThatVanishedChangeNothing) {
    set_property("vendor.Lumivert.debug.dump", "1");
    const Instance instance(12, 6, NORMAL);
    setenv("ANDROID_DATA", "/nonexistent", 1);
    setenv("EXTERNAL_STORAGE", "/nonexistent", 1);
    EXPECT_EQ(instance.convert(Frame(P010_LINEAR, 12, 6), Frame(NV12, 12, 6), &info), 1);
}

} // namespace
} // namespace lumivert
