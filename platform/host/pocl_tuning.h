/// What makes the converter's program fast on PoCL without a change to its text. Nothing here touches a GPU.
#pragma once

#include <cstddef>

#include <CL/cl.h>

namespace lumivert::platform {

/// Sets PoCL's compiler up; to be called once there is a context on `device`.
void tune_compiler(cl_device_id device);

/// Program text to compile before a program's own; null where there is nothing to add.
const char* prelude(cl_context context);

/// Work-items in a row of a work-group, for a launch that leaves the choice to the driver; 0: leave it there.
size_t row_of_work_group(cl_command_queue queue, cl_uint dimensions, const size_t* global);

} // namespace lumivert::platform
