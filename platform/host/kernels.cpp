// Kernels, their arguments and their launches.
#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "driver.h"
#include "handles.h"
#include "imports.h"
#include "pocl_tuning.h"

namespace lumivert::platform {
namespace {

/// The memory objects bound to each kernel. A kernel does not retain its arguments: if one is null or was released
/// after it was bound, a launch would use a dangling pointer.
class Bindings {
public:
    void bind(cl_kernel kernel, cl_uint index, cl_mem memory) {
        const std::lock_guard lock(mutex_);
        bound_[live<cl_kernel>().serial(kernel)][index] = {memory, live<cl_mem>().serial(memory)};
    }

    /// The objects bound to a kernel, null for those that are null or dead.
    std::vector<cl_mem> of(cl_kernel kernel) {
        const std::lock_guard lock(mutex_);
        std::vector<cl_mem> objects;
        for (const auto& [index, bound] : bound_[live<cl_kernel>().serial(kernel)])
            objects.push_back(bound.serial == live<cl_mem>().serial(bound.memory) ? bound.memory : nullptr);
        return objects;
    }

    void forget(uint64_t kernel_serial) {
        const std::lock_guard lock(mutex_);
        bound_.erase(kernel_serial);
    }

private:
    struct Bound {
        cl_mem memory;
        uint64_t serial; // a later object may have the same address
    };

    std::mutex mutex_;
    std::unordered_map<uint64_t, std::map<cl_uint, Bound>> bound_;
};

Bindings& bindings() {
    static auto& all = *new Bindings;
    return all;
}

/// Copies imports for a device that has memory of its own: to the device before a launch, back after it.
template <typename Transfer>
cl_int transfer(Transfer driver, cl_command_queue queue, const std::vector<cl_mem>& objects) {
    cl_int status = CL_SUCCESS;
    for (cl_mem object : objects)
        if (const auto host = copied_from(object); host && status == CL_SUCCESS)
            status = driver(queue, object, CL_FALSE, 0, host->size, host->address, 0, nullptr, nullptr);
    return status;
}

/// Whether this argument is a buffer or an image. A program loaded from a binary may not know; then the value is taken
/// for a memory object if a live one has that address.
bool takes_memory(cl_kernel kernel, cl_uint index, cl_mem value) {
    cl_kernel_arg_address_qualifier where = 0;
    const cl_int status =
        DRIVER(clGetKernelArgInfo)(kernel, index, CL_KERNEL_ARG_ADDRESS_QUALIFIER, sizeof(where), &where, nullptr);
    if (status != CL_SUCCESS) return check(value) == CL_SUCCESS;
    return where == CL_KERNEL_ARG_ADDRESS_GLOBAL || where == CL_KERNEL_ARG_ADDRESS_CONSTANT;
}

} // namespace
} // namespace lumivert::platform

using namespace lumivert::platform;

cl_kernel clCreateKernel(cl_program program, const char* name, cl_int* errcode_ret) {
    return created(DRIVER(clCreateKernel), errcode_ret, program, name);
}

cl_int clRetainKernel(cl_kernel kernel) {
    return retained(DRIVER(clRetainKernel), kernel);
}

cl_int clReleaseKernel(cl_kernel kernel) {
    const uint64_t serial = live<cl_kernel>().serial(kernel);
    const cl_int status = released(DRIVER(clReleaseKernel), kernel);
    if (live<cl_kernel>().serial(kernel) != serial) bindings().forget(serial);
    return status;
}

cl_int clSetKernelArg(cl_kernel kernel, cl_uint index, size_t size, const void* value) {
    if (const cl_int status = check(kernel)) return status;
    cl_mem memory = nullptr;
    if (value && size == sizeof(cl_mem)) std::memcpy(&memory, value, size);
    if (size != sizeof(cl_mem) || !takes_memory(kernel, index, memory))
        return DRIVER(clSetKernelArg)(kernel, index, size, value);

    if (memory && check(memory) != CL_SUCCESS) return CL_INVALID_MEM_OBJECT;
    const cl_int status = DRIVER(clSetKernelArg)(kernel, index, size, value);
    if (status == CL_SUCCESS) bindings().bind(kernel, index, memory);
    return status;
}

cl_int clEnqueueNDRangeKernel(cl_command_queue queue, cl_kernel kernel, cl_uint dimensions, const size_t* offset,
                              const size_t* global, const size_t* local, cl_uint num_events, const cl_event* events,
                              cl_event* event) {
    if (const cl_int status = check_all(queue, kernel)) return status;
    const std::vector<cl_mem> objects = bindings().of(kernel);
    if (std::count(objects.begin(), objects.end(), nullptr)) return CL_INVALID_KERNEL_ARGS;
    if (const cl_int status = transfer(DRIVER(clEnqueueWriteBuffer), queue, objects)) return status;

    const size_t rows[] = {local ? 0 : row_of_work_group(queue, dimensions, global), 1};
    const auto launch = [&](const size_t* group) {
        return DRIVER(clEnqueueNDRangeKernel)(queue, kernel, dimensions, offset, global, group, num_events, events,
                                              event);
    };
    cl_int status = launch(rows[0] ? rows : local);
    if (rows[0] && status == CL_INVALID_WORK_GROUP_SIZE) status = launch(local); // the kernel requires another size
    return status ? status : transfer(DRIVER(clEnqueueReadBuffer), queue, objects);
}
