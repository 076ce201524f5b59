/// PNG files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace lumivert::tool {

/// 8-bit RGB; rows are `pitch` bytes apart.
void write_png(const std::string& path, const uint8_t* pixels, int width, int height, ptrdiff_t pitch);

} // namespace lumivert::tool
