/// Axes in cd/m2, spaced by the PQ curve: equal lengths are about equal steps to the eye.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace lumivert::tool {

/// "0.1", "250", "1000".
std::string luminance_text(double cd_m2);

/// The next round distance, 1, 2 or 5 times a power of ten, that leaves at most `count` marks on a range.
size_t round_step(size_t range, size_t count);

/// Maps luminances from 0 to `top` to positions from `start` to `end`.
class LuminanceAxis {
public:
    LuminanceAxis(double top, double start, double end);

    double position(double cd_m2) const;
    double luminance(double position) const;
    double top() const { return top_; }
    /// Round luminances at readable distances.
    std::vector<double> ticks(double distance) const;

private:
    double top_, start_, end_;
};

} // namespace lumivert::tool
