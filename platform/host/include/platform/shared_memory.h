/// Memory with a descriptor, as planes have it: on a workstation an anonymous file takes the place of a dma-buf.
#pragma once

#include <cstddef>
#include <cstdint>

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace lumivert::platform {

class SharedMemory {
public:
    /// `size` bytes, all 0. On failure `data()` is null and errno tells why.
    explicit SharedMemory(std::size_t size) : size_(size) {
        const android::base::unique_fd fd(memfd_create("plane", MFD_CLOEXEC));
        // The library takes descriptors above 0 only, and 0 is free where standard input is closed.
        fd_.reset(fcntl(fd.get(), F_DUPFD_CLOEXEC, 3));
        if (fd_ < 0 || ftruncate(fd_.get(), static_cast<off_t>(size)) != 0 || size == 0) return;
        void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd_.get(), 0);
        if (memory != MAP_FAILED) data_ = static_cast<std::uint8_t*>(memory);
    }
    ~SharedMemory() {
        if (data_ != nullptr) munmap(data_, size_);
    }
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    std::uint8_t* data() const { return data_; }
    std::size_t size() const { return size_; }
    int descriptor() const { return fd_.get(); }

private:
    std::size_t size_;
    android::base::unique_fd fd_;
    std::uint8_t* data_ = nullptr;
};

} // namespace lumivert::platform
