#include "instance.h"

namespace lumivert {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;

class EntryTest : public EngineTest {
protected:
    Frame in{P010_LINEAR, 8, 4};
    Frame out{P010_LINEAR, 8, 4};
};

using EntryDeathTest = EntryTest; // first, while the process has no driver threads

TEST_F(EntryTest, InitMakesTheKernelsOfItsMode) {
    const struct {
        _ALGO_t mode;
        bool c2;
        std::vector<std::string> kernels;
    } cases[] = {
        {NORMAL, true, {"p010_to_rgba8888_process_10plus_clut", "rgba8888_to_nv12", "rgba8888_to_p010"}},
        {HI_JACK, true, {"process_hdr_to_sdr_1000_inout", "process_hdr_to_sdr_4000_inout"}},
        {HI_JACK, false, {"process_hdr_to_sdr_io_1000", "process_hdr_to_sdr_io_4000"}},
    };
    for (const auto& c : cases) {
        spy::reset();
        log.clear();
        const Instance instance(10, 6, c.mode, c.c2);
        std::vector<std::string> created;
        for (const std::string& name : c.kernels)
            created.push_back("clCreateKernel " + name);
        EXPECT_EQ(spy::calls_of({"clCreateKernel"}), created);
        EXPECT_EQ(instance.engine().mState, 1);
        EXPECT_EQ(instance.engine().IsC2Base, c.c2);
        EXPECT_THAT(log.texts(),
                    Contains(testing::MatchesRegex(
                        std::string("I \\[CL_HDR2SDR_ARM_init\\] vendor entry IsC2Base is ") + (c.c2 ? "1" : "0") +
                        " formatter is 0x[0-9a-f]+ mode is " + (c.mode == NORMAL ? "NORMAL" : "HI_JACK"))));
        EXPECT_EQ(log.texts().back(), "I CL_HDR2SDR_ARM_init exit");
        std::vector<std::string> buffers;
        if (c.mode == NORMAL) {
            buffers = {"clCreateBuffer 1 1024", "clImportMemoryARM host 256", "clImportMemoryARM host 256"};
        }
        EXPECT_EQ(spy::calls_of({"clCreateBuffer", "clImportMemoryARM"}), buffers);
    }
}

TEST_F(EntryTest, InitRefusesWithANullHandle) {
    void* handle = &in;
    for (const int mode : {0, 3}) {
        log.clear();
        EXPECT_EQ(CL_HDR2SDR_ARM_init(8, 4, static_cast<_ALGO_t>(mode), &handle, 1), 0);
        EXPECT_EQ(handle, nullptr);
        EXPECT_EQ(log.count("E Unsupported algo mode value is " + std::to_string(mode)), 1);
        EXPECT_THAT(log.texts(), Contains(testing::EndsWith("mode is NORMAL")));
        EXPECT_EQ(log.texts().back(), "I ~Formatter() exit");
    }

    log.clear();
    handle = &in;
    spy::reset();
    spy::fail("clCreateBuffer", CL_OUT_OF_RESOURCES);
    EXPECT_EQ(CL_HDR2SDR_ARM_init(8, 4, NORMAL, &handle, 1), 0);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(log.count(failure_line("CL_HDR2SDR_ARM_init", "CL_OUT_OF_RESOURCES", 504)), 1);
    EXPECT_EQ(log.count("E [CL_HDR2SDR_ARM_init] failed! err num is 506"), 1);
    EXPECT_EQ(spy::count("clCreateBuffer"), 1);
    EXPECT_EQ(spy::count("clReleaseKernel"), 3);

    log.clear();
    spy::fail("clBuildProgram", CL_BUILD_PROGRAM_FAILURE, 1, 9);
    spy::fail("clGetProgramBuildInfo", CL_INVALID_VALUE, 1, 9);
    EXPECT_EQ(CL_HDR2SDR_ARM_init(8, 4, NORMAL, &handle, 1), 0);
    EXPECT_EQ(log.count("E compile error"), 1);
}

TEST_F(EntryTest, InitReadsTheDebugProperties) {
    set_property("vendor.Lumivert.debug.level", "7");
    { const Instance instance(8, 4, HI_JACK); }
    EXPECT_EQ(debug_level, 7);
    set_property("vendor.Lumivert.debug.level", "x");
    { const Instance instance(8, 4, HI_JACK); }
    EXPECT_EQ(debug_level, 0);
    set_property("vendor.Lumivert.debug.level", "");
    { const Instance instance(8, 4, HI_JACK); }
    EXPECT_EQ(debug_level, 1);
}

TEST_F(EntryTest, RefusalsSayWhyAndLeaveTheInstanceUsable) {
    const Instance instance(8, 4, NORMAL);
    HDR10PLUS_DYNAMIC_INFO info = default_record();
    log.clear();
    _HDR2SDR_config_params_t params = in.params();
    const uint32_t static_info[3] = {};
    EXPECT_EQ(CL_HDR2SDR_ARM_convert(&params, &params, &info, 0, nullptr), 0);
    EXPECT_EQ(CL_HDR2SDR_ARM_convert1(&params, &params, &info, static_info, nullptr, 0), 0);
    CL_HDR2SDR_ARM_deinit(nullptr);
    EXPECT_THAT(log.texts(), ElementsAre("E CL_HDR2SDR_ARM_convert user data is null !",
                                         "E CL_HDR2SDR_ARM_convert1 user data is null !",
                                         "E CL_HDR2SDR_ARM_deinit user data is null !"));

    log.clear();
    EXPECT_EQ(instance.convert(in, out, nullptr), 0);
    EXPECT_THAT(log.texts(), ElementsAre("E Dynamic metadata is null !"));
    EXPECT_EQ(instance.engine().mState, 1);

    log.clear();
    for (const int format : {0, 3, 4, 6, -1}) {
        in.format = static_cast<_Image_ColorFormat>(format);
        EXPECT_EQ(instance.convert(in, out, &info), 0);
        EXPECT_EQ(log.texts().back(),
                  "E Unsupported Color Format ! in color_format is " + std::to_string(format) + " ");
    }
    in.format = P010_LINEAR;
    for (const int format : {0, 4, 5, 100}) {
        out.format = static_cast<_Image_ColorFormat>(format);
        EXPECT_EQ(instance.convert1(in, out, &info), 0);
        EXPECT_EQ(log.texts().back(), "E Unsupported Color Format ! out color_format is " + std::to_string(format));
    }
    out.format = NV12;
    debug_level = 0;
    log.clear();
    EXPECT_EQ(instance.convert(in, out, nullptr), 0);
    EXPECT_TRUE(log.texts().empty());
    debug_level = 1;
    EXPECT_EQ(instance.convert(in, out, &info), 1);
    EXPECT_EQ(instance.engine().mState, 2);

    Formatter unready(8, 4, NORMAL);
    log.clear();
    EXPECT_EQ(CL_HDR2SDR_ARM_convert(&params, &params, &info, 0, &unready), 0);
    EXPECT_EQ(log.texts().back(), "E [CL_HDR2SDR_ARM_convert]Internal state is wrong state is 0");
    CL_HDR2SDR_ARM_deinit(&unready); // only says so: the object stays alive
    EXPECT_EQ(log.texts().back(), "E CL_HDR2SDR_ARM_deinit state is invalid");
    EXPECT_EQ(unready.mWidth, 8U);
}

TEST_F(EntryTest, FallsBackToADefaultRecordFromTheStaticLuminances) {
    const Instance instance(8, 4, NORMAL);
    _HDR2SDR_config_params_t i = in.params();
    _HDR2SDR_config_params_t o = out.params();
    const uint32_t static_info[] = {1, 40000000, 20005000}; // 4000 cd/m2 and a MaxCLL of 2000.5: a bright scene
    log.clear();
    EXPECT_EQ(CL_HDR2SDR_ARM_convert1(&i, &o, nullptr, static_info, instance.handle(), 0), 1);
    EXPECT_THAT(log.texts(),
                ElementsAre("E There is no HDR10 dynamic metadata! It will fallback to default value",
                            "I HDR Static Info available : maxCll = 2000.500000, Min Luminance = 4000.000000"));
    EXPECT_EQ(instance.engine().mDynamicInfo->knee_point_y, 320);
    EXPECT_EQ(instance.engine().mState, 2);

    const uint32_t dim[] = {1, 40000000, 8000000}; // MaxCLL of 800 decides
    debug_level = 0;
    log.clear();
    EXPECT_EQ(CL_HDR2SDR_ARM_convert1(&i, &o, nullptr, dim, instance.handle(), 0), 1);
    EXPECT_THAT(log.texts(), ElementsAre(StartsWith("I HDR Static Info available : maxCll = 800.0")));
    EXPECT_EQ(instance.engine().mDynamicInfo->knee_point_y, 132);
    debug_level = 1;
}

TEST_F(EntryTest, SkipsFramesByTheInterval) {
    const Instance instance(8, 4, HI_JACK);
    std::vector<int> results;
    for (int call = 0; call < 7; ++call)
        results.push_back(instance.convert1(in, out, nullptr, 0, 3));
    EXPECT_THAT(results, ElementsAre(1, 0, 0, 1, 0, 0, 1));
    EXPECT_EQ(instance.convert1(in, out, nullptr, 0, 0), 1);
    EXPECT_EQ(instance.convert1(in, out, nullptr, 0, -4), 1); // the ninth call: 8 modulo -4 is 0
    EXPECT_EQ(instance.convert1(in, out, nullptr, 0, -4), 0);
}

TEST_F(EntryTest, RoundsTheMasteringPeakInSinglePrecision) {
    const Instance instance(8, 4, HI_JACK);
    const struct {
        uint32_t peak;
        const char* kernel;
    } cases[] = {
        {0, "1000"},        {10004999, "1000"}, {10005000, "4000"},    {40004997, "4000"},
        {40004998, "1000"}, {40005000, "1000"}, {4294967295U, "1000"},
    };
    for (const auto& c : cases) {
        spy::reset();
        instance.convert1(in, out, nullptr, c.peak);
        EXPECT_THAT(spy::calls_of({"clEnqueueNDRangeKernel"}),
                    ElementsAre(std::string("clEnqueueNDRangeKernel process_hdr_to_sdr_") + c.kernel + "_inout 4x2"))
            << c.peak;
    }
}

TEST_F(EntryTest, DumpsEveryConvertButOneConvert1) {
    set_property("vendor.Lumivert.debug.dump", "1");
    const Instance instance(8, 4, HI_JACK, false);
    const std::size_t frame = 8 * 4 * 3;
    instance.convert(in, out, nullptr);
    instance.convert(in, out, nullptr);
    EXPECT_EQ(read_file(folder.media("Input_p010.yuv")).size(), 2 * frame);
    EXPECT_EQ(read_file(folder.media("io_p010_out.yuv")).size(), 2 * frame);
    const Instance pool(8, 4, HI_JACK, true);
    pool.convert1(in, out, nullptr);
    pool.convert1(in, out, nullptr);
    EXPECT_EQ(read_file(folder.media("Input_p010.yuv")).size(), 3 * frame);
    EXPECT_EQ(read_file(folder.media("p010_out.yuv")).size(), frame);
}

TEST_F(EntryTest, TracesAFrameByTheLevelsBits) {
    const Instance instance(8, 4, HI_JACK);
    debug_level = 6;
    log.clear();
    instance.convert1(in, out, nullptr);
    const auto plane = [](const char* record, const char* name, const Plane& p) {
        return std::string("D ") + record + " " + name + " handle is " + std::to_string(p.handle().handle) +
               " size is " + std::to_string(p.handle().size);
    };
    EXPECT_THAT(
        log.texts(),
        ElementsAre(testing::MatchesRegex("D CL_HDR2SDR_ARM_convert1 entry formatter is 0x[0-9a-f]+ intervalCnt is 0"),
                    "D CL_HDR2SDR_ARM_convert1 in_color is P010_LINEAR out color is P010_LINEAR",
                    plane("In_params", "y", in.luma), plane("In_params", "uv", in.chroma),
                    plane("Out_params", "y", out.luma), plane("Out_params", "uv", out.chroma),
                    "D THIS IS HI-JACK VERSION", "D CL_HDR2SDR_ARM_convert1 exit"));

    log.clear();
    in.format = static_cast<_Image_ColorFormat>(6);
    instance.convert1(in, out, nullptr);
    EXPECT_EQ(log.count("D CL_HDR2SDR_ARM_convert1 in_color is Unknown err out color is P010_LINEAR"), 1);
    in.format = P010_LINEAR;

    const Instance normal(8, 4, NORMAL);
    debug_level = 4;
    log.clear();
    out.format = NV12;
    HDR10PLUS_DYNAMIC_INFO info = default_record();
    log.clear();
    normal.convert(in, out, &info);
    EXPECT_THAT(log.texts(), Contains(plane("Out_params", "y", out.luma)));
    EXPECT_THAT(log.texts(), Not(Contains("D THIS IS NORMAL VERSION")));
    EXPECT_THAT(log.texts(), Not(Contains(StartsWith("D map_y_in size()")))); // empty maps are not listed
    EXPECT_EQ(log.count("D print_debug_hdr10plus_metadata country_code is 181 "), 1);
    EXPECT_EQ(log.count("D print_debug_hdr10plus_metadata num_maxrgb_percentiles[3] is 9"), 1);
    EXPECT_EQ(log.count("D print_debug_hdr10plus_metadata maxrgb_percentages[14] is 0"), 1);
    EXPECT_EQ(log.count("D print_debug_hdr10plus_metadata bezier_curve_anchors[8] is 990"), 1);
    const auto metadata_lines = [&] {
        const auto all = log.texts();
        return std::count_if(all.begin(), all.end(), [](const std::string& line) {
            return line.rfind("D print_debug_hdr10plus_metadata ", 0) == 0;
        });
    };
    EXPECT_EQ(metadata_lines(), 6 + 3 + 1 + 1 + 15 + 15 + 4 + 15);

    log.clear();
    debug_level = 6;
    normal.convert(in, out, &info);
    for (const char* map : {"map_y_in", "map_uv_in", "map_y_out", "map_uv_out"}) {
        EXPECT_EQ(log.count(std::string("D ") + map + " size() is 1 and this is the list"), 1);
    }
    EXPECT_THAT(log.texts(), Contains(StartsWith("D print out exported_memory handle is ")).Times(4));
    EXPECT_EQ(log.count("D THIS IS NORMAL VERSION"), 1);
    debug_level = 8; // above 4 but without the bits: nothing
    log.clear();
    normal.convert(in, out, &info);
    EXPECT_TRUE(log.texts().empty());
    debug_level = 1;
}

TEST_F(EntryTest, CollectsTimesFromLevelTwoOn) {
    {
        const Instance instance(8, 4, HI_JACK);
        instance.convert1(in, out, nullptr);
        debug_level = 3;
        instance.convert1(in, out, nullptr);
        instance.convert1(in, out, nullptr);
        log.clear();
    }
    debug_level = 1;
    EXPECT_EQ(log.count("I framecount is 2"), 1);
}

TEST_F(EntryDeathTest, PlanesWithoutDescriptorOrSizeEndTheProcess) {
    const struct {
        _ALGO_t mode;
        bool pool;
        int break_plane; // of input luma, input chroma, output luma, output chroma
        const char* message;
    } cases[] = {
        {HI_JACK, false, 0,
         "converter_vendor:705 CHECK.In_params->buffer.0..handle > 0 && In_params->buffer.0..size > 0. failed"},
        {HI_JACK, false, 1,
         "converter_vendor:706 CHECK.In_params->buffer.1..handle > 0 && In_params->buffer.1..size > 0. failed"},
        {NORMAL, true, 0, "converter_vendor:610 CHECK.In_params->buffer.0."},
        {NORMAL, true, 1, "converter_vendor:611 CHECK.In_params->buffer.1."},
        {HI_JACK, true, 2,
         "converter_vendor:106 CHECK.Out_params->buffer.0..handle > 0 && Out_params->buffer.0..size > 0. failed"},
        {HI_JACK, true, 3, "converter_vendor:107 CHECK.Out_params->buffer.1."},
        {NORMAL, true, 2, "converter_vendor:344 CHECK.Out_params->buffer.0."},
        {NORMAL, true, 3, "converter_vendor:345 CHECK.Out_params->buffer.1."},
    };
    for (const auto& c : cases) {
        EXPECT_EXIT(
            {
                const Instance instance(8, 4, c.mode, c.pool);
                _HDR2SDR_config_params_t params[2];
                params[0] = in.params();
                params[1] = out.params();
                _MULTIPLANE_t& plane = params[c.break_plane / 2].buffer[c.break_plane % 2];
                (c.pool ? plane.size : plane.handle) = 0;
                HDR10PLUS_DYNAMIC_INFO info{};
                const uint32_t static_info[3] = {};
                if (c.pool) CL_HDR2SDR_ARM_convert1(&params[0], &params[1], &info, static_info, instance.handle(), 0);
                CL_HDR2SDR_ARM_convert(&params[0], &params[1], &info, 0, instance.handle());
            },
            testing::ExitedWithCode(134), std::string("ASSERT ..(.*). tag Lumivert: ") + c.message);
    }
}

TEST_F(EntryDeathTest, PlanesThatCannotBeImportedEndTheProcess) {
    const struct {
        _ALGO_t mode;
        bool pool;
        _Image_ColorFormat format;
        int failing_import; // from 1, of the conversion
        const char* message;
    } cases[] = {
        {HI_JACK, false, P010_LINEAR, 2,
         "converter_vendor:188 CHECK.io_p010_y_buffer != nullptr && io_p010_uv_buffer != nullptr. failed"},
        {HI_JACK, true, P010_LINEAR, 1,
         "converter_vendor:124 CHECK.inp_p010_y_buffer != nullptr && inp_p010_uv_buffer != nullptr. failed"},
        {HI_JACK, true, P010_LINEAR, 4,
         "converter_vendor:125 CHECK.out_p010_y_buffer != nullptr && out_p010_uv_buffer != nullptr. failed"},
        {NORMAL, false, NV12, 2,
         "converter_vendor:255 CHECK.input_p010_y != nullptr && input_p010_uv != nullptr. failed"},
        {NORMAL, false, RGBA, 3, "converter_vendor:259 CHECK.formatter->target_rgba_buffer != nullptr. failed"},
        {NORMAL, false, NV12, 4,
         "converter_vendor:263 CHECK.final_nv12_y != nullptr && final_nv12_uv != nullptr. failed"},
        {NORMAL, true, NV12, 1,
         "converter_vendor:353 CHECK.input_p010_y != nullptr && input_p010_uv != nullptr. failed"},
        {NORMAL, true, RGBA, 3, "converter_vendor:358 CHECK.formatter->target_rgba_buffer != nullptr. failed"},
        {NORMAL, true, P010_LINEAR, 3,
         "converter_vendor:371 CHECK.out_p010_y != nullptr && out_p010_uv != nullptr. failed"},
        {NORMAL, true, NV12, 4,
         "converter_vendor:364 CHECK.final_nv12_y != nullptr && final_nv12_uv != nullptr. failed"},
    };
    for (const auto& c : cases) {
        EXPECT_EXIT(
            {
                const Instance instance(8, 4, c.mode, c.pool);
                out.format = c.format;
                HDR10PLUS_DYNAMIC_INFO info{};
                spy::fail("clImportMemoryARM", CL_INVALID_VALUE, c.failing_import);
                c.pool ? instance.convert1(in, out, &info) : instance.convert(in, out, &info);
            },
            testing::ExitedWithCode(134), c.message);
    }
    EXPECT_EXIT(
        {
            const Instance instance(8, 4, NORMAL);
            HDR10PLUS_DYNAMIC_INFO info{};
            spy::fail("clReleaseMemObject", CL_OUT_OF_RESOURCES);
            instance.convert1(in, out, &info);
        },
        testing::ExitedWithCode(134),
        R"(ASSERT \[!\(clReleaseMemObject\(t\) == 0\)\] tag none: formatter:173 CHECK\(clReleaseMemObject\(t\) == CL_SUCCESS\) failed\.)");
}

} // namespace
} // namespace lumivert
