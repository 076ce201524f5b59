#include "cases.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <unistd.h>

#include "stage.h"

namespace lumivert::check {
namespace {

using reference::Comparison;

// ---- verdicts ----

void fail(Facts& facts, const std::string& detail) {
    facts.set("ok", 0);
    facts.set("detail", detail);
}

/// The verdict of a comparison, with the worst sample where there is one.
void judge(const Comparison& comparison, Facts& facts) {
    facts.set("samples", static_cast<double>(comparison.samples));
    facts.set("wrong", static_cast<double>(comparison.wrong));
    if (comparison.samples > 0 && comparison.wrong == 0) {
        facts.set("ok", 1);
        return;
    }
    const Comparison::Sample& worst = comparison.worst;
    fail(facts,
         format("%llu of %llu samples, worst %s at (%d, %d): %d, expected %d..%d",
                static_cast<unsigned long long>(comparison.wrong), static_cast<unsigned long long>(comparison.samples),
                worst.component, worst.x, worst.y, worst.value, worst.expected.low, worst.expected.high));
    facts.set("component", worst.component);
    facts.set("x", worst.x);
    facts.set("y", worst.y);
    facts.set("value", worst.value);
    facts.set("expected_low", worst.expected.low);
    facts.set("expected_high", worst.expected.high);
}

/// Whether a call returned what it must; if not, that is the verdict.
bool returned(int got, int expected, const char* call, Facts& facts) {
    if (got != expected) fail(facts, format("%s returned %d, not %d", call, got, expected));
    return got == expected;
}

bool usable(const Stage& stage, Facts& facts) {
    const std::string trouble = stage.trouble();
    if (!trouble.empty()) fail(facts, trouble);
    return trouble.empty();
}

const char* call_of(const Conversion& conversion) {
    return conversion.pool ? "convert1" : "convert";
}

double now_ms() {
    const auto since = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double, std::milli>(since).count();
}

// ---- frames ----

/// Frames one after the other in the same buffers, every sample of each.
void run_frames(const Case& c, PlaneSource source, Facts& facts) {
    Stage stage(c.conversion, c.size, source);
    if (!usable(stage, facts)) return;
    Comparison comparison;
    for (int i = 0; i < c.repeats; ++i) {
        if (!returned(stage.convert(static_cast<uint32_t>(i + 1)), 1, call_of(c.conversion), facts)) return;
        comparison.add(stage.compare());
    }
    judge(comparison, facts);
}

// ---- the life of instances ----

/// An init of the other framework throws the cached program away, so the next one builds from source, and the one after
/// that finds it cached. Times to the end of init and to the end of the first frame.
void run_first_frames(const Case& c, PlaneSource source, Facts& facts) {
    { const Instance other_framework(c.size, c.conversion.mode, !c.conversion.pool); }
    Comparison comparison;
    for (const char* const kind : {"cold", "cached"}) {
        const double start = now_ms();
        Stage stage(c.conversion, c.size, source);
        const double ready = now_ms();
        if (!usable(stage, facts)) return;
        const double prepared = now_ms();
        const int result = stage.convert(1);
        const double shown = now_ms();
        if (!returned(result, 1, call_of(c.conversion), facts)) return;
        comparison.add(stage.compare());
        facts.set(std::string(kind) + "_init_ms", ready - start);
        facts.set(std::string(kind) + "_first_frame_ms", ready - start + shown - prepared);
    }
    judge(comparison, facts);
}

/// Of every three calls the first converts; the others return 0 and touch nothing.
void run_interval(const Case& c, PlaneSource source, Facts& facts) {
    constexpr int kInterval = 3;
    Stage stage(c.conversion, c.size, source);
    if (!usable(stage, facts)) return;
    Comparison comparison;
    for (int i = 0; i < 2 * kInterval + 1; ++i) {
        const bool converts = i % kInterval == 0;
        const int result = stage.convert(static_cast<uint32_t>(i), kInterval);
        if (!returned(result, converts ? 1 : 0, "convert1", facts)) return;
        comparison.add(stage.compare(converts));
    }
    judge(comparison, facts);
}

/// Two instances of different modes and sizes in turn; then one ends and the other goes on.
void run_two_instances(const Case& c, PlaneSource source, Facts& facts) {
    constexpr Conversion kOther = {"", HI_JACK, true, P010_LINEAR, Light::kMaster4000};
    Stage stage(c.conversion, c.size, source);
    Comparison comparison;
    const auto convert = [&](Stage& s, uint32_t seed) {
        if (!usable(s, facts) || !returned(s.convert(seed), 1, "convert1", facts)) return false;
        comparison.add(s.compare());
        return true;
    };
    {
        Stage other(kOther, {c.size.width * 2, c.size.height + 2}, source);
        for (uint32_t seed = 1; seed < 4; ++seed)
            if (!convert(stage, seed) || !convert(other, seed)) return;
    }
    if (convert(stage, 4)) judge(comparison, facts);
}

/// An RGBA frame's buffer stays the instance's intermediate: the next frame's RGBA lands there too.
void run_after_rgba(const Case& c, PlaneSource source, Facts& facts) {
    Conversion to_rgba = c.conversion;
    to_rgba.output = RGBA;
    Stage rgba(to_rgba, c.size, source);
    if (!usable(rgba, facts) || !returned(rgba.convert(1), 1, call_of(to_rgba), facts)) return;
    Comparison comparison = rgba.compare();
    Stage yuv(c.conversion, c.size, source, &rgba);
    if (!usable(yuv, facts) || !returned(yuv.convert(2), 1, call_of(c.conversion), facts)) return;
    comparison.add(yuv.compare());
    comparison.add(rgba.compare_rgba_of(yuv.frame()));
    judge(comparison, facts);
}

/// What must be refused is, with 0, and touches nothing.
void run_refused(const Case& c, PlaneSource source, Facts& facts) {
    {
        const Instance unknown_mode(c.size, static_cast<_ALGO_t>(3), true);
        if (!returned(unknown_mode.result(), 0, "init with an unknown mode", facts)) return;
        if (unknown_mode.handle() != nullptr) return fail(facts, "init with an unknown mode left an instance");
    }
    Comparison comparison;
    const auto refuse = [&](_Image_ColorFormat output, Light light, bool pool) {
        Conversion conversion = c.conversion;
        conversion.output = output;
        conversion.light = light;
        conversion.pool = pool;
        Stage stage(conversion, c.size, source);
        if (!usable(stage, facts) || !returned(stage.convert(1), 0, "a conversion to refuse", facts)) return false;
        comparison.add(stage.compare(false));
        return true;
    };
    if (refuse(YV12, Light::kGradedForThisDisplay, true) && refuse(NV12, Light::kNoRecord1000, false))
        judge(comparison, facts);
}

/// Descriptors of this process, resident memory in KiB.
struct Footprint {
    int descriptors = 0;
    long resident = 0;
};

Footprint footprint() {
    Footprint now;
    if (DIR* const folder = opendir("/proc/self/fd")) {
        while (readdir(folder) != nullptr)
            ++now.descriptors;
        closedir(folder);
        now.descriptors -= 3; // the folder itself, "." and ".."
    }
    if (FILE* const file = std::fopen("/proc/self/statm", "re")) {
        char line[128] = {};
        const bool has_read = std::fgets(line, sizeof line, file) != nullptr;
        std::fclose(file);
        char* after_total = line;
        std::strtol(line, &after_total, 10);
        if (has_read) now.resident = std::strtol(after_total, nullptr, 10) * (sysconf(_SC_PAGESIZE) / 1024);
    }
    return now;
}

/// Many frames: descriptors and memory when they have become steady, at the end, and after deinit.
void run_steady(const Case& c, PlaneSource source, Facts& facts) {
    const Footprint before = footprint();
    Footprint steady;
    Footprint end;
    Comparison comparison;
    {
        Stage stage(c.conversion, c.size, source);
        if (!usable(stage, facts)) return;
        for (int i = 0; i < c.repeats; ++i) {
            if (!returned(stage.convert(1), 1, call_of(c.conversion), facts)) return;
            if (i == c.repeats / 10) steady = footprint();
        }
        end = footprint();
        comparison = stage.compare();
    }
    const Footprint after = footprint();
    facts.set("frames", c.repeats);
    facts.set("descriptors_before", before.descriptors);
    facts.set("descriptors_steady", steady.descriptors);
    facts.set("descriptors_end", end.descriptors);
    facts.set("descriptors_after", after.descriptors);
    facts.set("memory_before_kib", static_cast<double>(before.resident));
    facts.set("memory_steady_kib", static_cast<double>(steady.resident));
    facts.set("memory_end_kib", static_cast<double>(end.resident));
    facts.set("memory_after_kib", static_cast<double>(after.resident));
    if (end.descriptors > steady.descriptors)
        return fail(facts, format("descriptors grew from %d to %d", steady.descriptors, end.descriptors));
    constexpr long kMostGrowthKib = 16L * 1024; // a driver's own caches may still grow a little
    if (end.resident > steady.resident + kMostGrowthKib)
        return fail(facts, format("resident memory grew by %ld KiB", end.resident - steady.resident));
    judge(comparison, facts);
}

// ---- speed ----

/// The median of some runs of `work`, in milliseconds.
template <typename Work>
double median_ms(int runs, Work work) {
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        const double start = now_ms();
        work();
        times.push_back(now_ms() - start);
    }
    std::nth_element(times.begin(), times.begin() + runs / 2, times.end());
    return times[static_cast<size_t>(runs) / 2];
}

/// Milliseconds per frame, and per copy of as many bytes in ordinary memory.
void run_speed(const Case& c, PlaneSource source, Facts& facts) {
    Stage stage(c.conversion, c.size, source);
    if (!usable(stage, facts) || !returned(stage.convert(1), 1, call_of(c.conversion), facts)) return;
    bool converted = true;
    const double frame_ms = median_ms(c.repeats, [&] { converted = converted && stage.convert_again() == 1; });
    std::vector<uint16_t> samples = stage.frame().luma;
    samples.insert(samples.end(), stage.frame().chroma.begin(), stage.frame().chroma.end());
    std::vector<uint16_t> copy(samples.size());
    const double copy_ms =
        median_ms(c.repeats, [&] { std::memcpy(copy.data(), samples.data(), samples.size() * sizeof samples[0]); });
    facts.set("frame_ms", frame_ms);
    facts.set("memcpy_ms", copy_ms);
    facts.set("same", copy == samples ? 1 : 0); // or the compiler drops the copies
    if (converted)
        facts.set("ok", 1);
    else
        fail(facts, "a conversion did not return 1");
}

// ---- the table ----

constexpr Conversion kConversions[] = {
    // All go through every size; in a quick check only the first three do, and the others go through one.
    {"static.retained.1000", HI_JACK, false, P010_LINEAR, Light::kMaster1000},
    {"static.pool.4000", HI_JACK, true, P010_LINEAR, Light::kMaster4000},
    {"hdr10plus.pool.nv12", NORMAL, true, NV12, Light::kGradedForThisDisplay},
    {"hdr10plus.pool.p010", NORMAL, true, P010_LINEAR, Light::kGradedForThisDisplay},
    {"hdr10plus.pool.rgba", NORMAL, true, RGBA, Light::kGradedForThisDisplay},
    {"hdr10plus.retained.nv12", NORMAL, false, NV12, Light::kGradedForThisDisplay},
    {"hdr10plus.retained.rgba", NORMAL, false, RGBA, Light::kGradedForThisDisplay},
};
constexpr Conversion kVariants[] = {
    {"static.retained.0", HI_JACK, false, P010_LINEAR, Light::kMaster0},
    {"static.retained.4000", HI_JACK, false, P010_LINEAR, Light::kMaster4000},
    {"static.retained.4001", HI_JACK, false, P010_LINEAR, Light::kMaster4001},
    {"static.pool.1000", HI_JACK, true, P010_LINEAR, Light::kMaster1000},
    {"static.pool.1001", HI_JACK, true, P010_LINEAR, Light::kMaster1001},
    {"hdr10plus.retained.p010-stays", NORMAL, false, P010_LINEAR, Light::kGradedForThisDisplay},
    {"hdr10plus.pool.nv12.graded-for-brighter", NORMAL, true, NV12, Light::kGradedForBrighter},
    {"hdr10plus.pool.nv12.graded-for-dimmer", NORMAL, true, NV12, Light::kGradedForDimmer},
    {"hdr10plus.pool.nv12.no-curve", NORMAL, true, NV12, Light::kNoCurve},
    {"hdr10plus.pool.rgba.no-curve-dark-scene", NORMAL, true, RGBA, Light::kNoCurveDarkScene},
    {"hdr10plus.pool.rgba.no-curve-bright-scene", NORMAL, true, RGBA, Light::kNoCurveBrightScene},
    {"hdr10plus.pool.rgba.no-curve-bright-master", NORMAL, true, RGBA, Light::kNoCurveBrightMaster},
    {"hdr10plus.retained.rgba.no-curve", NORMAL, false, RGBA, Light::kNoCurve},
    {"hdr10plus.pool.rgba.dim-scene", NORMAL, true, RGBA, Light::kDimScene},
    {"hdr10plus.pool.rgba.few-anchors", NORMAL, true, RGBA, Light::kFewAnchors},
    {"hdr10plus.pool.rgba.many-anchors", NORMAL, true, RGBA, Light::kManyAnchors},
    {"hdr10plus.pool.nv12.no-record-1000", NORMAL, true, NV12, Light::kNoRecord1000},
    {"hdr10plus.pool.rgba.no-record-4000", NORMAL, true, RGBA, Light::kNoRecord4000},
};
constexpr Conversion kLives[] = {
    {"static.retained", HI_JACK, false, P010_LINEAR, Light::kMaster1000},
    {"static.pool", HI_JACK, true, P010_LINEAR, Light::kMaster1000},
    {"hdr10plus.retained.nv12", NORMAL, false, NV12, Light::kGradedForThisDisplay},
    {"hdr10plus.pool.nv12", NORMAL, true, NV12, Light::kGradedForThisDisplay},
};

constexpr Size kSizes[] = {{4, 2},      {6, 2},       {2, 2},       {64, 32},    {645, 363},
                           {1366, 768}, {1918, 1078}, {1920, 1080}, {3840, 2160}};
constexpr Size kQuickSizes[] = {{4, 2}, {6, 2}, {7, 5}, {64, 32}};
constexpr Size kVariantSize = {642, 362};
constexpr Size kQuickVariantSize = {34, 18};
constexpr Size kSpeedSizes[] = {{1920, 1080}, {3840, 2160}};

std::string name_with(const std::string& name, Size size) {
    return name + format("@%dx%d", size.width, size.height);
}

} // namespace

std::vector<Case> all_cases(bool quick) {
    using Group = Case::Group;
    std::vector<Case> cases;
    const auto add = [&](const std::string& name, Group group, Case::Run run, const Conversion& conversion, Size size,
                         int repeats) {
        cases.push_back({name_with(name, size), group, run, conversion, size, repeats});
    };
    const Size one_size = quick ? kQuickVariantSize : kVariantSize;

    for (const Conversion& conversion : kLives)
        if (!quick || conversion.pool)
            add(std::string("first-frame.") + conversion.name, Group::kLife, run_first_frames, conversion,
                quick ? one_size : kSpeedSizes[0], 1);

    std::vector<Size> sizes(std::begin(kSizes), std::end(kSizes));
    if (quick) sizes.assign(std::begin(kQuickSizes), std::end(kQuickSizes));
    for (const Conversion& conversion : kConversions)
        for (const Size size : sizes)
            if (!quick || size.width == 64 || &conversion < &kConversions[3])
                add(conversion.name, Group::kFrames, run_frames, conversion, size, size.width > 1000 ? 1 : 2);
    for (const Conversion& conversion : kVariants)
        add(conversion.name, Group::kFrames, run_frames, conversion, one_size, 1);

    add("interval.hdr10plus", Group::kLife, run_interval, kLives[3], one_size, 1);
    add("interval.static", Group::kLife, run_interval, kLives[1], one_size, 1);
    add("two-instances", Group::kLife, run_two_instances, kLives[3], one_size, 1);
    add("after-rgba.pool", Group::kLife, run_after_rgba, kLives[3], one_size, 1);
    add("after-rgba.retained", Group::kLife, run_after_rgba, kLives[2], one_size, 1);
    add("refused", Group::kLife, run_refused, kLives[3], one_size, 1);
    for (const Conversion& conversion : kLives)
        add(std::string("steady.") + conversion.name, Group::kLife, run_steady, conversion, one_size, quick ? 10 : 200);
    if (quick) return cases;
    for (const Conversion& conversion : kConversions)
        for (const Size size : kSpeedSizes)
            add(std::string("speed.") + conversion.name, Group::kSpeed, run_speed, conversion, size, 15);
    return cases;
}

} // namespace lumivert::check
