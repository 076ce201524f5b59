#include "mappings.h"

#include <algorithm>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lumivert::platform {
namespace {

size_t whole_pages(size_t size) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return (size + page - 1) / page * page;
}

} // namespace

Mappings::Mapping* Mappings::acquire(int fd, size_t size) {
    // Check the descriptor's access here: mmap does not see it if a kept mapping is used.
    struct stat object {};
    if ((fcntl(fd, F_GETFL) & O_ACCMODE) != O_RDWR || fstat(fd, &object) != 0) return nullptr;
    // Check the size on every import: if the object shrank since it was mapped, the first access would end the process.
    if (size > whole_pages(static_cast<size_t>(object.st_size))) return nullptr;
    const size_t length = whole_pages(size);

    const std::lock_guard lock(mutex_);
    const auto known = std::find_if(mappings_.begin(), mappings_.end(), [&](const Mapping& mapping) {
        return mapping.device == object.st_dev && mapping.inode == object.st_ino && mapping.length == length;
    });
    if (known != mappings_.end()) {
        ++known->users;
        return &*known;
    }
    void* address = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (address == MAP_FAILED) return nullptr;
    return &mappings_.emplace_front(Mapping{object.st_dev, object.st_ino, length, address, 1});
}

void Mappings::let_go(Mapping* mapping) {
    const std::lock_guard lock(mutex_);
    if (--mapping->users > 0) return;
    const auto is_it = [&](const Mapping& other) { return &other == mapping; };
    mappings_.splice(mappings_.begin(), mappings_, std::find_if(mappings_.begin(), mappings_.end(), is_it));

    const auto idle = [](const Mapping& other) { return other.users == 0; };
    if (std::count_if(mappings_.begin(), mappings_.end(), idle) <= kIdleLimit) return;
    const auto oldest = std::prev(std::find_if(mappings_.rbegin(), mappings_.rend(), idle).base());
    munmap(oldest->address, oldest->length);
    mappings_.erase(oldest);
}

} // namespace lumivert::platform
