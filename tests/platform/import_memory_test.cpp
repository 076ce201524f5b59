// The emulated import of host memory and of descriptors; memfd stands for dma-buf.
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "opencl_test.h"
#include "support/host.h"

namespace {

const cl_import_properties_arm kDmaBuf[] = {CL_IMPORT_TYPE_ARM, CL_IMPORT_TYPE_DMA_BUF_ARM, 0};
const cl_import_properties_arm kHost[] = {CL_IMPORT_TYPE_ARM, CL_IMPORT_TYPE_HOST_ARM, 0};

} // namespace

class ImportMemory : public OpenClTest {
protected:
    cl_mem import(int fd, size_t size, cl_int* status = nullptr) {
        return clImportMemoryARM(context, CL_MEM_READ_WRITE, kDmaBuf, &fd, size, status);
    }

    cl_int import_status(int fd, size_t size) {
        cl_int status = 1;
        cl_mem memory = import(fd, size, &status);
        EXPECT_EQ(memory != nullptr, status == CL_SUCCESS);
        if (memory) clEnqueueWriteBuffer(queue, memory, CL_TRUE, size - 1, 1, "w", 0, nullptr, nullptr);
        EXPECT_EQ(clReleaseMemObject(memory), memory ? CL_SUCCESS : CL_INVALID_MEM_OBJECT);
        return status;
    }

    /// Expects the device to see what the descriptor's other users write, and they what it writes.
    void expect_shared(cl_mem memory, int fd, size_t size) {
        char written = 'w', read = 0;
        EXPECT_EQ(pwrite(fd, &written, 1, 0), 1);
        EXPECT_EQ(clEnqueueReadBuffer(queue, memory, CL_TRUE, 0, 1, &read, 0, nullptr, nullptr), CL_SUCCESS);
        EXPECT_EQ(read, 'w');
        written = 'v';
        EXPECT_EQ(clEnqueueWriteBuffer(queue, memory, CL_TRUE, size - 1, 1, &written, 0, nullptr, nullptr), CL_SUCCESS);
        EXPECT_EQ(pread(fd, &read, 1, size - 1), 1);
        EXPECT_EQ(read, 'v');
    }
};

TEST_F(ImportMemory, SharesTheCallersMemoryAndOutlivesTheDescriptor) {
    constexpr size_t kSize = 3 * 4096 + 128;
    const Plane plane(kSize);
    const int closed = dup(plane.descriptor());
    cl_mem memory = import(closed, kSize);
    close(closed);
    expect_shared(memory, plane.descriptor(), kSize);
    EXPECT_EQ(clReleaseMemObject(memory), CL_SUCCESS);
}

TEST_F(ImportMemory, WrapsHostMemory) {
    alignas(128) char memory[4096];
    for (const cl_import_properties_arm* properties : {kHost, kHost + 2, static_cast<decltype(+kHost)>(nullptr)}) {
        memory[4095] = 0;
        cl_mem buffer = clImportMemoryARM(context, CL_MEM_READ_WRITE, properties, memory, sizeof(memory), nullptr);
        clEnqueueWriteBuffer(queue, buffer, CL_TRUE, 4095, 1, "h", 0, nullptr, nullptr);
        EXPECT_EQ(memory[4095], 'h');
        clReleaseMemObject(buffer);
    }
}

TEST_F(ImportMemory, ReachesToTheEndOfTheLastPageAtThatTime) {
    const Plane plane(4096);
    const struct {
        off_t object;
        size_t size;
        cl_int expected;
    } cases[] = {
        {100, 128, CL_SUCCESS},         {1, 4096, CL_SUCCESS},       {1, 4097, CL_INVALID_OPERATION},
        {8192, 1, CL_SUCCESS},          {8192, 8192, CL_SUCCESS},    {8192, 8193, CL_INVALID_OPERATION},
        {0, 128, CL_INVALID_OPERATION}, {4096, 0, CL_INVALID_VALUE}, {4096, SIZE_MAX, CL_INVALID_OPERATION},
    };
    for (const auto& [object, size, expected] : cases) {
        ASSERT_EQ(ftruncate(plane.descriptor(), object), 0);
        EXPECT_EQ(import_status(plane.descriptor(), size), expected) << size << " of " << object;
    }
    ASSERT_EQ(ftruncate(plane.descriptor(), 4096), 0);
    EXPECT_EQ(import_status(plane.descriptor(), 8192), CL_INVALID_OPERATION)
        << "an earlier mapping of that size is no more good";
}

TEST_F(ImportMemory, RefusesWhatCannotBeImported) {
    const Plane plane(4096);
    int fd = plane.descriptor();
    int closed = dup(fd);
    int read_only = open(("/proc/self/fd/" + std::to_string(fd)).c_str(), O_RDONLY | O_CLOEXEC);
    close(closed);
    EXPECT_EQ(import_status(fd, 4096), CL_SUCCESS); // whose mapping must not serve the read-only descriptor
    void* gone = mmap(nullptr, 8192, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    munmap(static_cast<char*>(gone) + 4096, 4096);
    const cl_import_properties_arm unknown_key[] = {0x4711, CL_IMPORT_TYPE_DMA_BUF_ARM, 0};
    const cl_import_properties_arm unknown_type[] = {CL_IMPORT_TYPE_ARM, CL_IMPORT_TYPE_PROTECTED_ARM, 0};

    const struct {
        const char* what;
        cl_mem_flags flags;
        const cl_import_properties_arm* properties;
        void* memory;
        size_t size;
        cl_int expected;
    } cases[] = {
        {"unknown property", CL_MEM_READ_WRITE, unknown_key, &fd, 4096, CL_INVALID_PROPERTY},
        {"unknown type", CL_MEM_READ_WRITE, unknown_type, &fd, 4096, CL_INVALID_PROPERTY},
        {"null memory", CL_MEM_READ_WRITE, kDmaBuf, nullptr, 4096, CL_INVALID_VALUE},
        {"flags", CL_MEM_COPY_HOST_PTR, kDmaBuf, &fd, 4096, CL_INVALID_VALUE},
        {"closed descriptor", CL_MEM_READ_WRITE, kDmaBuf, &closed, 4096, CL_INVALID_OPERATION},
        {"read-only descriptor", CL_MEM_READ_WRITE, kDmaBuf, &read_only, 4096, CL_INVALID_OPERATION},
        {"host range with a hole", CL_MEM_READ_WRITE, kHost, gone, 8192, CL_INVALID_OPERATION},
        {"host range past the end", CL_MEM_READ_WRITE, kHost, &fd, SIZE_MAX, CL_INVALID_OPERATION},
    };
    for (const auto& [what, flags, properties, memory, size, expected] : cases) {
        cl_int status = CL_SUCCESS;
        EXPECT_EQ(clImportMemoryARM(context, flags, properties, memory, size, &status), nullptr) << what;
        EXPECT_EQ(status, expected) << what;
    }
    close(read_only);
    munmap(gone, 4096);
}

TEST_F(ImportMemory, KeepsABoundedNumberOfIdleMappings) {
    const Plane held(4096), often(4096);
    const int before = footprint().plane_mappings;
    cl_mem memory = import(held.descriptor(), 4096);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(import_status(often.descriptor(), 4096), CL_SUCCESS);
    EXPECT_EQ(footprint().plane_mappings, before + 2) << "one mapping for all the imports of a plane";
    for (int i = 0; i < 200; ++i) {
        const Plane plane(4096);
        int fd = plane.descriptor();
        ASSERT_EQ(import_status(fd, 4096), CL_SUCCESS);
        // What the driver refuses, here contradictory flags, keeps no mapping in use.
        ASSERT_EQ(clImportMemoryARM(context, CL_MEM_READ_ONLY | CL_MEM_WRITE_ONLY, kDmaBuf, &fd, 4096, nullptr),
                  nullptr);
    }
    EXPECT_LE(footprint().plane_mappings, before + 33);
    expect_shared(memory, held.descriptor(), 4096); // the one in use is not among those that went
    clReleaseMemObject(memory);
}
