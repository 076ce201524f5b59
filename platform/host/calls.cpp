// The OpenCL functions that the converter calls, each with its handles checked.
#include <string>
#include <vector>

#include "driver.h"
#include "handles.h"
#include "pocl_tuning.h"

using namespace lumivert::platform;

// ---- devices and contexts ----

cl_int clGetDeviceInfo(cl_device_id device, cl_device_info name, size_t size, void* value, size_t* size_ret) {
    return checked(DRIVER(clGetDeviceInfo), device, name, size, value, size_ret);
}

cl_int clReleaseDevice(cl_device_id device) {
    return checked(DRIVER(clReleaseDevice), device);
}

cl_context clCreateContext(const cl_context_properties* properties, cl_uint num_devices, const cl_device_id* devices,
                           void(CL_CALLBACK* notify)(const char*, const void*, size_t, void*), void* user_data,
                           cl_int* errcode_ret) {
    cl_context context =
        created(DRIVER(clCreateContext), errcode_ret, properties, num_devices, devices, notify, user_data);
    if (context) tune_compiler(devices[0]);
    return context;
}

cl_int clRetainContext(cl_context context) {
    return retained(DRIVER(clRetainContext), context);
}

cl_int clReleaseContext(cl_context context) {
    return released(DRIVER(clReleaseContext), context);
}

cl_int clGetContextInfo(cl_context context, cl_context_info name, size_t size, void* value, size_t* size_ret) {
    return checked(DRIVER(clGetContextInfo), context, name, size, value, size_ret);
}

// ---- queues ----

cl_command_queue clCreateCommandQueue(cl_context context, cl_device_id device, cl_command_queue_properties properties,
                                      cl_int* errcode_ret) {
    return created(DRIVER(clCreateCommandQueue), errcode_ret, context, device, properties);
}

cl_int clRetainCommandQueue(cl_command_queue queue) {
    return retained(DRIVER(clRetainCommandQueue), queue);
}

cl_int clReleaseCommandQueue(cl_command_queue queue) {
    return released(DRIVER(clReleaseCommandQueue), queue);
}

cl_int clFlush(cl_command_queue queue) {
    return checked(DRIVER(clFlush), queue);
}

cl_int clFinish(cl_command_queue queue) {
    return checked(DRIVER(clFinish), queue);
}

// ---- memory objects and samplers ----

cl_mem clCreateBuffer(cl_context context, cl_mem_flags flags, size_t size, void* host_ptr, cl_int* errcode_ret) {
    return created(DRIVER(clCreateBuffer), errcode_ret, context, flags, size, host_ptr);
}

cl_mem clCreateImage(cl_context context, cl_mem_flags flags, const cl_image_format* format, const cl_image_desc* desc,
                     void* host_ptr, cl_int* errcode_ret) {
    // OpenCL reports a bad buffer in the description as a bad description.
    if (desc && desc->buffer && check(desc->buffer) != CL_SUCCESS) {
        if (errcode_ret) *errcode_ret = CL_INVALID_IMAGE_DESCRIPTOR;
        return nullptr;
    }
    return created(DRIVER(clCreateImage), errcode_ret, context, flags, format, desc, host_ptr);
}

cl_int clRetainMemObject(cl_mem memory) {
    return retained(DRIVER(clRetainMemObject), memory);
}

cl_int clReleaseMemObject(cl_mem memory) {
    return released(DRIVER(clReleaseMemObject), memory);
}

cl_int clGetMemObjectInfo(cl_mem memory, cl_mem_info name, size_t size, void* value, size_t* size_ret) {
    return checked(DRIVER(clGetMemObjectInfo), memory, name, size, value, size_ret);
}

cl_sampler clCreateSampler(cl_context context, cl_bool normalized_coords, cl_addressing_mode addressing,
                           cl_filter_mode filter, cl_int* errcode_ret) {
    return created(DRIVER(clCreateSampler), errcode_ret, context, normalized_coords, addressing, filter);
}

cl_int clReleaseSampler(cl_sampler sampler) {
    return released(DRIVER(clReleaseSampler), sampler);
}

cl_int clEnqueueReadBuffer(cl_command_queue queue, cl_mem buffer, cl_bool blocking, size_t offset, size_t size,
                           void* data, cl_uint num_events, const cl_event* events, cl_event* event) {
    return checked(DRIVER(clEnqueueReadBuffer), queue, buffer, blocking, offset, size, data, num_events, events, event);
}

cl_int clEnqueueWriteBuffer(cl_command_queue queue, cl_mem buffer, cl_bool blocking, size_t offset, size_t size,
                            const void* data, cl_uint num_events, const cl_event* events, cl_event* event) {
    return checked(DRIVER(clEnqueueWriteBuffer), queue, buffer, blocking, offset, size, data, num_events, events,
                   event);
}

void* clEnqueueMapBuffer(cl_command_queue queue, cl_mem buffer, cl_bool blocking, cl_map_flags flags, size_t offset,
                         size_t size, cl_uint num_events, const cl_event* events, cl_event* event,
                         cl_int* errcode_ret) {
    const cl_int status = check_all(queue, buffer);
    if (status == CL_SUCCESS)
        return DRIVER(clEnqueueMapBuffer)(queue, buffer, blocking, flags, offset, size, num_events, events, event,
                                          errcode_ret);
    if (errcode_ret) *errcode_ret = status;
    return nullptr;
}

cl_int clEnqueueUnmapMemObject(cl_command_queue queue, cl_mem memory, void* address, cl_uint num_events,
                               const cl_event* events, cl_event* event) {
    return checked(DRIVER(clEnqueueUnmapMemObject), queue, memory, address, num_events, events, event);
}

// ---- programs ----

cl_program clCreateProgramWithSource(cl_context context, cl_uint count, const char** strings, const size_t* lengths,
                                     cl_int* errcode_ret) {
    const char* before = count && strings && check(context) == CL_SUCCESS ? prelude(context) : nullptr;
    if (!before) return created(DRIVER(clCreateProgramWithSource), errcode_ret, context, count, strings, lengths);

    std::vector<const char*> texts{before};
    texts.insert(texts.end(), strings, strings + count);
    std::vector<size_t> sizes{0}; // 0: the text ends with a NUL
    if (lengths)
        sizes.insert(sizes.end(), lengths, lengths + count);
    else
        sizes.resize(texts.size());
    return created(DRIVER(clCreateProgramWithSource), errcode_ret, context, count + 1, texts.data(), sizes.data());
}

cl_program clCreateProgramWithBinary(cl_context context, cl_uint num_devices, const cl_device_id* devices,
                                     const size_t* lengths, const unsigned char** binaries, cl_int* binary_status,
                                     cl_int* errcode_ret) {
    return created(DRIVER(clCreateProgramWithBinary), errcode_ret, context, num_devices, devices, lengths, binaries,
                   binary_status);
}

cl_int clBuildProgram(cl_program program, cl_uint num_devices, const cl_device_id* devices, const char* options,
                      void(CL_CALLBACK* notify)(cl_program, void*), void* user_data) {
    // With this, clSetKernelArg can tell buffers from numbers.
    const std::string with_arguments = (options ? std::string(options) : "") + " -cl-kernel-arg-info";
    return checked(DRIVER(clBuildProgram), program, num_devices, devices, with_arguments.c_str(), notify, user_data);
}

cl_int clRetainProgram(cl_program program) {
    return retained(DRIVER(clRetainProgram), program);
}

cl_int clReleaseProgram(cl_program program) {
    return released(DRIVER(clReleaseProgram), program);
}

cl_int clGetProgramInfo(cl_program program, cl_program_info name, size_t size, void* value, size_t* size_ret) {
    return checked(DRIVER(clGetProgramInfo), program, name, size, value, size_ret);
}

cl_int clGetProgramBuildInfo(cl_program program, cl_device_id device, cl_program_build_info name, size_t size,
                             void* value, size_t* size_ret) {
    return checked(DRIVER(clGetProgramBuildInfo), program, device, name, size, value, size_ret);
}
