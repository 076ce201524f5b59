/// Steps that the entry points and the conversion paths have in common.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>

#include <CL/cl.h>

#include "lumivert/converter.h"
#include "util/formatter.h"

namespace lumivert {

/// Set by init from the debug property; the next conversion then dumps its frames. Shared by all instances, and written
/// by the frames of every thread: hence atomic.
extern std::atomic<int32_t> dump_request;

/// Where a fatal check of the entry points and paths stands.
constexpr CheckSite converter_check(int line) {
    return {"converter_vendor", line};
}

/// Ends the process unless both planes have a descriptor and a size; the checks are `line` and `line` + 1. `name` is
/// the record's, "In_params" or "Out_params".
void check_planes(const _HDR2SDR_config_params_t& params, const char* name, int line);

/// Traces both planes of a frame.
void trace_planes(const _HDR2SDR_config_params_t& params, const char* name);

/// Prints a registry map that is not empty under its name.
void trace_map(const char* name, const std::shared_ptr<ImportedBuffers>& map);

/// Registry key of a plane.
std::shared_ptr<exported_memory> key_of(const _MULTIPLANE_t& plane);

/// Imports a plane for the current call; the object is the caller's, null on failure.
cl_mem import_plane(Formatter& formatter, const _MULTIPLANE_t& plane);

/// Appends both planes of a frame to a dump if one is requested.
void dump_planes(Formatter& formatter, const _HDR2SDR_config_params_t& params, _Image_ColorFormat format,
                 const char* file_name);

/// Binds a kernel's arguments from 0 on. Failures carry the tags `first_tag`, `first_tag` + 1, and so on.
template <typename... Arguments>
void bind_arguments(const char* function, int first_tag, cl_kernel kernel, const Arguments&... arguments) {
    cl_uint index = 0;
    const auto bind = [&](std::size_t size, const void* value) {
        checked(function, first_tag + static_cast<int>(index),
                [&] { return clSetKernelArg(kernel, index, size, value); });
        ++index;
    };
    (bind(sizeof(arguments), &arguments), ...); // NOLINT(bugprone-sizeof-expression): handles are bound as they are
}

/// Launches a kernel over `columns` x `rows` work-items and waits for it.
void launch(const char* function, int tag, cl_command_queue queue, cl_kernel kernel, std::size_t columns,
            std::size_t rows);

} // namespace lumivert
