#include <algorithm>

#include "instance.h"
#include "kernels/program_text.h"

namespace lumivert {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

TEST(BuildIdentifier, IsTheFirstRunWithoutSlashBeforeUserOrEng) {
    const struct {
        const char* fingerprint;
        const char* expected;
    } cases[] = {
        {"brand/product/device:12/ABC1.230101.001/AB12CD34:user/release-keys", "AB12CD34"},
        {"b/p/d:12/ID/77:eng/test-keys", "77"},
        {"b/p/d:12/ID/eng.me:userdebug/test-keys", "eng.me"},
        {"a:user:eng/b:eng", "a:user"}, // the run is as long as it can be
        {"x/:user/y:engine", "y"},
        {"", ""},
        {"brand/product", ""},
        {":user", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Formatter::getAPSoftwareVersion(c.fingerprint), c.expected) << c.fingerprint;
}

class ProgramCache : public EngineTest {
protected:
    ProgramCache() { debug_level = 1; }

    /// One engine's compileprogram, with the OpenCL calls and lines of it alone.
    int compile(bool c2 = true) {
        Formatter engine(6, 4, NORMAL);
        engine.IsC2Base = c2;
        log.clear();
        spy::reset();
        for (const auto& injected : injections)
            spy::fail(std::get<0>(injected), std::get<1>(injected), 1, std::get<2>(injected));
        spy::answer_binary_status(binary_status);
        spy::answer_build_status(build_status);
        const int result = engine.compileprogram();
        lines = log.texts();
        steps = spy::calls_of({"clCreateProgramWithSource", "clCreateProgramWithBinary", "clBuildProgram",
                               "clReleaseProgram", "clGetProgramBuildInfo"});
        spy::reset();
        return result;
    }

    /// What the death of a compileprogram prints.
    void compile_dies(const char* message) { EXPECT_EXIT(compile(), testing::ExitedWithCode(134), message); }

    std::vector<std::tuple<std::string, cl_int, int>> injections;
    cl_int binary_status = CL_SUCCESS;
    cl_build_status build_status = 1; // the driver's
    std::vector<std::string> lines;
    std::vector<std::string> steps;
    const std::string build = "clBuildProgram -cl-fast-relaxed-math";
    const std::string expected = "mali_formatter_c2_AB12CD34.bin";
};

using ProgramCacheDeathTest = ProgramCache; // first, while the process has no driver threads

TEST_F(ProgramCache, IsWrittenFromSourceThenLoadedAndLeftAloneNextTime) {
    EXPECT_EQ(compile(), 0);
    EXPECT_THAT(steps,
                ElementsAre("clCreateProgramWithSource 192 terminated", build, "clCreateProgramWithBinary", build));
    EXPECT_THAT(folder.media_files(), ElementsAre(expected));
    const std::string path = folder.media(expected);
    const std::string size = std::to_string(read_file(path).size());
    EXPECT_THAT(lines,
                ElementsAre(testing::StartsWith("I CL_DEVICE_NAME is "),
                            testing::StartsWith("I Full device version is OpenCL "), "I Creating the new image",
                            "I tryRecompileIfRequired", "I #### Formatter::makeProgram entry", "I [storeProgram] entry",
                            "I path is " + path + " ", "I It is running with final binaryPath is " + path,
                            "I data path open success", "I [compileprogram] size is " + size,
                            "I [fetchProgram] sz is " + size + " path is " + path));

    const std::string written = read_file(path);
    EXPECT_EQ(compile(), 0);
    EXPECT_THAT(steps, ElementsAre("clCreateProgramWithBinary", build));
    EXPECT_THAT(lines, Contains("I We found fileName is " + expected));
    EXPECT_THAT(lines, Contains("I binaryFileNameExpected: " + expected + " binaryFileNameExisted = " + expected));
    EXPECT_EQ(read_file(path), written);
}

TEST_F(ProgramCache, ReplacesTheFileOfAnotherBuildOrClient) {
    compile();
    EXPECT_EQ(compile(false), 0);
    EXPECT_THAT(lines, Contains("I Creating the new image after deleting the old image"));
    EXPECT_THAT(lines, Contains("I File exist in " + folder.media(expected)));
    EXPECT_THAT(lines, Contains("I File was deleted successfully"));
    EXPECT_THAT(folder.media_files(), ElementsAre("mali_formatter_omx_AB12CD34.bin"));

    set_property("ro.build.fingerprint", "");
    EXPECT_EQ(compile(), 0);
    EXPECT_THAT(folder.media_files(), ElementsAre("mali_formatter_c2_.bin"));

    // Only the first stale file goes; a name that begins the prefix counts as one.
    std::remove(folder.media("mali_formatter_c2_.bin").c_str());
    write_file(folder.media("mali_for"), "x");
    write_file(folder.media("unrelated"), "x");
    EXPECT_EQ(compile(), 0);
    EXPECT_THAT(folder.media_files(), ElementsAre("mali_formatter_c2_.bin", "unrelated"));
    write_file(folder.media("mali_formatter_a.bin"), "x");
    write_file(folder.media("mali_formatter_b.bin"), "x");
    std::remove(folder.media("mali_formatter_c2_.bin").c_str());
    EXPECT_EQ(compile(), 0);
    EXPECT_EQ(folder.media_files().size(), 3U);
}

TEST_F(ProgramCacheDeathTest, EndsTheProcessOnAFileTheDriverRefuses) {
    for (const char* bytes : {"", "not a program"}) {
        write_file(folder.media(expected), bytes);
        compile_dies(
            R"(ASSERT \[!\(error == 0\)\] tag Lumivert: cl_formatter_vendor:416 CHECK\(error == CL_SUCCESS\) failed\.)");
    }
}

TEST_F(ProgramCacheDeathTest, EndsTheProcessWhereItCannotBeWritten) {
    setenv("ANDROID_DATA", "/nonexistent", 1);
    compile_dies(R"(tag Lumivert: cl_formatter_vendor:482 CHECK\(stream.good\(\)\) failed\.)");
}

TEST_F(ProgramCache, RebuildsAFileThatCannotBeOpened) {
    // A dangling link is found by name but does not open; it is written through.
    ASSERT_EQ(symlink(folder.media("elsewhere").c_str(), folder.media(expected).c_str()), 0);
    EXPECT_EQ(compile(), 0);
    EXPECT_THAT(lines, Contains("I data path open fail. It is trying to rebuild program"));
    EXPECT_THAT(steps, ElementsAre("clCreateProgramWithSource 192 terminated", build, build));
    EXPECT_THAT(lines, Not(Contains("I data path open success")));
}

TEST_F(ProgramCache, ReportsAFailedFinalBuildByLogOnly) {
    compile();
    injections = {{"clBuildProgram", CL_BUILD_PROGRAM_FAILURE, 1}};
    EXPECT_EQ(compile(), 0);
    steps.erase(std::unique(steps.begin(), steps.end()), steps.end()); // a driver may have no log to give
    EXPECT_THAT(steps, ElementsAre("clCreateProgramWithBinary", build, "clGetProgramBuildInfo 4483",
                                   "clGetProgramBuildInfo 4481", "clReleaseProgram"));
    EXPECT_THAT(lines, Contains(testing::StartsWith("E clGetProgramBuildInfo : ")));
    EXPECT_THAT(lines,
                Contains("I CL_BUILD_NONE : no build has been performed on the specified program object for device"));

    injections.emplace_back("clGetProgramBuildInfo", CL_INVALID_VALUE, 4);
    injections.emplace_back("clReleaseProgram", CL_INVALID_PROGRAM, 2);
    EXPECT_EQ(compile(), CL_INVALID_VALUE);
    EXPECT_THAT(lines, Contains(failure_line("compileprogram", "CL_INVALID_VALUE", 619)));
    EXPECT_THAT(lines, Contains("E clGetProgramBuildInfo : "));
    EXPECT_THAT(lines, Contains(failure_line("compileprogram", "CL_INVALID_VALUE", 622)));
    EXPECT_THAT(lines, Contains(failure_line("compileprogram", "CL_INVALID_PROGRAM", 628)));
}

TEST_F(ProgramCache, NamesTheBuildStatus) {
    compile();
    const std::pair<cl_build_status, const char*> cases[] = {
        {-3, "I CL_BUILD_IN_PROGRESS : the last call to clBuildProgram on the specified program object for device has "
             "not finished. "},
        {-2, "I CL_BUILD_ERROR : the last call to clBuildProgram on the specified program object for device generated "
             "an error "},
        {0, "I CL_BUILD_SUCCESS :the last call to clBuildProgram on the specified program object for device was "
            "successful.  "},
    };
    injections = {{"clBuildProgram", CL_BUILD_PROGRAM_FAILURE, 1}};
    for (const auto& [status, text] : cases) {
        build_status = status;
        compile();
        EXPECT_THAT(lines, Contains(text));
    }
    build_status = 7;
    compile();
    EXPECT_THAT(lines, Not(Contains(testing::StartsWith("I CL_BUILD_"))));
}

TEST_F(ProgramCache, RebuildsABinaryThatDoesNotSuitTheDevice) {
    compile();
    binary_status = CL_INVALID_BINARY;
    EXPECT_EQ(compile(), 0);
    const std::string line =
        "I It trys to build the source in case of prebuilt binary is not compatible with current device";
    EXPECT_THAT(lines, Contains(line));
    EXPECT_THAT(steps, ElementsAre("clCreateProgramWithBinary", "clReleaseProgram",
                                   "clCreateProgramWithSource 192 terminated", build, build));
    injections = {{"clGetProgramInfo", CL_OUT_OF_RESOURCES, 9}}; // nothing can be stored: no final build
    EXPECT_EQ(compile(), 0);
    EXPECT_THAT(steps, ElementsAre("clCreateProgramWithBinary", "clCreateProgramWithSource 192 terminated", build));
}

TEST_F(ProgramCacheDeathTest, EndsTheProcessOnAFileShorterThanItWas) {
    write_file(folder.media(expected), "four");
    EXPECT_EXIT(
        {
            Formatter engine(6, 4, NORMAL);
            int status = 0;
            engine.fetchProgram(status, folder.media(expected), 5);
        },
        testing::ExitedWithCode(134),
        R"(ASSERT \[!\(temp.good\(\)\)\] tag Lumivert: cl_formatter_vendor:412 CHECK\(temp.good\(\)\) failed\.)");
}

TEST_F(ProgramCache, StoresWhatTheQueriesGive) {
    Formatter engine(6, 4, NORMAL);
    engine.makeProgram();
    const std::string path = folder.media("stored.bin");
    const struct {
        int failing_query; // of NUM_DEVICES, DEVICES, BINARY_SIZES, BINARIES
        int times;
        std::vector<std::string> expected;
    } cases[] = {
        {1, 2, {"I [storeProgram] entry", failure_line("storeProgram", "CL_OUT_OF_RESOURCES", 432)}},
        {2, 1, {"I [storeProgram] entry"}},
        {3, 2, {"I [storeProgram] entry", failure_line("storeProgram", "CL_OUT_OF_RESOURCES", 445)}},
        {4, 1, {"I [storeProgram] entry"}},
    };
    for (const auto& c : cases) {
        log.clear();
        spy::reset();
        spy::fail("clGetProgramInfo", CL_OUT_OF_RESOURCES, c.failing_query, c.times);
        EXPECT_FALSE(engine.storeProgram(path)) << c.failing_query;
        EXPECT_EQ(log.texts(), c.expected);
    }
    spy::reset();
    const cl_device_id own = engine.mDevice;
    engine.mDevice = nullptr; // no binary for this device: nothing is written, and that is success
    EXPECT_TRUE(engine.storeProgram(path));
    EXPECT_EQ(access(path.c_str(), F_OK), -1);
    engine.mDevice = own;
    EXPECT_TRUE(engine.storeProgram(path));
    EXPECT_GT(read_file(path).size(), 0U);

    log.clear();
    spy::fail("clGetProgramInfo", CL_OUT_OF_RESOURCES, 3);
    EXPECT_FALSE(engine.tryRecompileIfRequired(path));
    EXPECT_EQ(log.texts().back(), "E Fail to write program bin. It just fall back");
}

TEST_F(ProgramCache, KernelsAreKeptByNameAndRecoverOnce) {
    Formatter engine(6, 4, NORMAL);
    engine.compileprogram();
    engine.make_kernel("rgba8888_to_nv12");
    const cl_kernel kernel = engine.find_kernel("rgba8888_to_nv12");
    engine.make_kernel("rgba8888_to_nv12");
    EXPECT_EQ(engine.find_kernel("rgba8888_to_nv12"), kernel);
    EXPECT_EQ(engine.mKernels->size(), 1U);
    EXPECT_EQ(engine.find_kernel("rgba8888_to_p010"), nullptr);
    EXPECT_EQ(log.texts().back(), "E It is not found among the compiled kernels! kernel_name is rgba8888_to_p010");

    log.clear();
    spy::reset();
    spy::fail("clCreateKernel", CL_INVALID_PROGRAM_EXECUTABLE);
    engine.make_kernel("rgba8888_to_p010");
    EXPECT_NE(engine.find_kernel("rgba8888_to_p010"), nullptr);
    EXPECT_EQ(log.texts()[0], "E [make_kernel] error 224 CL_INVALID_PROGRAM_EXECUTABLE");
    EXPECT_EQ(log.texts()[1], "I It is trying to rebuild program and kernel");
    EXPECT_EQ(log.texts()[2], "I File exist in " + folder.media(expected));
    EXPECT_THAT(spy::calls_of({"clReleaseProgram", "clCreateProgramWithSource", "clCreateKernel"}),
                ElementsAre("clCreateKernel rgba8888_to_p010", "clReleaseProgram",
                            "clCreateProgramWithSource 192 terminated", "clCreateKernel rgba8888_to_p010"));
    EXPECT_THAT(folder.media_files(), ElementsAre(expected));
}

TEST_F(ProgramCacheDeathTest, EndsTheProcessWhenAKernelCannotBeMadeTwice) {
    EXPECT_EXIT(
        {
            Formatter engine(6, 4, NORMAL);
            engine.compileprogram();
            engine.make_kernel("no_such_kernel");
        },
        testing::ExitedWithCode(134), R"(ASSERT \[!\(0\)\] tag Lumivert: cl_formatter_vendor:238 CHECK\(0\) failed\.)");
}

} // namespace
} // namespace lumivert
