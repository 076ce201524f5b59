/// The planes of a frame as a codec passes them to the library: memory with a descriptor, which the converter imports
/// without copying.
#pragma once

#include <cstddef>
#include <cstdint>

#include <platform/plane_memory.h>

#include "frames/picture.h"

namespace lumivert::tool {

class Plane {
public:
    /// `size` bytes. The memory extends to the next multiple of 128, because imports come in that unit.
    Plane(size_t size, platform::PlaneSource source);

    uint8_t* data() const { return memory_.data(); }
    size_t size() const { return size_; }
    /// From the first to the second call the device has the plane, otherwise the tool.
    void pass_to_device() const { memory_.end_access(); }
    void take_back() const { memory_.begin_access(); }
    _MULTIPLANE_t descriptor() const { return {memory_.descriptor(), 0, static_cast<int32_t>(size_)}; }

private:
    size_t size_;
    platform::PlaneMemory memory_;
};

/// The two planes of a frame in one of the converter's formats. RGBA uses only the first; the converter still wants a
/// descriptor for the second.
struct Planes {
    _Image_ColorFormat format;
    Plane first, second;

    Planes(_Image_ColorFormat f, const Geometry& geometry,
           platform::PlaneSource source = platform::PlaneSource::kSharedMemory);
    void pass_to_device() const { first.pass_to_device(), second.pass_to_device(); }
    void take_back() const { first.take_back(), second.take_back(); }
    _HDR2SDR_config_params_t params() const { return {format, {first.descriptor(), second.descriptor()}}; }
};

/// Random samples of the limited range, the same in each run: input for measurements, because a GPU may run faster on
/// uniform frames.
void fill_with_noise(const Planes& p010);

} // namespace lumivert::tool
