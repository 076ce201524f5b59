/// Compares whole frames with what must come out, sample by sample.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "reference/samples.h"

namespace lumivert::reference {

/// The P010 planes of a frame, tightly packed and, as the converter asks for, allocated for whole blocks of 4 x 2.
struct P010 {
    int width, height;
    std::vector<uint16_t> luma, chroma;

    P010(int w, int h);
};

/// Samples of a plane for a width and a height rounded up to whole blocks.
size_t luma_samples(int width, int height);
size_t chroma_samples(int width, int height);

/// A P010 frame of seeded tiles: any codes, grey ramps, codes at both ends, muted colours. The low six bits are noise.
P010 test_frame(int width, int height, uint32_t seed);

/// How a frame compared: how many samples were looked at, how many lie outside of what may be, and the worst of them.
struct Comparison {
    struct Sample {
        const char* component;
        int x, y; ///< in samples of the component's plane
        Span expected;
        int value;
    };
    uint64_t samples = 0, wrong = 0;
    Sample worst = {"", 0, 0, {0, 0}, 0};

    void expect(Span expected, int value, const char* component, int x, int y);
    void add(const Comparison& other);
};

/// The planes of a static conversion of `in`. Words outside whole blocks of 2 x 2 keep the value of `before`.
Comparison compare_static(const StaticTable& table, const P010& in, const P010& before, const uint16_t* luma,
                          const uint16_t* chroma);

/// RGBA of P010 planes, unmapped; the luma code `black` gives 0. Bytes outside whole blocks of 4 x 2 are `untouched`.
Comparison compare_unmapped(const P010& in, int black, const uint8_t* rgba, uint8_t untouched);

/// SDR RGBA of PQ RGBA.
Comparison compare_tone_mapped(const uint8_t* pq_rgba, int width, int height, const ToneMap& map, const uint8_t* rgba);

/// SDR RGBA of P010 planes.
Comparison compare_rgba(const P010& in, const ToneMap& map, const uint8_t* rgba);

/// YUV planes of SDR RGBA. `Sample` is a byte or a word; samples outside whole blocks of 4 x 2 are `untouched`, and the
/// planes' sizes are those of `luma_samples` and `chroma_samples`.
template <typename Sample>
Comparison compare_yuv_of_rgba(const YuvKernel& kernel, const uint8_t* rgba, int width, int height, const Sample* luma,
                               const Sample* chroma, Sample untouched);

/// YUV planes of P010 planes, by way of SDR RGBA.
template <typename Sample>
Comparison compare_yuv(const YuvKernel& kernel, const P010& in, const ToneMap& map, const Sample* luma,
                       const Sample* chroma, Sample untouched);

} // namespace lumivert::reference
