#include "engine/rgba_stage.h"

#include <vector>

#include "engine/opencl.h"
#include "engine/program_cache.h"
#include "error.h"

namespace lumivert::tool {
namespace {

void check(cl_int status, const char* what) {
    if (status != CL_SUCCESS) throw Error(std::string(what) + " failed with OpenCL error " + std::to_string(status));
}

} // namespace

RgbaStage::RgbaStage(const Geometry& geometry, _Image_ColorFormat format) : geometry_(geometry) {
    const cl_device_id device = device_in_use();
    const std::string program = cached_program();
    const size_t length = program.size();
    const auto* bytes = reinterpret_cast<const unsigned char*>(program.data());
    cl_int status = CL_SUCCESS;
    context_ = clCreateContext(nullptr, 1, &device, nullptr, nullptr, &status);
    check(status, "clCreateContext");
    queue_ = clCreateCommandQueue(context_, device, 0, &status);
    check(status, "clCreateCommandQueue");
    program_ = clCreateProgramWithBinary(context_, 1, &device, &length, &bytes, nullptr, &status);
    check(status, "clCreateProgramWithBinary");
    check(clBuildProgram(program_, 1, &device, "", nullptr, nullptr), "clBuildProgram");
    kernel_ = clCreateKernel(program_, format == NV12 ? "rgba8888_to_nv12" : "rgba8888_to_p010", &status);
    check(status, "clCreateKernel");

    const size_t pixels = static_cast<size_t>(geometry.pitch) * geometry.height;
    const size_t luma = pixels * info_of(format).row_bytes;
    const size_t sizes[] = {pixels * 4, luma, luma / 2};
    for (cl_uint i = 0; i < 3; ++i) {
        const std::vector<uint8_t> grey(sizes[i], 0x80); // written once, so that no first touch falls into a timed run
        buffers_[i] = clCreateBuffer(context_, CL_MEM_READ_WRITE | CL_MEM_COPY_HOST_PTR, grey.size(),
                                     const_cast<uint8_t*>(grey.data()), &status);
        check(status, "clCreateBuffer");
        check(clSetKernelArg(kernel_, i, sizeof(cl_mem), &buffers_[i]), "clSetKernelArg");
    }
    const cl_int width = geometry.pitch;
    check(clSetKernelArg(kernel_, 3, sizeof width, &width), "clSetKernelArg");
}

RgbaStage::~RgbaStage() {
    for (const cl_mem buffer : buffers_)
        clReleaseMemObject(buffer);
    clReleaseKernel(kernel_);
    clReleaseProgram(program_);
    clReleaseCommandQueue(queue_);
    clReleaseContext(context_);
}

void RgbaStage::run() {
    const size_t blocks[] = {static_cast<size_t>(geometry_.pitch) / 4, static_cast<size_t>(geometry_.height) / 2};
    check(clEnqueueNDRangeKernel(queue_, kernel_, 2, nullptr, blocks, nullptr, 0, nullptr, nullptr), "a launch");
    check(clFinish(queue_), "clFinish");
}

} // namespace lumivert::tool
