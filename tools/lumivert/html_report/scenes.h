/// Where a clip's scenes begin, and where its curve jumps although the scene goes on.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "light/clip_light.h"

namespace lumivert::tool {

struct Scene {
    int64_t first, last; ///< positions in ClipLight::frames, both included
    std::string why;     ///< why it begins there
};

/// Cuts where the distribution of light or the record's average jumps. Scenes last at least a quarter of a second.
std::vector<Scene> find_scenes(const ClipLight& light, double frame_rate);

/// A jump of the tone curve from the frame before.
struct Jump {
    int64_t frame;        ///< position in ClipLight::frames
    double input;         ///< cd/m2, where the output changes most
    double before, after; ///< output there, cd/m2
};

/// Outputs per frame for a few inputs.
constexpr double kProbes[] = {1, 10, 50, 100, 203, 500, 1000};
constexpr size_t kProbeCount = sizeof kProbes / sizeof *kProbes;
using Outputs = std::array<double, kProbeCount>;

/// Jumps within scenes of more than 0.015 of the PQ signal, about 15 codes of 10 bits.
std::vector<Jump> find_jumps(const std::vector<Scene>& scenes, const std::vector<Outputs>& outputs);

} // namespace lumivert::tool
