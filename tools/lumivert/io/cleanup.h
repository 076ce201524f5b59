/// What must not outlive the process: unfinished outputs and private folders, removed however the tool ends.
#pragma once

#include <string>

namespace lumivert::tool {

/// On SIGINT, SIGTERM, SIGHUP and SIGQUIT removes what is registered below, says so in a line and lets the signal end
/// the process; on an abort inside a library ends it with status 2. Writing to a closed pipe or past a size limit
/// becomes an ordinary write error. To be called before any thread starts: all threads inherit the blocked signals.
void watch_signals();

/// Like mkstemp and mkdtemp: `name`, a path that ends in XXXXXX, becomes the name of what was made. That is registered,
/// and gone however the process ends; if it is killed, with the next call for the same place. Gives back a descriptor
/// that holds a lock, by which other runs know that it is in use; negative where nothing could be made.
int make_temporary_file(std::string& name);
int make_temporary_folder(std::string& name);

/// Removes what killed runs of the same user have left, once for each pattern. The processes that use such files and
/// folders hold their locks, on this machine or another one that shares the place.
void remove_abandoned(const std::string& pattern, bool folders);

/// Takes a name off the list.
void keep_at_exit(const std::string& path);

/// Removes all that is registered: for the end of main.
void remove_registered();

/// Ends the process at once with `line` and status 2, from any thread.
[[noreturn]] void give_up(const char* line);

/// The same after a crash in a library, with a line that says so.
[[noreturn]] void give_up_after_crash();

} // namespace lumivert::tool
