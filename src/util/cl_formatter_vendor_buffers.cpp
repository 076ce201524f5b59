/// Imported buffers: import, registry, images over buffers, release.
#include <CL/cl_ext.h>

#include "util/formatter.h"

namespace lumivert {
namespace {

/// Imports with the extension cl_arm_import_memory. `memory` is the host pointer or the address of a descriptor.
/// Failures are logged as those of `import_buffer`, whichever function imports.
cl_mem import_memory(cl_context context, cl_import_properties_arm type, void* memory, std::size_t size,
                     cl_mem_flags flags, int tag) {
    const cl_import_properties_arm properties[] = {CL_IMPORT_TYPE_ARM, type, 0};
    cl_int error = CL_SUCCESS;
    const cl_mem mem = clImportMemoryARM(context, flags, properties, memory, size, &error);
    if (error == CL_SUCCESS) return mem;
    report_failure("import_buffer", error, tag);
    return nullptr;
}

/// Whether an object still has references. False also if the query fails, as it does for a released object on a driver
/// that checks handles.
bool is_alive(cl_mem mem) {
    if (mem == nullptr) return false;
    cl_uint references = 0;
    clGetMemObjectInfo(mem, CL_MEM_REFERENCE_COUNT, sizeof(references), &references, nullptr);
    return references != 0;
}

} // namespace

cl_mem Formatter::import_buffer(cl_context context, void* host_ptr, unsigned int size, unsigned long long flags) {
    return import_memory(context, CL_IMPORT_TYPE_HOST_ARM, host_ptr, size, flags, 294);
}

cl_mem Formatter::import_buffer(cl_context context, int fd, unsigned int size, unsigned long long flags) {
    return import_memory(context, CL_IMPORT_TYPE_DMA_BUF_ARM, &fd, size, flags, 318);
}

cl_mem Formatter::find_imported_buffer(std::shared_ptr<ImportedBuffers>& map,
                                       const std::shared_ptr<exported_memory>& key) {
    if (log_enabled(kTraceBit)) log_debug("%s entry", __func__);
    if (const auto found = map->find(*key); found != map->end()) {
        if (log_enabled(kTraceBit)) {
            log_debug("it is in my table!");
            log_debug("input_p010 buffer obj is %p", static_cast<void*>(found->second));
            log_debug("%s exit", __func__);
        }
        return found->second;
    }

    if (log_enabled(kRegistryBit)) {
        log_debug("there is not in table key.get_handle() is %d key.get_size() is %d", key->get_handle(),
                  static_cast<int>(key->get_size()));
    }
    const cl_mem mem =
        import_buffer(mContext, key->get_handle(), round_up_for_import(key->get_size()), CL_MEM_READ_WRITE);
    if (mem == nullptr) {
        if (log_enabled(kErrorBit)) log_error("import failed");
        return nullptr;
    }
    map->emplace(*key, mem);
    if (log_enabled(kTraceBit)) {
        log_debug("cl mem ptr %p is pushed!", static_cast<void*>(mem));
        log_debug("%s exit", __func__);
    }
    return mem;
}

cl_mem Formatter::create_image_from_buffer(cl_context context, cl_mem buffer, unsigned int height, unsigned int width,
                                           unsigned long long flags, unsigned int channel_order,
                                           unsigned int pitch_alignment, unsigned int data_type_selector) {
    cl_image_format format{};
    format.image_channel_order = channel_order;
    format.image_channel_data_type = data_type_selector == 2 ? CL_UNORM_INT16 : CL_UNORM_INT8;

    cl_image_desc description{};
    description.image_type = CL_MEM_OBJECT_IMAGE2D;
    description.image_width = width;
    description.image_height = height;
    description.buffer = buffer;
    if (channel_order == CL_RGBA) { // 4 bytes per pixel even with 16-bit channels; the driver chooses other pitches
        const std::size_t columns = (std::size_t{width} + pitch_alignment - 1) & ~(std::size_t{pitch_alignment} - 1);
        description.image_row_pitch = 4 * columns;
    }

    cl_int error = CL_SUCCESS;
    const cl_mem image = clCreateImage(context, flags, &format, &description, nullptr, &error);
    if (error == CL_SUCCESS) return image;
    report_failure(__func__, error, 366);
    return nullptr;
}

void Formatter::delete_pair_images(ImportedBuffersPair& pair) {
    for (const auto& map : {pair.first, pair.second}) {
        for (const auto& entry : *map) {
            if (log_enabled(kRegistryBit)) {
                log_debug("Release pair mem object is %p", static_cast<void*>(entry.second));
            }
            delete_mem_object(entry.second);
        }
        map->clear();
    }
}

void Formatter::delete_mem_object(cl_mem mem) {
    if (!is_alive(mem)) return;
    checked(__func__, 848, [mem] { return clReleaseMemObject(mem); });
}

void Formatter::release_imported(cl_mem mem) {
    if (!is_alive(mem)) return;
    fatal_check_untagged(clReleaseMemObject(mem) == CL_SUCCESS, {"formatter", 173},
                         "clReleaseMemObject(t) == CL_SUCCESS", "clReleaseMemObject(t) == 0");
}

} // namespace lumivert
