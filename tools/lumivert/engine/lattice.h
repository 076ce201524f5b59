/// What the converter does to any colour: a lattice of colours sent through it.
#pragma once

#include <array>
#include <vector>

#include "engine/converter.h"

namespace lumivert::tool {

/// R'G'B' out, BT.709, 0 to 1 and a little beyond where a display clips, for R'G'B' in, PQ and BT.2020, 0 to 1: `size`
/// steps along each axis, red fastest.
struct Look {
    int size;
    std::vector<std::array<float, 3>> values;
};

/// Converts the lattice with the library. `record` as in Converter::convert. The converter works with 8-bit codes after
/// a tone curve: each point is the mean over several luma codes around it, so that the lattice has no steps of its own.
/// Chroma stays as it is, so that greys stay grey.
Look sample_look(int size, Mode mode, const Record* record, const Luminances& luminances,
                 const Environment& environment);

} // namespace lumivert::tool
