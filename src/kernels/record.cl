// The tone-mapping curve, field for field as the host's HDR10PLUS_TM_CURVE (include/lumivert/hdr10plus.h), so that both
// sides share one layout. No kernel takes it: they get the curve as two scalars and a gain table.

typedef struct _HDR10PLUS_TM_CURVE {
    float normalize_x;
    float f_knee_point_x;
    float f_knee_point_y;
    uchar num_bezier_curve_anchors;
    float f_bezier_curve_anchors[15];
} HDR10PLUS_TM_CURVE;
