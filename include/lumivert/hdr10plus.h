/// HDR10+ dynamic metadata and the tone-mapping curve derived from it.
///
/// The record `HDR10PLUS_DYNAMIC_INFO` is plain C and crosses the library's boundary; the curve functions below
/// it are C++. All of them are pure: they allocate nothing, log nothing, keep nothing and cannot fail, so they
/// may be called from any thread as long as two threads do not share one record.
///
///     HDR10PLUS_TM_CURVE curve = {};
///     float gains[256] = {};
///     hdr10plus_meta_to_curve(&curve, &info, 250);        // knee, anchors and normalisation for a 250 cd/m2 display
///     hdr10plus_curve_kchoose_preapplied(&curve);         // fold the binomial coefficients into the anchors
///     hdr10plus_preappliedcurve_to_lut(gains, 256, &curve);
#ifndef LUMIVERT_HDR10PLUS_H
#define LUMIVERT_HDR10PLUS_H

#include <stdint.h>

#ifdef __cplusplus
#include <cstddef>
extern "C" {
#endif

/// One frame's dynamic metadata: the values of SMPTE ST 2094-40 (application 4) for one processing window, as the
/// codec component reads them from the stream's ITU-T T.35 message. Fields have natural alignment; the layout
/// (144 bytes) is a binary contract. Counts above 15 are treated as 15.
typedef struct HDR10PLUS_DYNAMIC_INFO {
    uint8_t country_code;              ///< ITU-T T.35 country code, 181 (United States)
    uint16_t provider_code;            ///< T.35 terminal provider code, 60
    uint16_t provider_oriented_code;   ///< T.35 terminal provider oriented code, 1
    uint8_t application_identifier;    ///< 4: ST 2094-40
    uint8_t application_version;       ///< 0 or 1
    uint32_t display_max_luminance;    ///< targeted system display maximum luminance, cd/m2
    uint32_t maxscl[3];                ///< scene maximum of R, G and B, in 0.1 cd/m2 (0 to 100000)
    uint32_t avg_maxrgb;               ///< scene average of max(R, G, B), in 0.1 cd/m2
    uint8_t num_maxrgb_percentiles;    ///< valid entries in the two arrays below, 0 to 15
    uint8_t maxrgb_percentages[15];    ///< percentage of each distribution point, 0 to 100; 99 marks the scene peak
    uint32_t maxrgb_percentiles[15];   ///< max(R, G, B) at that percentage, in 0.1 cd/m2
    uint8_t tone_mapping_flag;         ///< 0: no curve in the metadata; otherwise knee point and anchors are valid
    uint16_t knee_point_x;             ///< knee point abscissa, 0 to 4095 for 0 to 1 (12 bits)
    uint16_t knee_point_y;             ///< knee point ordinate, 0 to 4095 for 0 to 1 (12 bits)
    uint8_t num_bezier_curve_anchors;  ///< valid anchors, 0 to 15
    uint16_t bezier_curve_anchors[15]; ///< inner Bezier anchors, 0 to 1023 for 0 to 1 (10 bits)
} HDR10PLUS_DYNAMIC_INFO;

/// A tone-mapping curve: a line from the origin to the knee point, then a Bezier curve of order N + 1 from the knee
/// point to (1, 1) with N inner anchors. Input 1.0 is the normalisation peak, output 1.0 the display's peak. The
/// GPU program declares the same record field for field.
typedef struct _HDR10PLUS_TM_CURVE {
    float normalize_x;                ///< 10000 cd/m2 divided by the normalisation peak in cd/m2
    float f_knee_point_x;             ///< knee point abscissa, 0 to 1 of the normalised input
    float f_knee_point_y;             ///< knee point ordinate, 0 to 1 of the output
    uint8_t num_bezier_curve_anchors; ///< N, 0 to 15
    float f_bezier_curve_anchors[15]; ///< Bezier anchors P1 to PN, 0 to 1 before `hdr10plus_curve_kchoose_preapplied`
} HDR10PLUS_TM_CURVE;

#ifdef __cplusplus
} // extern "C"

static_assert(sizeof(HDR10PLUS_DYNAMIC_INFO) == 144);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, country_code) == 0);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, provider_code) == 2);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, provider_oriented_code) == 4);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, application_identifier) == 6);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, application_version) == 7);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, display_max_luminance) == 8);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, maxscl) == 12);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, avg_maxrgb) == 24);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, num_maxrgb_percentiles) == 28);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, maxrgb_percentages) == 29);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, maxrgb_percentiles) == 44);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, tone_mapping_flag) == 104);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, knee_point_x) == 106);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, knee_point_y) == 108);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, num_bezier_curve_anchors) == 110);
static_assert(offsetof(HDR10PLUS_DYNAMIC_INFO, bezier_curve_anchors) == 112);
static_assert(sizeof(HDR10PLUS_TM_CURVE) == 76);

#pragma GCC visibility push(default)

namespace LIB_HDR10PLUS_META {

/// Scene peak in cd/m2: the largest `maxscl`, at most 10000, capped by the 99 % distribution point where there is
/// one. With all `maxscl` zero the 99 % point itself; 0 when neither is known.
float GetSceneMaxL(const HDR10PLUS_DYNAMIC_INFO* info);

/// Median and 99 % luminance of the scene in cd/m2, each -1 where the distribution does not tell. Points missing
/// from the distribution are interpolated between their neighbours, the upper one at 99.95 %. The entries at positions
/// 1 and 2 are never read: in the field they carry other quantities than their percentages say.
void getPercentile_50_99(const HDR10PLUS_DYNAMIC_INFO* info, float& p50, float& p99);

/// Linear ramp from `w0` at `x0` to `w1` at `x1`, constant outside. With `x0` equal to `x1` a step that takes the
/// value `w1` at the step itself.
float rampWeight(float w0, float w1, float x0, float x1, float x);

/// First anchor of a generated order-10 Bezier curve: chosen so that the slope just above the knee point (`kx`,
/// `ky`, fractions) continues the slope max(target, scene) / target of the line below it, then scaled down for low
/// knees on dim displays and limited to 0.1 from below and to a cap from above (the cap wins).
///
/// `target_lum` and `scene_lum` are peaks in cd/m2. The ramps: the cap falls from `cap_lo` to `cap_hi` as `ky` goes
/// from `cap_x0` to `cap_x1`; the weight is a ramp 1 to 0 of `ky` over `ky_x0`..`ky_x1` times one of target / scene
/// over `r_x0`..`r_x1`; the gain falls from 1 to `gain_hi` as the weight goes from `w_x0` to `w_x1`. The weight is
/// stored in `weight_out` unless that is null.
float calcP1(float kx, float ky, float target_lum, float scene_lum, float cap_x0, float cap_x1, float cap_hi,
             float cap_lo, float ky_x0, float ky_x1, float r_x0, float r_x1, float w_x0, float w_x1, float gain_hi,
             float* weight_out);

/// Generates a complete curve (knee point and nine anchors) for metadata that carries none. `target` is the
/// display's peak in cd/m2, at least 200; `scene_peak` is in cd/m2 as `GetSceneMaxL` gives it. `normalize_x` and
/// the anchors after the ninth stay as they are.
void BasisOOTF(HDR10PLUS_TM_CURVE* curve, const HDR10PLUS_DYNAMIC_INFO* info, unsigned int target, float scene_peak);

/// Adapts the curve in the metadata to the actual display: as it stands when the display is the targeted one, mixed
/// with a basis curve for a dimmer display, with the identity for a brighter one. Where the display is not the targeted
/// one and shows the whole scene (`target` of `scene_peak` or more), the identity with a knee at 0.3 replaces it; below
/// 200 cd/m2 the identity with a knee at 0 does. Same arguments as `BasisOOTF`; writes as many anchors as the metadata
/// has and leaves `normalize_x` and the others as they are.
void GuidedOOTF(HDR10PLUS_TM_CURVE* curve, const HDR10PLUS_DYNAMIC_INFO* info, unsigned int target, float scene_peak);

} // namespace LIB_HDR10PLUS_META

/// The frame's curve for a display of `target` cd/m2 (200 at least: lower values count as 200): guided when the
/// metadata carries a curve, else basis; `normalize_x` maps the larger of scene peak and target to 1. The caller
/// zeroes the curve beforehand; `info` is only read.
void hdr10plus_meta_to_curve(HDR10PLUS_TM_CURVE* curve, HDR10PLUS_DYNAMIC_INFO* info, unsigned int target);

/// The same for a display of 250 cd/m2.
void hdr10plus_meta_to_curve(HDR10PLUS_TM_CURVE* curve, HDR10PLUS_DYNAMIC_INFO* info);

/// Multiplies each anchor by its binomial coefficient, in place, as `hdr10plus_preappliedcurve_to_lut` wants them.
/// A curve of one or two anchors loses them here.
void hdr10plus_curve_kchoose_preapplied(HDR10PLUS_TM_CURVE* curve);

/// Samples a curve with pre-multiplied anchors into `size` gains (256 in the conversion, 2 at least): entry i holds
/// curve(x) / x at x = i / (size - 2) for 1 <= i <= size - 2; the first and the last entry repeat their neighbours.
void hdr10plus_preappliedcurve_to_lut(float* lut, unsigned int size, HDR10PLUS_TM_CURVE* curve);

/// The same table from a curve with plain anchors.
void hdr10plus_curve_to_lut(float* lut, unsigned int size, HDR10PLUS_TM_CURVE* curve);

#pragma GCC visibility pop

#endif // __cplusplus
#endif // LUMIVERT_HDR10PLUS_H
