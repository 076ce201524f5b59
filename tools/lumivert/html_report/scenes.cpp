#include "html_report/scenes.h"

#include <algorithm>
#include <cmath>

#include "hdr10plus/pixel_chain.h"

namespace lumivert::tool {
namespace {

constexpr double kLightJump = 0.035, kRecordJump = 0.08, kCurveJump = 0.015; // of the PQ signal

double apart(double a, double b) {
    return std::abs(pq_from_luminance(a) - pq_from_luminance(b));
}

/// Mean distance of the percentiles.
double light_distance(const FrameLight& a, const FrameLight& b) {
    double sum = 0;
    for (size_t i = 0; i < a.percentiles.size(); ++i)
        sum += apart(a.percentiles[i], b.percentiles[i]);
    return sum / static_cast<double>(a.percentiles.size());
}

} // namespace

std::vector<Scene> find_scenes(const ClipLight& light, double frame_rate) {
    const auto& frames = light.frames;
    const auto shortest = std::max<int64_t>(2, std::llround(frame_rate / 4));
    std::vector<Scene> scenes = {{0, 0, "the clip begins"}};
    for (size_t i = 1; i < frames.size(); ++i) {
        const auto at = static_cast<int64_t>(i);
        scenes.back().last = at;
        if (at - scenes.back().first < shortest) continue;
        const bool both = frames[i].origin != RecordOrigin::kNone && frames[i - 1].origin != RecordOrigin::kNone;
        const bool light_jumps = light_distance(frames[i].light, frames[i - 1].light) > kLightJump;
        const bool record_jumps =
            both && apart(frames[i].record.avg_maxrgb / 10.0, frames[i - 1].record.avg_maxrgb / 10.0) > kRecordJump;
        if (!light_jumps && !record_jumps) continue;
        scenes.back().last = at - 1;
        scenes.push_back({at, at,
                          light_jumps && record_jumps ? "light and record jump"
                          : light_jumps               ? "the light jumps"
                                                      : "the record jumps"});
    }
    return scenes;
}

std::vector<Jump> find_jumps(const std::vector<Scene>& scenes, const std::vector<Outputs>& outputs) {
    std::vector<Jump> jumps;
    for (const Scene& scene : scenes)
        for (int64_t frame = scene.first + 1; frame <= scene.last; ++frame) {
            const Outputs &before = outputs[frame - 1], &after = outputs[frame];
            size_t most = 0;
            for (size_t i = 1; i < kProbeCount; ++i)
                if (apart(before[i], after[i]) > apart(before[most], after[most])) most = i;
            if (apart(before[most], after[most]) > kCurveJump)
                jumps.push_back({frame, kProbes[most], before[most], after[most]});
        }
    return jumps;
}

} // namespace lumivert::tool
