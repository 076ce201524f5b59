#include "imageio/write_plane.h"

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>

namespace lumivert {
namespace {

template <typename Sample>
void write_samples(std::ostream& out, const uint8_t* bytes, size_t count) {
    std::ostreambuf_iterator<char> file(out);
    for (size_t i = 0; i < count; ++i) {
        Sample sample;
        std::memcpy(&sample, bytes + i * sizeof(Sample), sizeof(Sample));
        for (unsigned byte = 0; byte < sizeof(Sample); ++byte)
            *file++ = static_cast<char>(sample >> 8 * byte);
    }
}

} // namespace

void fail(const std::string& message) {
    std::cerr << message;
    std::exit(EXIT_FAILURE);
}

void write_plane(std::ostream& out, unsigned bytes_per_sample, unsigned samples_per_group,
                 const std::vector<uint8_t>& plane) {
    const uint64_t group_size = uint64_t{bytes_per_sample} * samples_per_group;
    if (group_size == 0 || group_size > plane.size()) return;
    const size_t samples = plane.size() / group_size * samples_per_group;
    switch (bytes_per_sample) {
    case 1:
        return write_samples<uint8_t>(out, plane.data(), samples);
    case 2:
        return write_samples<uint16_t>(out, plane.data(), samples);
    case 4:
        return write_samples<uint32_t>(out, plane.data(), samples);
    default:
        fail("Error, can't write " + std::to_string(bytes_per_sample) + " bytes at a time.\n");
    }
}

} // namespace lumivert
