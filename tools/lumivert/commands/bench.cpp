#include "commands/commands.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <random>

#include <nlohmann/json.hpp>

#include "commands/options.h"
#include "engine/converter.h"
#include "error.h"
#include "io/cleanup.h"
#include "io/progress.h"
#include "report.h"

namespace lumivert::tool {
namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::vector<std::string> sizes = {"1920x1080", "3840x2160"};
    std::string device;
    int rounds = 20;
    bool json = false, startup_only = false;
};

/// Milliseconds of each round.
struct Series {
    std::string name;
    std::vector<double> ms;

    double quantile(double part) const {
        std::vector<double> sorted = ms;
        std::sort(sorted.begin(), sorted.end());
        return sorted[static_cast<size_t>(part * static_cast<double>(sorted.size() - 1) + 0.5)];
    }
    double median() const { return quantile(0.5); }
};

template <typename Work>
double time_ms(Work work) {
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

/// One way through the converter, as the results name it.
struct Path {
    const char* name;
    Mode mode;
    Entry entry;
    _Image_ColorFormat format;
};

constexpr Path paths[] = {
    {"static.retained", Mode::static_table, Entry::retained, P010_LINEAR},
    {"static.pool", Mode::static_table, Entry::pool, P010_LINEAR},
    {"hdr10plus.nv12.retained", Mode::hdr10plus, Entry::retained, NV12},
    {"hdr10plus.nv12.pool", Mode::hdr10plus, Entry::pool, NV12},
    {"hdr10plus.p010.pool", Mode::hdr10plus, Entry::pool, P010_LINEAR},
    {"hdr10plus.rgba.pool", Mode::hdr10plus, Entry::pool, RGBA},
    // An instance of its own: after an RGBA frame a retained one keeps that frame's buffer as its intermediate.
    {"stage.fused", Mode::hdr10plus, Entry::retained, RGBA},
};

/// Stages that only show as the difference of two paths.
struct Stage {
    const char *name, *with, *without;
};
constexpr Stage stages[] = {
    {"stage.nv12", "hdr10plus.nv12.retained", "stage.fused"},
    {"stage.p010", "hdr10plus.p010.pool", "hdr10plus.rgba.pool"},
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

std::vector<Series> measure(const Geometry& geometry, const Device& device, int rounds) {
    const Planes source(P010_LINEAR, geometry);
    fill_with_noise(source);
    const size_t bytes = frame_bytes(P010_LINEAR, geometry.pitch, geometry.height);
    const std::vector<uint8_t> from(bytes, 1);
    std::vector<uint8_t> to(bytes);
    std::vector<Series> all(1);
    all[0].name = "memcpy";

    struct Runner {
        std::unique_ptr<Converter> converter;
        std::unique_ptr<Planes> in, out;
    };
    std::vector<Runner> runners;
    for (const Path& path : paths) {
        all.push_back({path.name, {}});
        runners.push_back({std::make_unique<Converter>(geometry, path.mode, path.entry, device),
                           std::make_unique<Planes>(P010_LINEAR, geometry),
                           std::make_unique<Planes>(path.format, geometry)});
        fill_with_noise(*runners.back().in);
    }
    const Record record = default_record(1000, 1000);
    // The paths take turns, so that what disturbs the machine for a while disturbs all of them. The first round warms
    // up and does not count.
    Progress progress(rounds);
    for (int round = 0; round <= rounds; ++round) {
        const auto keep = [&](Series& series, double ms) {
            if (round > 0) series.ms.push_back(ms);
        };
        keep(all[0], time_ms([&] { std::memcpy(to.data(), from.data(), bytes); }));
        for (size_t i = 0; i < runners.size(); ++i) {
            const Runner& r = runners[i];
            keep(all[i + 1], time_ms([&] { r.converter->convert(*r.in, *r.out, &record, {1000, 1000}); }));
        }
        progress.update(round);
    }
    for (const Stage& stage : stages) {
        const auto find = [&](const char* name) {
            return *std::find_if(all.begin(), all.end(), [&](const Series& s) { return s.name == name; });
        };
        const Series with = find(stage.with), without = find(stage.without);
        Series difference{stage.name, {}};
        for (size_t i = 0; i < with.ms.size(); ++i)
            difference.ms.push_back(with.ms[i] - without.ms[i]);
        all.push_back(std::move(difference));
    }
    return all;
}

/// Starts a converter in a process of its own: drivers keep what they compiled as long as a process lives.
double startup_ms(const std::string& folder) {
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    setenv("XDG_CACHE_HOME", folder.c_str(), 1);
    setenv("POCL_CACHE_DIR", (folder + "/pocl").c_str(), 1);
    FILE* child = popen(("'" + self + "' bench --startup-only").c_str(), "r");
    double ms = 0;
    const bool told = child != nullptr && std::fscanf(child, "%lf", &ms) == 1;
    if (child == nullptr || pclose(child) != 0 || !told) throw Error("a converter could not be started");
    return ms;
}

struct Startup {
    double cold, cached;
};

Startup measure_startup() {
    std::string folder = (std::filesystem::temp_directory_path() / "lumivert-bench.XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) throw system_error(folder);
    remove_at_exit(folder);
    Startup result = {};
    result.cold = startup_ms(folder);
    result.cached = startup_ms(folder);
    std::filesystem::remove_all(folder);
    keep_at_exit(folder);
    return result;
}

nlohmann::ordered_json to_json(const Size& size, const std::vector<Series>& all) {
    nlohmann::ordered_json entries = nlohmann::ordered_json::array();
    for (const Series& series : all)
        entries.push_back({{"name", series.name},
                           {"width", size.width},
                           {"height", size.height},
                           {"ms", {{"median", series.median()}, {"p99", series.quantile(0.99)}}},
                           {"frames_per_s", 1000 / series.median()},
                           {"memcpy_ratio", series.median() / all[0].median()}});
    return entries;
}

void print_table(const Size& size, const std::vector<Series>& all) {
    std::printf("\n%-26s %10s %10s %10s %10s\n",
                (std::to_string(size.width) + "x" + std::to_string(size.height)).c_str(), "median ms", "99 % ms",
                "frames/s", "x memcpy");
    for (const Series& series : all)
        std::printf("  %-24s %10.2f %10.2f %10.1f %10.2f\n", series.name.c_str(), series.median(),
                    series.quantile(0.99), 1000 / series.median(), series.median() / all[0].median());
}

int run(const Options& options) {
    choose_device(options.device);
    const Device device = used_device();
    if (options.startup_only) {
        std::cout << Converter(Geometry(64, 64), Mode::static_table, Entry::pool, device).init_ms() << '\n';
        return done;
    }
    std::vector<Size> sizes;
    for (const std::string& size : options.sizes)
        sizes.push_back(parse_size(size));
    if (!options.json)
        std::cout << device.name << ", " << device.platform << ", " << device.version << ", driver " << device.driver
                  << ", buffer import " << (device.native_import ? "native" : "emulated") << std::endl;
    nlohmann::ordered_json results = nlohmann::ordered_json::array();
    for (const Size& size : sizes) {
        const auto all = measure(Geometry(size.width, size.height), device, options.rounds);
        if (options.json)
            for (auto& entry : to_json(size, all))
                results.push_back(entry);
        else
            print_table(size, all);
    }
    const Startup startup = measure_startup();
    if (options.json)
        std::cout << nlohmann::ordered_json{{"device",
                                             {{"name", device.name},
                                              {"platform", device.platform},
                                              {"version", device.version},
                                              {"driver", device.driver},
                                              {"native_import", device.native_import}}},
                                            {"results", results},
                                            {"init_ms", {{"cold", startup.cold}, {"cached", startup.cached}}}}
                         .dump(2)
                  << '\n';
    else
        std::printf("\ninit from source %.1f ms, from the cached program %.1f ms\n", startup.cold, startup.cached);
    return done;
}

} // namespace

Command add_bench(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Options& o = *options;
    app.add_option("--size", o.sizes, "frame sizes; 1920x1080 and 3840x2160 unless given");
    app.add_option("--rounds", o.rounds, "frames per path")->check(CLI::Range(1, 100000));
    app.add_option("--device", o.device, "part of an OpenCL device's name or number");
    app.add_flag("--json", o.json, "one JSON document");
    app.add_flag("--startup-only", o.startup_only)->group(""); // what bench starts itself with
    app.footer("stage.nv12 and stage.p010 are differences of two paths.\n\nExample:\n"
               "  lumivert bench --size 1920x1080 --json > bench.json");
    return [options] { return run(*options); };
}

} // namespace lumivert::tool
