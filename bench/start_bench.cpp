/// What a converter costs besides its frames: starts one for frames of the given size, converts two, and prints the
/// time of init, the time of the first frame and the process's peak memory as JSON. One process takes one measurement,
/// because drivers keep what they compiled for as long as a process lives, and the peak never falls.
#include <chrono>
#include <iostream>

#include <nlohmann/json.hpp>
#include <sys/resource.h>

#include "commands/options.h"
#include "engine/converter.h"
#include "engine/environment.h"
#include "io/cleanup.h"

namespace {

using namespace lumivert::tool;

void measure(const Size& size) {
    using Clock = std::chrono::steady_clock;
    const Environment environment;
    const Geometry geometry(size.width, size.height);
    Converter converter(geometry, Mode::kHdr10plus, Entry::kPool, environment);
    const Planes in(P010_LINEAR, geometry), out(NV12, geometry);
    const Record record = default_record(1000, 1000);
    const auto start = Clock::now();
    converter.convert(in, out, &record, {1000, 1000});
    const std::chrono::duration<double, std::milli> first = Clock::now() - start;
    converter.convert(in, out, &record, {1000, 1000});
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    std::cout << nlohmann::json{{"init_ms", converter.init_ms()},
                                {"first_frame_ms", first.count()},
                                {"peak_mib", static_cast<double>(usage.ru_maxrss) / 1024}};
}

} // namespace

int main(int argc, char** argv) {
    int status = 2;
    try {
        measure(parse_size(argc == 2 ? argv[1] : ""));
        status = 0;
    } catch (const std::exception& error) {
        std::cerr << "start_bench: " << error.what() << '\n';
    }
    remove_registered(); // the cache folder, where it is a temporary one
    return status;
}
