/// The curve mathematics a second time: double precision, closed forms, lists instead of running state.
#pragma once

#include "lumivert/hdr10plus.h"

#include <vector>

namespace oracle {

enum class Source { listed, interpolated, unknown };

struct Percentile {
    double luminance; // cd/m2
    Source source;
};

enum class Branch { basis, as_graded, identity, dimmer, brighter };

struct Curve {
    Branch branch;
    double normalize_x, kx, ky;
    std::vector<double> anchors;
};

double scene_peak(const HDR10PLUS_DYNAMIC_INFO& info);
Percentile percentile(const HDR10PLUS_DYNAMIC_INFO& info, int percentage, double target);
Curve curve(const HDR10PLUS_DYNAMIC_INFO& info, unsigned target);
double gain(const Curve& curve, double x);

} // namespace oracle
