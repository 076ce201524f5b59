#include "planes.h"

#include <algorithm>
#include <cstring>

#include "reference/frames.h"

namespace lumivert::check {
namespace {

size_t plane_bytes(_Image_ColorFormat format, int index, int width, int height) {
    const size_t luma = reference::luma_samples(width, height);
    const size_t chroma = reference::chroma_samples(width, height);
    if (format == RGBA) return index == 0 ? luma * 4 : 128;
    return (index == 0 ? luma : chroma) * (format == P010_LINEAR ? 2 : 1);
}

} // namespace

Plane::Plane(PlaneSource source, size_t bytes) : bytes_(bytes), memory_(source, bytes) {}

void Plane::write(const void* samples, size_t count) {
    memory_.begin_access();
    std::memcpy(memory_.data(), samples, std::min(count, bytes_));
    memory_.end_access();
}

void Plane::fill(uint8_t value) {
    memory_.begin_access();
    std::memset(memory_.data(), value, bytes_);
    memory_.end_access();
}

void Plane::read_into(void* samples, size_t count) const {
    memory_.begin_access();
    std::memcpy(samples, memory_.data(), count);
    memory_.end_access();
}

Planes::Planes(PlaneSource source, _Image_ColorFormat f, int width, int height)
    : format(f), first(source, plane_bytes(f, 0, width, height)), second(source, plane_bytes(f, 1, width, height)) {}

void Planes::fill(uint8_t value) {
    first.fill(value);
    second.fill(value);
}

} // namespace lumivert::check
