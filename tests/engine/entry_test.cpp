#include <csignal>
#include <cstdlib>
#include <new>

#include <sys/wait.h>
#include <unistd.h>

#include "engine_test.h"

namespace {

thread_local bool g_out_of_memory = false; // for operator new in this thread

void* allocate(std::size_t size) {
    return g_out_of_memory ? nullptr : std::malloc(std::max<std::size_t>(size, 1));
}

} // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    if (void* memory = allocate(size)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t& /*unused*/) noexcept {
    return allocate(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*unused*/) noexcept {
    std::free(memory);
}

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

TEST_F(EntryTest, InitMakesWhatItsModeNeeds) {
    const struct {
        _ALGO_t mode;
        bool c2;
        std::vector<std::string> calls;
    } cases[] = {
        {NORMAL,
         true,
         {"clCreateKernel p010_to_rgba8888_process_10plus_clut", "clCreateKernel rgba8888_to_nv12",
          "clCreateKernel rgba8888_to_p010", "clCreateBuffer 1 1024", "clImportMemoryARM host 256",
          "clImportMemoryARM host 256"}},
        {HI_JACK,
         true,
         {"clCreateKernel process_hdr_to_sdr_1000_inout", "clCreateKernel process_hdr_to_sdr_4000_inout"}},
        {HI_JACK, false, {"clCreateKernel process_hdr_to_sdr_io_1000", "clCreateKernel process_hdr_to_sdr_io_4000"}},
    };
    for (const auto& c : cases) {
        spy::reset();
        log.clear();
        const Instance instance(10, 6, c.mode, c.c2);
        EXPECT_EQ(spy::calls_of({"clCreateKernel", "clCreateBuffer", "clImportMemoryARM"}), c.calls);
        EXPECT_EQ(engine_of(instance).mState, 1);
        EXPECT_EQ(engine_of(instance).IsC2Base, c.c2);
        EXPECT_THAT(log.texts(),
                    Contains(testing::MatchesRegex(
                        std::string("I \\[CL_HDR2SDR_ARM_init\\] vendor entry IsC2Base is ") + (c.c2 ? "1" : "0") +
                        " formatter is 0x[0-9a-f]+ mode is " + (c.mode == NORMAL ? "NORMAL" : "HI_JACK"))));
        EXPECT_EQ(log.texts().back(), "I CL_HDR2SDR_ARM_init exit");
    }
}

TEST_F(EntryTest, AnyNumberButZeroStandsForCodec2) {
    for (const int32_t number : {2, -1}) {
        void* handle = nullptr;
        ASSERT_EQ(CL_HDR2SDR_ARM_init(8, 4, HI_JACK, &handle, number), 1);
        EXPECT_TRUE(static_cast<Formatter*>(handle)->IsC2Base);
        CL_HDR2SDR_ARM_deinit(handle);
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
    for (const auto& [text, level] : {std::pair{"7", 7}, {"x", 0}, {"", 1}}) {
        set_property("vendor.Lumivert.debug.level", text);
        const Instance instance(8, 4, HI_JACK);
        EXPECT_EQ(debug_level, level) << text;
    }
    for (const auto& [text, request] : {std::pair{"1", 1}, {"x", 0}, {"", 0}}) {
        set_property("vendor.Lumivert.debug.dump", text);
        const Instance instance(8, 4, HI_JACK);
        EXPECT_EQ(dump_request, request) << text;
    }
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
    EXPECT_EQ(engine_of(instance).mState, 1);

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
    EXPECT_EQ(engine_of(instance).mState, 2);

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
    EXPECT_EQ(engine_of(instance).mDynamicInfo->knee_point_y, 320);
    EXPECT_EQ(engine_of(instance).mState, 2);

    const uint32_t dim[] = {1, 40000000, 8000000}; // MaxCLL of 800 decides
    debug_level = 0;
    log.clear();
    EXPECT_EQ(CL_HDR2SDR_ARM_convert1(&i, &o, nullptr, dim, instance.handle(), 0), 1);
    EXPECT_THAT(log.texts(), ElementsAre(StartsWith("I HDR Static Info available : maxCll = 800.0")));
    EXPECT_EQ(engine_of(instance).mDynamicInfo->knee_point_y, 132);
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
    EXPECT_TRUE(engine_of(instance).mFrameTimes.empty()); // they are collected from level 2 on
    debug_level = 2;
    instance.convert1(in, out, nullptr);
    EXPECT_EQ(engine_of(instance).mFrameTimes.size(), 1U);
    debug_level = 1;
}

TEST_F(EntryTest, TheMastersPeakSelectsTheTable) {
    const Instance pool(8, 4, HI_JACK, true);
    const Instance retained(8, 4, HI_JACK, false);
    const struct {
        bool pool;     ///< takes 0.0001 cd/m2, rounded in single precision; else cd/m2
        uint32_t peak; ///< of the mastering display
        const char* kernel;
    } cases[] = {
        {true, 0, "1000_inout"},        {true, 10004999, "1000_inout"}, {true, 10005000, "4000_inout"},
        {true, 40004997, "4000_inout"}, {true, 40004998, "1000_inout"}, {true, 4294967295U, "1000_inout"},
        {false, 0, "io_1000"},          {false, 1000, "io_1000"},       {false, 1001, "io_4000"},
        {false, 4000, "io_4000"},       {false, 4001, "io_1000"},       {false, 4294967295U, "io_1000"},
    };
    for (const auto& c : cases) {
        spy::reset();
        c.pool ? pool.convert1(in, out, nullptr, c.peak) : retained.convert(in, in, nullptr, c.peak);
        EXPECT_THAT(spy::calls_of({"clEnqueueNDRangeKernel"}),
                    ElementsAre(std::string("clEnqueueNDRangeKernel process_hdr_to_sdr_") + c.kernel + " 4x2"))
            << c.peak;
    }
}

/// The complete traces are in life_test.cpp.
TEST_F(EntryTest, TracesAFrameByTheLevelsBits) {
    const Instance pool(8, 4, HI_JACK);
    const Instance retained(8, 4, HI_JACK, false);
    const Instance normal(8, 4, NORMAL);
    HDR10PLUS_DYNAMIC_INFO info = default_record();
    const auto plane = [](const char* record, const char* name, const Plane& p) {
        return std::string("D ") + record + " " + name + " handle is " + std::to_string(p.handle().handle) +
               " size is " + std::to_string(p.handle().size);
    };
    const auto at_level = [&](int level) {
        debug_level = level;
        log.clear();
    };
    const auto lines_from = [&](const std::string& start) {
        const auto all = log.texts();
        return std::count_if(all.begin(), all.end(),
                             [&](const std::string& line) { return line.rfind(start, 0) == 0; });
    };

    at_level(6);
    in.format = static_cast<_Image_ColorFormat>(6);
    pool.convert1(in, out, nullptr);
    EXPECT_EQ(log.count("D CL_HDR2SDR_ARM_convert1 in_color is Unknown err out color is P010_LINEAR"), 1);
    in.format = P010_LINEAR;
    retained.convert(in, in, nullptr);
    at_level(4);
    retained.convert(in, in, nullptr);
    EXPECT_EQ(lines_from("D map_"), 2);
    EXPECT_EQ(lines_from("D print out"), 0);
    at_level(6);
    retained.convert(in, in, nullptr);
    EXPECT_EQ(lines_from("D print out exported_memory handle is "), 2);

    at_level(4);
    out.format = NV12;
    normal.convert(in, out, &info);
    EXPECT_THAT(log.texts(), Contains(plane("Out_params", "y", out.luma)));
    EXPECT_EQ(log.count("D THIS IS NORMAL VERSION"), 0);
    EXPECT_EQ(lines_from("D map_y_in size()"), 0); // empty maps are not listed
    at_level(6);
    normal.convert(in, out, &info);
    for (const char* map : {"map_y_in", "map_uv_in", "map_y_out", "map_uv_out"})
        EXPECT_EQ(log.count(std::string("D ") + map + " size() is 1 and this is the list"), 1);
    EXPECT_EQ(log.count("D THIS IS NORMAL VERSION"), 1);
    at_level(8); // above 4 but without the bits
    normal.convert(in, out, &info);
    EXPECT_THAT(log.texts(), ElementsAre());
    debug_level = 1;
}

/// Ends in the conversion: a plane without descriptor or size, or a failing import, counted from 1.
TEST_F(EntryDeathTest, PlanesThatCannotBeUsedEndTheProcess) {
    const auto planes = [](const std::string& params, int plane) {
        const std::string record = params + "->buffer." + std::to_string(plane) + ".";
        return record + ".handle > 0 && " + record + ".size > 0";
    };
    const auto two = [](const std::string& name) { return name + "y" + " != nullptr && " + name + "uv != nullptr"; };
    const auto buffers = [](const std::string& name) {
        return name + "y_buffer != nullptr && " + name + "uv_buffer != nullptr";
    };
    const std::string target = "formatter->target_rgba_buffer != nullptr";
    const struct {
        _ALGO_t mode;
        bool pool;
        _Image_ColorFormat format;
        int broken_plane; ///< of input luma, input chroma, output luma, output chroma
        int failing_import;
        int line;
        std::string condition;
    } cases[] = {
        {HI_JACK, false, P010_LINEAR, 0, 0, 705, planes("In_params", 0)},
        {HI_JACK, false, P010_LINEAR, 1, 0, 706, planes("In_params", 1)},
        {NORMAL, true, NV12, 0, 0, 610, planes("In_params", 0)},
        {NORMAL, true, NV12, 1, 0, 611, planes("In_params", 1)},
        {HI_JACK, true, P010_LINEAR, 2, 0, 106, planes("Out_params", 0)},
        {HI_JACK, true, P010_LINEAR, 3, 0, 107, planes("Out_params", 1)},
        {NORMAL, true, NV12, 2, 0, 344, planes("Out_params", 0)},
        {NORMAL, true, NV12, 3, 0, 345, planes("Out_params", 1)},
        {HI_JACK, false, P010_LINEAR, -1, 2, 188, buffers("io_p010_")},
        {HI_JACK, true, P010_LINEAR, -1, 1, 124, buffers("inp_p010_")},
        {HI_JACK, true, P010_LINEAR, -1, 4, 125, buffers("out_p010_")},
        {NORMAL, false, NV12, -1, 2, 255, two("input_p010_")},
        {NORMAL, false, RGBA, -1, 3, 259, target},
        {NORMAL, false, NV12, -1, 4, 263, two("final_nv12_")},
        {NORMAL, true, NV12, -1, 1, 353, two("input_p010_")},
        {NORMAL, true, RGBA, -1, 3, 358, target},
        {NORMAL, true, P010_LINEAR, -1, 3, 371, two("out_p010_")},
        {NORMAL, true, NV12, -1, 4, 364, two("final_nv12_")},
    };
    HDR10PLUS_DYNAMIC_INFO info{};
    const uint32_t static_info[3] = {};
    for (const auto& c : cases) {
        const auto convert = [&] {
            const Instance instance(8, 4, c.mode, c.pool);
            out.format = c.format;
            _HDR2SDR_config_params_t params[] = {in.params(), out.params()};
            if (c.broken_plane >= 0) {
                _MULTIPLANE_t& plane = params[c.broken_plane / 2].buffer[c.broken_plane % 2];
                (c.pool ? plane.size : plane.handle) = 0;
            }
            if (c.failing_import > 0) spy::fail("clImportMemoryARM", CL_INVALID_VALUE, c.failing_import);
            if (c.pool) CL_HDR2SDR_ARM_convert1(&params[0], &params[1], &info, static_info, instance.handle(), 0);
            CL_HDR2SDR_ARM_convert(&params[0], &params[1], &info, 0, instance.handle());
        };
        EXPECT_EXIT(convert(), testing::ExitedWithCode(134),
                    "tag Lumivert: converter_vendor:" + std::to_string(c.line) + " CHECK." + c.condition + ". failed");
    }
    EXPECT_EXIT(
        {
            const Instance instance(8, 4, NORMAL);
            spy::fail("clReleaseMemObject", CL_OUT_OF_RESOURCES);
            instance.convert1(in, out, &info);
        },
        testing::ExitedWithCode(134),
        R"(ASSERT \[!\(clReleaseMemObject\(t\) == 0\)\] tag none: formatter:173 CHECK\(clReleaseMemObject\(t\) == CL_SUCCESS\) failed\.)");
}

/// Planes whose descriptor was closed, or whose memory was cut off, before a frame and between frames.
TEST_F(EntryDeathTest, PlanesThatVanishEndTheProcessOrChangeNothingElse) {
    HDR10PLUS_DYNAMIC_INFO info = default_record();
    out.format = NV12;
    _HDR2SDR_config_params_t in_params = in.params();
    _HDR2SDR_config_params_t out_params = out.params();
    const auto convert_after = [&](bool pool, int frames_before, const auto& event) {
        alarm(600); // a hang is a failure
        const Instance instance(8, 4, NORMAL, pool);
        const uint32_t static_info[3] = {};
        const auto convert = [&] {
            return pool ? CL_HDR2SDR_ARM_convert1(&in_params, &out_params, &info, static_info, instance.handle(), 0)
                        : CL_HDR2SDR_ARM_convert(&in_params, &out_params, &info, 0, instance.handle());
        };
        for (int i = 0; i < frames_before; ++i)
            convert();
        event();
        std::_Exit(convert());
    };
    const int plane = out.luma.handle().handle;
    const auto cut_off = [&] { EXPECT_EQ(ftruncate(plane, 0), 0); };
    const auto close_it = [&] { close(plane); };
    const auto refused = testing::ExitedWithCode(134);
    EXPECT_EXIT(convert_after(true, 1, close_it), refused, "converter_vendor:364 CHECK");
    EXPECT_EXIT(convert_after(false, 0, close_it), refused, "converter_vendor:263 CHECK");
    // A retained import lives on without its descriptor, and does not reach what takes the descriptor's number.
    const Plane other(4096);
    const std::string untouched = other.contents();
    const auto give_its_number_away = [&] { dup2(other.handle().handle, plane); };
    EXPECT_EXIT(convert_after(false, 1, give_its_number_away), testing::ExitedWithCode(1), "");
    EXPECT_EQ(other.contents(), untouched);
    // Memory that is cut off under a retained import is gone: the access ends the process, at once. An import refuses
    // it.
    const auto ends = [](int status) { return WIFSIGNALED(status) ? WTERMSIG(status) == SIGBUS : status != 0; };
    EXPECT_EXIT(convert_after(false, 1, cut_off), ends, "");
    EXPECT_EXIT(convert_after(true, 1, cut_off), refused, "converter_vendor:364 CHECK");
}

TEST_F(EntryDeathTest, NoExceptionLeavesAnEntryPoint) {
    HDR10PLUS_DYNAMIC_INFO info = default_record();
    const auto without_memory = [](const auto& call) {
        try {
            g_out_of_memory = true;
            call();
        } catch (...) {
        }
        std::_Exit(0);
    };
    EXPECT_EXIT(without_memory([] { const Instance instance(8, 4, NORMAL); }), testing::KilledBySignal(SIGABRT),
                "bad_alloc");
    const auto convert_without_memory = [&] { // a plane that is seen for the first time takes an entry of a table
        const Instance instance(8, 4, NORMAL, false);
        without_memory([&] { instance.convert(in, out, &info); });
    };
    EXPECT_EXIT(convert_without_memory(), testing::KilledBySignal(SIGABRT), "bad_alloc");
}

} // namespace
} // namespace lumivert
