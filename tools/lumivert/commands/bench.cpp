#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <random>

#include <nlohmann/json.hpp>
#include <sys/resource.h>

#include "commands/commands.h"
#include "commands/options.h"
#include "engine/converter.h"
#include "engine/rgba_stage.h"
#include "error.h"
#include "io/cleanup.h"
#include "io/progress.h"

namespace lumivert::tool {
namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::vector<std::string> sizes = {"1920x1080", "3840x2160"}, only;
    std::string device, child;
    int rounds = 20;
    bool json = false;

    bool wants(const std::string& name) const {
        return only.empty() || std::find(only.begin(), only.end(), name) != only.end();
    }
};

double quantile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(std::lround(part * static_cast<double>(values.size() - 1)))];
}

double median(const std::vector<double>& values) {
    return quantile(values, 0.5);
}

/// Milliseconds of each turn.
struct Series {
    std::string name;
    std::vector<double> ms;
};

template <typename Work>
double time_ms(Work work) {
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

/// What is timed, as the results name it.
struct Subject {
    std::string name;
    int turns; ///< in each round: more for what takes a millisecond or two
    std::function<void()> run;
};
constexpr int kQuick = 5, kSlow = 1;

/// One way through the converter.
struct Path {
    const char* name;
    Mode mode;
    Entry entry;
    _Image_ColorFormat format;
};

constexpr Path kPaths[] = {
    {"static.retained", Mode::kStaticTable, Entry::kRetained, P010_LINEAR},
    {"static.pool", Mode::kStaticTable, Entry::kPool, P010_LINEAR},
    {"hdr10plus.nv12.retained", Mode::kHdr10plus, Entry::kRetained, NV12},
    {"hdr10plus.nv12.pool", Mode::kHdr10plus, Entry::kPool, NV12},
    {"hdr10plus.p010.pool", Mode::kHdr10plus, Entry::kPool, P010_LINEAR},
    {"hdr10plus.rgba.pool", Mode::kHdr10plus, Entry::kPool, RGBA},
    // An instance of its own: after an RGBA frame a retained one keeps that frame's buffer as its intermediate.
    {"stage.fused", Mode::kHdr10plus, Entry::kRetained, RGBA},
};

void fill_with_noise(const Planes& p010) {
    std::minstd_rand random(1);
    for (const Plane* plane : {&p010.first, &p010.second}) {
        auto* words = reinterpret_cast<uint16_t*>(plane->data());
        const int count = plane->descriptor().size / 2;
        for (int i = 0; i < count; ++i)
            words[i] = static_cast<uint16_t>((64 + random() % 877) << 6);
    }
}

Subject copy_of_a_frame(const Geometry& geometry) {
    const size_t bytes = frame_bytes(P010_LINEAR, geometry.pitch, geometry.height);
    const auto from = std::make_shared<std::vector<uint8_t>>(bytes, 1),
               to = std::make_shared<std::vector<uint8_t>>(bytes);
    return {"memcpy", kQuick, [=] { std::memcpy(to->data(), from->data(), bytes); }};
}

Subject whole_path(const Path& path, const Geometry& geometry, const Environment& environment) {
    const auto converter = std::make_shared<Converter>(geometry, path.mode, path.entry, environment);
    const auto in = std::make_shared<Planes>(P010_LINEAR, geometry),
               out = std::make_shared<Planes>(path.format, geometry);
    fill_with_noise(*in);
    return {path.name, path.mode == Mode::kStaticTable ? kQuick : kSlow, [=, record = default_record(1000, 1000)] {
                converter->convert(*in, *out, &record, {1000, 1000});
            }};
}

Subject rgba_stage(const char* name, const Geometry& geometry, _Image_ColorFormat format, const std::string& program) {
    const auto stage = std::make_shared<RgbaStage>(geometry, format, program);
    return {name, kQuick, [=] { stage->run(); }};
}

/// The first is the copy, which others are compared with.
std::vector<Subject> subjects(const Geometry& geometry, const Environment& environment, const Options& options) {
    std::vector<Subject> all = {copy_of_a_frame(geometry)};
    for (const Path& path : kPaths)
        if (options.wants(path.name)) all.push_back(whole_path(path, geometry, environment));
    const Converter of_stages(geometry, Mode::kHdr10plus, Entry::kPool, environment);
    if (options.wants("stage.nv12")) all.push_back(rgba_stage("stage.nv12", geometry, NV12, of_stages.program()));
    if (options.wants("stage.p010"))
        all.push_back(rgba_stage("stage.p010", geometry, P010_LINEAR, of_stages.program()));
    return all;
}

std::vector<std::string> result_names() {
    std::vector<std::string> names = {"memcpy", "stage.nv12", "stage.p010"};
    for (const Path& path : kPaths)
        names.emplace_back(path.name);
    return names;
}

/// All take turns, so that what disturbs the machine for a while disturbs all of them. The first round warms up and
/// does not count.
std::vector<Series> measure(const std::vector<Subject>& all, int rounds) {
    std::vector<Series> results;
    results.reserve(all.size());
    for (const Subject& subject : all)
        results.push_back({subject.name, {}});
    Progress progress(rounds);
    for (int round = 0; round <= rounds; ++round) {
        for (int turn = 0; turn < kQuick; ++turn)
            for (size_t i = 0; i < all.size(); ++i) {
                if (turn >= all[i].turns) continue;
                const double ms = time_ms(all[i].run);
                if (round > 0) results[i].ms.push_back(ms);
            }
        progress.update(round);
    }
    return results;
}

/// What a converter costs beside its frames.
struct Footprint {
    double init_ms, first_frame_ms, peak_mib;
};

/// In a child process: starts a converter, converts a few frames and prints the footprint.
int be_child(const Options& options, const Environment& environment) {
    const Size size = parse_size(options.child);
    const Geometry geometry(size.width, size.height);
    Converter converter(geometry, Mode::kHdr10plus, Entry::kPool, environment);
    const Planes in(P010_LINEAR, geometry), out(NV12, geometry);
    const Record record = default_record(1000, 1000);
    const auto convert = [&] { converter.convert(in, out, &record, {1000, 1000}); };
    const double first = time_ms(convert);
    convert();
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    std::cout << nlohmann::json{{"init_ms", converter.init_ms()},
                                {"first_frame_ms", first},
                                {"peak_mib", static_cast<double>(usage.ru_maxrss) / 1024}};
    return kDone;
}

/// As the shell takes it for one word.
std::string shell_word(const std::string& text) {
    std::string word = "'";
    for (const char c : text)
        word += c == '\'' ? "'\\''" : std::string(1, c);
    return word + "'";
}

/// A process of its own: drivers keep what they compiled as long as a process lives, and memory's peak never falls.
Footprint footprint(const std::string& size, const std::string& environment = "") {
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    FILE* child = popen((environment + shell_word(self) + " bench --child " + size).c_str(), "r");
    if (child == nullptr) throw system_error(self);
    const auto told = nlohmann::json::parse(child, nullptr, false);
    if (pclose(child) != 0 || !told.is_object()) throw Error("a converter could not be started");
    return {told["init_ms"], told["first_frame_ms"], told["peak_mib"]};
}

/// A way to start, and what earlier runs have left for it.
struct Start {
    const char *name, *about;
    std::vector<double> init_ms, first_frame_ms;
};

std::vector<Start> measure_starts(int rounds) {
    std::vector<Start> starts = {{"cold", "from source", {}, {}},
                                 {"cached", "from the cached program", {}, {}},
                                 {"warm", "from the cached program, the driver's cache warm", {}, {}}};
    for (int round = 0; round < rounds; ++round) {
        std::string folder = (std::filesystem::temp_directory_path() / "lumivert-bench.XXXXXX").string();
        if (mkdtemp(folder.data()) == nullptr) throw system_error(folder);
        remove_at_exit(folder);
        const auto environment =
            "XDG_CACHE_HOME=" + shell_word(folder) + " POCL_CACHE_DIR=" + shell_word(folder + "/pocl") + " ";
        for (Start& start : starts) {
            // Only the last one finds what the driver has kept of the one before.
            if (&start != &starts.back()) std::filesystem::remove_all(folder + "/pocl");
            const Footprint f = footprint("64x64", environment);
            start.init_ms.push_back(f.init_ms);
            start.first_frame_ms.push_back(f.first_frame_ms);
        }
        std::filesystem::remove_all(folder);
        keep_at_exit(folder);
    }
    return starts;
}

nlohmann::ordered_json to_json(const Size& size, const std::vector<Series>& all) {
    nlohmann::ordered_json entries = nlohmann::ordered_json::array();
    for (const Series& series : all)
        entries.push_back({{"name", series.name},
                           {"width", size.width},
                           {"height", size.height},
                           {"ms", {{"median", median(series.ms)}, {"p99", quantile(series.ms, 0.99)}}},
                           {"memcpy_ratio", median(series.ms) / median(all[0].ms)}});
    return entries;
}

void print_table(const std::string& size, const std::vector<Series>& all) {
    std::printf("\n%-26s %10s %10s %10s %10s\n", size.c_str(), "median ms", "99 % ms", "frames/s", "x memcpy");
    for (const Series& series : all)
        std::printf("  %-24s %10.2f %10.2f %10.1f %10.2f\n", series.name.c_str(), median(series.ms),
                    quantile(series.ms, 0.99), 1000 / median(series.ms), median(series.ms) / median(all[0].ms));
    std::fflush(stdout);
}

int run(const Options& options) {
    const Environment environment(options.device);
    const Device& device = environment.device();
    if (!options.child.empty()) return be_child(options, environment);

    nlohmann::ordered_json document = {{"device",
                                        {{"name", device.name},
                                         {"platform", device.platform},
                                         {"version", device.version},
                                         {"driver", device.driver},
                                         {"native_import", device.native_import}}},
                                       {"results", nlohmann::ordered_json::array()}};
    if (!options.json)
        std::cout << device.name << ", " << device.platform << ", " << device.version << ", driver " << device.driver
                  << ", buffer import " << (device.native_import ? "native" : "emulated") << std::endl;
    for (const std::string& name : options.sizes) {
        const Size size = parse_size(name);
        const auto all = measure(subjects(Geometry(size.width, size.height), environment, options), options.rounds);
        for (auto& entry : to_json(size, all))
            document["results"].push_back(entry);
        if (!options.json) print_table(name, all);
    }
    if (options.only.empty()) {
        if (!options.json) std::printf("\n%-50s %10s %16s\n", "start (64x64)", "init ms", "first frame ms");
        for (const Start& start : measure_starts(std::min(options.rounds, 5))) {
            document["init_ms"][start.name] = median(start.init_ms);
            document["first_frame_ms"][start.name] = median(start.first_frame_ms);
            if (!options.json)
                std::printf("  %-48s %10.1f %16.1f\n", start.about, median(start.init_ms),
                            median(start.first_frame_ms));
        }
        if (!options.json) std::printf("\npeak memory of a process that converts HDR10+ frames to NV12\n");
        for (const std::string& size : options.sizes) {
            const double peak = footprint(size).peak_mib;
            document["peak_memory_mib"][size] = peak;
            if (!options.json) std::printf("  %-48s %10.0f MiB\n", size.c_str(), peak);
        }
    }
    if (options.json) std::cout << document.dump(2) << '\n';
    return kDone;
}

} // namespace

Command add_bench(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Options& o = *options;
    app.add_option("--size", o.sizes, "frame sizes; 1920x1080 and 3840x2160 unless given");
    app.add_option("--only", o.only, "measure these results and memcpy, no start and no memory")
        ->check(CLI::IsMember(result_names()));
    app.add_option("--rounds", o.rounds,
                   "how often each is measured; what takes a millisecond or two, five times as often")
        ->check(CLI::Range(1, 100000));
    app.add_option("--device", o.device, "part of an OpenCL device's name or number");
    app.add_flag("--json", o.json, "one JSON document");
    app.add_option("--child", o.child)->group(""); // what bench starts itself with
    app.footer("Example:\n  lumivert bench --size 1920x1080 --json > bench.json");
    return [options] { return run(*options); };
}

} // namespace lumivert::tool
