#include "lumivert/raw_image.h"

#include <cstring>
#include <fstream>

#include "imageio/write_plane.h"

using lumivert::fail;
using lumivert::write_plane;

namespace {

std::ifstream open_for_reading(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) fail("Can't open " + path + " for reading\n");
    return file;
}

std::ofstream open_for_writing(const std::string& path) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) fail("Can't open " + path + " for writing.\n");
    return file;
}

size_t round_up(size_t value, size_t multiple) {
    return (value + multiple - 1) / multiple * multiple;
}

size_t pixel_count(uint32_t width, uint32_t height) {
    return size_t{width} * height;
}

/// Reads the next `size` bytes of the file; bytes past its end are left alone. Returns how many were read.
size_t read_into(std::istream& file, std::vector<uint8_t>& bytes, size_t size) {
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size));
    return static_cast<size_t>(file.gcount());
}

/// Reads the next `size` bytes of the file, an even number, as little-endian 16-bit samples and returns them in the
/// machine's byte order. What is missing is zero.
std::vector<uint8_t> read_samples(std::istream& file, size_t size) {
    std::vector<uint8_t> bytes(size);
    const size_t available = read_into(file, bytes, size);
    if (available % 2 != 0) // on purpose: the low byte of an incomplete sample is used for both
        bytes[available] = bytes[available - 1];
    for (size_t i = 0; i < size; i += 2) {
        const auto sample = static_cast<uint16_t>(bytes[i] | bytes[i + 1] << 8);
        std::memcpy(&bytes[i], &sample, sizeof sample);
    }
    return bytes;
}

void save_yuv_file_internal(const std::string& path, const yuv_image_t& image, unsigned bytes_per_sample) {
    std::ofstream file = open_for_writing(path);
    write_plane(file, bytes_per_sample, 1, image.y);
    write_plane(file, bytes_per_sample, 2, image.uv);
}

} // namespace

nv12_image_t load_nv12_image_data(const std::string& path, uint32_t width, uint32_t height) {
    std::ifstream file = open_for_reading(path);
    nv12_image_t image{{width, height, {}, {}}};
    image.y.resize(pixel_count(width, height));
    image.uv.resize(image.y.size() / 2);
    read_into(file, image.y, image.y.size());
    read_into(file, image.uv, image.uv.size() / 2 * 2);
    return image;
}

nv12_image_t load_nv12_image_data(const std::string& path) {
    return load_nv12_image_data(path, 3840, 2160);
}

p010_image_t load_p010_image_data(const std::string& path, uint32_t width, uint32_t height) {
    std::ifstream file = open_for_reading(path);
    const size_t pitch = round_up(size_t{width} * 2, 16);
    const size_t rows = round_up(height, 16);
    p010_image_t image{{width, height, {}, {}}};
    image.y = read_samples(file, pitch * rows);
    image.uv = read_samples(file, round_up(pitch * (rows / 2), 256));
    return image;
}

rgba_image_t load_rgba_image_data(const std::string& path, uint32_t width, uint32_t height) {
    std::ifstream file = open_for_reading(path);
    rgba_image_t image{width, height, std::vector<uint8_t>(pixel_count(width, height) * 4)};
    read_into(file, image.data, image.data.size());
    return image;
}

void save_nv12_image_data(const std::string& path, const nv12_image_t& image) {
    save_yuv_file_internal(path, image, 1);
}

void save_p010_image_data(const std::string& path, const p010_image_t& image) {
    save_yuv_file_internal(path, image, 2);
}

void save_rgba_image_data(const std::string& path, const rgba_image_t& image) {
    std::ofstream file = open_for_writing(path);
    const uint32_t header[] = {image.width, image.height, 4306, 4277};
    const auto* bytes = reinterpret_cast<const uint8_t*>(header);
    write_plane(file, 4, 1, {bytes, bytes + sizeof header});
    write_plane(file, 1, 4, image.data);
}
