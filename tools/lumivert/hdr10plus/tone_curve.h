/// The tone curve that the converter makes from a record for a display, and the table of gains that the GPU reads.
#pragma once

#include "hdr10plus/record.h"

namespace lumivert::tool {

constexpr unsigned kConverterTarget = 250; ///< cd/m2: the display that the converter's output is for

struct ToneCurve {
    HDR10PLUS_TM_CURVE curve; ///< with plain anchors
    float gains[256];         ///< the GPU's table: entry k is output / input, both of full scale, at k / 254
    double target;            ///< peak of the display in cd/m2
    double scene_peak;        ///< cd/m2
    double full_scale;        ///< the input in cd/m2 that maps to the display's peak

    /// `display` is its peak in cd/m2; the library takes 200 for less.
    ToneCurve(const Record& record, unsigned display);

    /// Output for a neutral input, both in cd/m2, by the curve itself.
    double output(double input) const;
    /// What the GPU reads from its table for an input, as a fraction of full scale. Nothing below the knee is looked
    /// up, and the weights of the two neighbouring entries are exchanged.
    float gain_by_table(float input) const;

private:
    HDR10PLUS_TM_CURVE multiplied_; ///< anchors times binomials
};

} // namespace lumivert::tool
