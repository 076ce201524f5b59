#include "frames/planes.h"

#include <random>

#include "error.h"

namespace lumivert::tool {

Plane::Plane(size_t size, platform::PlaneSource source) : size_(size), memory_(source, (size + 127) / 128 * 128) {
    if (memory_.data() == nullptr) throw system_error("memory for a frame");
}

namespace {

size_t plane_bytes(_Image_ColorFormat format, int index, const Geometry& geometry) {
    const auto& info = info_of(format);
    if (index >= info.planes) return 1;
    return static_cast<size_t>(geometry.pitch) * plane_rows(index, geometry.height) * info.row_bytes;
}

} // namespace

Planes::Planes(_Image_ColorFormat f, const Geometry& geometry, platform::PlaneSource source)
    : format(f), first(plane_bytes(f, 0, geometry), source), second(plane_bytes(f, 1, geometry), source) {}

void fill_with_noise(const Planes& p010) {
    std::minstd_rand random(1);
    for (const Plane* plane : {&p010.first, &p010.second}) {
        auto* words = reinterpret_cast<uint16_t*>(plane->data());
        for (size_t i = 0; i < plane->size() / 2; ++i)
            words[i] = static_cast<uint16_t>((64 + random() % 877) << 6);
    }
}

} // namespace lumivert::tool
