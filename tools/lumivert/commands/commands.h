/// The subcommands. Each adds its options to its part of the command line and gives back what runs it.
#pragma once

#include <functional>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

namespace lumivert::tool {

/// Runs a command whose options were read; the exit status.
using Command = std::function<int()>;

Command add_convert(CLI::App& app);
Command add_probe(CLI::App& app);
Command add_metadata(CLI::App& app);
Command add_curve(CLI::App& app);
Command add_measure(CLI::App& app);
Command add_compare(CLI::App& app);
Command add_bench(CLI::App& app);
Command add_devices(CLI::App& app);

/// Adds all of them, and what they share. The command that was asked for is the one that `parsed()`.
std::vector<std::pair<CLI::App*, Command>> add_commands(CLI::App& app);

} // namespace lumivert::tool
