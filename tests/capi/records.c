/* The layout of the boundary's records as a C compiler has it; C++ callers are checked in the headers themselves. */
#include <assert.h>
#include <stddef.h>

#include "lumivert/converter.h"

static_assert(sizeof(_Image_ColorFormat) == 4 && sizeof(_ALGO_t) == 4, "enumerations are 32-bit words");

static_assert(sizeof(_MULTIPLANE_t) == 12, "a plane is three words");
static_assert(offsetof(_MULTIPLANE_t, handle) == 0 && offsetof(_MULTIPLANE_t, size) == 8, "descriptor, address, size");

static_assert(sizeof(_HDR2SDR_config_params_t) == 28, "a frame is seven words");
static_assert(offsetof(_HDR2SDR_config_params_t, buffer) == 4, "planes follow the format");

static_assert(sizeof(HDR10PLUS_DYNAMIC_INFO) == 144, "natural alignment");
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, maxscl) == 12, "");
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, maxrgb_percentiles) == 44, "");
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, tone_mapping_flag) == 104, "");
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, bezier_curve_anchors) == 112, "");
