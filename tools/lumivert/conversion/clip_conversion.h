/// Converts one clip, from opening the output to giving the result its name.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "conversion/plan.h"

namespace lumivert::tool {

/// The result of a conversion.
struct Outcome {
    Plan plan;
    Tally tally;
    std::string device;   ///< empty where nothing was converted
    std::string left_out; ///< of the clip: what the output does not hold
};

/// `environment` is made, on the device that `device` names, when the first clip needs one. Warns about what the user
/// may not expect of the result.
Outcome convert_clip(const Request& request, FrameSource& source, std::optional<Environment>& environment,
                     const std::string& device);

/// "72 frames: 72 with HDR10+".
std::string metadata_summary(const Outcome& outcome);
/// "3.70 ms per frame on DEVICE; 213.8 frames/s in all, 91 % of the time converting". `brief`: without the device.
std::string speed_summary(const Outcome& outcome, bool brief);
nlohmann::ordered_json to_json(const Outcome& outcome);

} // namespace lumivert::tool
