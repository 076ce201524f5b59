#include "fuzz/fake_opencl.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <optional>
#include <string>

#include <CL/cl.h>
#include <CL/cl_ext.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

constexpr size_t kBinaryBytes = 64;

struct Object {
    int references = 1;
    char kind = 0;
};

std::map<const void*, Object> g_objects;
uintptr_t g_last = 0x1000; // handles are numbers that no other object ever had
std::optional<unsigned> g_calls_left;
int32_t g_code = 0;
bool g_failed = false;
bool g_garbage = false; ///< for the query that is being answered

/// The injected code of this call, if it is its turn.
cl_int begin() {
    g_garbage = false;
    if (!g_calls_left || (*g_calls_left)-- != 0) return CL_SUCCESS;
    g_calls_left.reset();
    g_failed = true;
    g_garbage = g_code == 0;
    return g_code;
}

bool is_alive(const void* handle) {
    return g_objects.count(handle) > 0;
}

template <typename Handle>
Handle create(char kind, cl_int status, cl_int* error) {
    if (const cl_int injected = begin()) status = injected;
    if (error != nullptr) *error = status;
    if (status != CL_SUCCESS) return nullptr;
    g_last += 16;
    g_objects[reinterpret_cast<void*>(g_last)] = {1, kind};
    return reinterpret_cast<Handle>(g_last); // NOLINT(performance-no-int-to-ptr): it is only a number
}

cl_int release(const void* handle, cl_int invalid) {
    if (const cl_int injected = begin()) return injected;
    const auto object = g_objects.find(handle);
    if (object == g_objects.end()) return invalid;
    if (--object->second.references == 0) g_objects.erase(object);
    return CL_SUCCESS;
}

/// Answers a query with these bytes, or as many of 0xFF.
cl_int answer(const void* bytes, size_t count, size_t room, void* value, size_t* size_out) {
    if (const cl_int injected = begin()) return injected;
    if (value != nullptr && room < count) return CL_INVALID_VALUE;
    if (value != nullptr && g_garbage) {
        std::memset(value, 0xFF, room);
    } else if (value != nullptr) {
        std::memcpy(value, bytes, count);
    }
    if (size_out != nullptr) *size_out = g_garbage ? SIZE_MAX : count;
    return CL_SUCCESS;
}

cl_int answer_text(const std::string& text, size_t room, void* value, size_t* size_out) {
    return answer(text.c_str(), text.size() + 1, room, value, size_out);
}

char g_platform, g_device; // whose addresses stand for the one platform and the one device

template <typename Handle>
cl_int answer_handle(char& handle, cl_uint room, Handle* handles, cl_uint* count) {
    if (const cl_int injected = begin()) return injected;
    if (handles != nullptr && room > 0) *handles = reinterpret_cast<Handle>(&handle);
    if (count != nullptr) *count = 1;
    return CL_SUCCESS;
}

/// Whether a descriptor names something that holds so many bytes.
bool holds(int fd, size_t size) {
    struct stat status {};
    return fstat(fd, &status) == 0 && static_cast<size_t>(status.st_size) >= size;
}

} // namespace

namespace fake {

void reset() {
    g_objects.clear();
    g_calls_left.reset();
    g_failed = false;
}

void fault_after(unsigned calls, int32_t code) {
    g_calls_left = calls;
    g_code = code;
}

bool has_failed() {
    return g_failed;
}

int alive(char kind) {
    return static_cast<int>(std::count_if(g_objects.begin(), g_objects.end(),
                                          [&](const auto& object) { return object.second.kind == kind; }));
}

} // namespace fake

extern "C" {

cl_int clGetPlatformIDs(cl_uint room, cl_platform_id* ids, cl_uint* count) {
    return answer_handle(g_platform, room, ids, count);
}
cl_int clGetDeviceIDs(cl_platform_id platform, cl_device_type, cl_uint room, cl_device_id* ids, cl_uint* count) {
    return platform == nullptr ? CL_INVALID_PLATFORM : answer_handle(g_device, room, ids, count);
}
cl_int clGetDeviceInfo(cl_device_id device, cl_device_info, size_t room, void* value, size_t* size_out) {
    return device == nullptr ? CL_INVALID_DEVICE : answer_text("fake", room, value, size_out);
}
cl_int clReleaseDevice(cl_device_id device) {
    return device == nullptr ? CL_INVALID_DEVICE : begin();
}
cl_context clCreateContext(const cl_context_properties*, cl_uint, const cl_device_id* devices,
                           void(CL_CALLBACK*)(const char*, const void*, size_t, void*), void*, cl_int* error) {
    return create<cl_context>('c', *devices == nullptr ? CL_INVALID_DEVICE : CL_SUCCESS, error);
}
cl_int clReleaseContext(cl_context context) {
    return release(context, CL_INVALID_CONTEXT);
}
cl_command_queue clCreateCommandQueue(cl_context context, cl_device_id, cl_command_queue_properties, cl_int* error) {
    return create<cl_command_queue>('q', is_alive(context) ? CL_SUCCESS : CL_INVALID_CONTEXT, error);
}
cl_int clReleaseCommandQueue(cl_command_queue queue) {
    return release(queue, CL_INVALID_COMMAND_QUEUE);
}
cl_int clFinish(cl_command_queue queue) {
    return is_alive(queue) ? begin() : CL_INVALID_COMMAND_QUEUE;
}

cl_program clCreateProgramWithSource(cl_context context, cl_uint, const char**, const size_t*, cl_int* error) {
    return create<cl_program>('p', is_alive(context) ? CL_SUCCESS : CL_INVALID_CONTEXT, error);
}
cl_program clCreateProgramWithBinary(cl_context context, cl_uint, const cl_device_id*, const size_t* sizes,
                                     const unsigned char**, cl_int* binary_status, cl_int* error) {
    const bool valid = sizes[0] == kBinaryBytes;
    if (binary_status != nullptr) *binary_status = valid ? CL_SUCCESS : CL_INVALID_BINARY;
    return create<cl_program>('p',
                              !is_alive(context) ? CL_INVALID_CONTEXT
                              : valid            ? CL_SUCCESS
                                                 : CL_INVALID_BINARY,
                              error);
}
cl_int clBuildProgram(cl_program program, cl_uint, const cl_device_id*, const char*,
                      void(CL_CALLBACK*)(cl_program, void*), void*) {
    return is_alive(program) ? begin() : CL_INVALID_PROGRAM;
}
cl_int clGetProgramInfo(cl_program program, cl_program_info info, size_t room, void* value, size_t* size_out) {
    if (!is_alive(program)) return CL_INVALID_PROGRAM;
    const cl_uint one = 1;
    const size_t size = kBinaryBytes;
    const char* device = &g_device;
    switch (info) {
    case CL_PROGRAM_NUM_DEVICES:
    case CL_PROGRAM_REFERENCE_COUNT:
        return answer(&one, sizeof(one), room, value, size_out);
    case CL_PROGRAM_DEVICES:
        return answer(&device, sizeof(device), room, value, size_out);
    case CL_PROGRAM_BINARY_SIZES:
        return answer(&size, sizeof(size), room, value, size_out);
    default: { // the binaries: written where the pointers lead, which garbage must not change
        if (const cl_int injected = begin()) return injected;
        if (room > 0) std::memset(*static_cast<unsigned char**>(value), 'b', kBinaryBytes);
        return CL_SUCCESS;
    }
    }
}
cl_int clGetProgramBuildInfo(cl_program program, cl_device_id, cl_program_build_info info, size_t room, void* value,
                             size_t* size_out) {
    if (!is_alive(program)) return CL_INVALID_PROGRAM;
    const cl_build_status status = CL_BUILD_ERROR;
    return info == CL_PROGRAM_BUILD_STATUS ? answer(&status, sizeof(status), room, value, size_out)
                                           : answer_text("no log", room, value, size_out);
}
cl_int clReleaseProgram(cl_program program) {
    return release(program, CL_INVALID_PROGRAM);
}
cl_kernel clCreateKernel(cl_program program, const char*, cl_int* error) {
    return create<cl_kernel>('k', is_alive(program) ? CL_SUCCESS : CL_INVALID_PROGRAM, error);
}
cl_int clReleaseKernel(cl_kernel kernel) {
    return release(kernel, CL_INVALID_KERNEL);
}
cl_int clSetKernelArg(cl_kernel kernel, cl_uint, size_t, const void*) {
    return is_alive(kernel) ? begin() : CL_INVALID_KERNEL;
}
cl_int clEnqueueNDRangeKernel(cl_command_queue queue, cl_kernel kernel, cl_uint, const size_t*, const size_t* global,
                              const size_t*, cl_uint, const cl_event*, cl_event*) {
    if (!is_alive(queue)) return CL_INVALID_COMMAND_QUEUE;
    if (!is_alive(kernel)) return CL_INVALID_KERNEL;
    return global[0] == 0 || global[1] == 0 ? CL_INVALID_GLOBAL_WORK_SIZE : begin();
}

cl_mem clCreateBuffer(cl_context context, cl_mem_flags, size_t size, void*, cl_int* error) {
    const cl_int status = !is_alive(context) ? CL_INVALID_CONTEXT : size == 0 ? CL_INVALID_BUFFER_SIZE : CL_SUCCESS;
    return create<cl_mem>('m', status, error);
}
cl_mem clCreateImage(cl_context, cl_mem_flags, const cl_image_format*, const cl_image_desc*, void*, cl_int* error) {
    return create<cl_mem>('m', CL_SUCCESS, error);
}
cl_mem clImportMemoryARM(cl_context context, cl_mem_flags, const cl_import_properties_arm* properties, void* memory,
                         size_t size, cl_int* error) {
    const bool from_host = properties[1] == CL_IMPORT_TYPE_HOST_ARM;
    cl_int status = is_alive(context) ? CL_SUCCESS : CL_INVALID_CONTEXT;
    if (size == 0 || memory == nullptr) status = CL_INVALID_VALUE;
    if (!from_host && !holds(*static_cast<const int*>(memory), size)) status = CL_INVALID_OPERATION;
    return create<cl_mem>('m', status, error);
}
cl_int clEnqueueWriteBuffer(cl_command_queue queue, cl_mem memory, cl_bool, size_t, size_t, const void*, cl_uint,
                            const cl_event*, cl_event*) {
    return !is_alive(queue) ? CL_INVALID_COMMAND_QUEUE : is_alive(memory) ? begin() : CL_INVALID_MEM_OBJECT;
}
void* clEnqueueMapBuffer(cl_command_queue, cl_mem, cl_bool, cl_map_flags, size_t, size_t, cl_uint, const cl_event*,
                         cl_event*, cl_int* error) {
    *error = CL_MAP_FAILURE;
    return nullptr;
}
cl_int clGetMemObjectInfo(cl_mem memory, cl_mem_info, size_t room, void* value, size_t* size_out) {
    const cl_uint one = 1;
    return is_alive(memory) ? answer(&one, sizeof(one), room, value, size_out) : CL_INVALID_MEM_OBJECT;
}
cl_int clReleaseMemObject(cl_mem memory) {
    return release(memory, CL_INVALID_MEM_OBJECT);
}
cl_int clReleaseSampler(cl_sampler sampler) {
    return release(sampler, CL_INVALID_SAMPLER);
}

} // extern "C"
