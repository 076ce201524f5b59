#include "engine/lattice.h"

#include <algorithm>
#include <cmath>

#include "frames/rgb_rows.h"

namespace lumivert::tool {
namespace {

/// A colour fills a block of the kernels, so that chroma has no other neighbour.
constexpr int kBlockWidth = 4, kBlockHeight = 2, kColumns = 256;
constexpr int kPhases = 16;

uint16_t word(double code) {
    return static_cast<uint16_t>(std::lround(std::clamp(code, 0.0, 1023.0))) << 6;
}

/// Where blocks lie in a frame.
struct Layout {
    int size;
    Geometry geometry;

    explicit Layout(int n)
        : size(n), geometry(kColumns * kBlockWidth, (n * n * n + kColumns - 1) / kColumns * kBlockHeight) {}
    int points() const { return size * size * size; }
    /// Index of the first sample of a point's block in luma, and of its first pair in chroma, which has half the rows.
    size_t luma(int point) const {
        return static_cast<size_t>(point / kColumns) * kBlockHeight * geometry.pitch +
               static_cast<size_t>(point % kColumns) * kBlockWidth;
    }
    size_t chroma(int point) const {
        return static_cast<size_t>(point / kColumns) * geometry.pitch +
               static_cast<size_t>(point % kColumns) * kBlockWidth;
    }
};

void fill(const Planes& p010, const Layout& layout, int phase, double code_step) {
    auto* luma = reinterpret_cast<uint16_t*>(p010.first.data());
    auto* chroma = reinterpret_cast<uint16_t*>(p010.second.data());
    const double top = layout.size - 1, green = 1 - kBt2020.red - kBt2020.blue;
    const double offset = code_step * ((phase + 0.5) / kPhases - 0.5);
    for (int point = 0; point < layout.points(); ++point) {
        const int rest = point / layout.size;
        const int steps[] = {point % layout.size, rest % layout.size, rest / layout.size};
        const double r = steps[0] / top, g = steps[1] / top, b = steps[2] / top;
        const double y = kBt2020.red * r + green * g + kBt2020.blue * b;
        const uint16_t y_word = word(64 + 876 * y + offset);
        const uint16_t cb = word(512 + 448 * (b - y) / (1 - kBt2020.blue));
        const uint16_t cr = word(512 + 448 * (r - y) / (1 - kBt2020.red));
        for (int row = 0; row < kBlockHeight; ++row)
            std::fill_n(luma + layout.luma(point) + static_cast<size_t>(row) * layout.geometry.pitch, kBlockWidth,
                        y_word);
        for (int i = 0; i < kBlockWidth; i += 2) {
            chroma[layout.chroma(point) + i] = cb;
            chroma[layout.chroma(point) + i + 1] = cr;
        }
    }
}

/// Limited range, BT.709: what the converter's samples are read as.
template <typename Sample>
void add_colours(const Planes& out, const Layout& layout, int shift, double unit, Look& look) {
    const auto* luma = reinterpret_cast<const Sample*>(out.first.data());
    const auto* chroma = reinterpret_cast<const Sample*>(out.second.data());
    const double green = 1 - kBt709.red - kBt709.blue;
    for (int point = 0; point < layout.points(); ++point) {
        const double y = ((luma[layout.luma(point)] >> shift) - 16 * unit) / (219 * unit);
        const double cb = ((chroma[layout.chroma(point)] >> shift) - 128 * unit) / (224 * unit);
        const double cr = ((chroma[layout.chroma(point) + 1] >> shift) - 128 * unit) / (224 * unit);
        const double r = y + 2 * (1 - kBt709.red) * cr, b = y + 2 * (1 - kBt709.blue) * cb;
        const double g = (y - kBt709.red * r - kBt709.blue * b) / green;
        auto& value = look.values[point];
        value[0] += static_cast<float>(r / kPhases);
        value[1] += static_cast<float>(g / kPhases);
        value[2] += static_cast<float>(b / kPhases);
    }
}

} // namespace

Look sample_look(int size, Mode mode, const Record* record, const Luminances& luminances,
                 const Environment& environment) {
    const Layout layout(size);
    const bool table = mode == Mode::kStaticTable;
    Converter converter(layout.geometry, mode, Entry::kPool, environment);
    const Planes in(P010_LINEAR, layout.geometry), out(table ? P010_LINEAR : NV12, layout.geometry);
    Look look = {size, std::vector<std::array<float, 3>>(static_cast<size_t>(layout.points()))};
    for (int phase = 0; phase < kPhases; ++phase) {
        fill(in, layout, phase, table ? 1 : 4); // averaged over one 10-bit code, or one 8-bit code
        converter.convert(in, out, record, luminances);
        if (table)
            add_colours<uint16_t>(out, layout, 6, 4, look);
        else
            add_colours<uint8_t>(out, layout, 0, 1, look);
    }
    return look;
}

} // namespace lumivert::tool
