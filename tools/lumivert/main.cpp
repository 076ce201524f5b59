#include <exception>
#include <iostream>

#include "commands/commands.h"
#include "error.h"
#include "io/cleanup.h"
#include "media/ffmpeg.h"
#include "report.h"

namespace {

using namespace lumivert::tool;

int run(int argc, char** argv) {
    CLI::App app("HDR10 and HDR10+ to SDR, as a device's codec has it converted.", "lumivert");
    const auto added = add_commands(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error); // --help, --version
        for (const auto& [command, unused] : added)
            if (command->parsed()) set_command(command->get_name());
        tell(error.what());
        return kFailed;
    }
    collect_ffmpeg_log();
    for (const auto& [command, execute] : added)
        if (command->parsed()) {
            set_command(command->get_name());
            return execute();
        }
    return kFailed;
}

} // namespace

/// Takes the place of the C library's for every library in the process: LLVM, inside some OpenCL drivers, replaces
/// signal handlers, so that one for SIGABRT would not be reached.
extern "C" [[gnu::visibility("default")]] void abort() {
    give_up_after_crash();
}

int main(int argc, char** argv) {
    int status = kFailed;
    try {
        watch_signals();
        status = run(argc, argv);
        std::cout.flush();
        if (!std::cout) throw Error("standard output: cannot be written");
    } catch (const std::exception& error) {
        tell(error.what());
        status = kFailed;
    }
    remove_registered();
    return status;
}
