/// The curve mathematics a second time: double precision, closed forms, lists instead of running state.
#pragma once

#include <vector>

#include "lumivert/hdr10plus.h"

namespace oracle {

struct Curve {
    double normalize_x, kx, ky;
    std::vector<double> anchors;
};

double scene_peak(const HDR10PLUS_DYNAMIC_INFO& info);                                // cd/m2
double percentile(const HDR10PLUS_DYNAMIC_INFO& info, int percentage, double target); // cd/m2
Curve curve(const HDR10PLUS_DYNAMIC_INFO& info, unsigned target);
double gain(const Curve& curve, double x);

} // namespace oracle
