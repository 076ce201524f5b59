/// HDR10+ dynamic metadata (SMPTE ST 2094-40) and the tone-mapping curve made from it.
///
/// The records are plain C. The functions are C++ and pure: they do not allocate, log, keep state or fail, and may be
/// called from any thread as long as no two threads use the same record. No pointer may be null unless it says so. All
/// arithmetic is single precision. Luminances are in cd/m2 unless a field says otherwise.
///
///     HDR10PLUS_TM_CURVE curve = {};
///     float gains[256] = {};
///     hdr10plus_meta_to_curve(&curve, &info, 250);        // knee, anchors and normalisation for a 250 cd/m2 display
///     hdr10plus_curve_kchoose_preapplied(&curve);         // multiply the anchors by their binomial coefficients
///     hdr10plus_preappliedcurve_to_lut(gains, 256, &curve);
#ifndef LUMIVERT_HDR10PLUS_H
#define LUMIVERT_HDR10PLUS_H

#include <stdint.h>

#ifdef __cplusplus
#include <cstddef>
extern "C" {
#endif

/// One frame's dynamic metadata: the values of SMPTE ST 2094-40 (application 4, one processing window) as a codec
/// component reads them from the stream's ITU-T T.35 message. 144 bytes with natural alignment; the layout is a binary
/// contract. Values outside the ranges given here are not rejected. Counts above 15 are treated as 15.
typedef struct HDR10PLUS_DYNAMIC_INFO {
    uint8_t country_code;              ///< ITU-T T.35 country code, 181 (United States)
    uint16_t provider_code;            ///< T.35 terminal provider code, 60
    uint16_t provider_oriented_code;   ///< T.35 terminal provider oriented code, 1
    uint8_t application_identifier;    ///< 4, for ST 2094-40
    uint8_t application_version;       ///< 0 or 1
    uint32_t display_max_luminance;    ///< peak of the display that the curve was graded for, in cd/m2
    uint32_t maxscl[3];                ///< scene maxima of R, G and B, in 0.1 cd/m2, 0 to 100000
    uint32_t avg_maxrgb;               ///< scene average of max(R, G, B), in 0.1 cd/m2
    uint8_t num_maxrgb_percentiles;    ///< number of valid entries in the two arrays below, 0 to 15
    uint8_t maxrgb_percentages[15];    ///< percentages of the distribution points, 0 to 100; 99 marks the scene peak
    uint32_t maxrgb_percentiles[15];   ///< max(R, G, B) at those percentages, in 0.1 cd/m2
    uint8_t tone_mapping_flag;         ///< 0: the metadata has no curve; otherwise the fields below are valid
    uint16_t knee_point_x;             ///< knee point, input, 0 to 4095 for 0 to 1 (12 bits)
    uint16_t knee_point_y;             ///< knee point, output, 0 to 4095 for 0 to 1 (12 bits)
    uint8_t num_bezier_curve_anchors;  ///< number of valid anchors, 0 to 15
    uint16_t bezier_curve_anchors[15]; ///< inner Bezier anchors, 0 to 1023 for 0 to 1 (10 bits)
} HDR10PLUS_DYNAMIC_INFO;

/// A tone-mapping curve: a straight line from the origin to the knee point, then a Bezier curve of order N + 1 from the
/// knee point to (1, 1) with N inner anchors. Input 1.0 is the normalisation peak; output 1.0 is the display's peak.
/// The GPU program declares the same record, field by field.
typedef struct _HDR10PLUS_TM_CURVE {
    float normalize_x;                ///< 10000 cd/m2 divided by the normalisation peak in cd/m2
    float f_knee_point_x;             ///< knee point, input, 0 to 1
    float f_knee_point_y;             ///< knee point, output, 0 to 1
    uint8_t num_bezier_curve_anchors; ///< N, 0 to 15
    float f_bezier_curve_anchors[15]; ///< anchors P1 to PN, 0 to 1 before `hdr10plus_curve_kchoose_preapplied`
} HDR10PLUS_TM_CURVE;

#ifdef __cplusplus
} // extern "C"

static_assert(sizeof(HDR10PLUS_DYNAMIC_INFO) == 144 && sizeof(HDR10PLUS_TM_CURVE) == 76, "natural alignment");
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, country_code) == 0 &&
                  offsetof(HDR10PLUS_DYNAMIC_INFO, provider_code) == 2 &&
                  offsetof(HDR10PLUS_DYNAMIC_INFO, provider_oriented_code) == 4 &&
                  offsetof(HDR10PLUS_DYNAMIC_INFO, application_identifier) == 6 &&
                  offsetof(HDR10PLUS_DYNAMIC_INFO, application_version) == 7 &&
                  offsetof(HDR10PLUS_DYNAMIC_INFO, display_max_luminance) == 8 &&
                  offsetof(HDR10PLUS_DYNAMIC_INFO, maxscl) == 12 &&
                  offsetof(HDR10PLUS_DYNAMIC_INFO, avg_maxrgb) == 24 &&
                  offsetof(HDR10PLUS_DYNAMIC_INFO, num_maxrgb_percentiles) == 28 &&
                  offsetof(HDR10PLUS_DYNAMIC_INFO, maxrgb_percentages) == 29 &&
                  offsetof(HDR10PLUS_DYNAMIC_INFO, maxrgb_percentiles) == 44 &&
                  offsetof(HDR10PLUS_DYNAMIC_INFO, tone_mapping_flag) == 104 &&
                  offsetof(HDR10PLUS_DYNAMIC_INFO, knee_point_x) == 106 &&
                  offsetof(HDR10PLUS_DYNAMIC_INFO, knee_point_y) == 108 &&
                  offsetof(HDR10PLUS_DYNAMIC_INFO, num_bezier_curve_anchors) == 110 &&
                  offsetof(HDR10PLUS_DYNAMIC_INFO, bezier_curve_anchors) == 112,
              "the record's layout is a binary contract");

#pragma GCC visibility push(default)

namespace LIB_HDR10PLUS_META {

/// The scene peak in cd/m2: the largest `maxscl`, limited to 10000 and to the 99 % distribution point if there is one.
/// If all `maxscl` are zero, it is the 99 % point; if there is none either, 0. The 99 % point is the last valid entry
/// if its percentage is 99, otherwise the first valid entry with 99.
float GetSceneMaxL(const HDR10PLUS_DYNAMIC_INFO* info);

/// Median (`p50`) and 99 % luminance (`p99`) of the scene in cd/m2; -1 where the distribution does not provide it. A
/// percentage that is not listed is interpolated between its neighbours, the median at 50 % and the 99 % luminance at
/// 99.95 %. Entries 1 and 2 (of 0 to 14) are never read: in practice streams store other quantities there.
void getPercentile_50_99(const HDR10PLUS_DYNAMIC_INFO* info, float& p50, float& p99);

/// A linear ramp from `w0` at `x0` to `w1` at `x1`, constant outside; `x0` must not be greater than `x1`. If they are
/// equal it is a step: `w0` below, `w1` from `x0` on.
float rampWeight(float w0, float w1, float x0, float x1, float x);

/// The first anchor of a generated Bezier curve of order 10, 0 to 1.
///
/// The anchor is first chosen so that the curve leaves the knee point (`kx`, `ky`, both 0 to 1) with the slope that the
/// line below it has: max(`target_lum`, `scene_lum`) / `target_lum` (peaks in cd/m2, `target_lum` > 0). It is then
/// limited to a cap, reduced for low knee points on dim displays, and limited to 0.1 from below and once more to the
/// cap, which wins. Four ramps control this:
///
/// - the cap goes from `cap_lo` to `cap_hi` as `ky` goes from `cap_x0` to `cap_x1`;
/// - a first factor goes from 1 to 0 as `ky` goes from `ky_x0` to `ky_x1`;
/// - a second factor goes from 1 to 0 as target / max(target, scene) goes from `r_x0` to `r_x1`;
/// - the anchor is multiplied by a gain that goes from 1 to `gain_hi` as the product of the two factors, the weight,
///   goes from `w_x0` to `w_x1`.
///
/// The weight is stored in `weight_out`, which may be null.
float calcP1(float kx, float ky, float target_lum, float scene_lum, float cap_x0, float cap_x1, float cap_hi,
             float cap_lo, float ky_x0, float ky_x1, float r_x0, float r_x1, float w_x0, float w_x1, float gain_hi,
             float* weight_out);

/// Generates a curve for metadata that has none: a knee point and nine anchors. `target` is the display's peak in
/// cd/m2, at least 200; `scene_peak` is the result of `GetSceneMaxL`. `normalize_x` and the anchors after the ninth are
/// not written.
void BasisOOTF(HDR10PLUS_TM_CURVE* curve, const HDR10PLUS_DYNAMIC_INFO* info, unsigned int target, float scene_peak);

/// Adapts the curve in the metadata to the actual display. Arguments as for `BasisOOTF`. The first rule that applies:
///
/// 1. `target` < 200: the identity, with the knee at 0.
/// 2. `target` is the display that the curve was graded for: the curve as it is.
/// 3. `target` >= `scene_peak`: the identity, with the knee at 0.3.
/// 4. `target` is dimmer than the graded display: a mix of the curve with a basis curve for 200 cd/m2.
/// 5. `target` is brighter: a mix of the curve with the identity.
///
/// Writes as many anchors as the metadata has. `normalize_x` and further anchors are not written.
void GuidedOOTF(HDR10PLUS_TM_CURVE* curve, const HDR10PLUS_DYNAMIC_INFO* info, unsigned int target, float scene_peak);

} // namespace LIB_HDR10PLUS_META

/// Makes a frame's curve for a display of `target` cd/m2; values below 200 count as 200. Uses `GuidedOOTF` if the
/// metadata has a curve, otherwise `BasisOOTF`. `normalize_x` maps the larger of scene peak and target to 1. Zero the
/// curve beforehand: anchors that are not used are not written. `info` is only read.
void hdr10plus_meta_to_curve(HDR10PLUS_TM_CURVE* curve, HDR10PLUS_DYNAMIC_INFO* info, unsigned int target);

/// The same for a display of 250 cd/m2.
void hdr10plus_meta_to_curve(HDR10PLUS_TM_CURVE* curve, HDR10PLUS_DYNAMIC_INFO* info);

/// Multiplies each anchor by its binomial coefficient, in place, as `hdr10plus_preappliedcurve_to_lut` expects. With
/// one or two anchors, they become zero.
void hdr10plus_curve_kchoose_preapplied(HDR10PLUS_TM_CURVE* curve);

/// Samples a curve whose anchors are already multiplied into a table of `size` gains, at least 2; the conversion uses
/// 256. Entry i is curve(x) / x at x = i / (size - 2), for 1 <= i <= size - 2. The first and the last entry repeat
/// their neighbours.
void hdr10plus_preappliedcurve_to_lut(float* lut, unsigned int size, HDR10PLUS_TM_CURVE* curve);

/// The same table from a curve with plain anchors.
void hdr10plus_curve_to_lut(float* lut, unsigned int size, HDR10PLUS_TM_CURVE* curve);

#pragma GCC visibility pop

#endif // __cplusplus
#endif // LUMIVERT_HDR10PLUS_H
