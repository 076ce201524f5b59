/// Units and limits of the integers in the metadata record.
#pragma once

#include <algorithm>
#include <cstdint>

namespace lumivert {

/// Length of the distribution and anchor arrays in both records.
constexpr unsigned kMaxEntries = 15;

/// The number of entries that may be read: a damaged record may claim more than the arrays hold.
inline unsigned valid_entries(uint8_t count) {
    return std::min<unsigned>(count, kMaxEntries);
}

/// A metadata luminance, in 0.1 cd/m2, as cd/m2.
inline float from_tenths(uint32_t luminance) {
    return static_cast<float>(luminance) * 0.1F;
}

} // namespace lumivert
