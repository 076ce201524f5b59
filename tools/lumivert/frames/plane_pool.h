/// Planes as a codec hands them on: memory with a descriptor, which the converter imports without copying.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frames/picture.h"

namespace lumivert::tool {

/// An anonymous memory file, mapped.
class Plane {
public:
    /// `size` bytes; the memory reaches to the next multiple of 128, which is what an import covers.
    explicit Plane(size_t size);
    ~Plane();
    Plane(const Plane&) = delete;
    Plane& operator=(const Plane&) = delete;

    uint8_t* data() const { return data_; }
    _MULTIPLANE_t descriptor() const { return {fd_, 0, static_cast<int32_t>(size_)}; }

private:
    size_t size_, mapped_;
    int fd_;
    uint8_t* data_;
};

/// The two planes of a frame in one of the converter's formats. RGBA has one; the other is there for its descriptor.
struct Planes {
    _Image_ColorFormat format;
    Plane first, second;

    Planes(_Image_ColorFormat f, const Geometry& geometry);
    _HDR2SDR_config_params_t params() const { return {format, {first.descriptor(), second.descriptor()}}; }
};

} // namespace lumivert::tool
