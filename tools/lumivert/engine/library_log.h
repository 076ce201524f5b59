/// The library's log lines: it speaks through the Android log, the tool's users read standard error.
#pragma once

namespace lumivert::tool {

/// Takes over the Android log: errors become lines of the tool, the rest shows with --verbose; what ends the process
/// does so with a line and status 2.
void take_over_library_log();

/// Error lines so far, other than those that are routine on a workstation.
int library_errors();

} // namespace lumivert::tool
