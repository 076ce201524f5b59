/// Shared mappings of descriptors, for the emulated import of dma-bufs.
///
/// Mapping and unmapping a plane for every frame, with a page fault for every page of it, costs more than converting
/// it. A mapping therefore outlives its import: the `idle_limit` mappings that were let go last stay in place, and an
/// import of the same object finds its mapping again, whatever descriptor names the object by then. A kept mapping
/// also keeps the object's memory, after the caller has closed it, until 32 other mappings were let go. It keeps the
/// inode number as well, so that number cannot come to mean another object meanwhile.
#pragma once

#include <cstddef>
#include <list>
#include <mutex>

#include <sys/types.h>

namespace lumivert::platform {

/// Any thread may call.
class Mappings {
public:
    struct Mapping {
        dev_t device;
        ino_t inode;
        size_t length; ///< whole pages
        void* address;
        int users; ///< 0: idle
    };

    static constexpr int kIdleLimit = 32;

    /// The first `size` bytes of what `fd` names, readable and writable, until as many calls of `let_go`. Null when
    /// the descriptor does not allow that or the object ends before the page of the last byte.
    Mapping* acquire(int fd, size_t size);
    void let_go(Mapping* mapping);

private:
    std::mutex mutex_;
    std::list<Mapping> mappings_; // the one let go last first
};

} // namespace lumivert::platform
