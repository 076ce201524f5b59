/// Decoding, converting and encoding side by side.
#pragma once

#include <array>
#include <limits>
#include <vector>

#include "engine/converter.h"
#include "hdr10plus/record_track.h"
#include "media/sink.h"
#include "media/source.h"

namespace lumivert::tool {

/// Frames from `first` to `last`, both included, counted from 0.
struct FrameRange {
    int64_t first = 0, last = std::numeric_limits<int64_t>::max() - 1; // one more is still a number
};

/// What is done with each frame.
struct Treatment {
    Converter* converter; ///< null passes the samples on
    _Image_ColorFormat format;
    FrameRange frames;
    Luminances luminances;
    int interval;
};

/// What was done.
struct Tally {
    int64_t seen = 0;                      ///< frames of the input, up to the last one read
    bool to_the_end = false;               ///< whether that was the input's last
    std::array<int64_t, 3> by_origin = {}; ///< converted frames by RecordOrigin
    std::vector<double> converting_ms;     ///< of each frame that was converted
    double total_s = 0;

    int64_t converted() const { return by_origin[0] + by_origin[1] + by_origin[2]; }
};

/// Takes all frames from `source` to `sink`, which stays to be finished. An error on any side ends all of them and is
/// thrown here.
Tally run_pipeline(FrameSource& source, RecordTrack track, const Treatment& treatment, FrameSink& sink);

} // namespace lumivert::tool
