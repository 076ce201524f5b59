#include "normal_convert.h"

#include "path_steps.h"
#include "util/inspection.h"

namespace lumivert {
namespace {

constexpr unsigned int kGainCount = 256;

/// A frame's metadata in the form that the fused kernel needs.
struct ToneMapping {
    HDR10PLUS_TM_CURVE curve = {};
    float gains[kGainCount] = {};
};

/// Fills the gain table from the curve. The curve's anchors are multiplied by their binomial coefficients on the way.
void fill_gains(ToneMapping& mapping) {
    hdr10plus_curve_kchoose_preapplied(&mapping.curve);
    hdr10plus_preappliedcurve_to_lut(mapping.gains, kGainCount, &mapping.curve);
}

void upload_gains(const char* function, int tag, const Formatter& formatter, const ToneMapping& mapping) {
    checked(function, tag, [&] {
        return clEnqueueWriteBuffer(formatter.mQueue, formatter.mWorkMem2, CL_TRUE, 0, sizeof(mapping.gains),
                                    mapping.gains, 0, nullptr, nullptr);
    });
}

/// P010 to tone-mapped RGBA in `target_rgba_buffer`, one work-item per pixel.
void tone_map(const char* function, int first_tag, int launch_tag, const Formatter& formatter, cl_kernel kernel,
              cl_mem luma, cl_mem chroma, const HDR10PLUS_TM_CURVE& curve) {
    bind_arguments(function, first_tag, kernel, luma, chroma, formatter.mWorkMem0,
                   static_cast<cl_int>(formatter.mWidth), static_cast<cl_int>(formatter.mHeight),
                   formatter.target_rgba_buffer, curve.normalize_x, curve.f_knee_point_x, formatter.mWorkMem2);
    launch(function, launch_tag, formatter, kernel, formatter.mWidth, formatter.mHeight);
}

/// RGBA in `target_rgba_buffer` to the output planes, one work-item per 4 x 2 pixels.
void rgba_to_yuv(const char* function, int first_tag, int launch_tag, const Formatter& formatter,
                 const char* kernel_name, cl_mem luma, cl_mem chroma) {
    const cl_kernel kernel = formatter.find_kernel(kernel_name);
    bind_arguments(function, first_tag, kernel, formatter.target_rgba_buffer, luma, chroma,
                   static_cast<cl_int>(formatter.mWidth));
    launch(function, launch_tag, formatter, kernel, formatter.mWidth / 4, formatter.mHeight / 2);
}

} // namespace

void NormalConvert_Retain(const _HDR2SDR_config_params_t* In_params, const _HDR2SDR_config_params_t* Out_params,
                          HDR10PLUS_DYNAMIC_INFO* metadata, Formatter* formatter) {
    const cl_kernel kernel = formatter->find_kernel("p010_to_rgba8888_process_10plus_clut");
    auto [map_y_in, map_uv_in] = formatter->mImagePair0;
    auto [map_y_out, map_uv_out] = formatter->mImagePair1;
    if (log_level() >= 4) {
        trace_map("map_y_in", map_y_in);
        trace_map("map_uv_in", map_uv_in);
        trace_map("map_y_out", map_y_out);
        trace_map("map_uv_out", map_uv_out);
        trace_metadata(*metadata);
    }

    const cl_mem in_y = formatter->find_imported_buffer(map_y_in, key_of(In_params->buffer[0]));
    const cl_mem in_uv = formatter->find_imported_buffer(map_uv_in, key_of(In_params->buffer[1]));
    fatal_check(in_y != nullptr && in_uv != nullptr, converter_check(255),
                "input_p010_y != nullptr && input_p010_uv != nullptr");

    // An RGBA output takes the place of the work buffer and stays there for later frames of other formats.
    const cl_mem out_y = formatter->find_imported_buffer(map_y_out, key_of(Out_params->buffer[0]));
    cl_mem out_uv = nullptr;
    if (Out_params->color_format == RGBA) {
        formatter->target_rgba_buffer = out_y;
        fatal_check(out_y != nullptr, converter_check(259), "formatter->target_rgba_buffer != nullptr");
    } else {
        out_uv = formatter->find_imported_buffer(map_uv_out, key_of(Out_params->buffer[1]));
        fatal_check(out_y != nullptr && out_uv != nullptr, converter_check(263),
                    "final_nv12_y != nullptr && final_nv12_uv != nullptr");
    }

    ToneMapping mapping;
    hdr10plus_meta_to_curve(&mapping.curve, metadata);
    fill_gains(mapping);
    upload_gains(__func__, 273, *formatter, mapping);

    tone_map(__func__, 277, 288, *formatter, kernel, in_y, in_uv, mapping.curve);
    dump_rgba(*formatter, *Out_params);

    if (Out_params->color_format == NV12) { // P010 output planes are not written
        rgba_to_yuv(__func__, 310, 315, *formatter, "rgba8888_to_nv12", out_y, out_uv);
        dump_nv12(*formatter, *Out_params);
    }
}

void NormalConvert_FetchBlockPool(const _HDR2SDR_config_params_t* In_params, const _HDR2SDR_config_params_t* Out_params,
                                  HDR10PLUS_DYNAMIC_INFO* metadata, Formatter* formatter) {
    check_planes(*Out_params, "Out_params", 344);
    const cl_kernel kernel = formatter->find_kernel("p010_to_rgba8888_process_10plus_clut");

    const cl_mem in_y = import_plane(*formatter, In_params->buffer[0]);
    const cl_mem in_uv = import_plane(*formatter, In_params->buffer[1]);
    fatal_check(in_y != nullptr && in_uv != nullptr, converter_check(353),
                "input_p010_y != nullptr && input_p010_uv != nullptr");

    cl_mem out_y = nullptr;
    cl_mem out_uv = nullptr;
    const auto import_output = [&](int check_line, const char* condition) {
        out_y = import_plane(*formatter, Out_params->buffer[0]);
        out_uv = import_plane(*formatter, Out_params->buffer[1]);
        fatal_check(out_y != nullptr && out_uv != nullptr, converter_check(check_line), condition);
    };
    switch (Out_params->color_format) {
    case RGBA:
        formatter->target_rgba_buffer = import_plane(*formatter, Out_params->buffer[0]);
        fatal_check(formatter->target_rgba_buffer != nullptr, converter_check(358),
                    "formatter->target_rgba_buffer != nullptr");
        break;
    case P010_LINEAR:
        import_output(371, "out_p010_y != nullptr && out_p010_uv != nullptr");
        break;
    case NV12:
        import_output(364, "final_nv12_y != nullptr && final_nv12_uv != nullptr");
        break;
    default:
        break; // the second stage refuses the format
    }

    ToneMapping mapping;
    hdr10plus_meta_to_curve(&mapping.curve, metadata, static_cast<unsigned int>(formatter->mTargetNits));
    fill_gains(mapping);
    upload_gains(__func__, 381, *formatter, mapping);
    clFinish(formatter->mQueue);

    tone_map(__func__, 386, 397, *formatter, kernel, in_y, in_uv, mapping.curve);
    dump_rgba(*formatter, *Out_params);

    switch (Out_params->color_format) {
    case P010_LINEAR:
        rgba_to_yuv(__func__, 443, 448, *formatter, "rgba8888_to_p010", out_y, out_uv);
        dump_planes(*formatter, *Out_params, P010_LINEAR, "out_p010.yuv");
        break;
    case RGBA:
        if (log_enabled(kTraceBit)) log_debug("Nothing to do");
        break;
    case NV12:
        rgba_to_yuv(__func__, 420, 425, *formatter, "rgba8888_to_nv12", out_y, out_uv);
        dump_nv12(*formatter, *Out_params);
        break;
    default:
        fatal_check(false, converter_check(466), "0");
    }

    // An RGBA output is not released here: it stays target_rgba_buffer.
    for (const cl_mem plane : {out_y, out_uv, in_y, in_uv})
        formatter->release_imported(plane);
}

} // namespace lumivert
