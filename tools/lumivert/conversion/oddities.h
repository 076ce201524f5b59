/// What about a clip may surprise in SDR: one place for the rules, which convert, probe and report share.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "engine/converter.h"
#include "media/clip_reader.h"

namespace lumivert::tool {

struct Oddity {
    std::string what, what_to_do; ///< what is odd, without the clip's name; what the converter does and what helps

    /// Both in one line.
    std::string line() const { return what + "; " + what_to_do; }
};

/// Its range, primaries and matrix, where the converter assumes others. What is not tagged is not odd.
std::vector<Oddity> odd_colours(const ClipInfo& clip);

/// A mastering peak in cd/m2 (0: unknown) that leads to a bad choice of fixed table or default record. `fixed`: frames
/// are converted by the fixed table, otherwise by the default record.
std::optional<Oddity> odd_peak(double peak, bool fixed);

/// HDR10+ that begins at frame `first` (-1: none), after the frames that mode auto looks at.
std::optional<Oddity> late_records(int64_t first);

/// Frames that use the default record, none of them above `brightest` cd/m2.
std::optional<Oddity> dark_for_default(double brightest);

} // namespace lumivert::tool
