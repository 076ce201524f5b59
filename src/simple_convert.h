/// Conversion with a fixed table: P010 to P010, luma through a table of 1024 codes, chroma scaled by the mapped luma.
/// Failures are logged or end the process; the paths return nothing.
#pragma once

#include "util/formatter.h"

namespace lumivert {

/// Converts the input planes in place and keeps their imports. `luminance` is the peak of the mastering display in
/// cd/m2.
void SimpleConvert_Retain(const _HDR2SDR_config_params_t* In_params, const _HDR2SDR_config_params_t* Out_params,
                          uint32_t luminance, Formatter* formatter);

/// Converts input planes to output planes. All four are imported for this call and released at its end.
void SimpleConvert_FetchBlockPool(const _HDR2SDR_config_params_t* In_params, const _HDR2SDR_config_params_t* Out_params,
                                  uint32_t luminance, Formatter* formatter);

} // namespace lumivert
