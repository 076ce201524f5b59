/// A 3D look-up table of what the converter does to a frame.
#pragma once

#include <cstdint>
#include <string>

namespace lumivert::tool {

/// `input` is a clip, or HDR10+ metadata as .json. Converts as mode auto would.
void write_cube(const std::string& input, int64_t frame, int size, const std::string& device,
                const std::string& output);

} // namespace lumivert::tool
