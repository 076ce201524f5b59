/// The HDR10+ tone curve in double precision, from the record to the gain at any input. A second way to the same
/// numbers: it shares no code with the library and builds the Bezier curve by de Casteljau's construction.
#pragma once

#include "lumivert/hdr10plus.h"

namespace lumivert::reference {

/// A line from the origin to the knee, then a Bezier curve through `anchors` to (1, 1).
struct Curve {
    double normalize_x; ///< 10000 cd/m2 divided by the normalisation peak
    double knee_x, knee_y;
    int anchor_count;
    double anchors[15];
};

/// Brightest light of the scene in cd/m2, 0 if the record does not tell.
double scene_peak(const HDR10PLUS_DYNAMIC_INFO& info);

/// Luminance in cd/m2 below which `percentage` % (50 or 99) of the scene lie, -1 if the record does not tell.
double percentile(const HDR10PLUS_DYNAMIC_INFO& info, int percentage);

/// The curve for a display of `target` cd/m2.
Curve curve_for(const HDR10PLUS_DYNAMIC_INFO& info, unsigned target);

/// Output over input at the input `x`, above 0 and up to 1.
double gain_at(const Curve& curve, double x);

/// The record that stands in for missing metadata: `first` and `second` are the luminances that the library logs as
/// "Min Luminance" and "maxCll", in cd/m2.
HDR10PLUS_DYNAMIC_INFO default_record(double first, double second);

} // namespace lumivert::reference
