/// Raw frames of any size from files of any length: planes as large as the format says, the file's bytes at their
/// front and zeros behind, and the same bytes back after saving.
#include "fuzz/fuzz.h"
#include "lumivert/raw_image.h"

namespace {

using Bytes = std::vector<uint8_t>;

size_t round_up(size_t value, size_t multiple) {
    return (value + multiple - 1) / multiple * multiple;
}

/// What a reader of `planes` should have made of `file`: the bytes one after the other, then zeros.
bool holds(const std::string& file, std::initializer_list<const Bytes*> planes) {
    size_t offset = 0;
    for (const Bytes* plane : planes) {
        for (const uint8_t byte : *plane) {
            const uint8_t expected = offset < file.size() ? static_cast<uint8_t>(file[offset]) : 0;
            if (byte != expected) return false;
            ++offset;
        }
    }
    return true;
}

std::string joined(std::initializer_list<const Bytes*> planes) {
    std::string all;
    for (const Bytes* plane : planes)
        all.append(plane->begin(), plane->end());
    return all;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    const uint32_t width = input.take<uint16_t>() % 100;
    const uint32_t height = input.take<uint16_t>() % 100;
    std::string bytes = input.rest();
    const fuzz::MemoryFile file(bytes);
    const size_t pixels = size_t{width} * height;

    const nv12_image_t nv12 = load_nv12_image_data(file.path(), width, height);
    fuzz::require(nv12.y.size() == pixels && nv12.uv.size() == pixels / 2, "NV12 planes");
    std::string whole_pairs = bytes.substr(0, pixels + pixels / 2 / 2 * 2);
    fuzz::require(holds(whole_pairs, {&nv12.y, &nv12.uv}), "NV12 samples");
    const fuzz::MemoryFile nv12_copy;
    save_nv12_image_data(nv12_copy.path(), nv12);
    fuzz::require(nv12_copy.bytes() == joined({&nv12.y, &nv12.uv}).substr(0, pixels + pixels / 2 / 2 * 2), "NV12 copy");

    const rgba_image_t rgba = load_rgba_image_data(file.path(), width, height);
    fuzz::require(rgba.data.size() == pixels * 4 && holds(bytes, {&rgba.data}), "RGBA pixels");
    const fuzz::MemoryFile rgba_copy;
    save_rgba_image_data(rgba_copy.path(), rgba);
    fuzz::require(rgba_copy.bytes().substr(16) == joined({&rgba.data}), "RGBA copy behind 16 bytes");

    const p010_image_t p010 = load_p010_image_data(file.path(), width, height);
    const size_t luma = round_up(size_t{width} * 2, 16) * round_up(height, 16);
    fuzz::require(p010.y.size() == luma && p010.uv.size() == round_up(luma / 2, 256), "P010 planes");
    if (bytes.size() % 2 != 0) bytes += bytes.back(); // half a sample stands for both its bytes
    fuzz::require(holds(bytes, {&p010.y, &p010.uv}), "P010 samples");
    const fuzz::MemoryFile p010_copy;
    save_p010_image_data(p010_copy.path(), p010);
    fuzz::require(p010_copy.bytes() == joined({&p010.y, &p010.uv}), "P010 copy");
    return 0;
}
