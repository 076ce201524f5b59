/// How every part of the library reports: the Android log, names of OpenCL codes, checked calls, fatal checks; and the
/// two debug switches that all instances of the process share.
///
/// The numbers in failure lines and fatal checks identify places; they are not line numbers. Logs from the field are
/// matched by them, so they are passed as arguments and never change when code moves. The same is true of the stems
/// ("converter_vendor" and so on).
#pragma once

#include <atomic>
#include <cstdint>

#include <CL/cl.h>

#include "lumivert/converter.h"

namespace lumivert {

/// Bits of `debug_level`. All other lines are always written.
enum LogBit : int32_t {
    kErrorBit = 1,    ///< error lines of refused calls and fallbacks
    kRegistryBit = 2, ///< modes, registry and release tracing
    kTraceBit = 4,    ///< entry, exit and planes
};

/// `debug_level` is a plain integer to callers, but an init may write it while other threads convert. The library
/// accesses it through these two functions only.
inline int32_t log_level() {
    return __atomic_load_n(&debug_level, __ATOMIC_RELAXED);
}
inline void set_log_level(int32_t level) {
    __atomic_store_n(&debug_level, level, __ATOMIC_RELAXED);
}

inline bool log_enabled(LogBit bit) {
    return (log_level() & bit) != 0;
}

/// If not 0, conversions dump their frames. Every init that succeeds sets it from the property
/// "vendor.Lumivert.debug.dump"; like `debug_level`, it may change while other threads convert.
extern std::atomic<int32_t> dump_request;

/// Each writes one line to the Android log under the library's tag.
void log_debug(const char* format, ...) __attribute__((format(printf, 1, 2)));
void log_info(const char* format, ...) __attribute__((format(printf, 1, 2)));
void log_error(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// The name of an OpenCL 1.2 status code; "Unknown err" for any other code, also those of the Arm import extension. A
/// constant text, never null. `context` is ignored.
const char* asString(int code, const char* context = nullptr);

/// The failure line of an OpenCL call: "[function] failed ! error string is NAME Line number is TAG ".
void report_failure(const char* function, cl_int code, int tag);

/// Makes an OpenCL call and logs its failure; the caller carries on. A failing call is made a second time to obtain the
/// code for the message, which tools in the field rely on. Returns whether the first call succeeded.
template <typename Call>
bool checked(const char* function, int tag, const Call& call) {
    if (call() == CL_SUCCESS) return true;
    report_failure(function, call(), tag);
    return false;
}

/// Where a fatal check is, as its message says: "stem:line".
struct CheckSite {
    const char* stem;
    int line;
};

/// Ends the process through `__android_log_assert` unless `holds`, with the message "stem:line CHECK(condition)
/// failed.". `expanded` is the condition with its macros expanded, as the assertion text shows it; null if it has none.
void fatal_check(bool holds, CheckSite site, const char* condition, const char* expanded = nullptr);

/// The same, logged without a tag.
void fatal_check_untagged(bool holds, CheckSite site, const char* condition, const char* expanded);

} // namespace lumivert
