#include "reference/frames.h"

#include <cstdlib>

namespace lumivert::reference {
namespace {

constexpr const char* kRgbNames[] = {"R", "G", "B"};
constexpr const char* kYuvNames[] = {"Y", "Cb", "Cr"};
constexpr Span kOpaque = Span::exactly(255);

/// A plain generator with the same numbers everywhere (xorshift32).
class Random {
public:
    explicit Random(uint32_t seed) : state_(seed * 2654435761U | 1U) {}
    uint32_t next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_;
    }
    int below(int limit) { return static_cast<int>((next() >> 8) % static_cast<uint32_t>(limit)); }

private:
    uint32_t state_;
};

struct Codes {
    int luma, cb, cr;
};

/// The kinds of tile.
Codes codes_at(int kind, int x, int y, Random& random) {
    constexpr int kTop = 1023;
    switch (kind) {
    case 0:
        return {random.below(kTop + 1), random.below(kTop + 1), random.below(kTop + 1)};
    case 1:
        return {(64 + 5 * x + 61 * y) % (kTop + 1), 512, 512};
    case 2: {
        const int corner = random.below(8);
        return {corner & 1 ? kTop : 0, corner & 2 ? kTop : 0, corner & 4 ? kTop : 0};
    }
    default:
        return {64 + random.below(877), 448 + random.below(129), 448 + random.below(129)};
    }
}

/// Pixel (x, y) of the frame as the fused kernel reads it: in its block of 4 x 2, at the frame's own pitch.
Rgb rgb_at(const P010& in, int x, int y, int black) {
    const size_t width = static_cast<size_t>(in.width);
    const size_t column = static_cast<size_t>(x);
    const size_t row = static_cast<size_t>(y);
    const uint16_t* const pair = &in.chroma[row / 2 * width + column / 2 * 2];
    return rgb_of(in.luma[row * width + column] >> 6, pair[0] >> 6, pair[1] >> 6, black);
}

Rgb exact_rgb(const uint8_t* pixel) {
    return {Span::exactly(pixel[0]), Span::exactly(pixel[1]), Span::exactly(pixel[2])};
}

/// Compares RGBA with `pixel_at(x, y)`.
template <typename PixelAt>
Comparison compare_pixels(int width, int height, const uint8_t* rgba, PixelAt pixel_at) {
    Comparison comparison;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x, rgba += 4) {
            const Rgb expected = pixel_at(x, y);
            for (int c = 0; c < 3; ++c)
                comparison.expect(expected[c], rgba[c], kRgbNames[c], x, y);
            comparison.expect(kOpaque, rgba[3], "A", x, y);
        }
    }
    return comparison;
}

/// Compares YUV with what the kernel may make of `pixel_at(x, y)`, block by block.
template <typename Sample, typename PixelAt>
Comparison compare_blocks(const YuvKernel& kernel, int width, int height, const Sample* luma, const Sample* chroma,
                          Sample untouched, PixelAt pixel_at) {
    Comparison comparison;
    const int unit = kernel.bits == 10 ? 64 : 1;
    const int columns = width / 4 * 4;
    const int rows = height / 2 * 2;
    const auto expect = [&](const Sample* plane, Span code, int component, int x, int y) {
        const size_t at = static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x);
        comparison.expect(code, plane[at] / unit, kYuvNames[component], x, y);
        if (plane[at] % unit != 0) comparison.expect(code * unit, plane[at], kYuvNames[component], x, y);
    };
    for (int y = 0; y < rows; y += 2) {
        for (int x = 0; x < columns; x += 2) {
            Span sums[2] = {{0, 0}, {0, 0}};
            for (int i = 0; i < 4; ++i) {
                const int row = i / 2;
                const Rgb rgb = pixel_at(x + i % 2, y + row);
                expect(luma, yuv_of(kernel, kLuma, rgb, row == 1), kLuma, x + i % 2, y + row);
                sums[0] = sums[0] + yuv_of(kernel, kCb, rgb, row == 1);
                sums[1] = sums[1] + yuv_of(kernel, kCr, rgb, row == 1);
            }
            expect(chroma, sums[0] / 4, kCb, kernel.cr_first ? x + 1 : x, y / 2);
            expect(chroma, sums[1] / 4, kCr, kernel.cr_first ? x : x + 1, y / 2);
        }
    }
    // Beyond the last whole block of each row, and beyond the last whole row.
    const auto expect_untouched = [&](const Sample* plane, size_t count, int whole_rows, const char* name) {
        for (size_t at = 0; at < count; ++at) {
            const int x = static_cast<int>(at % static_cast<size_t>(width));
            const int y = static_cast<int>(at / static_cast<size_t>(width));
            if (x >= columns || y >= whole_rows) comparison.expect(Span::exactly(untouched), plane[at], name, x, y);
        }
    };
    expect_untouched(luma, luma_samples(width, height), rows, "Y outside the blocks");
    expect_untouched(chroma, chroma_samples(width, height), rows / 2, "chroma outside the blocks");
    return comparison;
}

size_t rounded_up(int value, int unit) {
    const int rounded = (value + unit - 1) / unit * unit;
    return static_cast<size_t>(rounded);
}

} // namespace

size_t luma_samples(int width, int height) {
    return rounded_up(width, 4) * rounded_up(height, 2);
}

size_t chroma_samples(int width, int height) {
    return luma_samples(width, height) / 2;
}

P010::P010(int w, int h) : width(w), height(h), luma(luma_samples(w, h)), chroma(chroma_samples(w, h)) {}

P010 test_frame(int width, int height, uint32_t seed) {
    constexpr int kTile = 16;
    P010 frame(width, height);
    Random random(seed);
    const auto word = [&](int code) { return static_cast<uint16_t>(code << 6 | static_cast<int>(random.next() & 63)); };
    const int pitch = std::max(width, 1);
    for (size_t i = 0; i < frame.luma.size(); ++i) {
        const int x = static_cast<int>(i) % pitch;
        const int y = static_cast<int>(i) / pitch;
        const Codes codes = codes_at((x / kTile + y / kTile + static_cast<int>(seed)) % 4, x, y, random);
        frame.luma[i] = word(codes.luma);
        if (y % 2 == 0 && x % 2 == 0) { // the block's chroma
            const size_t pair = static_cast<size_t>(y / 2) * static_cast<size_t>(pitch) + static_cast<size_t>(x);
            if (pair < frame.chroma.size()) frame.chroma[pair] = word(codes.cb);
            if (pair + 1 < frame.chroma.size()) frame.chroma[pair + 1] = word(codes.cr);
        }
    }
    return frame;
}

void Comparison::expect(Span expected, int value, const char* component, int x, int y) {
    ++samples;
    if (value >= expected.low && value <= expected.high) return;
    const auto distance = [](Span span, int code) { return std::max(span.low - code, code - span.high); };
    if (wrong++ == 0 || distance(expected, value) > distance(worst.expected, worst.value))
        worst = {component, x, y, expected, value};
}

void Comparison::add(const Comparison& other) {
    const uint64_t all_samples = samples + other.samples;
    const uint64_t all_wrong = wrong + other.wrong;
    if (other.wrong > 0)
        expect(other.worst.expected, other.worst.value, other.worst.component, other.worst.x, other.worst.y);
    samples = all_samples;
    wrong = all_wrong;
}

Comparison compare_static(const StaticTable& table, const P010& in, const P010& before, const uint16_t* luma,
                          const uint16_t* chroma) {
    Comparison comparison;
    const size_t pitch = static_cast<size_t>(in.width) / 2 * 2;
    const size_t rows = static_cast<size_t>(in.height) / 2 * 2;
    const auto position = [&](size_t at) {
        const size_t width = std::max<size_t>(pitch, 1);
        return std::pair(static_cast<int>(at % width), static_cast<int>(at / width));
    };
    for (size_t i = 0; i < in.luma.size(); ++i) {
        const auto [x, y] = position(i);
        const bool whole = i < pitch * rows;
        comparison.expect(Span::exactly(whole ? table[in.luma[i] >> 6] << 6 : before.luma[i]), luma[i],
                          whole ? "Y" : "Y outside the blocks", x, y);
    }
    for (size_t i = 0; i < in.chroma.size(); ++i) {
        const auto [x, y] = position(i);
        if (i >= pitch * rows / 2) {
            comparison.expect(Span::exactly(before.chroma[i]), chroma[i], "chroma outside the blocks", x, y);
            continue;
        }
        const size_t top_left = static_cast<size_t>(2 * y) * pitch + static_cast<size_t>(x / 2 * 2);
        const Span code = static_chroma(in.chroma[i] >> 6, table[in.luma[top_left] >> 6], x % 2 == 1);
        const char* const name = kYuvNames[1 + x % 2];
        comparison.expect(code, chroma[i] >> 6, name, x, y);
        if ((chroma[i] & 63) != 0) comparison.expect(code * 64, chroma[i], name, x, y);
    }
    return comparison;
}

Comparison compare_unmapped(const P010& in, int black, const uint8_t* rgba, uint8_t untouched) {
    const int columns = in.width / 4 * 4;
    const int rows = in.height / 2 * 2;
    Comparison comparison;
    for (int y = 0; y < in.height; ++y) {
        for (int x = 0; x < in.width; ++x, rgba += 4) {
            const bool whole = x < columns && y < rows;
            const Span outside = Span::exactly(untouched);
            const Rgb expected = whole ? rgb_at(in, x, y, black) : Rgb{outside, outside, outside};
            for (int c = 0; c < 3; ++c)
                comparison.expect(expected[c], rgba[c], kRgbNames[c], x, y);
            comparison.expect(whole ? kOpaque : outside, rgba[3], "A", x, y);
        }
    }
    return comparison;
}

Comparison compare_tone_mapped(const uint8_t* pq_rgba, int width, int height, const ToneMap& map, const uint8_t* rgba) {
    return compare_pixels(width, height, rgba, [&](int x, int y) {
        const size_t pixel = static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x);
        return tone_mapped(exact_rgb(pq_rgba + 4 * pixel), map);
    });
}

Comparison compare_rgba(const P010& in, const ToneMap& map, const uint8_t* rgba) {
    return compare_pixels(in.width, in.height, rgba,
                          [&](int x, int y) { return tone_mapped(rgb_at(in, x, y, 64), map); });
}

template <typename Sample>
Comparison compare_yuv_of_rgba(const YuvKernel& kernel, const uint8_t* rgba, int width, int height, const Sample* luma,
                               const Sample* chroma, Sample untouched) {
    return compare_blocks(kernel, width, height, luma, chroma, untouched, [&](int x, int y) {
        const size_t pixel = static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x);
        return exact_rgb(rgba + 4 * pixel);
    });
}

template <typename Sample>
Comparison compare_yuv(const YuvKernel& kernel, const P010& in, const ToneMap& map, const Sample* luma,
                       const Sample* chroma, Sample untouched) {
    return compare_blocks(kernel, in.width, in.height, luma, chroma, untouched,
                          [&](int x, int y) { return tone_mapped(rgb_at(in, x, y, 64), map); });
}

template Comparison compare_yuv_of_rgba(const YuvKernel&, const uint8_t*, int, int, const uint8_t*, const uint8_t*,
                                        uint8_t);
template Comparison compare_yuv_of_rgba(const YuvKernel&, const uint8_t*, int, int, const uint16_t*, const uint16_t*,
                                        uint16_t);
template Comparison compare_yuv(const YuvKernel&, const P010&, const ToneMap&, const uint8_t*, const uint8_t*, uint8_t);
template Comparison compare_yuv(const YuvKernel&, const P010&, const ToneMap&, const uint16_t*, const uint16_t*,
                                uint16_t);

} // namespace lumivert::reference
