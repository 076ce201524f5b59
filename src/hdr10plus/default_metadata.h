/// Metadata for frames that have none.
#pragma once

#include "lumivert/hdr10plus.h"

namespace lumivert {

/// Fills `info` with one of two fixed scenes, graded for a display of 250 cd/m2: one for content with a peak of up to
/// 1000 cd/m2 (in whole cd/m2), one for brighter content.
///
/// The peak is taken from `first` and `second`, luminances in cd/m2 from the static HDR information. `first` counts if
/// it is at least 1000, `second` if it is positive; NaN counts as missing. The peak is the smaller of those that count,
/// and 1000 if none does. Array entries after the ninth are not written.
void default_metadata(float first, float second, HDR10PLUS_DYNAMIC_INFO* info);

} // namespace lumivert
