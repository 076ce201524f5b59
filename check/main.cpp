/// lumivert_check: does libLumivert.so work on this device? Converts frames on every path and compares every
/// sample with what must come out.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fnmatch.h>
#include <unistd.h>

#include "cases.h"
#include "data_folder.h"
#include "device.h"
#include "process.h"
#include "report.h"

namespace lumivert::check {
namespace {

constexpr char kUsage[] =
    R"(lumivert_check [--quick] [--json] [--case PATTERN]... [--planes SOURCE] [--limit SECONDS] | --list

Converts frames on every path of libLumivert.so and compares every sample with what must come out.

  --quick          small frames only, for emulators and interpreters
  --json           one JSON document instead of the table
  --case PATTERN   only the cases whose names match, as in a shell: 'hdr10plus.*', '*@3840x2160'
  --planes SOURCE  take planes from dma_heap, ion, udmabuf or memfd instead of the first that works
  --limit SECONDS  end a case that takes longer (120, with --quick 600)
  --list           print the names of the cases

Exit status: 0 every case passed, 1 one did not, 2 wrong usage.
)";

struct Options {
    bool quick = false, json = false, list = false, help = false;
    std::vector<std::string> patterns;
    int planes = -1;
    int limit = 0;
};

constexpr const char* kPlaneNames[] = {"dma_heap", "ion", "udmabuf", "memfd"};

/// Empty, or what is wrong.
std::string parse(const std::vector<std::string>& arguments, Options& options) {
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& option = arguments[i];
        if (option == "--quick") {
            options.quick = true;
        } else if (option == "--json") {
            options.json = true;
        } else if (option == "--list") {
            options.list = true;
        } else if (option == "--help" || option == "-h") {
            options.help = true;
        } else if (option == "--case" || option == "--planes" || option == "--limit") {
            if (++i == arguments.size()) return option + " needs a value";
            const std::string& value = arguments[i];
            if (option == "--case") {
                options.patterns.push_back(value);
            } else if (option == "--planes") {
                const auto* const name = std::find(std::begin(kPlaneNames), std::end(kPlaneNames), value);
                if (name == std::end(kPlaneNames)) return "no planes come from '" + value + "'";
                options.planes = static_cast<int>(name - std::begin(kPlaneNames));
            } else {
                char* end = nullptr;
                const long seconds = std::strtol(value.c_str(), &end, 10);
                if (*end != '\0' || seconds < 1 || seconds > 86400) return "'" + value + "' is no number of seconds";
                options.limit = static_cast<int>(seconds);
            }
        } else {
            return "unknown option '" + option + "'";
        }
    }
    return "";
}

std::vector<Case> selected_cases(const Options& options) {
    std::vector<Case> cases = all_cases(options.quick);
    const auto unwanted = [&](const Case& c) {
        const auto matches = [&](const std::string& pattern) {
            return fnmatch(pattern.c_str(), c.name.c_str(), 0) == 0;
        };
        return !options.patterns.empty() && std::none_of(options.patterns.begin(), options.patterns.end(), matches);
    };
    cases.erase(std::remove_if(cases.begin(), cases.end(), unwanted), cases.end());
    return cases;
}

// ---- a case's own process: "--child device", or "--child NAME quick|full PLANES" ----

void be_a_child(const std::vector<std::string>& arguments) {
    Facts facts;
    if (arguments.size() == 2) {
        describe_device(facts);
    } else if (arguments.size() == 4) {
        for (const Case& c : all_cases(arguments[2] == "quick"))
            if (c.name == arguments[1])
                c.run(c, static_cast<PlaneSource>(std::strtol(arguments[3].c_str(), nullptr, 10)), facts);
    }
    send_facts(facts);
}

// ---- the check ----

int check(const Options& options) {
    const DataFolder folder;
    const int limit = options.limit > 0 ? options.limit : options.quick ? 600 : 120;
    Report report(options.json);

    const Facts device = in_own_process({"--child", "device"}, be_a_child, limit);
    if (device.number("ok") != 1) {
        std::fprintf(stderr, "lumivert_check: %s\n%s\n", device.text("detail").c_str(), device.text("log").c_str());
        return 1;
    }
    if (!folder.writable()) {
        std::fprintf(stderr,
                     "lumivert_check: %s: not a folder that can be written; the library keeps its program there\n",
                     folder.path().c_str());
        return 1;
    }
    const PlaneSource planes = options.planes >= 0
                                   ? static_cast<PlaneSource>(options.planes)
                                   : platform::best_source(device.number("cl_arm_import_memory_dma_buf") == 1);
    report.device(device, platform::name_of(planes), folder.path());
    for (const Case& c : selected_cases(options)) {
        const std::vector<std::string> arguments = {"--child", c.name, options.quick ? "quick" : "full",
                                                    format("%d", static_cast<int>(planes))};
        report.result(c, in_own_process(arguments, be_a_child, limit));
    }
    report.finish();
    return report.all_ok() ? 0 : 1;
}

int run(const std::vector<std::string>& arguments) {
    if (!arguments.empty() && arguments[0] == "--child") {
        be_a_child(arguments);
        return 0;
    }
    Options options;
    const std::string wrong = parse(arguments, options);
    if (!wrong.empty()) {
        std::fprintf(stderr, "lumivert_check: %s; see --help\n", wrong.c_str());
        return 2;
    }
    if (options.help) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    const std::vector<Case> cases = selected_cases(options);
    if (cases.empty()) {
        std::fputs("lumivert_check: no case has such a name; see --list\n", stderr);
        return 2;
    }
    if (!options.list) return check(options);
    for (const Case& c : cases)
        std::puts(c.name.c_str());
    return 0;
}

} // namespace
} // namespace lumivert::check

int main(int argc, char** argv) {
    return lumivert::check::run({argv + 1, argv + argc});
}
