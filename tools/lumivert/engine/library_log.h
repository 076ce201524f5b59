/// The library's log lines. The library writes to the Android log; the tool's users read standard error.
#pragma once

namespace lumivert::tool {

/// Takes over the Android log. Errors become lines of the tool, and everything else shows with --verbose. A fatal check
/// of the library ends the process with one line and status 2.
void take_over_library_log();

/// Number of error lines so far, without those that are routine on a workstation.
int library_errors();

} // namespace lumivert::tool
