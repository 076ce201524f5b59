/// A 3D look-up table of what the converter does to a frame.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "media/source.h"

namespace lumivert::tool {

/// What `curve` looks at: a clip, raw P010, or HDR10+ metadata as .json, and as which mode would convert it.
struct CurveInput {
    std::string path, size, mode = "auto";
    bool as_pq = false;

    bool is_metadata() const;
    /// Throws for what cannot be converted.
    std::unique_ptr<FrameSource> open() const;
    bool takes_fixed_table(FrameSource& source) const;
};

void write_cube(const CurveInput& input, int64_t frame, int size, const std::string& device, const std::string& output);

} // namespace lumivert::tool
