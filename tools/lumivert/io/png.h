/// PNG files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace lumivert::tool {

/// 8-bit RGB, or RGBA with `channels` 4; rows are `pitch` bytes apart.
void write_png(const std::string& path, const uint8_t* pixels, int width, int height, ptrdiff_t pitch, int channels);

} // namespace lumivert::tool
