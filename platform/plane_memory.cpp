#include "platform/plane_memory.h"

#include <algorithm>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

// The kernel's interfaces are written out here: the headers of older systems lack one or the other.
namespace lumivert::platform {
namespace {

// ---- <linux/dma-heap.h> ----

struct DmaHeapAllocation {
    uint64_t length;
    uint32_t fd, fd_flags;
    uint64_t heap_flags;
};
constexpr unsigned long kDmaHeapAllocate = _IOWR('H', 0, DmaHeapAllocation);

// ---- <linux/dma-buf.h> ----

struct DmaBufSync {
    uint64_t flags;
};
constexpr unsigned long kDmaBufSync = _IOW('b', 0, DmaBufSync);
constexpr uint64_t kSyncReadWrite = 3;
constexpr uint64_t kSyncEnd = 4;

// ---- <linux/udmabuf.h> ----

struct UdmabufCreation {
    uint32_t memfd, flags;
    uint64_t offset, size;
};
constexpr unsigned long kUdmabufCreate = _IOW('u', 0x42, UdmabufCreation);

// ---- ion, as of kernel 4.12: heaps can be asked for, an allocation is a descriptor ----

struct IonHeap {
    char name[32];
    uint32_t type, id, reserved[3];
};
struct IonHeapQuery {
    uint32_t count, reserved0;
    uint64_t heaps;
    uint32_t reserved[2];
};
struct IonAllocation {
    uint64_t length;
    uint32_t heap_mask, flags, fd, unused;
};
constexpr unsigned long kIonAllocate = _IOWR('I', 0, IonAllocation);
constexpr unsigned long kIonHeapQuery = _IOWR('I', 8, IonHeapQuery);
constexpr uint32_t kIonSystemHeap = 0;

// ---- ion before that: an allocation is a handle, which is shared and freed ----

struct OldIonAllocation {
    size_t length, alignment;
    uint32_t heap_mask, flags;
    int handle;
};
struct OldIonShare {
    int handle, fd;
};
struct OldIonHandle {
    int handle;
};
constexpr unsigned long kOldIonAllocate = _IOWR('I', 0, OldIonAllocation);
constexpr unsigned long kOldIonFree = _IOWR('I', 1, OldIonHandle);
constexpr unsigned long kOldIonShare = _IOWR('I', 4, OldIonShare);

/// The system heap's bit: the generic one, and the one of a vendor that numbers heaps on its own.
constexpr uint32_t kOldIonHeapMasks[] = {1U << 0, 1U << 25};

int from_dma_heap(size_t size) {
    const int heap = open("/dev/dma_heap/system", O_RDONLY | O_CLOEXEC);
    if (heap < 0) return -1;
    DmaHeapAllocation allocation = {size, 0, O_RDWR | O_CLOEXEC, 0};
    const bool allocated = ioctl(heap, kDmaHeapAllocate, &allocation) == 0;
    close(heap);
    return allocated ? static_cast<int>(allocation.fd) : -1;
}

int from_new_ion(int ion, size_t size) {
    IonHeap heaps[32] = {};
    IonHeapQuery query = {32, 0, reinterpret_cast<uintptr_t>(heaps), {}};
    if (ioctl(ion, kIonHeapQuery, &query) != 0) return -1;
    for (uint32_t i = 0; i < std::min<uint32_t>(query.count, 32); ++i) {
        if (heaps[i].type != kIonSystemHeap) continue;
        IonAllocation allocation = {size, 1U << heaps[i].id, 0, 0, 0};
        if (ioctl(ion, kIonAllocate, &allocation) == 0) return static_cast<int>(allocation.fd);
    }
    return -1;
}

int from_old_ion(int ion, size_t size) {
    for (const uint32_t mask : kOldIonHeapMasks) {
        OldIonAllocation allocation = {size, 4096, mask, 0, 0};
        if (ioctl(ion, kOldIonAllocate, &allocation) != 0) continue;
        OldIonShare share = {allocation.handle, -1};
        const bool shared = ioctl(ion, kOldIonShare, &share) == 0;
        OldIonHandle handle = {allocation.handle};
        ioctl(ion, kOldIonFree, &handle); // the descriptor keeps the memory
        if (shared) return share.fd;
    }
    return -1;
}

int from_ion(size_t size) {
    const int ion = open("/dev/ion", O_RDONLY | O_CLOEXEC);
    if (ion < 0) return -1;
    int fd = from_new_ion(ion, size);
    if (fd < 0) fd = from_old_ion(ion, size);
    close(ion);
    return fd;
}

/// An anonymous memory file. Called by number: the C libraries of older Android have no function for it.
int from_shared_memory(size_t size) {
    constexpr unsigned kCloseOnExec = 1;
    constexpr unsigned kAllowSealing = 2;
    const int fd = static_cast<int>(syscall(SYS_memfd_create, "lumivert-plane", kCloseOnExec | kAllowSealing));
    if (fd >= 0 && ftruncate(fd, static_cast<off_t>(size)) == 0) return fd;
    if (fd >= 0) close(fd);
    return -1;
}

int from_udmabuf(size_t size) {
    constexpr int kAddSeals = 1033;
    constexpr int kNoShrinking = 2;
    const int device = open("/dev/udmabuf", O_RDWR | O_CLOEXEC);
    if (device < 0) return -1;
    int fd = -1;
    const int memory = from_shared_memory(size);
    if (memory >= 0 && fcntl(memory, kAddSeals, kNoShrinking) == 0) {
        UdmabufCreation creation = {static_cast<uint32_t>(memory), 1, 0, size}; // 1: close on exec
        fd = ioctl(device, kUdmabufCreate, &creation);
    }
    if (memory >= 0) close(memory);
    close(device);
    return fd;
}

struct Source {
    const char* name;
    bool gives_dma_bufs;
    int (*allocate)(size_t size);
};
constexpr Source kSources[] = {{"/dev/dma_heap/system", true, from_dma_heap},
                               {"/dev/ion", true, from_ion},
                               {"/dev/udmabuf", true, from_udmabuf},
                               {"shared memory", false, from_shared_memory}};

const Source& details(PlaneSource source) {
    return kSources[static_cast<int>(source)];
}

size_t whole_pages(size_t size) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return (size + page - 1) / page * page;
}

} // namespace

const char* name_of(PlaneSource source) {
    return details(source).name;
}

PlaneSource best_source(bool driver_imports_dma_bufs) {
    for (const auto source : {PlaneSource::kDmaHeap, PlaneSource::kIon, PlaneSource::kUdmabuf})
        if (driver_imports_dma_bufs && PlaneMemory(source, 1).data() != nullptr) return source;
    return PlaneSource::kSharedMemory;
}

PlaneMemory::PlaneMemory(PlaneSource source, size_t size)
    : is_dma_buf_(details(source).gives_dma_bufs), mapped_(whole_pages(size)) {
    const int fd = details(source).allocate(mapped_);
    if (fd < 0) return;
    fd_ = fcntl(fd, F_DUPFD_CLOEXEC, 3); // above 0 even where standard input is closed
    close(fd);
    if (fd_ < 0) return;
    void* const memory = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    if (memory != MAP_FAILED) data_ = static_cast<uint8_t*>(memory);
}

PlaneMemory::~PlaneMemory() {
    if (data_ != nullptr) munmap(data_, mapped_);
    if (fd_ >= 0) close(fd_);
}

void PlaneMemory::begin_access() const {
    DmaBufSync sync = {kSyncReadWrite};
    if (is_dma_buf_) ioctl(fd_, kDmaBufSync, &sync);
}

void PlaneMemory::end_access() const {
    DmaBufSync sync = {kSyncReadWrite | kSyncEnd};
    if (is_dma_buf_) ioctl(fd_, kDmaBufSync, &sync);
}

} // namespace lumivert::platform
