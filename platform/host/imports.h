/// What the emulated imports tell the launches.
#pragma once

#include <cstddef>
#include <optional>

#include <CL/cl.h>

namespace lumivert::platform {

/// The caller's memory behind an import on a device with memory of its own.
struct HostMemory {
    void* address;
    size_t size;
};

/// Where an import's bytes must be fetched before a launch and brought back to after it. Nothing for other memory
/// objects, and for imports on a device that works in the host's memory itself.
std::optional<HostMemory> copied_from(cl_mem memory);

} // namespace lumivert::platform
