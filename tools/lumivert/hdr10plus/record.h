/// HDR10+ records: from FFmpeg's side data, and the defaults for frames without one.
#pragma once

#include <string>
#include <vector>

#include "lumivert/hdr10plus.h"

struct AVDynamicHDRPlus;

bool operator==(const HDR10PLUS_DYNAMIC_INFO& a, const HDR10PLUS_DYNAMIC_INFO& b);
bool operator<(const HDR10PLUS_DYNAMIC_INFO& a,
               const HDR10PLUS_DYNAMIC_INFO& b); // an order for std::set, without meaning
inline bool operator!=(const HDR10PLUS_DYNAMIC_INFO& a, const HDR10PLUS_DYNAMIC_INFO& b) {
    return !(a == b);
}

namespace lumivert::tool {

using Record = HDR10PLUS_DYNAMIC_INFO;

constexpr int kMaxPoints = 15; ///< distribution points, and anchors, that a record can hold

/// An empty record of the HDR10+ application.
Record make_record();

Record from_side_data(const AVDynamicHDRPlus& side_data);

/// What the converter uses for a frame without metadata. The luminances are in cd/m2, 0 if unknown.
Record default_record(double mastering_peak, double max_cll);

/// What makes no sense in a record, a line each.
std::vector<std::string> complaints(const Record& record);

} // namespace lumivert::tool
