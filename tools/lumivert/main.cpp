#include <exception>
#include <iostream>
#include <vector>

#include "commands/commands.h"
#include "engine/library_log.h"
#include "error.h"
#include "io/cleanup.h"
#include "media/ffmpeg.h"
#include "report.h"

namespace {

using namespace lumivert::tool;

struct Entry {
    const char* name;
    const char* about;
    Command (*add)(CLI::App&);
};

constexpr Entry commands[] = {
    {"convert", "Convert an HDR10 or HDR10+ clip to SDR", add_convert},
    {"probe", "Tell what a clip and its metadata are like", add_probe},
    {"metadata", "Extract HDR10+ metadata as JSON", add_metadata},
    {"curve", "Draw the tone curve of a frame", add_curve},
    {"compare", "Compare two pictures or clips", add_compare},
    {"bench", "Measure the converter on this machine", add_bench},
    {"devices", "List OpenCL devices", add_devices},
};

int run(int argc, char** argv) {
    CLI::App app("HDR10 and HDR10+ to SDR, as a device's codec has it converted.", "lumivert");
    app.set_version_flag("--version", LUMIVERT_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    app.add_flag("-v,--verbose", verbose, "show what the library and FFmpeg log");
    std::vector<std::pair<CLI::App*, Command>> added;
    for (const Entry& entry : commands) {
        CLI::App* command = app.add_subcommand(entry.name, entry.about);
        added.emplace_back(command, entry.add(*command));
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error); // --help, --version
        for (const auto& [command, unused] : added)
            if (command->parsed()) set_command(command->get_name());
        tell(error.what());
        return failed;
    }
    collect_ffmpeg_log();
    take_over_library_log();
    for (const auto& [command, execute] : added)
        if (command->parsed()) {
            set_command(command->get_name());
            return execute();
        }
    return failed;
}

} // namespace

int main(int argc, char** argv) {
    watch_signals();
    try {
        const int status = run(argc, argv);
        std::cout.flush();
        return status;
    } catch (const std::exception& error) {
        tell(error.what());
        return failed;
    }
}
