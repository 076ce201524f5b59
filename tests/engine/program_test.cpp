#include <algorithm>
#include <csignal>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine_test.h"
#include "kernels/program_text.h"

namespace lumivert {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;

TEST(BuildIdentifier, IsTheFirstRunWithoutSlashBeforeUserOrEng) {
    const struct {
        const char* fingerprint;
        const char* expected;
    } cases[] = {
        {"brand/product/device:12/ABC1.230101.001/AB12CD34:user/release-keys", "AB12CD34"},
        {"b/p/d:12/ID/77:eng/test-keys", "77"},
        {"b/p/d:12/ID/eng.me:userdebug/test-keys", "eng.me"},
        {"a:user:eng/b:eng", "a:user"}, // the run is as long as it can be
        {"a:user:user/b", "a:user"},
        {"x/:user/y:engine", "y"},
        {"", ""},
        {"brand/product", ""},
        {":user", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Formatter::getAPSoftwareVersion(c.fingerprint), c.expected) << c.fingerprint;

    const std::string endless(1 << 20, 'x');
    EXPECT_EQ(Formatter::getAPSoftwareVersion("b/" + endless + ":user/k"), endless);
    EXPECT_EQ(Formatter::getAPSoftwareVersion(endless), "");
}

class ProgramCache : public EngineTest {
protected:
    /// One engine's compileprogram with the faults set before; takes down the OpenCL calls and lines of it alone.
    int compile(bool c2 = true) {
        int result = 0;
        {
            Formatter engine(6, 4, NORMAL);
            engine.IsC2Base = c2;
            log.clear();
            result = engine.compileprogram();
            lines = log.texts();
            steps = spy::calls_of({"clCreateProgramWithSource", "clCreateProgramWithBinary", "clBuildProgram",
                                   "clReleaseProgram", "clGetProgramBuildInfo"});
        }
        spy::reset();
        return result;
    }

    std::vector<std::string> lines;
    std::vector<std::string> steps;
    const std::string source = "clCreateProgramWithSource 192 terminated";
    const std::string binary = "clCreateProgramWithBinary";
    const std::string build = "clBuildProgram -cl-fast-relaxed-math";
    const std::string expected = "mali_formatter_c2_AB12CD34.bin";
    const std::string path = folder.media(expected);
};

using ProgramCacheDeathTest = ProgramCache; // first, while the process has no driver threads

TEST_F(ProgramCache, IsWrittenFromSourceThenLoadedAndLeftAloneNextTime) {
    EXPECT_EQ(compile(), 0);
    EXPECT_THAT(steps, ElementsAre(source, build, binary, build));
    EXPECT_THAT(folder.media_files(), ElementsAre(expected));
    const std::string written = read_file(path);
    const std::string size = std::to_string(written.size());
    EXPECT_THAT(lines, ElementsAre(StartsWith("I CL_DEVICE_NAME is "), StartsWith("I Full device version is OpenCL "),
                                   "I Creating the new image", "I tryRecompileIfRequired",
                                   "I #### Formatter::makeProgram entry", "I [storeProgram] entry",
                                   "I path is " + path + " ", "I It is running with final binaryPath is " + path,
                                   "I data path open success", "I [compileprogram] size is " + size,
                                   "I [fetchProgram] sz is " + size + " path is " + path));

    EXPECT_EQ(compile(), 0);
    EXPECT_THAT(steps, ElementsAre(binary, build));
    EXPECT_THAT(lines, Contains("I We found fileName is " + expected));
    EXPECT_THAT(lines, Contains("I binaryFileNameExpected: " + expected + " binaryFileNameExisted = " + expected));
    EXPECT_EQ(read_file(path), written);
}

TEST_F(ProgramCache, ReplacesTheFileOfAnotherBuildOrClient) {
    compile();
    EXPECT_EQ(compile(false), 0);
    EXPECT_THAT(lines, Contains("I Creating the new image after deleting the old image"));
    EXPECT_THAT(lines, Contains("I File exist in " + path));
    EXPECT_THAT(lines, Contains("I File was deleted successfully"));
    EXPECT_THAT(folder.media_files(), ElementsAre("mali_formatter_omx_AB12CD34.bin"));

    // Only the first stale file goes; a name that begins the prefix counts as one.
    set_property("ro.build.fingerprint", "");
    EXPECT_EQ(compile(), 0);
    EXPECT_THAT(folder.media_files(), ElementsAre("mali_formatter_c2_.bin"));
    const auto compile_beside = [&](const std::vector<std::string>& names) {
        std::remove(folder.media("mali_formatter_c2_.bin").c_str());
        for (const std::string& name : names)
            write_file(folder.media(name), "x");
        EXPECT_EQ(compile(), 0);
    };
    compile_beside({"mali_for", "unrelated"});
    EXPECT_THAT(folder.media_files(), ElementsAre("mali_formatter_c2_.bin", "unrelated"));
    compile_beside({"mali_formatter_a.bin", "mali_formatter_b.bin"});
    EXPECT_EQ(folder.media_files().size(), 3U);
}

TEST_F(ProgramCacheDeathTest, EndsTheProcessOnWhatCannotBeRepaired) {
    const auto ends = [](const auto& action, const char* message) {
        EXPECT_EXIT(action(), testing::ExitedWithCode(134),
                    std::string("tag Lumivert: cl_formatter_vendor:") + message);
    };
    const auto start = [&] { compile(); };
    for (const char* bytes : {"", "not a program"}) {
        if (*bytes != '\0' && on_rusticl()) continue; // 22.3 panics on it
        write_file(path, bytes);
        ends(start, R"(416 CHECK\(error == CL_SUCCESS\) failed\.)");
    }
    // Neither a folder nor a file that no memory can hold can be read.
    std::remove(path.c_str());
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    ends(start, R"(412 CHECK\(temp.good\(\)\) failed\.)");
    ASSERT_EQ(rmdir(path.c_str()), 0);
    write_file(path, "");
    if (truncate(path.c_str(), off_t{1} << (sizeof(off_t) > 4 ? 42 : 30)) == 0) {
        ends(start, R"(412 CHECK\(temp.good\(\)\) failed\.)");
    }
    write_file(path, "not a program");
    const auto fetch = [&] {
        int status = 0;
        Formatter(6, 4, NORMAL).fetchProgram(status, path, read_file(path).size() + 1); // it became shorter since
    };
    ends(fetch, R"(412 CHECK\(temp.good\(\)\) failed\.)");
    std::remove(path.c_str());
    const auto make_unknown = [] {
        Formatter engine(6, 4, NORMAL);
        engine.compileprogram();
        engine.make_kernel("no_such_kernel");
    };
    ends(make_unknown, R"(238 CHECK\(0\) failed\.)");
    const auto fill_disk = [] {
        Formatter engine(6, 4, NORMAL);
        engine.makeProgram();
        engine.storeProgram("/dev/full");
    };
    ends(fill_disk, "482 CHECK");
    const auto fill_partition = [&] {
        Formatter engine(6, 4, NORMAL);
        engine.makeProgram();
        EXPECT_TRUE(engine.storeProgram(path)); // the driver's own files are written by now
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit room = {4096, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &room);
        engine.storeProgram(path);
    };
    ends(fill_partition, "482 CHECK");
    EXPECT_THAT(folder.media_files(), ElementsAre()); // not even a part of it: the next init starts afresh
    setenv("ANDROID_DATA", "/nonexistent", 1);
    ends(start, R"(482 CHECK\(stream.good\(\)\) failed\.)");
    std::string name;
    EXPECT_FALSE(Formatter::getExistedFileName(name));
    EXPECT_EQ(log.texts().back(), "E Can not open this folder");
}

TEST_F(ProgramCache, RebuildsAFileThatCannotBeOpened) {
    // A dangling link is found by name but does not open; it is written through.
    ASSERT_EQ(symlink(folder.media("elsewhere").c_str(), path.c_str()), 0);
    EXPECT_EQ(compile(), 0);
    EXPECT_THAT(lines, Contains("I data path open fail. It is trying to rebuild program"));
    EXPECT_THAT(steps, ElementsAre(source, build, build));
    EXPECT_THAT(lines, Not(Contains("I data path open success")));
}

TEST_F(ProgramCache, ReportsAFailedFinalBuildByLogOnly) {
    compile();
    spy::fail("clBuildProgram", CL_BUILD_PROGRAM_FAILURE);
    EXPECT_EQ(compile(), 0);
    steps.erase(std::unique(steps.begin(), steps.end()), steps.end()); // a driver may have no log to give
    EXPECT_THAT(steps, ElementsAre(binary, build, "clGetProgramBuildInfo 4483", "clGetProgramBuildInfo 4481",
                                   "clReleaseProgram"));
    EXPECT_THAT(lines, Contains(StartsWith("E clGetProgramBuildInfo : ")));

    spy::fail("clBuildProgram", CL_BUILD_PROGRAM_FAILURE);
    spy::fail("clGetProgramBuildInfo", CL_INVALID_VALUE, 1, 4);
    spy::fail("clReleaseProgram", CL_INVALID_PROGRAM, 1, 2);
    EXPECT_EQ(compile(), CL_INVALID_VALUE);
    EXPECT_THAT(lines, Contains(failure_line("compileprogram", "CL_INVALID_VALUE", 619)));
    EXPECT_THAT(lines, Contains("E clGetProgramBuildInfo : "));
    EXPECT_THAT(lines, Contains(failure_line("compileprogram", "CL_INVALID_VALUE", 622)));
    EXPECT_THAT(lines, Contains(failure_line("compileprogram", "CL_INVALID_PROGRAM", 628)));

    const std::string of = " the specified program object for device";
    const std::string last = "the last call to clBuildProgram on" + of;
    const std::pair<cl_build_status, std::string> statuses[] = {
        {-3, "_IN_PROGRESS : " + last + " has not finished. "},
        {-2, "_ERROR : " + last + " generated an error "},
        {-1, "_NONE : no build has been performed on" + of},
        {0, "_SUCCESS :" + last + " was successful.  "},
    };
    for (const auto& [status, text] : statuses) {
        spy::fail("clBuildProgram", CL_BUILD_PROGRAM_FAILURE);
        spy::answer_build_status(status);
        compile();
        EXPECT_THAT(lines, Contains("I CL_BUILD" + text));
    }
}

TEST_F(ProgramCache, RebuildsABinaryThatDoesNotSuitTheDevice) {
    compile();
    if (!on_rusticl()) write_file(path, read_file(path) + std::string(100000, '#')); // 22.3 panics on it
    spy::answer_binary_status(CL_INVALID_BINARY);
    EXPECT_EQ(compile(), 0);
    EXPECT_EQ(read_file(path).find("####"), std::string::npos) << "the file is written anew";
    EXPECT_THAT(lines, Contains("I It trys to build the source in case of prebuilt binary is not compatible with "
                                "current device"));
    EXPECT_THAT(steps, ElementsAre(binary, "clReleaseProgram", source, build, build));
    spy::answer_binary_status(CL_INVALID_BINARY);
    spy::fail("clGetProgramInfo", CL_OUT_OF_RESOURCES, 1, 9); // nothing can be stored: no final build
    EXPECT_EQ(compile(), 0);
    EXPECT_THAT(steps, ElementsAre(binary, source, build));
}

TEST_F(ProgramCache, StoresWhatTheQueriesGive) {
    Formatter engine(6, 4, NORMAL);
    engine.makeProgram();
    for (const auto& [query, tag] : {std::pair{1, 432}, {2, 0}, {3, 445}, {4, 0}}) {
        log.clear();
        spy::reset();
        spy::fail("clGetProgramInfo", CL_OUT_OF_RESOURCES, query, tag != 0 ? 2 : 1);
        EXPECT_FALSE(engine.storeProgram(path)) << query;
        EXPECT_EQ(log.texts().back(),
                  tag != 0 ? failure_line("storeProgram", "CL_OUT_OF_RESOURCES", tag) : "I [storeProgram] entry");
    }
    spy::reset();
    spy::fail("clGetProgramInfo", CL_OUT_OF_RESOURCES, 3);
    EXPECT_FALSE(engine.tryRecompileIfRequired(path));
    EXPECT_EQ(log.texts().back(), "E Fail to write program bin. It just fall back");

    const cl_device_id own = std::exchange(engine.mDevice, nullptr);
    EXPECT_TRUE(engine.storeProgram(path)); // no binary for this device: nothing is written, and that is success
    EXPECT_THAT(folder.media_files(), ElementsAre());
    engine.mDevice = own;
    EXPECT_TRUE(engine.storeProgram(path));
    EXPECT_GT(read_file(path).size(), 0U);
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
    lines = log.texts();
    lines.resize(3);
    EXPECT_THAT(lines, ElementsAre("E [make_kernel] error 224 CL_INVALID_PROGRAM_EXECUTABLE",
                                   "I It is trying to rebuild program and kernel", "I File exist in " + path));
    const std::string create = "clCreateKernel rgba8888_to_p010";
    EXPECT_THAT(spy::calls_of({"clReleaseProgram", "clCreateProgramWithSource", "clCreateKernel"}),
                ElementsAre(create, "clReleaseProgram", source, create));
    EXPECT_THAT(folder.media_files(), ElementsAre(expected));
}

} // namespace
} // namespace lumivert
