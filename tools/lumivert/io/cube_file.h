/// 3D look-up tables in the .cube form that grading tools read.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace lumivert::tool {

/// `values` has size x size x size colours, red fastest, for inputs from 0 to 1. Remarks become comment lines.
std::string cube_text(const std::string& title, const std::vector<std::string>& remarks, int size,
                      const std::vector<std::array<float, 3>>& values);

} // namespace lumivert::tool
