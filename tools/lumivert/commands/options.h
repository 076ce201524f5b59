/// Values that several commands take from their command lines.
#pragma once

#include <string>

#include "engine/pipeline.h"
#include "media/source.h"

namespace lumivert::tool {

struct Size {
    int width = 0, height = 0;
};

/// "1920x1080"; both even and above 0.
Size parse_size(const std::string& text);

/// "10-19", "10-" or "10"; everything for an empty text.
FrameRange parse_frames(const std::string& text);

/// Opens a clip, or raw P010 if `size` is given. Throws if the converter does not take pictures of its size.
std::unique_ptr<FrameSource> open_source(const std::string& input, const std::string& size, double rate, bool as_pq,
                                         bool keep_others = false);

/// "00:01:10", "70.5" or "70500ms", in seconds.
double parse_time(const std::string& option, const std::string& text);

/// The frames that --frames, --from and --to pick; everything for empty texts.
Part parse_part(const std::string& frames, const std::string& from, const std::string& to);

} // namespace lumivert::tool
