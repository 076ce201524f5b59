#include "path_steps.h"

#include <string>

namespace lumivert {

void check_planes(const _HDR2SDR_config_params_t& params, const char* name, int line) {
    for (int i = 0; i < 2; ++i) {
        const _MULTIPLANE_t& plane = params.buffer[i];
        if (plane.handle > 0 && plane.size > 0) continue;
        const std::string buffer = std::string(name) + "->buffer[" + std::to_string(i) + "]";
        fatal_check(false, converter_check(line + i), (buffer + ".handle > 0 && " + buffer + ".size > 0").c_str());
    }
}

std::shared_ptr<exported_memory> key_of(const _MULTIPLANE_t& plane) {
    return std::make_shared<exported_memory>(plane.handle, static_cast<uint32_t>(plane.size));
}

cl_mem import_plane(Formatter& formatter, const _MULTIPLANE_t& plane) {
    return formatter.import_buffer(formatter.mContext, plane.handle,
                                   round_up_for_import(static_cast<unsigned int>(plane.size)), CL_MEM_READ_WRITE);
}

void launch(const char* function, int tag, const Formatter& formatter, cl_kernel kernel, std::size_t columns,
            std::size_t rows) {
    const std::size_t global[] = {columns, rows};
    checked(function, tag, [&]() -> cl_int {
        if (!formatter.frame_fits()) return CL_INVALID_GLOBAL_WORK_SIZE;
        return clEnqueueNDRangeKernel(formatter.mQueue, kernel, 2, nullptr, global, nullptr, 0, nullptr, nullptr);
    });
    clFinish(formatter.mQueue);
}

} // namespace lumivert
