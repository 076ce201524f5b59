#include "path_steps.h"

#include <string>

namespace lumivert {

std::atomic<int32_t> dump_request = 0;

void check_planes(const _HDR2SDR_config_params_t& params, const char* name, int line) {
    for (int i = 0; i < 2; ++i) {
        const _MULTIPLANE_t& plane = params.buffer[i];
        if (plane.handle > 0 && plane.size > 0) continue;
        const std::string buffer = std::string(name) + "->buffer[" + std::to_string(i) + "]";
        fatal_check(false, converter_check(line + i), (buffer + ".handle > 0 && " + buffer + ".size > 0").c_str());
    }
}

void trace_planes(const _HDR2SDR_config_params_t& params, const char* name) {
    if (!log_enabled(kTraceBit)) return;
    log_debug("%s y handle is %d size is %d", name, params.buffer[0].handle, params.buffer[0].size);
    log_debug("%s uv handle is %d size is %d", name, params.buffer[1].handle, params.buffer[1].size);
}

void trace_map(const char* name, const std::shared_ptr<ImportedBuffers>& map) {
    if (map->empty()) return;
    if (log_enabled(kTraceBit)) {
        log_debug("%s size() is %d and this is the list", name, static_cast<int>(map->size()));
    }
    list_entries(map);
}

std::shared_ptr<exported_memory> key_of(const _MULTIPLANE_t& plane) {
    return std::make_shared<exported_memory>(plane.handle, static_cast<uint32_t>(plane.size));
}

cl_mem import_plane(Formatter& formatter, const _MULTIPLANE_t& plane) {
    return formatter.import_buffer(formatter.mContext, plane.handle,
                                   round_up_for_import(static_cast<unsigned int>(plane.size)), CL_MEM_READ_WRITE);
}

void dump_planes(Formatter& formatter, const _HDR2SDR_config_params_t& params, _Image_ColorFormat format,
                 const char* file_name) {
    if (dump_request == 0) return;
    formatter.filewrite(format, static_cast<int>(formatter.mWidth), static_cast<int>(formatter.mHeight),
                        &params.buffer[0], &params.buffer[1], std::make_unique<std::string>(file_name));
}

void launch(const char* function, int tag, cl_command_queue queue, cl_kernel kernel, std::size_t columns,
            std::size_t rows) {
    const std::size_t global[] = {columns, rows};
    checked(function, tag,
            [&] { return clEnqueueNDRangeKernel(queue, kernel, 2, nullptr, global, nullptr, 0, nullptr, nullptr); });
    clFinish(queue);
}

} // namespace lumivert
