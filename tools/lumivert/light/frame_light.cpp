#include "light/frame_light.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <numeric>
#include <utility>

#include "hdr10plus/pixel_chain.h"

namespace lumivert::tool {
namespace {

constexpr int kSteps = LightHistogram::kSteps;

const std::vector<double>& luminance_of_step() {
    static const std::vector<double> table = [] {
        std::vector<double> values(kSteps + 1);
        for (int i = 0; i <= kSteps; ++i)
            values[i] = luminance_from_pq(static_cast<double>(i) / kSteps);
        return values;
    }();
    return table;
}

/// The signal as a step, out of range ones as the nearest.
inline int step_of(float signal) {
    const float scaled = signal * kSteps + 0.5F;
    return static_cast<int>(scaled < 0 ? 0 : scaled > kSteps ? kSteps : scaled);
}

/// PQ rises everywhere, so the largest component is the brightest, and the light of the steps is looked up at the end.
void add_row(const RgbRows& rows, int width, int* steps, std::array<int, 3>& largest) {
    const float *red = rows.red(), *green = rows.green(), *blue = rows.blue();
    int most_red = largest[0], most_green = largest[1], most_blue = largest[2];
    for (int x = 0; x < width; ++x) {
        const int r = step_of(red[x]), g = step_of(green[x]), b = step_of(blue[x]);
        most_red = r > most_red ? r : most_red;
        most_green = g > most_green ? g : most_green;
        most_blue = b > most_blue ? b : most_blue;
        const int rg = r > g ? r : g;
        steps[x] = rg > b ? rg : b;
    }
    largest = {most_red, most_green, most_blue};
}

} // namespace

double FrameLight::peak() const {
    return *std::max_element(maximum.begin(), maximum.end());
}

double FrameLight::percentile(double percentage) const {
    const auto found = std::find(kPercentages.begin(), kPercentages.end(), percentage);
    return percentiles.at(static_cast<size_t>(std::distance(kPercentages.begin(), found)));
}

LightHistogram count_light(const YuvView& picture) {
    RgbRows rows(picture, kBt2020);
    // Two, because equal neighbours would wait for each other's count.
    std::vector<uint32_t> even(kSteps + 1), odd(kSteps + 1);
    std::vector<int> steps(static_cast<size_t>(picture.width) + 1);
    LightHistogram histogram;
    for (int y = 0; y < picture.height; ++y) {
        rows.read(y);
        add_row(rows, picture.width, steps.data(), histogram.largest);
        int x = 0;
        for (; x + 1 < picture.width; x += 2) {
            ++even[steps[x]];
            ++odd[steps[x + 1]];
        }
        if (x < picture.width) ++even[steps[x]];
    }
    std::transform(even.begin(), even.end(), odd.begin(), even.begin(), std::plus<>());
    histogram.pixels = std::move(even);
    return histogram;
}

FrameLight light_of(const LightHistogram& histogram) {
    const auto& luminance = luminance_of_step();
    FrameLight light;
    for (int i = 0; i < 3; ++i)
        light.maximum[i] = luminance[histogram.largest[i]];
    const double pixels = std::accumulate(histogram.pixels.begin(), histogram.pixels.end(), 0.0);
    double count = 0, sum = 0;
    size_t next = 0;
    for (int i = 0; i <= kSteps; ++i) {
        const uint32_t here = histogram.pixels[i];
        if (here == 0) continue;
        count += here;
        sum += here * luminance[i];
        for (; next < kPercentages.size() && count >= kPercentages[next] / 100 * pixels; ++next)
            light.percentiles[next] = luminance[i];
    }
    for (; next < kPercentages.size(); ++next) // none, but for rounding
        light.percentiles[next] = light.peak();
    light.average = sum / pixels;
    return light;
}

} // namespace lumivert::tool
