/// HDR10+ conversion: the frame's metadata becomes a tone curve and a gain table, a fused kernel maps P010 to SDR RGBA
/// with it, and a second kernel makes NV12 or P010 of that. Failures are logged or end the process; nothing is
/// returned.
#pragma once

#include "util/formatter.h"

namespace lumivert {

/// Keeps the imports of all planes. RGBA goes straight into the output plane, which `target_rgba_buffer` then names
/// until another RGBA frame; P010 output leaves the output planes as they are. The display is taken as 250 cd/m2.
void NormalConvert_Retain(const _HDR2SDR_config_params_t* In_params, const _HDR2SDR_config_params_t* Out_params,
                          HDR10PLUS_DYNAMIC_INFO* metadata, Formatter* formatter);

/// Imports all planes for this call; the display is `mTargetNits`. The import of an RGBA output is not released: it
/// stays the engine's `target_rgba_buffer`.
void NormalConvert_FetchBlockPool(const _HDR2SDR_config_params_t* In_params, const _HDR2SDR_config_params_t* Out_params,
                                  HDR10PLUS_DYNAMIC_INFO* metadata, Formatter* formatter);

} // namespace lumivert
