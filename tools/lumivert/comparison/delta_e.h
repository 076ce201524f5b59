/// Colour differences between two pictures: Delta E ITP of ITU-R BT.2124, where 1 is just visible.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "media/ffmpeg.h"

namespace lumivert::tool {

/// How the samples of a picture become light.
enum class Encoding {
    kPq,  ///< PQ, BT.2020
    kSdr, ///< BT.709 on the converter's display: 250 cd/m2, a power of 1/0.45
};

/// Rows of a picture as light on the display: BT.2020 components in cd/m2.
class LightRows {
public:
    /// `frame` is Y'CbCr, grey or RGB of 8 to 16 bits, little endian.
    LightRows(const AVFrame& frame, Encoding encoding);
    ~LightRows();
    void read(int y);
    const float* component(int index) const { return light_[index].data(); }

private:
    struct Source;

    std::unique_ptr<Source> source_;
    Encoding encoding_;
    std::array<std::vector<float>, 3> light_;
};

/// Differences of many pixels.
class DeltaE {
public:
    void add(const float* values, int count);
    void add(const DeltaE& other);
    double mean() const { return count_ > 0 ? sum_ / static_cast<double>(count_) : 0; }
    double percentile(double percentage) const;
    double largest() const { return largest_; }

private:
    static constexpr float kBinsPerUnit = 50;
    static constexpr size_t kBins = 60000;

    std::vector<uint64_t> histogram_; // 32 bits would not count the pixels of a long clip
    double sum_ = 0, largest_ = 0;
    int64_t count_ = 0;
};

/// All pixels of two frames of one size, on all cores.
DeltaE delta_e(const AVFrame& a, Encoding encoding_a, const AVFrame& b, Encoding encoding_b);

/// The same colours in PQ and BT.2020, as 10-bit RGB.
void to_pq(const AVFrame& from, Encoding encoding, AVFrame& gbrp10);

/// Mean of max(R, G, B) in cd/m2, in the light of the display.
double mean_light(const AVFrame& frame, Encoding encoding);

} // namespace lumivert::tool
