// clImportMemoryARM for drivers that do not have the extension cl_arm_import_memory (Khronos extension 38).
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>

#include <sys/mman.h>
#include <unistd.h>

#include "driver.h"
#include "handles.h"
#include "imports.h"
#include "mappings.h"

namespace lumivert::platform {
namespace {

cl_device_id device_of(cl_context context) {
    cl_device_id device = nullptr;
    DRIVER(clGetContextInfo)(context, CL_CONTEXT_DEVICES, sizeof(cl_device_id), &device, nullptr);
    return device;
}

/// The driver's own function, if it has the extension.
decltype(&clImportMemoryARM) native_import(cl_device_id device) {
    size_t length = 0;
    DRIVER(clGetDeviceInfo)(device, CL_DEVICE_EXTENSIONS, 0, nullptr, &length);
    std::string extensions(length, '\0');
    DRIVER(clGetDeviceInfo)(device, CL_DEVICE_EXTENSIONS, length, extensions.data(), nullptr);
    if (extensions.find("cl_arm_import_memory") == std::string::npos) return nullptr;
    cl_platform_id platform = nullptr;
    DRIVER(clGetDeviceInfo)(device, CL_DEVICE_PLATFORM, sizeof(cl_platform_id), &platform, nullptr);
    return reinterpret_cast<decltype(&clImportMemoryARM)>(
        DRIVER(clGetExtensionFunctionAddressForPlatform)(platform, "clImportMemoryARM"));
}

/// The type of memory in the property list; 0 if the list has anything else.
cl_import_properties_arm import_type(const cl_import_properties_arm* properties) {
    cl_import_properties_arm type = CL_IMPORT_TYPE_HOST_ARM;
    for (; properties && *properties; properties += 2) {
        if (properties[0] != CL_IMPORT_TYPE_ARM) return 0;
        type = properties[1];
    }
    return type == CL_IMPORT_TYPE_HOST_ARM || type == CL_IMPORT_TYPE_DMA_BUF_ARM ? type : 0;
}

/// Whether every page of the range is mapped. msync tells without touching the memory.
bool is_mapped(void* memory, size_t size) {
    const size_t before = reinterpret_cast<uintptr_t>(memory) % static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return size <= PTRDIFF_MAX && msync(static_cast<char*>(memory) - before, before + size, MS_ASYNC) == 0;
}

/// The converter's own pictures are host memory, 33 MB each at 4K. Huge pages, where the system gives them on request,
/// save a few percent of the tone-mapping kernel's time.
void prefer_huge_pages(void* memory, size_t size) {
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const uintptr_t begin = reinterpret_cast<uintptr_t>(memory);
    const uintptr_t first = (begin + page - 1) / page * page;
    const uintptr_t end = (begin + size) / page * page;
    if (first < end) madvise(static_cast<char*>(memory) + (first - begin), end - first, MADV_HUGEPAGE);
}

/// State of all imports. Never destroyed, because objects may be released while the process exits.
struct Imports {
    Mappings mappings;
    std::mutex mutex; // protects `copied`
    std::unordered_map<cl_mem, HostMemory> copied;
};

Imports& imports() {
    static auto& all = *new Imports;
    return all;
}

void CL_CALLBACK let_go(cl_mem memory, void* mapping) {
    {
        const std::lock_guard lock(imports().mutex);
        imports().copied.erase(memory);
    }
    if (mapping) imports().mappings.let_go(static_cast<Mappings::Mapping*>(mapping));
}

/// Creates a buffer over `host`. `mapping`, which may be null, is released together with the buffer.
cl_mem wrap(cl_context context, cl_mem_flags flags, HostMemory host, Mappings::Mapping* mapping, cl_int* status) {
    cl_bool shares_memory = CL_FALSE;
    DRIVER(clGetDeviceInfo)
    (device_of(context), CL_DEVICE_HOST_UNIFIED_MEMORY, sizeof(shares_memory), &shares_memory, nullptr);
    flags &= ~static_cast<cl_mem_flags>(CL_MEM_USE_HOST_PTR); // the extension ignores it
    cl_mem memory = shares_memory
                        ? DRIVER(clCreateBuffer)(context, flags | CL_MEM_USE_HOST_PTR, host.size, host.address, status)
                        : DRIVER(clCreateBuffer)(context, flags, host.size, nullptr, status);
    if (!memory) {
        if (mapping) imports().mappings.let_go(mapping);
        return nullptr;
    }
    if (!shares_memory) {
        const std::lock_guard lock(imports().mutex);
        imports().copied[memory] = host;
    }
    DRIVER(clSetMemObjectDestructorCallback)(memory, let_go, mapping);
    return memory;
}

/// Errors as the extension defines them: INVALID_PROPERTY for the property list; INVALID_VALUE for flags, a null
/// pointer or a size of 0; INVALID_OPERATION if the memory cannot be mapped.
cl_mem import(cl_context context, cl_mem_flags flags, const cl_import_properties_arm* properties, void* memory,
              size_t size, cl_int* status) {
    if (const auto native = native_import(device_of(context)))
        return native(context, flags, properties, memory, size, status);

    const cl_import_properties_arm type = import_type(properties);
    *status = CL_INVALID_PROPERTY;
    if (!type) return nullptr;
    *status = CL_INVALID_VALUE;
    if (!memory || size == 0 || (flags & (CL_MEM_ALLOC_HOST_PTR | CL_MEM_COPY_HOST_PTR))) return nullptr;
    *status = CL_INVALID_OPERATION;
    if (type == CL_IMPORT_TYPE_HOST_ARM) {
        if (!is_mapped(memory, size)) return nullptr;
        prefer_huge_pages(memory, size);
        return wrap(context, flags, {memory, size}, nullptr, status);
    }
    Mappings::Mapping* mapping = imports().mappings.acquire(*static_cast<const int*>(memory), size);
    return mapping ? wrap(context, flags, {mapping->address, size}, mapping, status) : nullptr;
}

} // namespace

std::optional<HostMemory> copied_from(cl_mem memory) {
    const std::lock_guard lock(imports().mutex);
    const auto host = imports().copied.find(memory);
    return host == imports().copied.end() ? std::nullopt : std::optional(host->second);
}

} // namespace lumivert::platform

cl_mem clImportMemoryARM(cl_context context, cl_mem_flags flags, const cl_import_properties_arm* properties,
                         void* memory, size_t size, cl_int* errcode_ret) {
    return lumivert::platform::created(lumivert::platform::import, errcode_ret, context, flags, properties, memory,
                                       size);
}
