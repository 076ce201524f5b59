/// Every OpenCL call of every entry point and mode fails once, twice, and from then on, in a process of its own.
/// Whatever call it is: the process goes on or ends through a fatal check, says so in the log, leaks no descriptor or
/// mapping, and an init that reports success converts.
#include <set>

#include <android/log.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "engine_test.h"

namespace {

/// posix_memalign calls of this size to fail: bit 0 the next one, bit 1 the one after it.
std::size_t g_failing_size = 0;
unsigned int g_failing_calls = 0;

} // namespace

/// The driver must find this one too.
extern "C" __attribute__((visibility("default"))) int posix_memalign(void** memory, size_t alignment, size_t size) {
    if (size == g_failing_size) {
        const bool fails = (g_failing_calls & 1U) != 0;
        g_failing_calls >>= 1U;
        if (fails) return ENOMEM;
    }
    *memory = memalign(alignment, size);
    return *memory == nullptr ? ENOMEM : 0;
}

namespace lumivert {
namespace {

enum class Stage { kInit, kConvert, kDeinit };

struct Scenario {
    const char* name;
    Stage stage; ///< where the fault is
    _ALGO_t mode;
    bool pool;
    _Image_ColorFormat format;
    bool cached; ///< the program cache is there before
};

constexpr Scenario kScenarios[] = {
    {"init from source", Stage::kInit, NORMAL, true, NV12, false},
    {"init from cache", Stage::kInit, NORMAL, true, NV12, true},
    {"init static c2", Stage::kInit, HI_JACK, true, P010_LINEAR, true},
    {"init static omx", Stage::kInit, HI_JACK, false, P010_LINEAR, true},
    {"static retained", Stage::kConvert, HI_JACK, false, P010_LINEAR, true},
    {"static pool", Stage::kConvert, HI_JACK, true, P010_LINEAR, true},
    {"hdr10plus retained nv12", Stage::kConvert, NORMAL, false, NV12, true},
    {"hdr10plus retained rgba", Stage::kConvert, NORMAL, false, RGBA, true},
    {"hdr10plus retained p010", Stage::kConvert, NORMAL, false, P010_LINEAR, true},
    {"hdr10plus pool nv12", Stage::kConvert, NORMAL, true, NV12, true},
    {"hdr10plus pool rgba", Stage::kConvert, NORMAL, true, RGBA, true},
    {"hdr10plus pool p010", Stage::kConvert, NORMAL, true, P010_LINEAR, true},
    {"deinit", Stage::kDeinit, NORMAL, false, NV12, true},
    {"deinit static", Stage::kDeinit, HI_JACK, false, P010_LINEAR, true},
};

/// Calls whose failure the library passes over in silence: queries with a fallback, and the waits.
const std::set<std::string> kSilent = {
    "clGetDeviceInfo", "clFinish", "clGetMemObjectInfo", "clGetProgramInfo", "clGetProgramBuildInfo", "clBuildProgram"};

/// What a child process found out; lives in memory shared with the parent.
struct Report {
    bool reached;  ///< the call to fail was made
    char call[64]; ///< its name
    int init;      ///< results of the entry points, -1 if not reached
    int convert;
    bool right;      ///< the frame is what an undisturbed conversion makes
    int error_lines; ///< while the fault was on, without those of every workstation
    bool done;
    Footprint before;
    Footprint after;
};

/// One life of an instance with the fault in one stage of it.
void live(const Scenario& s, const DataFolder& folder, const LogCapture& log, Frame& in, Frame& out, int nth, int times,
          Report& report) {
    if (!s.cached) {
        for (const std::string& name : folder.media_files())
            std::remove(folder.media(name).c_str());
    }
    const auto during = [&](Stage stage, const auto& action) {
        if (stage != s.stage || nth == 0) return action();
        spy::reset();
        spy::fail("", CL_OUT_OF_RESOURCES, nth, times);
        const std::size_t first_line = log.lines().size();
        action();
        report.reached = static_cast<int>(spy::calls().size()) >= nth;
        if (report.reached) {
            const std::string& name = spy::calls()[static_cast<std::size_t>(nth) - 1].name;
            name.copy(report.call, sizeof(report.call) - 1);
        }
        for (std::size_t i = first_line; i < log.lines().size(); ++i) {
            const auto& line = log.lines()[i];
            const bool for_lack_of_ion = line.text == "[Formatter] error 85" ||
                                         line.text == "[~Formatter] error is Bad file descriptor line is 143";
            report.error_lines += line.priority == ANDROID_LOG_ERROR && !for_lack_of_ion ? 1 : 0;
        }
        spy::reset();
    };

    HDR10PLUS_DYNAMIC_INFO info{};
    info.maxscl[0] = 10000;
    std::unique_ptr<Instance> instance;
    during(Stage::kInit, [&] { instance = std::make_unique<Instance>(16, 8, s.mode, s.pool); });
    report.init = instance->result();
    if (instance->handle() == nullptr) return;
    fill_random(in, 5);
    during(Stage::kConvert,
           [&] { report.convert = s.pool ? instance->convert1(in, out, &info) : instance->convert(in, out, &info); });
    during(Stage::kDeinit, [&] { instance.reset(); });
}

/// `noexcept`: what a driver throws ends the child, and not GoogleTest's copy in it.
void child(const Scenario& s, const DataFolder& folder, int nth, int times, Report& report) noexcept {
    LogCapture log;
    set_property("ro.build.fingerprint", "a/b/c:1/2/FAULT:user/x");
    Frame in(P010_LINEAR, 16, 8);
    Frame out(s.format, 16, 8);
    const Frame& picture = s.mode == HI_JACK && !s.pool ? in : out;
    // Undisturbed lives first: the cache is written, and what the driver keeps for good is there. Two, because the
    // second one loads what the first one wrote.
    Report calm{};
    live(s, folder, log, in, out, 0, 0, calm);
    live(s, folder, log, in, out, 0, 0, calm);
    const std::string expected = picture.luma.contents() + picture.chroma.contents();

    out.luma.fill(0);
    out.chroma.fill(0);
    report.before = footprint();
    log.clear();
    live(s, folder, log, in, out, nth, times, report);
    report.right = picture.luma.contents() + picture.chroma.contents() == expected;
    report.after = footprint();
    report.done = true;
}

/// How often the call fails: the n-th one, that and the next, or all from it on.
class FaultDeathTest : public testing::TestWithParam<int> {};

TEST_P(FaultDeathTest, EveryOpenClCallMayFail) {
    const int times = GetParam();
    auto* report =
        static_cast<Report*>(mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int injected = 0, ended = 0, refused = 0, panicked = 0;
    for (const Scenario& s : kScenarios) {
        for (int nth = 1;; ++nth) {
            *report = Report{};
            report->init = report->convert = -1;
            const DataFolder folder; // the parent's, which outlives a child that ends in a fatal check
            const std::string output = folder.media("../output");
            const pid_t pid = fork();
            if (pid == 0) {
                alarm(60); // a hang is a failure
                dup2(open(output.c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
                child(s, folder, nth, times, *report);
                std::_Exit(0);
            }
            int status = 0;
            waitpid(pid, &status, 0);
            const std::string printed = read_file(output);

            SCOPED_TRACE(std::string(s.name) + ": call " + std::to_string(nth) + " (" + report->call + ") fails " +
                         std::to_string(times) + " times\n" + printed);
            if (printed.find("panicked at") != std::string::npos && on_rusticl()) {
                // 22.3 ends the process when it is asked for the binaries of a program that was never built.
                ++panicked;
                continue;
            }
            ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
            if (WEXITSTATUS(status) == 134) { // a fatal check: that the fault came about is its message
                EXPECT_THAT(printed, testing::HasSubstr(" CHECK("));
                ++ended;
                ++injected;
                continue;
            }
            ASSERT_EQ(WEXITSTATUS(status), 0);
            ASSERT_TRUE(report->done);
            if (!report->reached) break; // all calls of the stage have had their turn
            ++injected;
            EXPECT_EQ(report->after.descriptors, report->before.descriptors);
            EXPECT_EQ(report->after.plane_mappings, report->before.plane_mappings);
            EXPECT_TRUE(report->error_lines > 0 || kSilent.count(report->call) > 0);
            if (s.stage == Stage::kInit) {
                refused += report->init == 0 ? 1 : 0;
                // A work buffer that could not be imported does not refuse the init: its launches fail, and say so.
                const bool converts = report->init == 1 && std::string(report->call) != "clImportMemoryARM";
                EXPECT_TRUE(report->right || !converts) << "init said 1";
            } else {
                EXPECT_EQ(report->init, 1);
                EXPECT_EQ(report->convert, 1); // a path reports in the log only
            }
        }
    }
    std::printf("calls injected: %d (ended by a fatal check: %d, refused by init: %d), ended by the driver: %d\n",
                injected, ended, refused, panicked);
    EXPECT_GT(injected, 100);
}

INSTANTIATE_TEST_SUITE_P(Times, FaultDeathTest, testing::Values(1, 2, 1 << 20), [](const auto& times) {
    return times.param == 1 ? "Once" : times.param == 2 ? "Twice" : "ForGood";
});

using SurroundingsFault = EngineTest;

TEST_F(SurroundingsFault, WorkBuffersThatCannotBeAllocatedRefuseTheInit) {
    const struct {
        uint32_t width, height;
        std::size_t bytes;    ///< RGBA of whole blocks of 4 x 2, rounded up to 128
        unsigned int failing; ///< bit 0 the first buffer, bit 1 the second
    } cases[] = {{36, 20, 2944, 1}, {36, 20, 2944, 2}, {36, 20, 2944, 3}, {35, 19, 2944, 1},
                 {33, 20, 2944, 2}, {36, 21, 3200, 1}, {37, 20, 3200, 3}, {36, 22, 3200, 2}};
    for (const auto& [width, height, bytes, failing] : cases) {
        log.clear();
        void* handle = this;
        g_failing_size = bytes;
        g_failing_calls = failing;
        EXPECT_EQ(CL_HDR2SDR_ARM_init(width, height, NORMAL, &handle, 1), 0) << width << 'x' << height;
        EXPECT_EQ(handle, nullptr);
        EXPECT_EQ(log.count("E [CL_HDR2SDR_ARM_init] failed LINE number is 511 !"), (failing & 1U) != 0 ? 1 : 0);
        EXPECT_EQ(log.count("E [CL_HDR2SDR_ARM_init] failed LINE number is 514 !"), (failing & 2U) != 0 ? 1 : 0);
        EXPECT_EQ(log.count("E [CL_HDR2SDR_ARM_init] failed 518"), 1);
    }
    g_failing_size = 0;
}

} // namespace
} // namespace lumivert
