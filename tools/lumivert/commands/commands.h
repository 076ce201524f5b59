/// The subcommands. Each adds its options to the command line and returns the function that runs it.
#pragma once

#include <functional>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

namespace lumivert::tool {

/// Runs a command after its options were read, and returns the exit status.
using Command = std::function<int()>;

Command add_convert(CLI::App& app);
Command add_probe(CLI::App& app);
Command add_metadata(CLI::App& app);
Command add_curve(CLI::App& app);
Command add_measure(CLI::App& app);
Command add_report(CLI::App& app);
Command add_compare(CLI::App& app);
Command add_bench(CLI::App& app);
Command add_devices(CLI::App& app);

/// Adds all commands and the options they share. After parsing, `parsed()` is true for the command that was given.
std::vector<std::pair<CLI::App*, Command>> add_commands(CLI::App& app);

} // namespace lumivert::tool
