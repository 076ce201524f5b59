/// Raw frames in memory and in files: NV12, P010 and RGBA without a header. For debugging tools; conversions do not use
/// them.
///
/// **These functions end the process** (exit status 1, one line on the standard error stream) if a file cannot be
/// opened. Files that are too short are accepted: what is missing reads as zero. Write errors after a file was opened
/// are not reported. Two threads must not use the same path at the same time if one of them writes.
#ifndef LUMIVERT_RAW_IMAGE_H
#define LUMIVERT_RAW_IMAGE_H

#include <cstdint>
#include <string>
#include <vector>

/// A 4:2:0 frame that owns its planes. `uv` interleaves Cb and Cr. The save functions write whatever the vectors hold,
/// regardless of `width` and `height`.
struct yuv_image_t {
    uint32_t width;  ///< pixels
    uint32_t height; ///< rows
    std::vector<uint8_t> y;
    std::vector<uint8_t> uv;
};

/// One byte per sample: `y` has width x height bytes, `uv` half of that, rounded down.
struct nv12_image_t : yuv_image_t {};

/// Two bytes per sample: 16-bit words in the machine's byte order with the 10-bit code in the upper bits. The planes
/// have the padded layout described at `load_p010_image_data`.
struct p010_image_t : yuv_image_t {};

/// Four bytes per pixel: R, G, B, A. Rows have no padding.
struct rgba_image_t {
    uint32_t width;  ///< pixels
    uint32_t height; ///< rows
    std::vector<uint8_t> data;
};

#pragma GCC visibility push(default)

/// Reads width x height bytes of luma, then half as many bytes of chroma, rounded down to whole Cb/Cr pairs.
nv12_image_t load_nv12_image_data(const std::string& path, uint32_t width, uint32_t height);

/// The same for a frame of 3840 x 2160.
nv12_image_t load_nv12_image_data(const std::string& path);

/// Reads a frame in a decoder's padded layout: luma rows of 2 x width bytes, rounded up to a multiple of 16, and a
/// number of rows rounded up to a multiple of 16; then a chroma plane of half as many rows, whose size is rounded up to
/// a multiple of 256 bytes. The planes keep the padding. Samples are little-endian in the file. If the file ends inside
/// a sample, its low byte is used for both.
p010_image_t load_p010_image_data(const std::string& path, uint32_t width, uint32_t height);

/// Reads width x height pixels of four bytes. It does not expect the header that `save_rgba_image_data` writes: from
/// such a file the header is read as the first four pixels.
rgba_image_t load_rgba_image_data(const std::string& path, uint32_t width, uint32_t height);

/// Writes all of `y`, then all of `uv` except an incomplete Cb/Cr pair. An existing file is replaced.
void save_nv12_image_data(const std::string& path, const nv12_image_t& image);

/// The same with 16-bit samples, little-endian in the file. Padding that was loaded is saved.
void save_p010_image_data(const std::string& path, const p010_image_t& image);

/// Writes a 16-byte header (width, height, 4306 and 4277 as 32-bit little-endian words), then all whole pixels. An
/// existing file is replaced.
void save_rgba_image_data(const std::string& path, const rgba_image_t& image);

#pragma GCC visibility pop

#endif // LUMIVERT_RAW_IMAGE_H
