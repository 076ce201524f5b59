/// Lumivert converts HDR10 and HDR10+ video frames to SDR through OpenCL. This header is the whole C interface: four
/// functions, the records they take, and one global.
///
/// An instance converts frames of one size in one mode. Planes arrive as dma-buf descriptors and are imported into
/// OpenCL; the CPU never touches a sample. Every conversion is synchronous: when a call returns, the GPU has finished
/// with the planes.
///
///     void* converter = NULL;
///     if (CL_HDR2SDR_ARM_init(1920, 1080, NORMAL, &converter, 1) != 1) return;     // converter is NULL
///     while (next_frame(&in, &out, &metadata, static_info))
///         CL_HDR2SDR_ARM_convert1(&in, &out, metadata, static_info, converter, 0);
///     CL_HDR2SDR_ARM_deinit(converter);
///
/// **Threads.** The library creates no threads and takes no locks. Use an instance from one thread at a time. Different
/// instances may run in different threads, and an init may run beside the conversions of other instances, but two
/// inits must not run at the same time, not even in different processes: they share the program cache.
/// `debug_level` and the dump request belong to the process: every init that succeeds sets them for all instances.
///
/// **Frame size.** Sizes are computed in 32 bits. The largest frame has 1 073 741 792 pixels, with the width rounded up
/// to a multiple of 4 and the height to a multiple of 2. Init does not check this. A conversion of larger frames
/// launches nothing: it logs failed launches and returns 1, and the output is not written. NV12 and P010 output of
/// frames smaller than one block (below) is not written either.
///
/// **Planes.** P010 planes hold 16-bit little-endian words with the 10-bit code in the upper bits; NV12 planes hold
/// bytes. Chroma interleaves Cb and Cr at half the width and height. Planes are tightly packed: a row of luma is
/// `width` samples, and so is a row of interleaved chroma. In mode `NORMAL` the GPU works on blocks of 4 columns by 2
/// rows: allocate every plane for a width rounded up to a multiple of 4 and a height rounded up to a multiple of 2. In
/// NV12 and P010 output, columns and rows past the last whole block are not written. In mode `HI_JACK` the blocks are
/// 2 x 2, and the row length is the width rounded down to an even number. Plane sizes are rounded up to a multiple of
/// 128 bytes for the import; the memory behind a descriptor must be that large.
///
/// **Ownership.** Descriptors and records stay the caller's, whether a call succeeds or fails: the library closes and
/// frees none of them, and reads records only during the call. `CL_HDR2SDR_ARM_convert` keeps its imports until deinit
/// and recognises a plane by the number of its descriptor alone: while the instance lives, a number must keep naming
/// the same buffer. `CL_HDR2SDR_ARM_convert1` releases its imports before returning, except an RGBA output: that import
/// is kept until deinit, and leaks if another RGBA frame replaces it.
///
/// **Errors.** Functions return 1 or 0 and never throw. A refused call writes the reason to the Android log (tag
/// "Lumivert") if bit 0 of `debug_level` is set; a frame that `intervalCnt` skips is not logged. An OpenCL call that
/// fails during a conversion is logged, but the conversion carries on and returns 1. The following end the process,
/// with a message, through `__android_log_assert`: a plane without a descriptor or size; a plane that cannot be
/// imported or, in mode `NORMAL` with `CL_HDR2SDR_ARM_convert1`, cannot be released; a program cache that cannot be
/// read or written, or that the driver refuses; a kernel that cannot be created even after the program was rebuilt.
/// Running out of memory for small objects ends the process as well.
#ifndef LUMIVERT_CONVERTER_H
#define LUMIVERT_CONVERTER_H

#include <stdint.h>

#include "lumivert/hdr10plus.h"

#ifdef __cplusplus
#define LUMIVERT_ENUM(name) enum name : int32_t
#define LUMIVERT_NOEXCEPT noexcept
extern "C" {
#else // C leaves the width of an enumeration open, so the records hold 32-bit integers there
#define LUMIVERT_ENUM(name)                                                                                            \
    typedef int32_t name;                                                                                              \
    enum
#define LUMIVERT_NOEXCEPT
#endif

/// Pixel layout of a frame. P010 and NV12 are accepted as input, P010, NV12 and RGBA as output; the others are only
/// named in the log. NV12 input is accepted but read as P010.
LUMIVERT_ENUM(_Image_ColorFormat){
    TP10_UBWC_QCOM = 0, ///< not converted
    P010_LINEAR = 1,    ///< 10-bit 4:2:0: a luma plane of 2 x width x height bytes, a Cb/Cr plane of half of that
    NV12 = 2,           ///< 8-bit 4:2:0: a luma plane of width x height bytes, a Cb/Cr plane of half of that
    RGBA = 3,           ///< 8 bits each of R, G, B and A: one plane of 4 x width x height bytes in `buffer[0]`
    YV12 = 4,           ///< not converted
    NV21 = 5,           ///< not converted
};

/// How an instance maps HDR to SDR.
LUMIVERT_ENUM(_ALGO_t){
    NORMAL = 1,  ///< a tone curve from each frame's HDR10+ metadata (SMPTE ST 2094-40)
    HI_JACK = 2, ///< a fixed table for masters up to 1000 or up to 4000 cd/m2; the output is always P010
};

/// One plane. 12 bytes; the layout is a binary contract.
typedef struct _MULTIPLANE_t {
    int32_t handle;   ///< descriptor of the plane's dma-buf, greater than 0
    uint32_t address; ///< the plane's host address; conversions do not read it, any value will do
    int32_t size;     ///< bytes of the plane's buffer, greater than 0
} _MULTIPLANE_t;

/// One frame. 28 bytes; the layout is a binary contract. Width and height are those given to init.
typedef struct _HDR2SDR_config_params_t {
    _Image_ColorFormat color_format;
    _MULTIPLANE_t buffer[2]; ///< luma (or the whole RGBA picture), then chroma, which must be valid for RGBA too
} _HDR2SDR_config_params_t;

#pragma GCC visibility push(default)

/// What is logged, as a sum of bits: 1 refused calls and fallbacks, 2 modes and the buffer registry, 4 function entry
/// and exit, planes and metadata. At 2 or more, conversion times are collected too. Every init that succeeds sets it
/// from the property "vendor.Lumivert.debug.level" (default 1). It may be written while no other thread uses the
/// library; the library itself accesses it atomically.
extern int32_t debug_level;

/// Creates an instance for frames of `width` x `height` pixels. Neither is checked; see **Frame size**.
///
/// Loads the GPU program from /data/vendor/media/mali_formatter_{c2_,omx_}BUILD.bin, or builds it and writes that file
/// if there is none for this system build (BUILD comes from the property "ro.build.fingerprint"). `IsC2Base` is
/// non-zero for a Codec2 component and zero for an OpenMAX component. In mode `HI_JACK` a Codec2 instance can only be
/// used with `CL_HDR2SDR_ARM_convert1` and an OpenMAX instance only with `CL_HDR2SDR_ARM_convert`.
///
/// `handle_out` must not be null. On success it receives the instance and init returns 1; destroy the instance with
/// `CL_HDR2SDR_ARM_deinit`. It receives null and init returns 0 if the mode is unknown, if the gain table or the work
/// buffers cannot be allocated, or if there is no usable device and no cache file of this system build. With such a
/// file but no usable device init does not return: like any program that cannot be loaded, this ends the process (check
/// 416).
int32_t CL_HDR2SDR_ARM_init(uint32_t width, uint32_t height, _ALGO_t mode, void** handle_out,
                            int32_t IsC2Base) LUMIVERT_NOEXCEPT;

/// Destroys an instance and releases everything it holds. A null instance is logged and ignored.
void CL_HDR2SDR_ARM_deinit(void* instance) LUMIVERT_NOEXCEPT;

/// Converts one frame and keeps the imported planes for later frames in the same buffers (the retained path).
///
/// Mode `HI_JACK`: the result overwrites the input planes; of `Out_params` only the format is checked.
/// `luminance_nits` is the peak luminance of the mastering display in cd/m2: 1001 to 4000 selects the table for 4000
/// cd/m2, any other value the one for 1000 cd/m2. `dynamic_metadata` is not read.
///
/// Mode `NORMAL`: the result goes to the output planes as NV12 or RGBA; P010 output planes are not written.
/// `dynamic_metadata` must not be null; `luminance_nits` is not read. After an RGBA frame, the instance keeps using
/// that frame's output buffer as its intermediate buffer: later NV12 and P010 frames, of either convert call,
/// overwrite it.
///
/// Returns 1 if a conversion ran; 0 for a null instance, an instance that was not initialised, a format that is not
/// accepted, or missing metadata. `In_params` and `Out_params` must not be null.
int32_t CL_HDR2SDR_ARM_convert(_HDR2SDR_config_params_t* In_params, _HDR2SDR_config_params_t* Out_params,
                               HDR10PLUS_DYNAMIC_INFO* dynamic_metadata, uint32_t luminance_nits,
                               void* instance) LUMIVERT_NOEXCEPT;

/// Converts one frame in buffers of a block pool: every plane is imported for this call and released before it returns.
/// An RGBA output is not released (see **Ownership**): the instance keeps using that buffer as its intermediate buffer,
/// and later NV12 and P010 frames, of either convert call, overwrite it.
///
/// `static_info` points to three luminances in units of 0.0001 cd/m2:
///
/// - `[0]` the maximum luminance of the mastering display (SMPTE ST 2086). Selects the table in mode `HI_JACK`, as
///   `luminance_nits` does above, rounded to whole cd/m2.
/// - `[1]` the value logged as "Min Luminance". 1000 cd/m2 or more counts as a peak when the default record is chosen.
/// - `[2]` the maximum content light level (MaxCLL, CTA-861.3).
///
/// Mode `NORMAL` reads `[1]` and `[2]`, and only if `dynamic_metadata` is null: it then uses a default record chosen by
/// them. `static_info` must not be null when it is read.
///
/// With `intervalCnt` n the first call converts, and then every n-th; the calls between return 0 at once. A negative n
/// counts as -n; 0 converts every frame, as 1 does.
///
/// Returns 1 if a conversion ran; 0 for a skipped frame, a null instance, an instance that was not initialised or a
/// format that is not accepted. `In_params` and `Out_params` must not be null.
int32_t CL_HDR2SDR_ARM_convert1(_HDR2SDR_config_params_t* In_params, _HDR2SDR_config_params_t* Out_params,
                                HDR10PLUS_DYNAMIC_INFO* dynamic_metadata, const uint32_t* static_info, void* instance,
                                int32_t intervalCnt) LUMIVERT_NOEXCEPT;

#pragma GCC visibility pop

#undef LUMIVERT_ENUM
#undef LUMIVERT_NOEXCEPT

#ifdef __cplusplus
} // extern "C"

static_assert(sizeof(_MULTIPLANE_t) == 12 && offsetof(_MULTIPLANE_t, handle) == 0 &&
                  offsetof(_MULTIPLANE_t, address) == 4 && offsetof(_MULTIPLANE_t, size) == 8,
              "a plane is three 32-bit words");
static_assert(sizeof(_HDR2SDR_config_params_t) == 28 && offsetof(_HDR2SDR_config_params_t, color_format) == 0 &&
                  offsetof(_HDR2SDR_config_params_t, buffer) == 4,
              "a frame is seven 32-bit words");
#endif

#endif // LUMIVERT_CONVERTER_H
