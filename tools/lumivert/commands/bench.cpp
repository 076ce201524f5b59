#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>

#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/options.h"
#include "engine/converter.h"
#include "error.h"

namespace lumivert::tool {
namespace {

using Seconds = std::chrono::duration<double>;

struct Options {
    std::vector<std::string> sizes = {"1920x1080", "3840x2160"};
    std::string device;
    double seconds = 2;
    bool json = false;
};

constexpr int kRates[] = {24, 30, 60}; // frames per second

/// How fast one mode converts frames of one size.
struct Speed {
    Size size;
    const char* mode;
    int frames;
    double ms_per_frame;

    double frames_per_second() const { return 1000 / ms_per_frame; }
    bool keeps_up_with(int rate) const { return frames_per_second() >= rate; }
};

/// Converts one frame again and again for `seconds`.
Speed measure(const Size& size, Mode mode, const Environment& environment, double seconds) {
    using Clock = std::chrono::steady_clock;
    const Geometry geometry(size.width, size.height);
    Converter converter(geometry, mode, Entry::kPool, environment);
    const Planes in(P010_LINEAR, geometry, converter.plane_source());
    const Planes out(mode == Mode::kHdr10plus ? NV12 : P010_LINEAR, geometry, converter.plane_source());
    fill_with_noise(in);
    const Record record = default_record(1000, 1000);
    const auto convert = [&] { converter.convert(in, out, &record, {1000, 1000}); };
    convert(); // the first frame waits until the driver has compiled
    int frames = 0;
    const auto start = Clock::now();
    Seconds elapsed{};
    do {
        convert();
        ++frames;
        elapsed = Clock::now() - start;
    } while (elapsed.count() < seconds);
    return {size, mode == Mode::kHdr10plus ? "hdr10plus" : "static", frames, 1000 * elapsed.count() / frames};
}

nlohmann::ordered_json to_json(const Speed& speed) {
    nlohmann::ordered_json keeps_up;
    for (const int rate : kRates)
        keeps_up[std::to_string(rate)] = speed.keeps_up_with(rate);
    return {{"width", speed.size.width},
            {"height", speed.size.height},
            {"mode", speed.mode},
            {"frames", speed.frames},
            {"ms_per_frame", speed.ms_per_frame},
            {"frames_per_second", speed.frames_per_second()},
            {"keeps_up_with_fps", keeps_up}};
}

void print_head(const Device& device) {
    std::cout << device.name << ", " << device.platform << ", driver " << device.driver << "\n\n";
    std::printf("%-10s  %-10s  %12s  %9s", "size", "mode", "ms per frame", "frames/s");
    for (const int rate : kRates)
        std::printf("  %3d fps", rate);
    std::printf("\n");
}

void print(const Speed& speed) {
    const std::string size = std::to_string(speed.size.width) + "x" + std::to_string(speed.size.height);
    std::printf("%-10s  %-10s  %12.2f  %9.1f", size.c_str(), speed.mode, speed.ms_per_frame, speed.frames_per_second());
    for (const int rate : kRates)
        std::printf("  %7s", speed.keeps_up_with(rate) ? "yes" : "no");
    std::printf("\n");
    std::fflush(stdout);
}

int run(const Options& options) {
    std::vector<Size> sizes;
    for (const std::string& text : options.sizes)
        sizes.push_back(parse_size(text));
    const Environment environment(options.device);
    const Device& device = environment.device();
    if (!options.json) print_head(device);
    nlohmann::ordered_json results = nlohmann::ordered_json::array();
    for (const Size& size : sizes)
        for (const Mode mode : {Mode::kStaticTable, Mode::kHdr10plus}) {
            const Speed speed = measure(size, mode, environment, options.seconds);
            results.push_back(to_json(speed));
            if (!options.json) print(speed);
        }
    if (options.json)
        std::cout << nlohmann::ordered_json{{"device",
                                             {{"name", device.name},
                                              {"platform", device.platform},
                                              {"version", device.version},
                                              {"driver", device.driver},
                                              {"native_import", device.native_import}}},
                                            {"results", results}}
                         .dump(2)
                  << '\n';
    return kDone;
}

} // namespace

Command add_bench(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    Options& o = *options;
    arguments.add("--size", o.sizes, "frame sizes; by default 1920x1080 and 3840x2160");
    arguments.add("--seconds", o.seconds, "how long each mode converts; by default 2").between(0.1, 3600.0);
    arguments.add("--device", o.device, "part of an OpenCL device's name or number; see 'lumivert devices'");
    arguments.add_flag("--json", o.json, "print one JSON document");
    arguments.footer("This is the conversion alone; decoding and encoding take additional time.\n\n"
                     "Example:\n  lumivert bench --size 1920x1080");
    return [options] { return run(*options); };
}

} // namespace lumivert::tool
