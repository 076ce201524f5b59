// The emulated import of host memory and of descriptors; memfd stands for dma-buf.
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "opencl_test.h"

namespace {

const cl_import_properties_arm dma_buf[] = {CL_IMPORT_TYPE_ARM, CL_IMPORT_TYPE_DMA_BUF_ARM, 0};
const cl_import_properties_arm host[] = {CL_IMPORT_TYPE_ARM, CL_IMPORT_TYPE_HOST_ARM, 0};

/// An anonymous file that /proc/self/maps shows as "plane".
struct Plane {
    explicit Plane(off_t size) : fd(memfd_create("plane", MFD_CLOEXEC)) { EXPECT_EQ(ftruncate(fd, size), 0); }
    Plane(const Plane&) = delete;
    ~Plane() { close(fd); }
    int fd;
};

int mapped_planes() {
    std::ifstream maps("/proc/self/maps");
    int count = 0;
    for (std::string line; std::getline(maps, line);)
        count += line.find("memfd:plane") != std::string::npos;
    return count;
}

} // namespace

class ImportMemory : public OpenClTest {
protected:
    cl_int import_status(int fd, size_t size) {
        cl_int status = 1;
        cl_mem memory = clImportMemoryARM(context, CL_MEM_READ_WRITE, dma_buf, &fd, size, &status);
        EXPECT_EQ(memory != nullptr, status == CL_SUCCESS);
        if (memory) {
            EXPECT_EQ(clReleaseMemObject(memory), CL_SUCCESS);
        }
        return status;
    }
};

TEST_F(ImportMemory, SharesTheCallersMemoryAndOutlivesTheDescriptor) {
    constexpr size_t size = 3 * 4096 + 128;
    int fd = memfd_create("plane", MFD_CLOEXEC);
    ASSERT_EQ(ftruncate(fd, size), 0);
    const int kept = dup(fd);
    cl_mem memory = clImportMemoryARM(context, CL_MEM_READ_WRITE, dma_buf, &fd, size, nullptr);
    ASSERT_TRUE(memory);
    close(fd);

    std::vector<char> written(size, 'w'), read(size);
    ASSERT_EQ(pwrite(kept, written.data(), size, 0), static_cast<ssize_t>(size));
    EXPECT_EQ(clEnqueueReadBuffer(queue, memory, CL_TRUE, 0, size, read.data(), 0, nullptr, nullptr), CL_SUCCESS);
    EXPECT_EQ(read, written);
    written.assign(size, 'v');
    EXPECT_EQ(clEnqueueWriteBuffer(queue, memory, CL_TRUE, 0, size, written.data(), 0, nullptr, nullptr), CL_SUCCESS);
    ASSERT_EQ(pread(kept, read.data(), size, 0), static_cast<ssize_t>(size));
    EXPECT_EQ(read, written);
    EXPECT_EQ(clReleaseMemObject(memory), CL_SUCCESS);
    close(kept);
}

TEST_F(ImportMemory, WrapsHostMemory) {
    alignas(128) static char memory[4096];
    for (const cl_import_properties_arm* properties : {host, host + 2, static_cast<decltype(+host)>(nullptr)}) {
        cl_mem buffer = clImportMemoryARM(context, CL_MEM_READ_WRITE, properties, memory, sizeof(memory), nullptr);
        ASSERT_TRUE(buffer);
        const char value = 'h';
        clEnqueueWriteBuffer(queue, buffer, CL_TRUE, 4095, 1, &value, 0, nullptr, nullptr);
        EXPECT_EQ(memory[4095], 'h');
        memory[4095] = 0;
        clReleaseMemObject(buffer);
    }
}

TEST_F(ImportMemory, ReachesToTheEndOfTheLastPage) {
    const struct {
        off_t object;
        size_t size;
        cl_int expected;
    } cases[] = {
        {100, 128, CL_SUCCESS},         {1, 4096, CL_SUCCESS},       {1, 4097, CL_INVALID_OPERATION},
        {8192, 1, CL_SUCCESS},          {8192, 8192, CL_SUCCESS},    {8192, 8193, CL_INVALID_OPERATION},
        {0, 128, CL_INVALID_OPERATION}, {4096, 0, CL_INVALID_VALUE}, {4096, SIZE_MAX, CL_INVALID_OPERATION},
    };
    for (const auto& [object, size, expected] : cases)
        EXPECT_EQ(import_status(Plane(object).fd, size), expected) << size << " of " << object;
}

TEST_F(ImportMemory, NoticesThatAnObjectChangedItsSize) {
    const Plane plane(8192);
    EXPECT_EQ(import_status(plane.fd, 8192), CL_SUCCESS);
    ASSERT_EQ(ftruncate(plane.fd, 4096), 0);
    EXPECT_EQ(import_status(plane.fd, 8192), CL_INVALID_OPERATION);
    ASSERT_EQ(ftruncate(plane.fd, 16384), 0);
    EXPECT_EQ(import_status(plane.fd, 8192), CL_SUCCESS);
    EXPECT_EQ(import_status(plane.fd, 16384), CL_SUCCESS);
}

TEST_F(ImportMemory, RefusesWhatCannotBeImported) {
    Plane plane(4096);
    const std::string by_path = "/proc/self/fd/" + std::to_string(plane.fd);
    int none = -1, closed = dup(plane.fd), read_only = open(by_path.c_str(), O_RDONLY), ends[2];
    close(closed);
    ASSERT_EQ(pipe(ends), 0);
    void* gone = mmap(nullptr, 8192, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    munmap(static_cast<char*>(gone) + 4096, 4096);
    const cl_import_properties_arm unknown_key[] = {0x4711, 1, 0};
    const cl_import_properties_arm unknown_type[] = {CL_IMPORT_TYPE_ARM, CL_IMPORT_TYPE_PROTECTED_ARM, 0};
    cl_context dead = clCreateContext(nullptr, 1, &device, nullptr, nullptr, nullptr);
    clReleaseContext(dead);

    const struct {
        const char* what;
        cl_context in;
        cl_mem_flags flags;
        const cl_import_properties_arm* properties;
        void* memory;
        size_t size;
        cl_int expected;
    } cases[] = {
        {"null context", nullptr, 1, dma_buf, &plane.fd, 4096, CL_INVALID_CONTEXT},
        {"released context", dead, 1, dma_buf, &plane.fd, 4096, CL_INVALID_CONTEXT},
        {"unknown property", context, 1, unknown_key, &plane.fd, 4096, CL_INVALID_PROPERTY},
        {"unknown type", context, 1, unknown_type, &plane.fd, 4096, CL_INVALID_PROPERTY},
        {"null memory", context, 1, dma_buf, nullptr, 4096, CL_INVALID_VALUE},
        {"flags", context, CL_MEM_COPY_HOST_PTR, dma_buf, &plane.fd, 4096, CL_INVALID_VALUE},
        {"negative descriptor", context, 1, dma_buf, &none, 4096, CL_INVALID_OPERATION},
        {"closed descriptor", context, 1, dma_buf, &closed, 4096, CL_INVALID_OPERATION},
        {"read-only descriptor", context, 1, dma_buf, &read_only, 4096, CL_INVALID_OPERATION},
        {"pipe", context, 1, dma_buf, &ends[0], 4096, CL_INVALID_OPERATION},
        {"host range with a hole", context, 1, host, gone, 8192, CL_INVALID_OPERATION},
        {"host range past the end", context, 1, host, gone, SIZE_MAX, CL_INVALID_OPERATION},
    };
    for (const auto& [what, in, flags, properties, memory, size, expected] : cases) {
        cl_int status = CL_SUCCESS;
        EXPECT_EQ(clImportMemoryARM(in, flags, properties, memory, size, &status), nullptr) << what;
        EXPECT_EQ(status, expected) << what;
    }
    for (int fd : {read_only, ends[0], ends[1]})
        close(fd);
    munmap(gone, 4096);
}

TEST_F(ImportMemory, MapsAPlaneOnceForAllItsFrames) {
    const Plane luma(1 << 20), chroma(1 << 19);
    const int before = mapped_planes();
    for (int frame = 0; frame < 1000; ++frame) {
        ASSERT_EQ(import_status(luma.fd, 1 << 20), CL_SUCCESS);
        ASSERT_EQ(import_status(chroma.fd, 1 << 19), CL_SUCCESS);
        ASSERT_LE(mapped_planes(), before + 2);
    }
}

TEST_F(ImportMemory, KeepsABoundedNumberOfIdleMappings) {
    Plane held(4096);
    cl_mem memory = clImportMemoryARM(context, CL_MEM_READ_WRITE, dma_buf, &held.fd, 4096, nullptr);
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(import_status(Plane(4096).fd, 4096), CL_SUCCESS);
    EXPECT_LE(mapped_planes(), 33);
    EXPECT_GT(mapped_planes(), 1);
    const char value = 'k'; // the one in use is not among those that went
    char seen = 0;
    clEnqueueWriteBuffer(queue, memory, CL_TRUE, 7, 1, &value, 0, nullptr, nullptr);
    EXPECT_EQ(pread(held.fd, &seen, 1, 7), 1);
    EXPECT_EQ(seen, 'k');
    clReleaseMemObject(memory);
}

TEST_F(ImportMemory, MayBeUsedFromSeveralThreads) {
    const Plane shared(8192);
    const auto work = [&](int thread) {
        const Plane own(4096);
        for (int i = 0; i < 100; ++i) {
            int fd = own.fd, both = shared.fd;
            cl_mem mine = clImportMemoryARM(context, CL_MEM_READ_WRITE, dma_buf, &fd, 4096, nullptr);
            cl_mem ours = clImportMemoryARM(context, CL_MEM_READ_WRITE, dma_buf, &both, 8192, nullptr);
            const int value = thread * 1000 + i;
            int seen = -1;
            clEnqueueWriteBuffer(queue, mine, CL_TRUE, 0, sizeof(value), &value, 0, nullptr, nullptr);
            EXPECT_EQ(pread(own.fd, &seen, sizeof(seen), 0), static_cast<ssize_t>(sizeof(seen)));
            EXPECT_EQ(seen, value);
            EXPECT_EQ(clReleaseMemObject(mine), CL_SUCCESS);
            EXPECT_EQ(clReleaseMemObject(ours), CL_SUCCESS);
        }
    };
    std::thread threads[] = {std::thread(work, 1), std::thread(work, 2), std::thread(work, 3)};
    for (std::thread& thread : threads)
        thread.join();
}
