/// What each stage of a conversion may make of one pixel, from the formulas, with the errors that OpenCL allows.
///
/// Single precision rounds, and the program is built with relaxed mathematics: sums may be fused or reordered,
/// divisions may be off by 2.5 units in the last place, and powr may be exp2(y * log2(x)) with the errors that OpenCL
/// C 3.0 lists for relaxed exp2 and log2 (version 1.2 names none), or off by 16 units as in full precision.
#pragma once

#include <array>
#include <cstdint>

#include "reference/curve.h"
#include "reference/interval.h"

namespace lumivert::reference {

using Rgb = std::array<Span, 3>;

// ---- mode HI_JACK ----

/// Luma in, luma out, 1024 codes of 10 bits: for masters of up to 1000 and of up to 4000 cd/m2.
using StaticTable = std::array<uint16_t, 1024>;
extern const StaticTable kTable1000;
extern const StaticTable kTable4000;

/// The table for a master of so many whole cd/m2. Beyond 4000 it is the one for 1000 again.
const StaticTable& table_for(unsigned nits);

/// The static chroma of a block from a 10-bit code and the block's top left luma as it leaves the table.
Span static_chroma(int code, int mapped_luma, bool cr);

// ---- mode NORMAL ----

/// RGB of 8 bits from 10-bit codes. The luma code `black` gives 0.
Rgb rgb_of(int luma, int cb, int cr, int black);

/// A curve in the form that the device uses: the gain table, normalisation and knee.
struct ToneMap {
    std::array<Interval, 256> gains;
    Interval normalize_x, knee_x;
};

/// The tone map of a curve, give or take what single precision may do to it on its way into the table.
ToneMap tone_map_of(const Curve& curve);

/// SDR RGB of the PQ RGB.
Rgb tone_mapped(const Rgb& pq, const ToneMap& map);

/// A kernel that makes YUV of RGBA.
struct YuvKernel {
    const char* name;
    int bits;
    int luma_offset[2]; ///< in rows of even and of odd number
    bool cr_first;
    int top() const { return (1 << bits) - 1; }
};
constexpr YuvKernel kToP010 = {"rgba8888_to_p010", 10, {64, 64}, false};
constexpr YuvKernel kToNv12 = {"rgba8888_to_nv12", 8, {16, 16}, false};
constexpr YuvKernel kToNv21 = {"rgba8888_to_nv21", 8, {0, 16}, true};

enum Component { kLuma, kCb, kCr };

/// One component of one pixel in a row of even or of odd number. Chroma is averaged over four of these.
Span yuv_of(const YuvKernel& kernel, Component component, const Rgb& rgb, bool odd_row);

} // namespace lumivert::reference
