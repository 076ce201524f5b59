/// The library's boundary: each entry point checks its arguments, dispatches to a path, and returns 1 or 0.
///
/// No exception crosses it. The entry points are noexcept, so whatever is thrown behind them ends the process through
/// std::terminate. What can be thrown there:
///
/// - std::bad_alloc from small objects: the instance, its tables, strings, file names. The system has no memory left;
///   there is nothing to fall back to.
/// - Nothing where a size comes from outside. Memory for a program cache file or for a driver's program binary is
///   allocated without throwing, and its lack is treated like a file that cannot be read (check 412) or a query that
///   fails. Work buffers come from posix_memalign.
/// - Nothing from files: they are read and written by libbase or stdio, not by streams. (Streams are left in
///   `Formatter::dump_ocl`, which no entry point calls; its stream does not throw.)
#include <cstdlib>
#include <iterator>
#include <memory>

#include <cutils/properties.h>
#include <sys/time.h>

#include "lumivert/converter.h"
#include "normal_convert.h"
#include "path_steps.h"
#include "simple_convert.h"
#include "util/formatter.h"
#include "util/inspection.h"

using namespace lumivert;

namespace {

/// A static luminance, in units of 0.0001 cd/m2, as cd/m2. The product is single precision on purpose: the rounding
/// decides which table is chosen at the limits.
float to_nits(uint32_t value) {
    return static_cast<float>(value) * 0.0001F;
}

int32_t read_int_property(const char* key, const char* default_value) {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(key, value, default_value);
    return std::atoi(value); // NOLINT(cert-err34-c): text that is not a number means 0
}

const char* format_name(_Image_ColorFormat format) {
    static constexpr const char* kNames[] = {"TP10_UBWC_QCOM", "P010_LINEAR", "NV12", "RGBA", "YV12", "NV21"};
    const auto index = static_cast<uint32_t>(format);
    return index < std::size(kNames) ? kNames[index] : "Unknown err";
}

/// Makes everything an instance needs after its construction: program, kernels, work buffers. False if init must
/// refuse.
bool initialise(const char* function, Formatter& formatter) {
    if (formatter.compileprogram() != CL_SUCCESS) {
        if (log_enabled(kErrorBit)) log_error("compile error");
        return false;
    }
    if (formatter.mState >= 1) {
        if (log_enabled(kErrorBit)) log_error("[%s] failed! Internal state is %d", function, formatter.mState);
        return false;
    }
    switch (formatter.mAlgoMode) {
    case NORMAL:
        formatter.make_kernel("p010_to_rgba8888_process_10plus_clut");
        formatter.make_kernel("rgba8888_to_nv12");
        formatter.make_kernel("rgba8888_to_p010");
        return formatter.make_work_buffers(function);
    case HI_JACK:
        formatter.make_kernel(formatter.IsC2Base ? "process_hdr_to_sdr_1000_inout" : "process_hdr_to_sdr_io_1000");
        formatter.make_kernel(formatter.IsC2Base ? "process_hdr_to_sdr_4000_inout" : "process_hdr_to_sdr_io_4000");
        return true;
    default:
        if (log_enabled(kErrorBit)) {
            log_error("Unsupported algo mode value is %d", static_cast<int>(formatter.mAlgoMode));
        }
        return false;
    }
}

void log_mode(const char* line) {
    if (log_enabled(kRegistryBit)) log_debug("%s", line);
}

/// Whether the instance is initialised and both formats are accepted; logs the reason if not.
bool accepts(const char* function, const Formatter& formatter, const _HDR2SDR_config_params_t& in,
             const _HDR2SDR_config_params_t& out) {
    if (formatter.mState < 1) {
        if (log_enabled(kErrorBit)) log_error("[%s]Internal state is wrong state is %d", function, formatter.mState);
        return false;
    }
    if (!Formatter::supportedFormat(in.color_format, 0)) {
        if (log_enabled(kErrorBit)) {
            log_error("Unsupported Color Format ! in color_format is %d ", static_cast<int>(in.color_format));
        }
        return false;
    }
    if (!Formatter::supportedFormat(out.color_format, 1)) {
        if (log_enabled(kErrorBit)) {
            log_error("Unsupported Color Format ! out color_format is %d", static_cast<int>(out.color_format));
        }
        return false;
    }
    return true;
}

/// The steps of both convert calls before they dispatch to a path. False if the frame is refused.
bool begin_frame(const char* function, int check_line, Formatter& formatter, const _HDR2SDR_config_params_t& in,
                 const _HDR2SDR_config_params_t& out, timeval& start) {
    check_planes(in, "In_params", check_line);
    if (log_enabled(kTraceBit)) {
        log_debug("%s in_color is %s out color is %s", function, format_name(in.color_format),
                  format_name(out.color_format));
    }
    gettimeofday(&start, nullptr);
    if (!accepts(function, formatter, in, out)) return false;
    dump_planes(formatter, in, P010_LINEAR, "Input_p010.yuv");
    trace_planes(in, "In_params");
    return true;
}

/// The steps of both convert calls after the conversion.
void end_frame(const char* function, Formatter& formatter, const timeval& start) {
    timeval end{};
    gettimeofday(&end, nullptr);
    if (log_level() >= 2) {
        const auto seconds = static_cast<double>(end.tv_sec - start.tv_sec);
        const auto microseconds = static_cast<double>(end.tv_usec - start.tv_usec);
        formatter.mFrameTimes.push_back((seconds + microseconds * 1e-6) * 1000.0);
    }
    formatter.mState = 2;
    if (log_enabled(kTraceBit)) log_debug("%s exit", function);
}

} // namespace

int32_t CL_HDR2SDR_ARM_init(uint32_t width, uint32_t height, _ALGO_t mode, void** handle_out,
                            int32_t IsC2Base) noexcept {
    auto formatter = std::make_unique<Formatter>(width, height, mode);
    log_info("[%s] vendor entry IsC2Base is %d formatter is %p mode is %s", __func__, IsC2Base,
             static_cast<void*>(formatter.get()), mode == HI_JACK ? "HI_JACK" : "NORMAL");
    formatter->IsC2Base = IsC2Base != 0;

    *handle_out = nullptr;
    if (!initialise(__func__, *formatter)) return 0;

    set_log_level(read_int_property("vendor.Lumivert.debug.level", "1"));
    dump_request = read_int_property("vendor.Lumivert.debug.dump", "0");
    formatter->mState = 1;
    *handle_out = formatter.release();
    log_info("%s exit", __func__);
    return 1;
}

void CL_HDR2SDR_ARM_deinit(void* instance) noexcept {
    auto* formatter = static_cast<Formatter*>(instance);
    if (formatter == nullptr) {
        if (log_enabled(kErrorBit)) log_error("%s user data is null !", __func__);
        return;
    }
    log_info("%s entry formatter is %p", __func__, instance);
    if (formatter->mState == 0) { // not an instance that init returned: do not touch it
        if (log_enabled(kErrorBit)) log_error("%s state is invalid", __func__);
        return;
    }
    delete formatter;
    log_info("%s exit", __func__);
}

int32_t CL_HDR2SDR_ARM_convert(_HDR2SDR_config_params_t* In_params, _HDR2SDR_config_params_t* Out_params,
                               HDR10PLUS_DYNAMIC_INFO* dynamic_metadata, uint32_t luminance_nits,
                               void* instance) noexcept {
    auto* formatter = static_cast<Formatter*>(instance);
    if (formatter == nullptr) {
        if (log_enabled(kErrorBit)) log_error("%s user data is null !", __func__);
        return 0;
    }
    if (log_enabled(kTraceBit)) log_debug("%s entry formatter is %p", __func__, instance);
    timeval start{};
    if (!begin_frame(__func__, 705, *formatter, *In_params, *Out_params, start)) return 0;

    if (formatter->mAlgoMode == HI_JACK) {
        log_mode("THIS IS HI-JACK VERSION");
        SimpleConvert_Retain(In_params, Out_params, luminance_nits, formatter);
    } else {
        trace_planes(*Out_params, "Out_params");
        log_mode("THIS IS NORMAL VERSION");
        if (dynamic_metadata == nullptr) {
            if (log_enabled(kErrorBit)) log_error("Dynamic metadata is null !");
            return 0;
        }
        NormalConvert_Retain(In_params, Out_params, dynamic_metadata, formatter);
    }

    end_frame(__func__, *formatter, start); // the dump request stays set, so this call dumps every frame
    return 1;
}

int32_t CL_HDR2SDR_ARM_convert1(_HDR2SDR_config_params_t* In_params, _HDR2SDR_config_params_t* Out_params,
                                HDR10PLUS_DYNAMIC_INFO* dynamic_metadata, const uint32_t* static_info, void* instance,
                                int32_t intervalCnt) noexcept {
    auto* formatter = static_cast<Formatter*>(instance);
    if (formatter == nullptr) {
        if (log_enabled(kErrorBit)) log_error("%s user data is null !", __func__);
        return 0;
    }
    ++formatter->mFrameCount;
    if (intervalCnt != 0 && formatter->mFrameCount % intervalCnt != 0) return 0;

    if (log_enabled(kTraceBit)) {
        log_debug("%s entry formatter is %p intervalCnt is %d", __func__, instance, intervalCnt);
    }
    timeval start{};
    if (!begin_frame(__func__, 610, *formatter, *In_params, *Out_params, start)) return 0;
    trace_planes(*Out_params, "Out_params");

    if (formatter->mAlgoMode == HI_JACK) {
        log_mode("THIS IS HI-JACK VERSION");
        // NOLINTNEXTLINE(bugprone-incorrect-roundings): the value is never negative
        const auto luminance = static_cast<uint32_t>(static_cast<double>(to_nits(static_info[0])) + 0.5);
        SimpleConvert_FetchBlockPool(In_params, Out_params, luminance, formatter);
    } else {
        log_mode("THIS IS NORMAL VERSION");
        if (dynamic_metadata == nullptr) {
            if (log_enabled(kErrorBit)) {
                log_error("There is no HDR10 dynamic metadata! It will fallback to default value");
            }
            const float max_cll = to_nits(static_info[2]);
            const float min_luminance = to_nits(static_info[1]);
            log_info("HDR Static Info available : maxCll = %f, Min Luminance = %f", static_cast<double>(max_cll),
                     static_cast<double>(min_luminance));
            dynamic_metadata = formatter->mDynamicInfo.get();
            formatter->parse_default_dynamic(min_luminance, max_cll, dynamic_metadata);
        }
        NormalConvert_FetchBlockPool(In_params, Out_params, dynamic_metadata, formatter);
    }

    end_frame(__func__, *formatter, start);
    dump_request = 0; // this call dumps one frame per request
    return 1;
}
