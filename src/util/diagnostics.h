/// What every part of the library reports through: the Android log, names of OpenCL codes, checked calls, fatal checks.
///
/// The numbers in failure lines and checks are identifiers, not source lines: field logs are matched by them, so they
/// are passed as arguments and stay what they are when code moves. The stems ("converter_vendor" and so on) likewise.
#pragma once

#include <atomic>
#include <cstdint>

#include <CL/cl.h>

#include "lumivert/converter.h"

namespace lumivert {

/// Bits of `debug_level`. Lines of other kinds are always written.
enum LogBit : int32_t {
    kErrorBit = 1,    ///< error lines of refused calls and fallbacks
    kRegistryBit = 2, ///< modes, registry and release tracing
    kTraceBit = 4,    ///< entry, exit and planes
};

/// `debug_level`, which is a plain integer for its users although an init may write it while other threads convert:
/// the library reads and writes it through these two only.
inline int32_t log_level() {
    return __atomic_load_n(&debug_level, __ATOMIC_RELAXED);
}
inline void set_log_level(int32_t level) {
    __atomic_store_n(&debug_level, level, __ATOMIC_RELAXED);
}

inline bool log_enabled(LogBit bit) {
    return (log_level() & bit) != 0;
}

/// Not 0: conversions dump their frames. Like `debug_level` it belongs to all instances of the process, is set by every
/// init (from "vendor.Lumivert.debug.dump") and may change while other threads convert.
extern std::atomic<int32_t> dump_request;

/// One line in the Android log under the library's tag.
void log_debug(const char* format, ...) __attribute__((format(printf, 1, 2)));
void log_info(const char* format, ...) __attribute__((format(printf, 1, 2)));
void log_error(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Name of an OpenCL 1.2 status code; "Unknown err" for anything else, import codes of the Arm extension included.
/// Never null, not the caller's to free. `context` is ignored.
const char* asString(int code, const char* context = nullptr);

/// The failure line of an OpenCL call: "[function] failed ! error string is NAME Line number is TAG ".
void report_failure(const char* function, cl_int code, int tag);

/// Makes an OpenCL call and reports its failure, after which the caller carries on. A failing call is made once more
/// for the code in the message: field tools count on both calls. True when the first one succeeded.
template <typename Call>
bool checked(const char* function, int tag, const Call& call) {
    if (call() == CL_SUCCESS) return true;
    report_failure(function, call(), tag);
    return false;
}

/// Where a fatal check stands, as its message names it.
struct CheckSite {
    const char* stem;
    int line;
};

/// Ends the process through `__android_log_assert` unless `holds`, with "stem:line CHECK(condition) failed.".
/// `expanded` is the condition as the assertion text shows it where a macro makes it differ.
void fatal_check(bool holds, CheckSite site, const char* condition, const char* expanded = nullptr);

/// The same without a log tag.
void fatal_check_untagged(bool holds, CheckSite site, const char* condition, const char* expanded);

} // namespace lumivert
