#include "util/diagnostics.h"

#include <cstdarg>
#include <cstdio>
#include <string>

#include <android/log.h>

int32_t debug_level = 1;

namespace lumivert {

std::atomic<int32_t> dump_request = 0;

namespace {

constexpr const char* kLogTag = "Lumivert";
constexpr const char* kUnknown = "Unknown err";

constexpr int kLowestCode = CL_INVALID_DEVICE_PARTITION_COUNT; // -68, the last code of OpenCL 1.2

constexpr const char* kCodeNames[] = {
    // -68 to -60
    "CL_INVALID_DEVICE_PARTITION_COUNT",
    "CL_INVALID_LINKER_OPTIONS",
    "CL_INVALID_COMPILER_OPTIONS",
    "CL_INVALID_IMAGE_DESCRIPTOR",
    "CL_INVALID_PROPERTY",
    "CL_INVALID_GLOBAL_WORK_SIZE",
    "CL_INVALID_MIP_LEVEL",
    "CL_INVALID_BUFFER_SIZE",
    "CL_INVALID_GL_OBJECT",
    // -59 to -50
    "CL_INVALID_OPERATION",
    "CL_INVALID_EVENT",
    "CL_INVALID_EVENT_WAIT_LIST",
    "CL_INVALID_GLOBAL_OFFSET",
    "CL_INVALID_WORK_ITEM_SIZE",
    "CL_INVALID_WORK_GROUP_SIZE",
    "CL_INVALID_WORK_DIMENSION",
    "CL_INVALID_KERNEL_ARGS",
    "CL_INVALID_ARG_SIZE",
    "CL_INVALID_ARG_VALUE",
    // -49 to -40
    "CL_INVALID_ARG_INDEX",
    "CL_INVALID_KERNEL",
    "CL_INVALID_KERNEL_DEFINITION",
    "CL_INVALID_KERNEL_NAME",
    "CL_INVALID_PROGRAM_EXECUTABLE",
    "CL_INVALID_PROGRAM",
    "CL_INVALID_BUILD_OPTIONS",
    "CL_INVALID_BINARY",
    "CL_INVALID_SAMPLER",
    "CL_INVALID_IMAGE_SIZE",
    // -39 to -30
    "CL_INVALID_IMAGE_FORMAT_DESCRIPTOR",
    "CL_INVALID_MEM_OBJECT",
    "CL_INVALID_HOST_PTR",
    "CL_INVALID_COMMAND_QUEUE",
    "CL_INVALID_QUEUE_PROPERTIES",
    "CL_INVALID_CONTEXT",
    "CL_INVALID_DEVICE",
    "CL_INVALID_PLATFORM",
    "CL_INVALID_DEVICE_TYPE",
    "CL_INVALID_VALUE",
    // -29 to -20 are not assigned
    kUnknown,
    kUnknown,
    kUnknown,
    kUnknown,
    kUnknown,
    kUnknown,
    kUnknown,
    kUnknown,
    kUnknown,
    kUnknown,
    // -19 to -10
    "CL_KERNEL_ARG_INFO_NOT_AVAILABLE",
    "CL_DEVICE_PARTITION_FAILED",
    "CL_LINK_PROGRAM_FAILURE",
    "CL_LINKER_NOT_AVAILABLE",
    "CL_COMPILE_PROGRAM_FAILURE",
    "CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST",
    "CL_MISALIGNED_SUB_BUFFER_OFFSET",
    "CL_MAP_FAILURE",
    "CL_BUILD_PROGRAM_FAILURE",
    "CL_IMAGE_FORMAT_NOT_SUPPORTED",
    // -9 to 0
    "CL_IMAGE_FORMAT_MISMATCH",
    "CL_MEM_COPY_OVERLAP",
    "CL_PROFILING_INFO_NOT_AVAILABLE",
    "CL_OUT_OF_HOST_MEMORY",
    "CL_OUT_OF_RESOURCES",
    "CL_MEM_OBJECT_ALLOCATION_FAILURE",
    "CL_COMPILER_NOT_AVAILABLE",
    "CL_DEVICE_NOT_AVAILABLE",
    "CL_DEVICE_NOT_FOUND",
    "CL_SUCCESS",
};
static_assert(sizeof(kCodeNames) / sizeof(kCodeNames[0]) == -kLowestCode + 1);

void assert_failed(const char* tag, CheckSite site, const char* condition, const char* expanded) {
    const std::string assertion = std::string("!(") + (expanded != nullptr ? expanded : condition) + ")";
    const std::string message =
        std::string(site.stem) + ":" + std::to_string(site.line) + " CHECK(" + condition + ") failed.";
    __android_log_assert(assertion.c_str(), tag, "%s", message.c_str());
}

void print(int priority, const char* format, va_list arguments) {
    char line[1024]; // the log cuts longer lines anyway
    std::vsnprintf(line, sizeof line, format, arguments);
    __android_log_print(priority, kLogTag, "%s", line);
}

} // namespace

void log_debug(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    print(ANDROID_LOG_DEBUG, format, arguments);
    va_end(arguments);
}

void log_info(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    print(ANDROID_LOG_INFO, format, arguments);
    va_end(arguments);
}

void log_error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    print(ANDROID_LOG_ERROR, format, arguments);
    va_end(arguments);
}

const char* asString(int code, const char* /*context*/) {
    return code >= kLowestCode && code <= CL_SUCCESS ? kCodeNames[code - kLowestCode] : kUnknown;
}

void report_failure(const char* function, cl_int code, int tag) {
    log_error("[%s] failed ! error string is %s Line number is %d ", function, asString(code), tag);
}

void fatal_check(bool holds, CheckSite site, const char* condition, const char* expanded) {
    if (!holds) assert_failed(kLogTag, site, condition, expanded);
}

void fatal_check_untagged(bool holds, CheckSite site, const char* condition, const char* expanded) {
    if (!holds) assert_failed(nullptr, site, condition, expanded);
}

} // namespace lumivert
