#include "simple_convert.h"

#include "path_steps.h"
#include "util/inspection.h"

namespace lumivert {
namespace {

/// Whether to use the table for 4000 cd/m2: for 1001 to 4000 cd/m2. All other values, also higher ones, use the table
/// for 1000 cd/m2.
bool is_4000_master(uint32_t luminance) {
    return luminance - 1001U <= 2999U;
}

} // namespace

void SimpleConvert_Retain(const _HDR2SDR_config_params_t* In_params, const _HDR2SDR_config_params_t* /*Out_params*/,
                          uint32_t luminance, Formatter* formatter) {
    check_planes(*In_params, "In_params", 161);
    const cl_kernel kernel =
        formatter->find_kernel(is_4000_master(luminance) ? "process_hdr_to_sdr_io_4000" : "process_hdr_to_sdr_io_1000");

    auto [map_y_in, map_uv_in] = formatter->mImagePair0;
    if (log_level() >= 4) {
        trace_map("map_y_in", map_y_in);
        trace_map("map_uv_in", map_uv_in);
    }
    const cl_mem io_y = formatter->find_imported_buffer(map_y_in, key_of(In_params->buffer[0]));
    const cl_mem io_uv = formatter->find_imported_buffer(map_uv_in, key_of(In_params->buffer[1]));
    fatal_check(io_y != nullptr && io_uv != nullptr, converter_check(188),
                "io_p010_y_buffer != nullptr && io_p010_uv_buffer != nullptr");

    if (log_enabled(kRegistryBit)) log_debug("direct_IO approach!");
    bind_arguments(__func__, 191, kernel, io_y, io_uv);
    launch(__func__, 195, *formatter, kernel, formatter->mWidth / 2, formatter->mHeight / 2);
    dump_planes(*formatter, *In_params, P010_LINEAR, "io_p010_out.yuv");
}

void SimpleConvert_FetchBlockPool(const _HDR2SDR_config_params_t* In_params, const _HDR2SDR_config_params_t* Out_params,
                                  uint32_t luminance, Formatter* formatter) {
    check_planes(*Out_params, "Out_params", 106);
    const cl_kernel kernel = formatter->find_kernel(is_4000_master(luminance) ? "process_hdr_to_sdr_4000_inout"
                                                                              : "process_hdr_to_sdr_1000_inout");

    const cl_mem inp_y = import_plane(*formatter, In_params->buffer[0]);
    const cl_mem inp_uv = import_plane(*formatter, In_params->buffer[1]);
    const cl_mem out_y = import_plane(*formatter, Out_params->buffer[0]);
    const cl_mem out_uv = import_plane(*formatter, Out_params->buffer[1]);
    fatal_check(inp_y != nullptr && inp_uv != nullptr, converter_check(124),
                "inp_p010_y_buffer != nullptr && inp_p010_uv_buffer != nullptr");
    fatal_check(out_y != nullptr && out_uv != nullptr, converter_check(125),
                "out_p010_y_buffer != nullptr && out_p010_uv_buffer != nullptr");

    bind_arguments(__func__, 128, kernel, inp_y, inp_uv, out_y, out_uv);
    launch(__func__, 134, *formatter, kernel, formatter->mWidth / 2, formatter->mHeight / 2);
    dump_planes(*formatter, *Out_params, P010_LINEAR, "p010_out.yuv");

    int tag = 144;
    for (const cl_mem plane : {inp_y, inp_uv, out_y, out_uv}) {
        checked(__func__, tag++, [plane] { return clReleaseMemObject(plane); });
    }
}

} // namespace lumivert
