/// Frames inside the tool: their layout in memory, and which frame of the clip each one is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "lumivert/converter.h"

namespace lumivert::tool {

constexpr int kLargestSide = 16384; ///< pixels: the encoders' limit, and what fits an OpenCL device's memory

/// The size of a clip's pictures, and of its rows in memory.
struct Geometry {
    int width, height; ///< visible pixels, both even
    int pitch;         ///< pixels per row in memory: the width that the converter was made for

    /// Rows are whole blocks of the GPU's kernels and split into good work-groups: with widths such as 1926 or 2062 an
    /// OpenCL runtime that looks for divisors ends up with tiny ones.
    Geometry(int w, int h) : width(w), height(h), pitch((w + 31) / 32 * 32) {}
};

/// The memory layout of a format that the converter reads or writes.
struct FormatInfo {
    const char* name;
    _Image_ColorFormat format;
    int planes;
    int row_bytes; ///< bytes per pixel column in a row of either plane
};

/// P010, NV12 or RGBA.
const FormatInfo& info_of(_Image_ColorFormat format);
/// The format of a name that a user gives ("p010"); null for an unknown name.
const FormatInfo* format_named(const std::string& name);

/// Rows of plane `index`; chroma has half as many as luma.
constexpr int plane_rows(int index, int height) {
    return index == 0 ? height : height / 2;
}

/// Bytes of one tightly packed frame.
size_t frame_bytes(_Image_ColorFormat format, int width, int height);

/// A finished frame for a writer. Rows are `pitch` pixels apart; only `width` of them are the picture.
struct Picture {
    _Image_ColorFormat format;
    int width, height, pitch;
    const uint8_t* plane[2];
    int64_t number; ///< position in the input, from 0
    int64_t pts;    ///< in the clip's time base
};

/// The bytes of one row of a picture.
inline const uint8_t* row(const Picture& picture, int plane, int y) {
    return picture.plane[plane] + static_cast<size_t>(y) * picture.pitch * info_of(picture.format).row_bytes;
}

} // namespace lumivert::tool
