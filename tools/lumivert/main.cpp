#include <algorithm>
#include <exception>
#include <iostream>

#include <CLI/CLI.hpp>

#include "commands/commands.h"
#include "error.h"
#include "io/cleanup.h"
#include "media/ffmpeg.h"
#include "report.h"

namespace {

using namespace lumivert::tool;

using Commands = std::vector<std::pair<CLI::App*, Command>>;

/// "help", "help COMMAND" and "version" as the options that mean the same.
std::vector<std::string> with_options_for_words(std::vector<std::string> arguments) {
    const std::string first = arguments.front();
    if (first == "version") return {"--version"};
    if (first != "help") return arguments;
    if (arguments.size() == 1) return {"--help"};
    return {arguments[1], "--help"};
}

/// Throws for a first word that is no command.
void check_command(const std::vector<std::string>& arguments, const Commands& commands) {
    const auto word = std::find_if(arguments.begin(), arguments.end(), [](const auto& a) { return a[0] != '-'; });
    if (word == arguments.end()) return;
    std::string known;
    for (const auto& [command, unused] : commands) {
        if (command->get_name() == *word) return;
        known += (known.empty() ? "" : ", ") + command->get_name();
    }
    throw Error("no command " + *word + "; there are " + known);
}

int run(int argc, char** argv) {
    CLI::App app("Converts HDR10 and HDR10+ video to SDR with the code that runs on devices.", "lumivert");
    const Commands added = add_commands(app);
    if (argc < 2) {
        std::cerr << app.help();
        return kFailed;
    }
    try {
        auto arguments = with_options_for_words({argv + 1, argv + argc});
        check_command(arguments, added);
        std::reverse(arguments.begin(), arguments.end()); // as CLI11 wants them
        app.parse(arguments);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error); // --help, --version
        for (const auto& [command, unused] : added)
            if (command->parsed()) set_command(command->get_name());
        fail(error.what());
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
        fail(error.what());
        status = kFailed;
    }
    remove_registered();
    return status;
}
