/// The values of a grey pixel at each step from the clip to the display.
#pragma once

#include "hdr10plus/tone_curve.h"

namespace lumivert::tool {

struct GreyPixel {
    int code_in;  ///< 10-bit limited-range luma code of the clip
    double input; ///< the light that it stands for, cd/m2
    double gain;  ///< output / input, both of full scale; 0 where the fixed table maps codes
    int code_out; ///< luma code of the result: 8 bits after a tone curve (NV12), 10 after the fixed table (P010)
    double light; ///< what the display shows for `code_out` read as limited range, cd/m2
};

/// Through a tone curve. The converter works with 8 bits: four codes of the clip come out alike.
GreyPixel through_tone_curve(int code_in, const ToneCurve& curve);

/// Through the fixed table for a mastering peak in cd/m2 (0: unknown), on a display of `target` cd/m2.
GreyPixel through_fixed_table(int code_in, double mastering_peak, double target);

/// Which of the two tables a mastering peak chooses: the one for masters up to 1000 cd/m2, or up to 4000.
int fixed_table_of(double mastering_peak);

/// Light of a code between `black` and `white` on a display of `target` cd/m2 that undoes the converter's encoding, a
/// power of 0.45.
double display_light(double code, double black, double white, double target);

/// The PQ signal, 0 to 1, of a luminance in cd/m2, and back (SMPTE ST 2084).
double pq_from_luminance(double cd_m2);
double luminance_from_pq(double signal);

/// The light of a 10-bit limited-range PQ luma code, cd/m2.
double luminance_from_code(double code);

} // namespace lumivert::tool
