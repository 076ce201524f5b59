/// The subcommands. Each adds its options to the command line and returns the function that runs it.
#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "commands/arguments.h"

namespace lumivert::tool {

/// Runs a command after its options were read, and returns the exit status.
using Command = std::function<int()>;

Command add_convert(Arguments& arguments);
Command add_probe(Arguments& arguments);
Command add_metadata(Arguments& arguments);
Command add_curve(Arguments& arguments);
Command add_measure(Arguments& arguments);
Command add_report(Arguments& arguments);
Command add_compare(Arguments& arguments);
Command add_bench(Arguments& arguments);
Command add_devices(Arguments& arguments);

/// Adds all commands and the options they share. After parsing, `parsed()` is true for the command that was given.
std::vector<std::pair<CLI::App*, Command>> add_commands(CLI::App& app);

} // namespace lumivert::tool
