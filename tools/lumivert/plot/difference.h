/// Pictures of where two frames differ.
#pragma once

#include <string>

#include "comparison/codes.h"

namespace lumivert::tool {

/// Signed differences in colour, with their scale. `caption` stands above.
void draw_difference(const std::string& path, const std::string& caption, const DifferenceMap& map);

/// A frame of each side and their difference side by side. Frames are RGB, 8 bits, packed.
void draw_side_by_side(const std::string& path, const std::string& name_a, const AVFrame& a, const std::string& name_b,
                       const AVFrame& b, const std::string& caption, const DifferenceMap& map);

} // namespace lumivert::tool
