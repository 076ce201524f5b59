#include "commands/commands.h"

#include "report.h"

namespace lumivert::tool {
namespace {

struct Entry {
    const char* name;
    const char* about;
    Command (*add)(CLI::App&);
};

constexpr Entry kCommands[] = {
    {"convert", "Convert an HDR10 or HDR10+ clip to SDR", add_convert},
    {"probe", "Describe a clip and its metadata", add_probe},
    {"metadata", "Extract HDR10+ metadata as JSON", add_metadata},
    {"curve", "Draw the tone curve of a frame", add_curve},
    {"measure", "Measure the light in a clip, and compare it with its metadata", add_measure},
    {"report", "Show in one HTML page why a clip looks as it does in SDR", add_report},
    {"compare", "Compare two pictures or clips", add_compare},
    {"bench", "Measure the converter on this machine", add_bench},
    {"devices", "List OpenCL devices", add_devices},
};

} // namespace

std::vector<std::pair<CLI::App*, Command>> add_commands(CLI::App& app) {
    app.set_version_flag("-V,--version", LUMIVERT_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    app.add_flag("-v,--verbose", verbose, "show what the library and FFmpeg log");
    app.add_flag("-q,--quiet", only_warnings, "print only warnings and errors");
    std::vector<std::pair<CLI::App*, Command>> added;
    for (const Entry& entry : kCommands) {
        CLI::App* command = app.add_subcommand(entry.name, entry.about);
        added.emplace_back(command, entry.add(*command));
    }
    return added;
}

} // namespace lumivert::tool
