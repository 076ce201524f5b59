/// Pictures of tone curves.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hdr10plus/record_track.h"
#include "hdr10plus/tone_curve.h"
#include "light/frame_light.h"

namespace lumivert::tool {

/// One frame's curve as the converter makes it for a display.
struct FrameCurve : ToneCurve {
    int64_t frame;
    RecordOrigin origin;
    Record record;

    FrameCurve(int64_t number, RecordOrigin from, const Record& metadata, unsigned display)
        : ToneCurve(metadata, display), frame(number), origin(from), record(metadata) {}
};

/// `light` is what the frame's pixels have, or null.
void draw_curve(const std::string& path, const std::string& name, const FrameCurve& curve, const LightHistogram* light);

/// The fixed table that a conversion without records uses, on a display of `target` cd/m2.
struct FixedTable {
    double mastering_peak; ///< cd/m2; 0: unknown
    unsigned target;
};

void draw_fixed_table(const std::string& path, const std::string& title, const std::string& why,
                      const FixedTable& table, const LightHistogram* light);

/// All curves side by side over time.
void draw_strip(const std::string& path, const std::string& name, const std::vector<FrameCurve>& curves);

} // namespace lumivert::tool
