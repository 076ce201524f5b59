/// Units and limits of the integers in the metadata record.
#pragma once

#include <algorithm>
#include <cstdint>

namespace lumivert {

/// Length of the distribution and anchor arrays in both records.
constexpr unsigned kMaxEntries = 15;

/// Entries that may be read: the arrays end at 15, whatever a damaged record claims.
inline unsigned valid_entries(uint8_t count) {
    return std::min<unsigned>(count, kMaxEntries);
}

/// Metadata luminance (0.1 cd/m2) in cd/m2.
inline float from_tenths(uint32_t luminance) {
    return static_cast<float>(luminance) * 0.1F;
}

} // namespace lumivert
