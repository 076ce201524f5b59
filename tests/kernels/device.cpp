#include "kernels/device.h"

#include "kernels/program_text.h"

namespace lumivert::test {

Device::Device(const char* options, const char* more) {
    cl_platform_id platform = nullptr;
    cl_device_id device = nullptr;
    EXPECT_EQ(clGetPlatformIDs(1, &platform, nullptr), 0);
    EXPECT_EQ(clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, 1, &device, nullptr), 0);
    context_ = clCreateContext(nullptr, 1, &device, nullptr, nullptr, nullptr);
    queue_ = clCreateCommandQueue(context_, device, 0, nullptr);

    std::vector<const char*> pieces(kProgramPieces, kProgramPieces + kProgramPieceCount);
    pieces.push_back(more);
    program_ =
        clCreateProgramWithSource(context_, static_cast<cl_uint>(pieces.size()), pieces.data(), nullptr, nullptr);
    const int error = clBuildProgram(program_, 0, nullptr, options, nullptr, nullptr);
    std::string log(16384, '\0');
    clGetProgramBuildInfo(program_, device, CL_PROGRAM_BUILD_LOG, log.size(), log.data(), nullptr);
    EXPECT_EQ(error, 0) << log.c_str();
}

Device::~Device() {
    clReleaseProgram(program_);
    clReleaseCommandQueue(queue_);
    clReleaseContext(context_);
}

void Device::fetch_and_release(cl_mem buffer, size_t size) {
    void* const mapped =
        clEnqueueMapBuffer(queue_, buffer, CL_TRUE, CL_MAP_READ, 0, size, 0, nullptr, nullptr, nullptr);
    clEnqueueUnmapMemObject(queue_, buffer, mapped, 0, nullptr, nullptr);
    clFinish(queue_);
    clReleaseMemObject(buffer);
}

} // namespace lumivert::test
