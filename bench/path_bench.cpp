/// The converter's paths and stages beside memcpy, at one frame size:
///
///     path_bench --size 1920x1080 [--rounds 10] [--only NAME...] [--device TEXT] [options of Google Benchmark]
///
/// All results take turns in random order, so that whatever disturbs the machine for a while disturbs all of them.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <benchmark/benchmark.h>

#include "commands/options.h"
#include "engine/converter.h"
#include "engine/environment.h"
#include "io/cleanup.h"
#include "rgba_stage.h"

namespace {

using namespace lumivert::tool;

struct Options {
    std::string size = "1920x1080", device;
    std::vector<std::string> only;
    int rounds = 10;

    bool wants(const std::string& name) const {
        return only.empty() || std::find(only.begin(), only.end(), name) != only.end();
    }
};

/// What is timed, as the results name it.
struct Subject {
    std::string name;
    int turns; ///< in each round: more where a turn takes only a millisecond or two
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
    // Needs an instance of its own: after an RGBA frame a retained one keeps that frame's buffer as its intermediate.
    {"stage.fused", Mode::kHdr10plus, Entry::kRetained, RGBA},
};

Subject copy_of_a_frame(const Geometry& geometry) {
    const size_t bytes = frame_bytes(P010_LINEAR, geometry.pitch, geometry.height);
    const auto from = std::make_shared<std::vector<uint8_t>>(bytes, 1),
               to = std::make_shared<std::vector<uint8_t>>(bytes);
    return {"memcpy", kQuick, [=] {
                std::memcpy(to->data(), from->data(), bytes);
                benchmark::ClobberMemory();
            }};
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

std::vector<Subject> subjects(const Geometry& geometry, const Environment& environment, const Options& options) {
    std::vector<Subject> all = {copy_of_a_frame(geometry)}; // always: the others are compared with it
    for (const Path& path : kPaths)
        if (options.wants(path.name)) all.push_back(whole_path(path, geometry, environment));
    const Converter of_stages(geometry, Mode::kHdr10plus, Entry::kPool, environment);
    if (options.wants("stage.nv12")) all.push_back(rgba_stage("stage.nv12", geometry, NV12, of_stages.program()));
    if (options.wants("stage.p010"))
        all.push_back(rgba_stage("stage.p010", geometry, P010_LINEAR, of_stages.program()));
    return all;
}

double percentile_99(const std::vector<double>& values) {
    std::vector<double> sorted = values;
    std::sort(sorted.begin(), sorted.end());
    return sorted[static_cast<size_t>(std::lround(0.99 * static_cast<double>(sorted.size() - 1)))];
}

void add_benchmark(const Subject& subject, int rounds) {
    subject.run(); // warms up: compiles, imports, touches all memory
    benchmark::RegisterBenchmark(subject.name.c_str(),
                                 [run = subject.run](benchmark::State& state) {
                                     while (state.KeepRunning())
                                         run();
                                 })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Iterations(1)
        ->Repetitions(rounds * subject.turns)
        ->ReportAggregatesOnly(true)
        ->ComputeStatistics("p99", percentile_99);
}

int run(int argc, char** argv) {
    std::string interleave = "--benchmark_enable_random_interleaving=true";
    std::vector<char*> words(argv, argv + argc);
    words.insert(words.begin() + 1, interleave.data());
    int count = static_cast<int>(words.size());
    benchmark::Initialize(&count, words.data()); // takes its own options away

    Options options;
    CLI::App app("Measures the converter's paths and stages beside memcpy.");
    app.add_option("--size", options.size, "frame size");
    app.add_option("--rounds", options.rounds, "how often each is measured; short ones five times as often")
        ->check(CLI::Range(1, 100000));
    app.add_option("--only", options.only, "measure these and memcpy");
    app.add_option("--device", options.device, "part of an OpenCL device's name or number");
    CLI11_PARSE(app, count, words.data());

    const Environment environment(options.device);
    const Device& device = environment.device();
    benchmark::AddCustomContext("device", device.name);
    benchmark::AddCustomContext("platform", device.platform);
    benchmark::AddCustomContext("version", device.version);
    benchmark::AddCustomContext("driver", device.driver);
    const Size size = parse_size(options.size);
    for (const Subject& subject : subjects(Geometry(size.width, size.height), environment, options))
        add_benchmark(subject, options.rounds);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    int status = 2;
    try {
        status = run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "path_bench: " << error.what() << '\n';
    }
    remove_registered(); // the cache folder, where it is a temporary one
    return status;
}
