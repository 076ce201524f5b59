/// Work in a process of its own: what crashes or hangs there is a finding, not the end of the check.
#pragma once

#include <string>
#include <vector>

#include "facts.h"

namespace lumivert::check {

/// Runs this program once more with `arguments`, which must make it write facts to the descriptor kFactsDescriptor.
/// Where a program cannot be started, as under some emulators, `work` runs in a forked process instead.
///
/// The facts get "ok" 0 and a "detail" when the process crashed, was killed after `limit_seconds`, or said nothing;
/// "log" is the end of what it printed.
Facts in_own_process(const std::vector<std::string>& arguments, void (*work)(const std::vector<std::string>&),
                     int limit_seconds);

constexpr int kFactsDescriptor = 3;
void send_facts(const Facts& facts);

} // namespace lumivert::check
