/// Lumivert: HDR10 and HDR10+ video frames to SDR through OpenCL. The four entry points and their records, in C.
///
/// An instance converts frames of one size in one mode. Planes arrive as dma-buf descriptors and are imported into
/// OpenCL; no sample passes through the CPU. Every conversion is synchronous: when a call returns, the GPU is done
/// with the planes.
///
///     void* converter = NULL;
///     if (CL_HDR2SDR_ARM_init(1920, 1080, NORMAL, &converter, 1) != 1) return;     // converter is NULL again
///     while (next_frame(&in, &out, &metadata, static_info))
///         CL_HDR2SDR_ARM_convert1(&in, &out, metadata, static_info, converter, 0);
///     CL_HDR2SDR_ARM_deinit(converter);
///
/// **Threads.** The library creates no thread and takes no lock. One instance belongs to one thread at a time;
/// different instances may run in different threads, but not two inits at once. `debug_level` and the dump request
/// are shared by all instances of the process and rewritten by every init that succeeds.
///
/// **Planes.** P010 planes are 16-bit words with the 10-bit code in the upper bits, NV12 planes are bytes; chroma
/// interleaves Cb and Cr at half the width and height. All planes are tightly packed: the pitch is the width. In
/// mode `NORMAL` the GPU works on whole blocks of 4 columns by 2 rows, so allocate every plane for a width rounded
/// up to a multiple of 4 and a height rounded up to a multiple of 2; of NV12 and P010 output, columns and rows beyond
/// the last whole block stay unwritten. Mode `HI_JACK` works on blocks of 2 x 2 and takes the width rounded down to
/// even as the pitch. Sizes are rounded up to a multiple of 128 bytes at import: the memory behind a descriptor must
/// reach that far.
///
/// **Descriptors** stay the caller's, on success and on failure: the library never closes one. `..._convert` keeps
/// what it imported, under the descriptor's number alone, until deinit: while the instance lives, a number must go
/// on naming the same buffer. `..._convert1` lets its imports go before it returns, except the output of an RGBA
/// frame: its import stays until deinit, and for good once another RGBA frame has followed.
///
/// **Errors.** Entry points report 1 or 0. A refused call says why in the Android log (tag "Lumivert", while bit 0 of
/// `debug_level` is set); a skipped frame does not. Imports, uploads, arguments, launches and releases that fail inside
/// a conversion leave a line as well, but it carries on and still reports 1. These end the process through
/// `__android_log_assert`: planes without a descriptor or size, planes that cannot be imported or (HDR10+, block pool)
/// released, a program cache that cannot be written or read or that the driver refuses, and a kernel that cannot be
/// made even after the program was built anew.
#ifndef LUMIVERT_CONVERTER_H
#define LUMIVERT_CONVERTER_H

#include <stdint.h>

#include "lumivert/hdr10plus.h"

#ifdef __cplusplus
#define LUMIVERT_ENUM(name) enum name : int32_t
extern "C" {
#else // C fixes no enumeration's width: the record holds the 32-bit word itself
#define LUMIVERT_ENUM(name)                                                                                            \
    typedef int32_t name;                                                                                              \
    enum
#endif

/// Pixel layout of a frame. P010 and NV12 are accepted as input, P010, NV12 and RGBA as output; the others are names
/// for the log only. The kernels read every input as P010: an NV12 input is let through, not converted.
LUMIVERT_ENUM(_Image_ColorFormat){
    TP10_UBWC_QCOM = 0,
    P010_LINEAR = 1, ///< 10-bit 4:2:0, a luma plane and a Cb/Cr plane of 16-bit words
    NV12 = 2,        ///< 8-bit 4:2:0, a luma plane and a Cb/Cr plane of bytes
    RGBA = 3,        ///< 8-bit R, G, B, A per pixel, one plane of 4 x width x height bytes in `buffer[0]`
    YV12 = 4,        ///< not converted
    NV21 = 5,        ///< not converted
};

/// What an instance does with its frames.
LUMIVERT_ENUM(_ALGO_t){
    NORMAL = 1,  ///< tone curve from each frame's HDR10+ metadata
    HI_JACK = 2, ///< fixed table for masters up to 1000 or up to 4000 cd/m2; P010 output
};

/// One plane. 12 bytes, a binary contract.
typedef struct _MULTIPLANE_t {
    int32_t handle;   ///< descriptor of the plane's dma-buf, above 0
    uint32_t address; ///< host address of the plane (32 bits); read only by raw debug dumps, else free
    int32_t size;     ///< size of the plane's buffer in bytes, above 0
} _MULTIPLANE_t;

/// One frame. 28 bytes, a binary contract. Width and height are the instance's.
typedef struct _HDR2SDR_config_params_t {
    _Image_ColorFormat color_format;
    _MULTIPLANE_t buffer[2]; ///< luma (or the whole RGBA picture) and chroma; chroma must be valid for RGBA too
} _HDR2SDR_config_params_t;

#pragma GCC visibility push(default)

/// Log verbosity, a bit set: 1 error lines of refused calls, 2 modes and the buffer registry, 4 entry, exit and
/// planes; 2 or more also collects conversion times. Every init that succeeds sets it from the property
/// "vendor.Lumivert.debug.level" (default 1).
extern int32_t debug_level;

/// Creates an instance for frames of `width` x `height` pixels.
///
/// Builds the GPU program, or loads it from /data/vendor/media/mali_formatter_{c2_,omx_}BUILD.bin where an earlier
/// init has left it. `IsC2Base` is non-zero for a Codec2 component, zero for an OpenMAX one; in mode `HI_JACK` a
/// Codec2 instance converts with `..._convert1` only and an OpenMAX instance with `..._convert` only.
///
/// Returns 1 and stores the instance in `*handle_out`, which the caller gives back with `CL_HDR2SDR_ARM_deinit`.
/// Returns 0 and stores null when the mode is unknown, there is no usable device, or the gain table or the work
/// buffers cannot be had.
int32_t CL_HDR2SDR_ARM_init(uint32_t width, uint32_t height, _ALGO_t mode, void** handle_out, int32_t IsC2Base);

/// Ends an instance and gives back all it holds. A null instance is reported in the log and ignored.
void CL_HDR2SDR_ARM_deinit(void* instance);

/// Converts one frame and keeps the imported planes for later frames in the same buffers (the retained path).
///
/// In mode `HI_JACK` the result overwrites the input planes and `Out_params` is only checked for its format;
/// `luminance_nits` is the mastering peak in whole cd/m2: 1001 to 4000 selects the 4000 cd/m2 table, anything else
/// the 1000 cd/m2 one. In mode `NORMAL` the frame goes to the output planes as NV12 or RGBA, `dynamic_metadata` must
/// be given and stays the caller's, and `luminance_nits` is not read; P010 output leaves the output planes unwritten.
/// An RGBA frame's output buffer goes on serving the instance as intermediate: later NV12 and P010 frames, of either
/// convert call, overwrite it.
///
/// Returns 1 when a conversion ran. Returns 0 for a null instance, an instance that is not initialised, a format
/// that is not accepted, or missing metadata.
int32_t CL_HDR2SDR_ARM_convert(_HDR2SDR_config_params_t* In_params, _HDR2SDR_config_params_t* Out_params,
                               HDR10PLUS_DYNAMIC_INFO* dynamic_metadata, uint32_t luminance_nits, void* instance);

/// Converts one frame from block-pool buffers: every plane is imported for this call and released before it returns,
/// but for RGBA output (see **Descriptors**), which goes on serving the instance as intermediate: later NV12 and P010
/// frames, of either convert call, overwrite it.
///
/// `static_info` points to three values in 0.0001 cd/m2: the mastering display's maximum luminance (selects the table
/// in mode `HI_JACK`, rounded to whole cd/m2), the luminance the log calls minimum, and the maximum content light
/// level (MaxCLL, CTA-861.3). Without `dynamic_metadata`, mode `NORMAL` builds a default record from the last two;
/// a second value of 1000 cd/m2 or more counts as a peak there. `static_info` is read in mode `HI_JACK` and where
/// `dynamic_metadata` is null, and must not be null then.
///
/// `intervalCnt` of n > 0 converts the first call and then every n-th one; the calls between return 0 at once. 0
/// converts every frame.
///
/// Returns 1 when a conversion ran, 0 as `CL_HDR2SDR_ARM_convert` does (but for metadata) and for a skipped frame.
int32_t CL_HDR2SDR_ARM_convert1(_HDR2SDR_config_params_t* In_params, _HDR2SDR_config_params_t* Out_params,
                                HDR10PLUS_DYNAMIC_INFO* dynamic_metadata, const uint32_t* static_info, void* instance,
                                int32_t intervalCnt);

#pragma GCC visibility pop

#undef LUMIVERT_ENUM

#ifdef __cplusplus
} // extern "C"

static_assert(sizeof(_MULTIPLANE_t) == 12);
static_assert(offsetof(_MULTIPLANE_t, handle) == 0 && offsetof(_MULTIPLANE_t, address) == 4 &&
              offsetof(_MULTIPLANE_t, size) == 8);
static_assert(sizeof(_HDR2SDR_config_params_t) == 28);
static_assert(offsetof(_HDR2SDR_config_params_t, color_format) == 0 && offsetof(_HDR2SDR_config_params_t, buffer) == 4);
#endif

#endif // LUMIVERT_CONVERTER_H
