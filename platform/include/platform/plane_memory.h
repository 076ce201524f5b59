/// Memory with a descriptor, as planes have it: a dma-buf from what the system has, or an anonymous file in its place.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lumivert::platform {

/// Where planes come from. The first three give dma-bufs.
enum class PlaneSource { kDmaHeap, kIon, kUdmabuf, kSharedMemory };

const char* name_of(PlaneSource source);

/// The first source that works here. A driver that imports dma-bufs itself gets them; for others the platform maps
/// shared memory.
PlaneSource best_source(bool driver_imports_dma_bufs);

class PlaneMemory {
public:
    /// At least `size` bytes, rounded up to whole pages. On failure `data()` is null and errno tells why.
    PlaneMemory(PlaneSource source, size_t size);
    ~PlaneMemory();
    PlaneMemory(const PlaneMemory&) = delete;
    PlaneMemory& operator=(const PlaneMemory&) = delete;

    uint8_t* data() const { return data_; }
    int descriptor() const { return fd_; }

    /// The processor reads and writes a dma-buf between these two, the device outside of them.
    void begin_access() const;
    void end_access() const;

private:
    bool is_dma_buf_;
    size_t mapped_;
    int fd_ = -1;
    uint8_t* data_ = nullptr;
};

} // namespace lumivert::platform
