/// What the user may not expect of a result.
#pragma once

#include "conversion/plan.h"

namespace lumivert::tool {

void warn_about(const Request& request, const ClipInfo& clip, const Plan& plan, const Tally& tally, bool loses_records);

} // namespace lumivert::tool
