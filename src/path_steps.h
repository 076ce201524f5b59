/// Steps that the entry points and the conversion paths have in common.
#pragma once

#include <cstddef>
#include <memory>

#include <CL/cl.h>

#include "lumivert/converter.h"
#include "util/formatter.h"

namespace lumivert {

/// Where a fatal check of the entry points and paths stands.
constexpr CheckSite converter_check(int line) {
    return {"converter_vendor", line};
}

/// Ends the process unless both planes have a descriptor and a size; the checks are `line` and `line` + 1. `name` is
/// the record's, "In_params" or "Out_params".
void check_planes(const _HDR2SDR_config_params_t& params, const char* name, int line);

/// Registry key of a plane.
std::shared_ptr<exported_memory> key_of(const _MULTIPLANE_t& plane);

/// Imports a plane for the current call; the object is the caller's, null on failure.
cl_mem import_plane(Formatter& formatter, const _MULTIPLANE_t& plane);

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

/// Launches a kernel over `columns` x `rows` work-items and waits for it. For an instance whose frames are larger than
/// `kMostPixels` nothing is launched: the launch then counts as failed with CL_INVALID_GLOBAL_WORK_SIZE.
void launch(const char* function, int tag, const Formatter& formatter, cl_kernel kernel, std::size_t columns,
            std::size_t rows);

} // namespace lumivert
