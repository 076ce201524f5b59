/// Metadata for frames that bring none.
#pragma once

#include "lumivert/hdr10plus.h"

namespace lumivert {

/// Fills `info` with a fixed scene for a 250 cd/m2 display: one for content of at most 1000 cd/m2, one for brighter.
///
/// `first` and `second` are luminances in cd/m2 from the static HDR information. The first counts as a peak from
/// 1000 on, the second when it is positive; of two the smaller decides, and with neither the content is taken for
/// 1000 cd/m2. A NaN counts as absent. Array entries after the ninth stay as they are.
void default_metadata(float first, float second, HDR10PLUS_DYNAMIC_INFO* info);

} // namespace lumivert
