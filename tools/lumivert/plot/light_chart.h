/// A clip's light over time, measured and according to its metadata.
#pragma once

#include <string>

#include "light/clip_light.h"

namespace lumivert::tool {

/// Refuses what is neither .png nor .svg.
void check_chart_name(const std::string& path);

void draw_light(const std::string& path, const std::string& name, const ClipLight& light,
                const StaticMetadata& claimed);

} // namespace lumivert::tool
