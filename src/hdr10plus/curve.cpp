#include <algorithm>

#include "lumivert/hdr10plus.h"

void hdr10plus_meta_to_curve(HDR10PLUS_TM_CURVE* curve, HDR10PLUS_DYNAMIC_INFO* info, unsigned int target) {
    const float scene_peak = LIB_HDR10PLUS_META::GetSceneMaxL(info);
    const unsigned display = std::max(target, 200U);
    if (info->tone_mapping_flag == 0)
        LIB_HDR10PLUS_META::BasisOOTF(curve, info, display, scene_peak);
    else
        LIB_HDR10PLUS_META::GuidedOOTF(curve, info, display, scene_peak);
    curve->normalize_x = 10000.0F / std::max(std::min(scene_peak, 10000.0F), static_cast<float>(display));
}

void hdr10plus_meta_to_curve(HDR10PLUS_TM_CURVE* curve, HDR10PLUS_DYNAMIC_INFO* info) {
    hdr10plus_meta_to_curve(curve, info, 250);
}
