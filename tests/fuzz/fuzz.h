/// What the fuzz targets share. Each target is one LLVMFuzzerTestOneInput, libFuzzer's interface; a broken property
/// ends the process, which libFuzzer takes for a find.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

inline void require(bool holds, const char* property) {
    if (holds) return;
    std::fprintf(stderr, "broken: %s\n", property);
    std::abort();
}

/// The input, taken piece by piece from the front; bytes past its end read as zero.
class Input {
public:
    Input(const uint8_t* data, size_t size) : mData(data), mSize(size) {}

    template <typename T>
    T take() {
        T value{};
        const size_t taken = std::min(sizeof(T), mSize);
        if (taken > 0) std::memcpy(&value, mData, taken);
        mData += taken;
        mSize -= taken;
        return value;
    }
    std::string rest() const { return {reinterpret_cast<const char*>(mData), mSize}; }

private:
    const uint8_t* mData;
    size_t mSize;
};

/// A file in memory. `path()` can always be opened: what ends the process where a file cannot is out of reach.
class MemoryFile {
public:
    explicit MemoryFile(const std::string& bytes = "") : mFd(memfd_create("fuzz", MFD_CLOEXEC)) {
        require(write(mFd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
                "the file holds its bytes");
    }
    ~MemoryFile() { close(mFd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(mFd); }
    std::string bytes() const {
        std::string all(static_cast<size_t>(lseek(mFd, 0, SEEK_END)), '\0');
        require(pread(mFd, all.data(), all.size(), 0) == static_cast<ssize_t>(all.size()), "the file can be read");
        return all;
    }

private:
    int mFd;
};

} // namespace fuzz
