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

/// A picture, and how its samples become light.
struct Side {
    const AVFrame& frame;
    Encoding encoding;
};

/// What two pictures differ by, and where they were made from a third, how far each is from that.
struct Colours {
    DeltaE between;
    std::array<DeltaE, 2> to_source;
    std::array<double, 2> light = {}; ///< mean of max(R, G, B) in the light of the display, cd/m2; of several, the sum

    void add(const Colours& other);
};

/// All pixels of two pictures of one size, on all cores. `source`, of the same size and in PQ, may be null; then only
/// `between` is filled.
Colours compare_colours(const Side& a, const Side& b, const AVFrame* source);

/// The same colours in PQ and BT.2020, as 10-bit RGB.
void to_pq(const AVFrame& from, Encoding encoding, AVFrame& gbrp10);

} // namespace lumivert::tool
