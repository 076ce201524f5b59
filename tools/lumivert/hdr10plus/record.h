/// HDR10+ records where they come from: FFmpeg's side data, or a default for frames that have none.
#pragma once

#include <string>
#include <vector>

#include "lumivert/hdr10plus.h"

struct AVDynamicHDRPlus;

bool operator==(const HDR10PLUS_DYNAMIC_INFO& a, const HDR10PLUS_DYNAMIC_INFO& b);
bool operator<(const HDR10PLUS_DYNAMIC_INFO& a, const HDR10PLUS_DYNAMIC_INFO& b); // any order, for sets
inline bool operator!=(const HDR10PLUS_DYNAMIC_INFO& a, const HDR10PLUS_DYNAMIC_INFO& b) {
    return !(a == b);
}

namespace lumivert::tool {

using Record = HDR10PLUS_DYNAMIC_INFO;

constexpr int kMaxPoints = 15; ///< distribution points, and anchors, that a record can hold

/// An empty record of the HDR10+ application.
Record make_record();

Record from_side_data(const AVDynamicHDRPlus& side_data);

/// What the converter itself uses for a frame without metadata, from the static luminances in cd/m2 (0: unknown).
Record default_record(double mastering_peak, double max_cll);

/// What makes no sense in a record, a line each.
std::vector<std::string> complaints(const Record& record);

} // namespace lumivert::tool
