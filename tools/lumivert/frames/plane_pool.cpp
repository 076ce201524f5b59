#include "frames/plane_pool.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "error.h"

namespace lumivert::tool {

Plane::Plane(size_t size) : size_(size), mapped_((size + 127) / 128 * 128) {
    const int fd = memfd_create("lumivert-plane", MFD_CLOEXEC);
    if (fd < 0) throw system_error("frame memory");
    // Descriptors must be above 0, which memfd_create gives out when standard input is closed.
    fd_ = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    close(fd);
    if (fd_ < 0 || ftruncate(fd_, static_cast<off_t>(mapped_)) != 0) throw system_error("frame memory");
    void* memory = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    if (memory == MAP_FAILED) throw system_error("frame memory");
    data_ = static_cast<uint8_t*>(memory);
}

Plane::~Plane() {
    munmap(data_, mapped_);
    close(fd_);
}

namespace {

size_t plane_bytes(_Image_ColorFormat format, int index, const Geometry& geometry) {
    const auto& info = info_of(format);
    if (index >= info.planes) return 1;
    return static_cast<size_t>(geometry.pitch) * plane_rows(index, geometry.height) * info.row_bytes;
}

} // namespace

Planes::Planes(_Image_ColorFormat f, const Geometry& geometry)
    : format(f), first(plane_bytes(f, 0, geometry)), second(plane_bytes(f, 1, geometry)) {}

} // namespace lumivert::tool
