// clImportMemoryARM for drivers without cl_arm_import_memory (Khronos extension 38).
#include <cstdint>
#include <optional>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "driver.h"
#include "handles.h"
#include "mappings.h"

namespace lumivert::platform {
namespace {

/// The driver's own import, where it has one.
decltype(&clImportMemoryARM) native_import(cl_context context) {
    cl_device_id device = nullptr;
    cl_platform_id platform = nullptr;
    size_t length = 0;
    DRIVER(clGetContextInfo)(context, CL_CONTEXT_DEVICES, sizeof(cl_device_id), &device, nullptr);
    DRIVER(clGetDeviceInfo)(device, CL_DEVICE_PLATFORM, sizeof(cl_platform_id), &platform, nullptr);
    DRIVER(clGetDeviceInfo)(device, CL_DEVICE_EXTENSIONS, 0, nullptr, &length);
    std::string extensions(length, '\0');
    DRIVER(clGetDeviceInfo)(device, CL_DEVICE_EXTENSIONS, length, extensions.data(), nullptr);
    if (extensions.find("cl_arm_import_memory") == std::string::npos) return nullptr;
    return reinterpret_cast<decltype(&clImportMemoryARM)>(
        DRIVER(clGetExtensionFunctionAddressForPlatform)(platform, "clImportMemoryARM"));
}

/// The kind of memory that the properties name; nothing for a list that is not understood.
std::optional<cl_import_properties_arm> import_type(const cl_import_properties_arm* properties) {
    cl_import_properties_arm type = CL_IMPORT_TYPE_HOST_ARM;
    for (; properties && *properties; properties += 2) {
        if (properties[0] != CL_IMPORT_TYPE_ARM) return std::nullopt;
        type = properties[1];
    }
    if (type != CL_IMPORT_TYPE_HOST_ARM && type != CL_IMPORT_TYPE_DMA_BUF_ARM) return std::nullopt;
    return type;
}

/// Whether every page of the range is mapped: msync answers that without touching the memory.
bool is_mapped(void* memory, size_t size) {
    const size_t before = reinterpret_cast<uintptr_t>(memory) % static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return size <= PTRDIFF_MAX && msync(static_cast<char*>(memory) - before, before + size, MS_ASYNC) == 0;
}

Mappings& mappings() {
    static auto& kept = *new Mappings; // never destroyed: objects may be released while the process ends
    return kept;
}

void CL_CALLBACK let_mapping_go(cl_mem, void* mapping) {
    mappings().let_go(static_cast<Mappings::Mapping*>(mapping));
}

cl_mem import_descriptor(cl_context context, cl_mem_flags flags, int fd, size_t size, cl_int* status) {
    Mappings::Mapping* mapping = mappings().acquire(fd, size);
    if (!mapping) {
        *status = CL_INVALID_OPERATION;
        return nullptr;
    }
    cl_mem memory = DRIVER(clCreateBuffer)(context, flags | CL_MEM_USE_HOST_PTR, size, mapping->address, status);
    if (memory) *status = DRIVER(clSetMemObjectDestructorCallback)(memory, let_mapping_go, mapping);
    if (*status == CL_SUCCESS) return memory;
    if (memory) DRIVER(clReleaseMemObject)(memory);
    mappings().let_go(mapping);
    return nullptr;
}

/// The extension's errors: INVALID_PROPERTY for the list, INVALID_VALUE for flags, a null pointer and a size of 0,
/// INVALID_OPERATION where the range cannot be mapped. The object reads and writes the caller's memory itself.
cl_mem import(cl_context context, cl_mem_flags flags, const cl_import_properties_arm* properties, void* memory,
              size_t size, cl_int* status) {
    if (const auto native = native_import(context)) return native(context, flags, properties, memory, size, status);

    const auto type = import_type(properties);
    if (!type)
        *status = CL_INVALID_PROPERTY;
    else if (!memory || size == 0 || (flags & (CL_MEM_ALLOC_HOST_PTR | CL_MEM_COPY_HOST_PTR)))
        *status = CL_INVALID_VALUE;
    else if (*type == CL_IMPORT_TYPE_DMA_BUF_ARM)
        return import_descriptor(context, flags, *static_cast<const int*>(memory), size, status);
    else if (!is_mapped(memory, size))
        *status = CL_INVALID_OPERATION;
    else
        return DRIVER(clCreateBuffer)(context, flags | CL_MEM_USE_HOST_PTR, size, memory, status);
    return nullptr;
}

} // namespace
} // namespace lumivert::platform

cl_mem clImportMemoryARM(cl_context context, cl_mem_flags flags, const cl_import_properties_arm* properties,
                         void* memory, size_t size, cl_int* errcode_ret) {
    return lumivert::platform::created(lumivert::platform::import, errcode_ret, context, flags, properties, memory,
                                       size);
}
