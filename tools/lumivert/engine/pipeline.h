/// Decoding, converting and encoding in three threads.
#pragma once

#include <array>
#include <limits>
#include <vector>

#include "engine/converter.h"
#include "hdr10plus/record_oddities.h"
#include "hdr10plus/record_track.h"
#include "media/sink.h"
#include "media/source.h"

namespace lumivert::tool {

/// Frames from `first` to `last`, both included, counted from 0.
struct FrameRange {
    int64_t first = 0, last = std::numeric_limits<int64_t>::max() - 1; // one more is still a number
};

/// Which frames of a clip: those in `frames` that are shown from `from` on and before `to`, in seconds after its start.
struct Part {
    FrameRange frames;
    double from = 0, to = std::numeric_limits<double>::infinity();

    bool by_time() const { return from > 0 || to < std::numeric_limits<double>::infinity(); }
    bool whole() const { return frames.first == 0 && frames.last == FrameRange().last && !by_time(); }
    /// How many frames at most, at a frame rate; 0: all to the end.
    int64_t most_frames(double rate) const;
};

/// What the converter is told of a clip's light.
Luminances luminances_of(const StaticMetadata& clip);

/// What is done with each frame.
struct Treatment {
    Converter* converter; ///< null passes the samples on
    _Image_ColorFormat format;
    Part part;
    Luminances luminances;
    int interval;
};

/// Counts and times of a finished run.
struct Tally {
    int64_t seen = 0;                      ///< frames of the input, up to the last one read
    bool to_the_end = false;               ///< whether that was the input's last
    int64_t first_record = -1;             ///< the first frame with a record, in the part or before it
    RecordOddities oddities;               ///< of the records in the part
    std::array<int64_t, 3> by_origin = {}; ///< converted frames by RecordOrigin
    int brightest_by_default = -1;     ///< highest 10-bit luma code, sampled, of frames that used the default record
    std::vector<double> converting_ms; ///< of each frame that was converted
    double total_s = 0;

    int64_t converted() const { return by_origin[0] + by_origin[1] + by_origin[2]; }
};

/// Takes all frames from `source` to `sink`; the caller calls `finish`. An error in any of the threads ends all of them
/// and is thrown here.
Tally run_pipeline(FrameSource& source, RecordTrack track, const Treatment& treatment, FrameSink& sink);

} // namespace lumivert::tool
