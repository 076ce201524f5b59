#include "commands/commands.h"

#include <CLI/CLI.hpp>

#include "error.h"
#include "io/output_file.h"
#include "report.h"

namespace lumivert::tool {
namespace {

struct Entry {
    const char* name;
    const char* about;
    Command (*add)(Arguments&);
    bool makes_one_file = false; ///< and nothing else: there is nothing to do if that is to be kept
};

constexpr Entry kCommands[] = {
    {"convert", "Convert an HDR10 or HDR10+ clip to SDR", add_convert},
    {"probe", "Describe a clip and its metadata", add_probe},
    {"metadata", "Extract HDR10+ metadata as JSON", add_metadata, true},
    {"curve", "Draw the tone curve of a frame", add_curve, true},
    {"measure", "Measure the light in a clip, and compare it with its metadata", add_measure},
    {"report", "Show in one HTML page why a clip looks as it does in SDR", add_report, true},
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
        Arguments arguments(*command);
        Command execute = entry.add(arguments);
        if (const CLI::Option* output = command->get_option_no_throw("--output")) {
            command->add_flag("-n,--no-overwrite", keep_existing, "leave existing files as they are");
            if (entry.makes_one_file)
                execute = [output, execute] { return is_kept(output->as<std::string>()) ? kDone : execute(); };
        }
        added.emplace_back(command, execute);
    }
    return added;
}

} // namespace lumivert::tool
