/// What the user asks for, and what is decided from that and the clip before the first frame: mode, format, colour
/// tags.
#pragma once

#include <optional>
#include <string>

#include "engine/pipeline.h"

namespace lumivert::tool {

/// As the user asks for it; empty texts and zeros leave the choice to the tool.
struct Request {
    std::string input, output; ///< "-" is a pipe
    std::string mode = "auto", metadata, format, writer, entry = "pool", codec, preset;
    double max_luminance = 0, max_cll = 0;
    int interval = 0, quality = 16;
    Part part;
};

struct Plan {
    std::optional<Mode> mode; ///< none: the samples are passed on as they are
    Entry entry;
    const WriterInfo* writer;
    _Image_ColorFormat format;
    Luminances luminances;
    RecordsByFrame list; ///< of --metadata FILE
};

/// Throws if the clip cannot be converted as requested.
Plan make_plan(const Request& request, FrameSource& source);

OutputSpec output_spec(const Request& request, const Plan& plan, const ClipInfo& clip);

} // namespace lumivert::tool
