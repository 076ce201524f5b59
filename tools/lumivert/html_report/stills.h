/// Stills of a clip as small JPEG pictures: the source, and what the converter makes of it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/converter.h"
#include "engine/environment.h"
#include "media/source.h"

namespace lumivert::tool {

struct Still {
    int64_t frame;
    int width, height;
    std::string source, automatic,
        by_default; ///< JPEG, turned as players show it: PQ as it is, mode auto, the default record
};

/// Reads the source from its start up to the last of `frames`, which rise. `progress` gets the number of frames read.
std::vector<Still> make_stills(FrameSource& source, const std::vector<int64_t>& frames, int widest, Mode automatic,
                               const Luminances& luminances, const Environment& environment,
                               const std::function<void(int64_t)>& progress);

std::string base64(const std::string& bytes);

} // namespace lumivert::tool
