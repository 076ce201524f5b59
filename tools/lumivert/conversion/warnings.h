/// Warnings about properties of a result that the user may not expect.
#pragma once

#include "conversion/plan.h"

namespace lumivert::tool {

void warn_about(const Request& request, const ClipInfo& clip, const Plan& plan, const Tally& tally, bool loses_records);

} // namespace lumivert::tool
