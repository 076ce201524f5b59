// Kernels, their arguments and their launches.
#include <cstring>
#include <map>
#include <mutex>
#include <unordered_map>

#include "driver.h"
#include "handles.h"
#include "pocl_tuning.h"

namespace lumivert::platform {
namespace {

/// The memory objects bound to each kernel. A kernel does not hold on to them: where one is null or was released since,
/// a launch would follow a dead pointer.
class Bindings {
public:
    void bind(cl_kernel kernel, cl_uint index, cl_mem memory) {
        const std::lock_guard lock(mutex_);
        bound_[live<cl_kernel>().serial(kernel)][index] = {memory, live<cl_mem>().serial(memory)};
    }

    bool all_live(cl_kernel kernel) {
        const std::lock_guard lock(mutex_);
        for (const auto& [index, bound] : bound_[live<cl_kernel>().serial(kernel)])
            if (!bound.serial || bound.serial != live<cl_mem>().serial(bound.memory)) return false;
        return true;
    }

    void forget(uint64_t kernel_serial) {
        const std::lock_guard lock(mutex_);
        bound_.erase(kernel_serial);
    }

private:
    struct Bound {
        cl_mem memory;
        uint64_t serial; // tells the object from a later one at the same address
    };

    std::mutex mutex_;
    std::unordered_map<uint64_t, std::map<cl_uint, Bound>> bound_;
};

Bindings& bindings() {
    static auto& all = *new Bindings;
    return all;
}

/// Whether this argument is a buffer or an image. Programs loaded from a binary that some other build wrote may not
/// know; then what looks like a live object is one.
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
    if (!bindings().all_live(kernel)) return CL_INVALID_KERNEL_ARGS;
    const auto launch = [&](const size_t* group) {
        return DRIVER(clEnqueueNDRangeKernel)(queue, kernel, dimensions, offset, global, group, num_events, events,
                                              event);
    };
    if (const size_t row = local ? 0 : row_of_work_group(queue, dimensions, global)) {
        const size_t rows[] = {row, 1};
        const cl_int status = launch(rows);
        if (status != CL_INVALID_WORK_GROUP_SIZE) return status; // else the kernel prescribes another
    }
    return launch(local);
}
