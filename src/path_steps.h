/// Steps that the entry points and the conversion paths share.
#pragma once

#include <cstddef>
#include <memory>

#include <CL/cl.h>

#include "lumivert/converter.h"
#include "util/formatter.h"

namespace lumivert {

/// How a fatal check in an entry point or a path names itself.
constexpr CheckSite converter_check(int line) {
    return {"converter_vendor", line};
}

/// Ends the process unless both planes have a descriptor and a size. The checks are numbered `line` (luma) and `line` +
/// 1 (chroma). `name` is the record's, "In_params" or "Out_params".
void check_planes(const _HDR2SDR_config_params_t& params, const char* name, int line);

/// The registry key of a plane.
std::shared_ptr<exported_memory> key_of(const _MULTIPLANE_t& plane);

/// Imports a plane for the current call. The caller releases the object; null on failure.
cl_mem import_plane(Formatter& formatter, const _MULTIPLANE_t& plane);

/// Binds a kernel's arguments, starting at index 0. Failures are logged with the tags `first_tag`, `first_tag` + 1, ...
template <typename... Arguments>
void bind_arguments(const char* function, int first_tag, cl_kernel kernel, const Arguments&... arguments) {
    cl_uint index = 0;
    const auto bind = [&](std::size_t size, const void* value) {
        checked(function, first_tag + static_cast<int>(index),
                [&] { return clSetKernelArg(kernel, index, size, value); });
        ++index;
    };
    (bind(sizeof(arguments), &arguments), ...); // NOLINT(bugprone-sizeof-expression): the argument is the handle itself
}

/// Launches a kernel over `columns` x `rows` work-items and waits until it has finished. If the instance's frames have
/// more than `kMostPixels`, nothing is launched and CL_INVALID_GLOBAL_WORK_SIZE is logged as the launch's failure.
void launch(const char* function, int tag, const Formatter& formatter, cl_kernel kernel, std::size_t columns,
            std::size_t rows);

} // namespace lumivert
