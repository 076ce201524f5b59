/// Pictures of tone curves.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hdr10plus/record_track.h"

namespace lumivert::tool {

/// One frame's curve as the converter makes it for a display.
struct FrameCurve {
    int64_t frame;
    RecordOrigin origin;
    Record record;
    HDR10PLUS_TM_CURVE curve; ///< with plain anchors
    float gains[256];
    double target;     ///< the display's peak in cd/m2
    double scene_peak; ///< cd/m2
    double full_scale; ///< the input in cd/m2 that maps to the display's peak

    FrameCurve(int64_t frame, RecordOrigin origin, const Record& record, unsigned target);

    /// Output for a neutral input, both in cd/m2: by the curve itself, and as the GPU's table gives it.
    double output(double input) const;
    double output_by_table(double input) const;

private:
    void make_gains(float* table, unsigned size) const;

    mutable std::vector<float> fine_; ///< gains at 4096 steps, made when they are first asked for
};

void draw_curve(const std::string& path, const std::string& name, const FrameCurve& curve);

/// All curves side by side over time.
void draw_strip(const std::string& path, const std::string& name, const std::vector<FrameCurve>& curves);

} // namespace lumivert::tool
