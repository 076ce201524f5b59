/// Raw frames of any size from files of any length: planes as large as the format says, the file's bytes at their
/// front and zeros behind, and the same bytes back after saving.
#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/fuzz.h"
#include "lumivert/raw_image.h"

namespace {

/// One file in memory, which can always be opened: what ends the process where a file cannot is out of reach.
const int g_file = memfd_create("fuzz", MFD_CLOEXEC);
const std::string g_path = "/proc/self/fd/" + std::to_string(g_file);

void write_file(const std::string& bytes) {
    const bool written = ftruncate(g_file, 0) == 0 && pwrite(g_file, bytes.data(), bytes.size(), 0) >= 0;
    fuzz::require(written, "the file holds its bytes");
}

std::string read_file() {
    std::string bytes(static_cast<size_t>(lseek(g_file, 0, SEEK_END)), '\0');
    fuzz::require(pread(g_file, bytes.data(), bytes.size(), 0) >= 0, "the file can be read");
    return bytes;
}

std::string joined(const std::vector<uint8_t>& first, const std::vector<uint8_t>& second = {}) {
    return std::string(first.begin(), first.end()).append(second.begin(), second.end());
}

std::string fitted(std::string bytes, size_t size) {
    bytes.resize(size);
    return bytes;
}

size_t round_up(size_t value, size_t multiple) {
    return (value + multiple - 1) / multiple * multiple;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    const uint32_t width = (data[0] + 256U * data[1]) % 100;
    const uint32_t height = (data[2] + 256U * data[3]) % 100;
    std::string bytes = fuzz::text(data + 4, size - 4);
    const size_t pixels = size_t{width} * height;
    write_file(bytes);
    const nv12_image_t nv12 = load_nv12_image_data(g_path, width, height);
    const rgba_image_t rgba = load_rgba_image_data(g_path, width, height);
    const p010_image_t p010 = load_p010_image_data(g_path, width, height);

    const std::string pairs = fitted(bytes, pixels + pixels / 2 / 2 * 2); // of odd sizes, only whole Cb/Cr pairs
    fuzz::require(joined(nv12.y, nv12.uv) == fitted(pairs, pixels + pixels / 2), "NV12 samples");
    fuzz::require(joined(rgba.data) == fitted(bytes, pixels * 4), "RGBA pixels");
    if (bytes.size() % 2 != 0) bytes += bytes.back(); // half a sample stands for both its bytes
    const size_t luma = round_up(size_t{width} * 2, 16) * round_up(height, 16);
    fuzz::require(p010.y.size() == luma, "P010 luma");
    fuzz::require(joined(p010.y, p010.uv) == fitted(bytes, luma + round_up(luma / 2, 256)), "P010 samples");

    write_file("");
    save_nv12_image_data(g_path, nv12);
    fuzz::require(read_file() == pairs, "NV12 copy");
    save_rgba_image_data(g_path, rgba);
    fuzz::require(read_file().substr(16) == joined(rgba.data), "RGBA copy behind 16 bytes");
    save_p010_image_data(g_path, p010);
    fuzz::require(read_file() == joined(p010.y, p010.uv), "P010 copy");
    return 0;
}
