/// Headerless raw frames in memory and in files: NV12, P010 and RGBA. Debugging aids; no conversion uses them.
///
/// **These functions end the process** (status 1, one line on the standard error stream) when a file cannot be
/// opened. A file that is too short is not an error: what is missing reads as zero. Write errors after a successful
/// open go unnoticed. Two threads must not write one path at once.
#ifndef LUMIVERT_RAW_IMAGE_H
#define LUMIVERT_RAW_IMAGE_H

#include <cstdint>
#include <string>
#include <vector>

/// A 4:2:0 frame that owns its planes. `uv` interleaves Cb and Cr.
struct yuv_image_t {
    uint32_t width;  ///< pixels
    uint32_t height; ///< rows
    std::vector<uint8_t> y;
    std::vector<uint8_t> uv;
};

/// Bytes: `y` width x height, `uv` half of that.
struct nv12_image_t : yuv_image_t {};

/// 16-bit samples in the machine's byte order, two bytes each, 10-bit code in the upper bits.
struct p010_image_t : yuv_image_t {};

/// Four bytes per pixel, R, G, B, A, rows without padding.
struct rgba_image_t {
    uint32_t width;  ///< pixels
    uint32_t height; ///< rows
    std::vector<uint8_t> data;
};

#pragma GCC visibility push(default)

/// Reads width x height luma bytes, then half as many chroma bytes (rounded down, whole Cb/Cr pairs).
nv12_image_t load_nv12_image_data(const std::string& path, uint32_t width, uint32_t height);

/// The same for a 3840 x 2160 frame.
nv12_image_t load_nv12_image_data(const std::string& path);

/// Reads a frame in the decoder's padded layout: a luma pitch of 2 x width bytes rounded up to 16, a row count rounded
/// up to 16, and a chroma plane of half as many rows rounded up to 256 bytes in all. Samples are little-endian words;
/// the arrays keep the padding. A sample cut in half by the end of the file takes its low byte for both.
p010_image_t load_p010_image_data(const std::string& path, uint32_t width, uint32_t height);

/// Reads width x height pixels of four bytes; expects no header, so a file from `save_rgba_image_data` comes back
/// shifted by that function's 16 bytes.
rgba_image_t load_rgba_image_data(const std::string& path, uint32_t width, uint32_t height);

/// Writes all of `y`, then all of `uv` in whole pairs. The file is replaced.
void save_nv12_image_data(const std::string& path, const nv12_image_t& image);

/// The same with 16-bit samples, little-endian; padding that was loaded is saved.
void save_p010_image_data(const std::string& path, const p010_image_t& image);

/// Writes a 16-byte header (width, height, 4306, 4277 as 32-bit little-endian), then the pixels. The file is replaced.
void save_rgba_image_data(const std::string& path, const rgba_image_t& image);

#pragma GCC visibility pop

#endif // LUMIVERT_RAW_IMAGE_H
