/// Shared mappings of descriptors, for the emulated import of dma-bufs.
///
/// Mapping and unmapping a plane for every frame, with a page fault for every page, costs more than converting it.
/// Mappings are therefore kept: when an import is released, its mapping stays until `kIdleLimit` others were released
/// after it. An import of the same object, under whatever descriptor, finds the mapping again. A kept mapping also
/// keeps the object's memory after the caller has closed it, and its inode number, so that no other object can be given
/// that number in the meantime.
#pragma once

#include <cstddef>
#include <list>
#include <mutex>

#include <sys/types.h>

namespace lumivert::platform {

/// May be used from any thread.
class Mappings {
public:
    struct Mapping {
        dev_t device;
        ino_t inode;
        size_t length; ///< whole pages
        void* address;
        int users; ///< number of imports; 0: kept, but not in use
    };

    static constexpr int kIdleLimit = 32;

    /// Maps the first `size` bytes of the object behind `fd`, for reading and writing. Each call needs one call of
    /// `let_go`. Null if the descriptor is not open for both, or if the object ends before the page of the last byte.
    Mapping* acquire(int fd, size_t size);
    void let_go(Mapping* mapping);

private:
    std::mutex mutex_;
    std::list<Mapping> mappings_; // most recently released first
};

} // namespace lumivert::platform
