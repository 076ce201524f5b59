/// Static-table conversion: luma through a fixed table of 1024 codes, chroma scaled by the mapped luma, P010 to P010.
/// Failures are logged or end the process; nothing is returned.
#pragma once

#include "util/formatter.h"

namespace lumivert {

/// Converts the input planes in place and keeps their imports. `luminance` is the mastering peak in whole cd/m2.
void SimpleConvert_Retain(const _HDR2SDR_config_params_t* In_params, const _HDR2SDR_config_params_t* Out_params,
                          uint32_t luminance, Formatter* formatter);

/// Converts input planes to output planes, imported for this call.
void SimpleConvert_FetchBlockPool(const _HDR2SDR_config_params_t* In_params, const _HDR2SDR_config_params_t* Out_params,
                                  uint32_t luminance, Formatter* formatter);

} // namespace lumivert
