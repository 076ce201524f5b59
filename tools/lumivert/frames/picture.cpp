#include "frames/picture.h"

namespace lumivert::tool {
namespace {

constexpr FormatInfo kFormats[] = {
    {"nv12", NV12, 2, 1},
    {"p010", P010_LINEAR, 2, 2},
    {"rgba", RGBA, 1, 4},
};

} // namespace

const FormatInfo& info_of(_Image_ColorFormat format) {
    for (const auto& info : kFormats)
        if (info.format == format) return info;
    return kFormats[0];
}

const FormatInfo* format_named(const std::string& name) {
    for (const auto& info : kFormats)
        if (info.name == name) return &info;
    return nullptr;
}

size_t frame_bytes(_Image_ColorFormat format, int width, int height) {
    const auto& info = info_of(format);
    size_t rows = 0;
    for (int plane = 0; plane < info.planes; ++plane)
        rows += plane_rows(plane, height);
    return rows * width * info.row_bytes;
}

} // namespace lumivert::tool
