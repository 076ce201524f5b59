/// Values that several commands take from their command lines.
#pragma once

#include <cstdint>
#include <limits>
#include <string>

namespace lumivert::tool {

struct Size {
    int width = 0, height = 0;
};

/// "1920x1080"; both even and above 0.
Size parse_size(const std::string& text);

/// Frames from `first` to `last`, both included, counted from 0.
struct FrameRange {
    int64_t first = 0, last = std::numeric_limits<int64_t>::max() - 1; // one more is still a number
};

/// "10-19", "10-" or "10"; everything for an empty text.
FrameRange parse_frames(const std::string& text);

} // namespace lumivert::tool
