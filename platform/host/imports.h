/// What kernel launches must know about emulated imports.
#pragma once

#include <cstddef>
#include <optional>

#include <CL/cl.h>

namespace lumivert::platform {

/// The caller's memory behind an import, for a device that has memory of its own.
struct HostMemory {
    void* address;
    size_t size;
};

/// The memory to copy from before a launch and back to after it. Nothing for memory objects that are not imports, and
/// for imports on a device that works directly in host memory.
std::optional<HostMemory> copied_from(cl_mem memory);

} // namespace lumivert::platform
