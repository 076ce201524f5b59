#include "support/opencl_spy.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>

#include <CL/cl_ext.h>
#include <interpose.h>

namespace spy {
namespace {

struct Injection {
    std::string name;
    cl_int code;
    int first;
    int last;
    int seen;
};

struct Spy {
    std::mutex mutex;
    std::vector<Call> calls;
    std::vector<Injection> injections;
    std::map<cl_kernel, std::string> kernel_names;
    cl_int binary_status = CL_SUCCESS;
    cl_build_status build_status = 1;
};

Spy& state() {
    static auto* spy = new Spy; // outlives OpenCL's own teardown
    return *spy;
}

std::optional<cl_int> enter(const char* name, const std::string& detail) {
    Spy& spy = state();
    const std::lock_guard lock(spy.mutex);
    spy.calls.push_back({name, detail});
    std::optional<cl_int> code;
    for (Injection& injection : spy.injections) {
        if (!injection.name.empty() && injection.name != name) continue;
        ++injection.seen;
        if (injection.seen >= injection.first && injection.seen <= injection.last) code = injection.code;
    }
    return code;
}

template <typename... Parameters, typename... Arguments>
cl_int status(const char* name, const std::string& detail, cl_int (*)(Parameters...), Arguments... arguments) {
    if (const auto code = enter(name, detail)) return *code;
    return next_definition<cl_int(Parameters...)>(name)(arguments...);
}

template <typename Object, typename... Parameters, typename... Arguments>
Object object(const char* name, const std::string& detail, Object (*)(Parameters...), cl_int* error,
              Arguments... arguments) {
    if (const auto code = enter(name, detail)) {
        if (error != nullptr) *error = *code;
        return nullptr;
    }
    return next_definition<Object(Parameters...)>(name)(arguments..., error);
}

std::string text(std::size_t a) {
    return std::to_string(a);
}
std::string text(std::size_t a, std::size_t b) {
    return text(a) + " " + text(b);
}

} // namespace

const std::vector<Call>& calls() {
    return state().calls;
}

std::vector<std::string> calls_of(const std::vector<std::string>& names) {
    std::vector<std::string> found;
    for (const Call& call : calls()) {
        for (const std::string& name : names) {
            if (call.name == name) found.push_back(call.detail.empty() ? name : name + " " + call.detail);
        }
    }
    return found;
}

int count(const std::string& name) {
    return static_cast<int>(calls_of({name}).size());
}

void reset() {
    state().calls.clear();
    state().injections.clear();
    state().binary_status = CL_SUCCESS;
    state().build_status = 1;
}

void fail(const std::string& name, cl_int code, int first, int times) {
    state().injections.push_back({name, code, first, first + times - 1, 0});
}

void answer_binary_status(cl_int status) {
    state().binary_status = status;
}
void answer_build_status(cl_build_status status) {
    state().build_status = status;
}

} // namespace spy

#define STATUS(name, parameters, detail, ...)                                                                          \
    cl_int name parameters {                                                                                           \
        return spy::status(#name, detail, &(name), __VA_ARGS__);                                                       \
    }
#define OBJECT(type, name, parameters, detail, ...)                                                                    \
    type name parameters {                                                                                             \
        return spy::object(#name, detail, &(name), error, __VA_ARGS__);                                                \
    }

extern "C" {

STATUS(clGetPlatformIDs, (cl_uint n, cl_platform_id* p, cl_uint* count), "", n, p, count)
STATUS(clGetDeviceIDs, (cl_platform_id p, cl_device_type type, cl_uint n, cl_device_id* d, cl_uint* count),
       spy::text(type), p, type, n, d, count)
STATUS(clGetDeviceInfo, (cl_device_id d, cl_device_info info, size_t size, void* value, size_t* size_out),
       spy::text(info, size), d, info, size, value, size_out)
STATUS(clReleaseDevice, (cl_device_id d), "", d)
OBJECT(cl_context, clCreateContext,
       (const cl_context_properties* p, cl_uint n, const cl_device_id* d,
        void(CL_CALLBACK* notify)(const char*, const void*, size_t, void*), void* user, cl_int* error),
       "", p, n, d, notify, user)
STATUS(clReleaseContext, (cl_context c), "", c)
OBJECT(cl_command_queue, clCreateCommandQueue,
       (cl_context c, cl_device_id d, cl_command_queue_properties p, cl_int* error), spy::text(p), c, d, p)
STATUS(clReleaseCommandQueue, (cl_command_queue q), "", q)

OBJECT(cl_program, clCreateProgramWithSource,
       (cl_context c, cl_uint n, const char** s, const size_t* lengths, cl_int* error),
       std::to_string(n) + (lengths == nullptr ? " terminated" : " measured"), c, n, s, lengths)
cl_program clCreateProgramWithBinary(cl_context c, cl_uint n, const cl_device_id* d, const size_t* sizes,
                                     const unsigned char** b, cl_int* binary_status, cl_int* error) {
    const cl_program program = spy::object("clCreateProgramWithBinary", "", &clCreateProgramWithBinary, error, c, n, d,
                                           sizes, b, binary_status);
    if (spy::state().binary_status != CL_SUCCESS) *binary_status = spy::state().binary_status;
    return program;
}
STATUS(clBuildProgram,
       (cl_program p, cl_uint n, const cl_device_id* d, const char* options,
        void(CL_CALLBACK* notify)(cl_program, void*), void* user),
       options, p, n, d, options, notify, user)
STATUS(clGetProgramInfo, (cl_program p, cl_program_info info, size_t size, void* value, size_t* size_out),
       spy::text(info), p, info, size, value, size_out)
cl_int clGetProgramBuildInfo(cl_program p, cl_device_id d, cl_program_build_info info, size_t size, void* value,
                             size_t* size_out) {
    const cl_int result = spy::status("clGetProgramBuildInfo", spy::text(info), &clGetProgramBuildInfo, p, d, info,
                                      size, value, size_out);
    if (info == CL_PROGRAM_BUILD_STATUS && spy::state().build_status != 1) {
        *static_cast<cl_build_status*>(value) = spy::state().build_status;
    }
    return result;
}
STATUS(clReleaseProgram, (cl_program p), "", p)

cl_kernel clCreateKernel(cl_program p, const char* name, cl_int* error) {
    const cl_kernel kernel = spy::object("clCreateKernel", name, &clCreateKernel, error, p, name);
    spy::state().kernel_names[kernel] = name;
    return kernel;
}
STATUS(clSetKernelArg, (cl_kernel k, cl_uint index, size_t size, const void* value), spy::text(index, size), k, index,
       size, value)
cl_int clEnqueueNDRangeKernel(cl_command_queue q, cl_kernel k, cl_uint n, const size_t* offset, const size_t* global,
                              const size_t* local, cl_uint waits, const cl_event* wait_list, cl_event* event) {
    const bool plain = n == 2 && offset == nullptr && local == nullptr && waits == 0 && event == nullptr;
    const std::string name = k == nullptr ? "null" : spy::state().kernel_names[k];
    const std::string size = std::to_string(global[0]) + "x" + std::to_string(global[1]);
    return spy::status("clEnqueueNDRangeKernel", name + " " + size + (plain ? "" : " not plain"),
                       &clEnqueueNDRangeKernel, q, k, n, offset, global, local, waits, wait_list, event);
}
STATUS(clReleaseKernel, (cl_kernel k), "", k)
/// A failing wait still waits: a device that goes on working behind the test's back would be a fault of the test.
cl_int clFinish(cl_command_queue q) {
    const auto code = spy::enter("clFinish", "");
    const cl_int finished = next_definition<decltype(clFinish)>("clFinish")(q);
    return code.value_or(finished);
}

OBJECT(cl_mem, clCreateBuffer, (cl_context c, cl_mem_flags flags, size_t size, void* host, cl_int* error),
       spy::text(flags, size), c, flags, size, host)
OBJECT(cl_mem, clCreateImage,
       (cl_context c, cl_mem_flags flags, const cl_image_format* format, const cl_image_desc* d, void* host,
        cl_int* error),
       spy::text(format->image_channel_data_type, d->image_row_pitch), c, flags, format, d, host)
OBJECT(cl_mem, clImportMemoryARM,
       (cl_context c, cl_mem_flags flags, const cl_import_properties_arm* p, void* memory, size_t size, cl_int* error),
       (p[1] == CL_IMPORT_TYPE_HOST_ARM ? "host " : "dma_buf ") + spy::text(size), c, flags, p, memory, size)
STATUS(clEnqueueWriteBuffer,
       (cl_command_queue q, cl_mem m, cl_bool blocking, size_t offset, size_t size, const void* from, cl_uint waits,
        const cl_event* wait_list, cl_event* event),
       (blocking != 0 ? "blocking " : "") + spy::text(offset, size), q, m, blocking, offset, size, from, waits,
       wait_list, event)
OBJECT(void*, clEnqueueMapBuffer,
       (cl_command_queue q, cl_mem m, cl_bool blocking, cl_map_flags flags, size_t offset, size_t size, cl_uint waits,
        const cl_event* wait_list, cl_event* event, cl_int* error),
       spy::text(offset, size), q, m, blocking, flags, offset, size, waits, wait_list, event)
STATUS(clGetMemObjectInfo, (cl_mem m, cl_mem_info info, size_t size, void* value, size_t* size_out),
       spy::text(info, size), m, info, size, value, size_out)
STATUS(clReleaseMemObject, (cl_mem m), "", m)
STATUS(clReleaseSampler, (cl_sampler s), "", s)

} // extern "C"
