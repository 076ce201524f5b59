/// R'G'B' of decoded Y'CbCr pictures, row by row, whatever their packing, depth and chroma subsampling.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace lumivert::tool {

/// Where the stream says that chroma samples lie, in luma samples from the first luma sample.
struct ChromaSite {
    double x = 0, y = 0.5; ///< "left", the default of H.264 and HEVC
};

/// Luma weights of red and blue; green has the rest.
struct LumaWeights {
    double red, blue;
};
constexpr LumaWeights kBt2020 = {0.2627, 0.0593}, kBt709 = {0.2126, 0.0722};

/// Samples that this does not own. Those above 8 bits are 16-bit words, little endian.
struct YuvView {
    struct Component {
        const uint8_t* first;
        ptrdiff_t pitch;    ///< bytes from row to row
        int step;           ///< bytes from sample to sample
        int shift;          ///< unused low bits of a sample
    } component[3];         ///< Y, Cb, Cr
    int width, height;      ///< of luma
    int bits;               ///< of a code, 8 to 16
    int chroma_x, chroma_y; ///< log2 of the subsampling
    bool full_range;
    ChromaSite site;
};

/// Converts rows in order. Chroma is interpolated linearly between its samples, and repeated at the edges.
class RgbRows {
public:
    RgbRows(const YuvView& view, LumaWeights weights);

    /// Red, green and blue of row `y`: 0 to 1, and beyond for codes out of range. Valid until the next call.
    void read(int y);
    const float* red() const { return red_.data(); }
    const float* green() const { return green_.data(); }
    const float* blue() const { return blue_.data(); }

private:
    void read_chroma(int y);

    YuvView view_;
    float luma_scale_, luma_offset_, chroma_zero_;
    float red_from_cr_, green_from_cb_, green_from_cr_, blue_from_cb_;
    std::vector<float> narrow_[2], wide_[2]; ///< Cb and Cr of a row: at their own positions, at those of luma
    std::vector<float> red_, green_, blue_;
};

} // namespace lumivert::tool
