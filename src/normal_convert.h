/// Conversion with HDR10+ metadata. The CPU turns the frame's metadata into a tone curve and a gain table; a fused
/// kernel maps P010 to SDR RGBA with them; a second kernel converts that to NV12 or P010. Failures are logged or end
/// the process; the paths return nothing.
#pragma once

#include "util/formatter.h"

namespace lumivert {

/// Keeps the imports of all planes. RGBA is written straight to the output plane, which stays `target_rgba_buffer`
/// until the next RGBA frame. P010 output planes are not written. The curve is made for a display of 250 cd/m2.
void NormalConvert_Retain(const _HDR2SDR_config_params_t* In_params, const _HDR2SDR_config_params_t* Out_params,
                          HDR10PLUS_DYNAMIC_INFO* metadata, Formatter* formatter);

/// Imports all planes for this call and releases them at its end, except an RGBA output: that import stays
/// `target_rgba_buffer`. The curve is made for a display of `mTargetNits`.
void NormalConvert_FetchBlockPool(const _HDR2SDR_config_params_t* In_params, const _HDR2SDR_config_params_t* Out_params,
                                  HDR10PLUS_DYNAMIC_INFO* metadata, Formatter* formatter);

} // namespace lumivert
