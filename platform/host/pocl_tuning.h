/// What makes programs fast on CPU devices without a change to their text. Nothing here applies to a GPU.
#pragma once

#include <cstddef>

#include <CL/cl.h>

namespace lumivert::platform {

/// Program text to compile before a program's own; null where there is nothing to add.
const char* prelude(cl_context context);

} // namespace lumivert::platform
