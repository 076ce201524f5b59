/// Whole lives of an instance: the complete log they leave, line by line, and everything they open and close.
#include <cstdio>
#include <iterator>
#include <map>
#include <numeric>
#include <regex>

#include <malloc.h>
#include <sys/time.h>

#include "engine_test.h"

namespace {

timeval g_now{}; ///< each look at the clock takes 1 s and 250 ms

} // namespace

extern "C" int gettimeofday(timeval* now, void* /*zone*/) noexcept {
    g_now.tv_sec += 1 + (g_now.tv_usec + 250000) / 1000000;
    g_now.tv_usec = (g_now.tv_usec + 250000) % 1000000;
    *now = g_now;
    return 0;
}

namespace lumivert {
namespace {

constexpr uint32_t kWidth = 10;
constexpr uint32_t kHeight = 6;

/// A record in which no two fields have the same value.
HDR10PLUS_DYNAMIC_INFO distinct_record() {
    HDR10PLUS_DYNAMIC_INFO info = {181, 61, 2, 4, 1, 300, {9001, 9002, 9003}, 77, 12, {}, {}, 5, 41, 141, 13, {}};
    std::iota(info.maxrgb_percentages, info.maxrgb_percentages + 15, 20);
    std::iota(info.maxrgb_percentiles, info.maxrgb_percentiles + 15, 5001);
    std::iota(info.bezier_curve_anchors, info.bezier_curve_anchors + 15, 700);
    return info;
}

class Life : public EngineTest {
protected:
    /// The log with names for what differs from run to run: descriptors, addresses, the data folder, the device.
    std::string text() const {
        std::map<std::string, std::string> descriptors;
        for (const auto& [name, frame] : {std::pair<const char*, const Frame&>{"in", in}, {"out", out}, {"rgba", rgba}})
            for (const auto& [plane, memory] :
                 {std::pair<const char*, const Plane&>{"y", frame.luma}, {"uv", frame.chroma}})
                descriptors[std::to_string(memory.handle().handle)] = std::string(name) + "." + plane;
        std::map<std::string, std::string> addresses;
        std::string all;
        const std::regex varying("(handle(?:\\(\\))? is )([0-9]+)|(0x[0-9a-f]+)|((?:DEVICE_NAME|device version) is ).*|"
                                 "(sz is |\\] size is )[0-9]+");
        for (const std::string& line : log.texts()) {
            std::string rest = std::regex_replace(line, std::regex(folder.media()), "MEDIA/");
            std::smatch found;
            for (; std::regex_search(rest, found, varying); rest = found.suffix()) {
                all += found.prefix().str() + found[1].str() + found[4].str() + found[5].str();
                if (found[2].matched) {
                    const auto known = descriptors.find(found[2]);
                    all += known == descriptors.end() ? found[2].str() : known->second;
                } else if (found[3].matched) {
                    all += addresses.emplace(found[3], "#" + std::to_string(addresses.size() + 1)).first->second;
                } else {
                    all += "...";
                }
            }
            all += rest + '\n';
        }
        return all;
    }

    /// Compares the log with logs/NAME.log; leaves what is there beside the test program if they differ.
    void expect_log(const std::string& name) const {
        const std::string actual = text();
        const bool same = actual == read_file(LOGS "/" + name + ".log");
        EXPECT_TRUE(same) << "compare " LOGS "/" << name << ".log with " << name << ".actual.log here";
        if (!same) write_file(name + ".actual.log", actual);
    }

    void ask_for(const char* level, const char* dump) {
        set_property("vendor.Lumivert.debug.level", level);
        set_property("vendor.Lumivert.debug.dump", dump);
    }

    HDR10PLUS_DYNAMIC_INFO info = distinct_record();
    Frame in{P010_LINEAR, kWidth, kHeight};
    Frame out{NV12, kWidth, kHeight};
    Frame rgba{RGBA, kWidth, kHeight};
};

TEST_F(Life, OfRetainedHdr10PlusFramesIsLoggedInFull) {
    ask_for("7", "1");
    {
        const Instance instance(kWidth, kHeight, NORMAL); // builds from source
        instance.convert(in, out, &info);
        instance.convert(in, out, &info);
        instance.convert(in, out, nullptr);
        instance.convert(in, rgba, &info);
    }
    debug_level = 1;
    expect_log("hdr10plus-retained");
}

TEST_F(Life, OfPooledHdr10PlusFramesIsLoggedInFull) {
    { const Instance first(kWidth, kHeight, NORMAL); }
    log.clear();
    ask_for("7", "1");
    {
        const Instance instance(kWidth, kHeight, NORMAL); // loads the program
        instance.convert1(in, out, &info);
        instance.convert1(in, out, nullptr, 10000000, 2);
        instance.convert1(in, out, nullptr, 10000000, 2);
        instance.convert1(in, rgba, &info);
        out.format = P010_LINEAR;
        instance.convert1(in, out, &info);
        out.format = YV12;
        instance.convert1(in, out, &info);
    }
    debug_level = 1;
    expect_log("hdr10plus-pool");
}

TEST_F(Life, OfStaticFramesIsLoggedInFull) {
    { const Instance first(kWidth, kHeight, HI_JACK); }
    log.clear();
    ask_for("7", "1");
    out.format = P010_LINEAR;
    {
        const Instance pool(kWidth, kHeight, HI_JACK);
        pool.convert1(in, out, nullptr, 40000000);
    }
    expect_log("static-pool");
    log.clear();
    {
        const Instance retained(kWidth, kHeight, HI_JACK, false); // takes the other's cache file away
        retained.convert(in, in, nullptr, 4000);
        retained.convert(in, in, nullptr, 4000);
    }
    debug_level = 1;
    expect_log("static-retained");
}

/// How many objects of each kind were made and not released.
std::map<std::string, int> left_over() {
    static const std::map<std::string, std::pair<const char*, int>> k_counted = {
        {"clCreateContext", {"context", 1}},           {"clReleaseContext", {"context", -1}},
        {"clCreateCommandQueue", {"queue", 1}},        {"clReleaseCommandQueue", {"queue", -1}},
        {"clCreateProgramWithSource", {"program", 1}}, {"clCreateProgramWithBinary", {"program", 1}},
        {"clReleaseProgram", {"program", -1}},         {"clCreateKernel", {"kernel", 1}},
        {"clReleaseKernel", {"kernel", -1}},           {"clCreateBuffer", {"memory", 1}},
        {"clImportMemoryARM", {"memory", 1}},          {"clReleaseMemObject", {"memory", -1}},
    };
    std::map<std::string, int> left;
    for (const spy::Call& call : spy::calls())
        if (const auto counted = k_counted.find(call.name); counted != k_counted.end())
            left[counted->second.first] += counted->second.second;
    for (auto kind = left.begin(); kind != left.end();)
        kind = kind->second == 0 ? left.erase(kind) : std::next(kind);
    return left;
}

std::size_t heap_bytes() {
    const struct mallinfo2 now = mallinfo2();
    return now.uordblks + now.hblkhd;
}

/// Dumps on, so that their files count as well. The work buffers of these frames have 1 MiB each.
TEST_F(Life, ClosesWhatItOpens) {
    using Left = std::map<std::string, int>;
    const struct {
        const char* what;
        _ALGO_t mode;
        bool pool;
        _Image_ColorFormat format;
        bool cached;
        Left left; ///< on purpose
    } cases[] = {
        {"from source", NORMAL, true, NV12, false, {{"program", 1}}},
        {"retained nv12", NORMAL, false, NV12, true, {}},
        {"retained p010", NORMAL, false, P010_LINEAR, true, {}},
        {"retained rgba", NORMAL, false, RGBA, true, {{"memory", 1}}}, // the work buffer's import
        {"pool nv12", NORMAL, true, NV12, true, {}},
        {"pool p010", NORMAL, true, P010_LINEAR, true, {}},
        {"pool rgba", NORMAL, true, RGBA, true, {{"memory", 2}}}, // that and the first frame's output
        {"static retained", HI_JACK, false, P010_LINEAR, true, {}},
        {"static pool", HI_JACK, true, P010_LINEAR, true, {}},
    };
    ask_for("1", "1");
    { const Instance warm_up(512, 512, NORMAL); }
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Frame input(P010_LINEAR, 512, 512);
        const Frame output(c.format, 512, 512);
        const auto life = [&] {
            const Instance instance(512, 512, c.mode, c.pool);
            for (int frame = 0; frame < 2; ++frame)
                EXPECT_EQ(c.pool ? instance.convert1(input, output, &info) : instance.convert(input, output, &info), 1);
        };
        life(); // writes this client's cache file and warms the driver up
        if (!c.cached) std::remove(folder.media("mali_formatter_c2_AB12CD34.bin").c_str());
        const Footprint before = footprint();
        const std::size_t heap = heap_bytes();
        spy::reset();
        life();
        EXPECT_EQ(left_over(), c.left);
        EXPECT_EQ(footprint().descriptors, before.descriptors);
        if (on_rusticl()) continue; // keeps heap, and maps shared memory of its own
        EXPECT_EQ(footprint().plane_mappings, before.plane_mappings);
        EXPECT_TRUE(!c.cached || heap_bytes() < heap + (1 << 19));
    }
}

} // namespace
} // namespace lumivert
