/// Planes as a codec hands them on: memory with a descriptor, from what the system has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "lumivert/converter.h"
#include "platform/plane_memory.h"

namespace lumivert::check {

using platform::PlaneSource;

/// One plane of `bytes` bytes; its memory reaches at least to the next multiple of 128, which is what an import covers.
class Plane {
public:
    Plane(PlaneSource source, size_t bytes);

    bool valid() const { return memory_.data() != nullptr; }
    _MULTIPLANE_t descriptor() const { return {memory_.descriptor(), 0, static_cast<int32_t>(bytes_)}; }
    size_t bytes() const { return bytes_; }

    void write(const void* samples, size_t count);
    void fill(uint8_t value);
    template <typename Sample>
    std::vector<Sample> read() const {
        std::vector<Sample> samples(bytes_ / sizeof(Sample));
        read_into(samples.data(), samples.size() * sizeof(Sample));
        return samples;
    }

private:
    void read_into(void* samples, size_t count) const;

    size_t bytes_;
    platform::PlaneMemory memory_;
};

/// The two planes of a frame, allocated for whole blocks. RGBA has one; the second is there for its descriptor.
struct Planes {
    Planes(PlaneSource source, _Image_ColorFormat f, int width, int height);
    bool valid() const { return first.valid() && second.valid(); }
    void fill(uint8_t value);
    _HDR2SDR_config_params_t params() const { return {format, {first.descriptor(), second.descriptor()}}; }

    _Image_ColorFormat format;
    Plane first, second;
};

} // namespace lumivert::check
