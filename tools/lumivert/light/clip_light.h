/// The light of a whole clip: its frames measured on all cores, and where its metadata says otherwise.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "hdr10plus/record_track.h"
#include "light/frame_light.h"
#include "media/source.h"

namespace lumivert::tool {

struct MeasuredFrame {
    int64_t number = 0;
    double seconds = 0; ///< from the clip's first frame
    RecordOrigin origin = RecordOrigin::kNone;
    Record record = {}; ///< the one in force; nothing for `kNone`
    FrameLight light;
};

struct ClipLight {
    std::vector<MeasuredFrame> frames;
    double max_cll = 0, max_fall = 0;              ///< cd/m2, measured
    int64_t max_cll_frame = 0, max_fall_frame = 0; ///< where they were found
};

/// The picture part of planes that a source has filled.
YuvView view_of(const Planes& p010, const Geometry& geometry, const ClipInfo& clip);

/// Reads the source to its end. `each` gets the number of frames read so far.
ClipLight measure_clip(FrameSource& source, const std::function<void(int64_t)>& each);

/// A rule that the metadata breaks.
struct Disagreement {
    std::string rule;                 ///< "maximum", "average", "distribution", "MaxCLL", "MaxFALL"
    int64_t first = 0, frames = 0;    ///< the first frame, and how many
    int64_t worst = 0;                ///< the frame where it is broken most
    double measured = 0, claimed = 0; ///< there, in cd/m2
    std::string text() const;
};

/// What a rule says, for people.
std::string rule_text(const std::string& rule);

/// Scene maximum that a record claims, in cd/m2: the largest component, or the 99 % point where those are 0.
double claimed_peak(const Record& record);
/// Distribution value at `percentage` in cd/m2; negative where the record has none. Points at 5 and 10 % carry other
/// quantities in practice and are never given.
double claimed_percentile(const Record& record, int percentage);

/// Where records and pixels disagree. A record that is kept over several frames describes all of them, so it is
/// compared with the brightest and the mean of them.
std::vector<Disagreement> find_disagreements(const ClipLight& light, const StaticMetadata& claimed);

} // namespace lumivert::tool
