// Null and released handles get the code that the device's driver gives, and never reach PoCL.
#include <gmock/gmock.h>

#include "opencl_test.h"

class Handles : public OpenClTest {
protected:
    void SetUp() override {
        OpenClTest::SetUp();
        program = build({"kernel void fill(global int* out, int value, global const int* in) {",
                         " out[get_global_id(0)] = value + in[0]; }"});
        kernel = clCreateKernel(program, "fill", nullptr);
        out = clCreateBuffer(context, CL_MEM_READ_WRITE, 64, nullptr, nullptr);
        in = clCreateBuffer(context, CL_MEM_READ_WRITE, 64, nullptr, nullptr);
        clSetKernelArg(kernel, 0, sizeof(cl_mem), &out);
        clSetKernelArg(kernel, 1, sizeof(int), &one);
        clSetKernelArg(kernel, 2, sizeof(cl_mem), &in);
    }

    void TearDown() override {
        // Releases what a test has not: releasing once too often is safe here.
        clReleaseMemObject(in);
        clReleaseMemObject(out);
        clReleaseKernel(kernel);
        clReleaseProgram(program);
        OpenClTest::TearDown();
    }

    cl_int launch(cl_kernel which) {
        const size_t size = 16;
        const cl_int status = clEnqueueNDRangeKernel(queue, which, 1, nullptr, &size, nullptr, 0, nullptr, nullptr);
        EXPECT_EQ(clFinish(queue), CL_SUCCESS);
        return status;
    }

    cl_int references(cl_mem memory, cl_uint& count) const {
        return clGetMemObjectInfo(memory, CL_MEM_REFERENCE_COUNT, sizeof(count), &count, nullptr);
    }

    const int one = 1;
    cl_program program = nullptr;
    cl_kernel kernel = nullptr;
    cl_mem out = nullptr, in = nullptr;
};

TEST_F(Handles, LiveOnesPass) {
    EXPECT_EQ(launch(kernel), CL_SUCCESS);
    EXPECT_EQ(launch(kernel), CL_SUCCESS) << "arguments stay bound";
}

TEST_F(Handles, NullOnesGetTheirCodes) {
    const size_t size = 16;
    const cl_device_id no_device = nullptr;
    const char* text = "";
    cl_uint value = 0;
    cl_int made[7] = {};
    clCreateKernel(nullptr, "fill", &made[0]);
    clCreateProgramWithSource(nullptr, 1, &text, nullptr, &made[1]);
    clCreateBuffer(nullptr, CL_MEM_READ_WRITE, 64, nullptr, &made[2]);
    clCreateCommandQueue(nullptr, device, 0, &made[3]);
    clCreateCommandQueue(context, nullptr, 0, &made[4]);
    clCreateContext(nullptr, 1, &no_device, nullptr, nullptr, &made[5]);
    clEnqueueMapBuffer(queue, nullptr, CL_TRUE, CL_MAP_READ, 0, 4, 0, nullptr, nullptr, &made[6]);
    EXPECT_THAT(made,
                testing::ElementsAre(CL_INVALID_PROGRAM, CL_INVALID_CONTEXT, CL_INVALID_CONTEXT, CL_INVALID_CONTEXT,
                                     CL_INVALID_DEVICE, CL_INVALID_DEVICE, CL_INVALID_MEM_OBJECT));

    EXPECT_EQ(launch(nullptr), CL_INVALID_KERNEL);
    EXPECT_EQ(clEnqueueNDRangeKernel(nullptr, kernel, 1, nullptr, &size, nullptr, 0, nullptr, nullptr),
              CL_INVALID_COMMAND_QUEUE);
    EXPECT_EQ(clSetKernelArg(nullptr, 0, sizeof(cl_mem), &out), CL_INVALID_KERNEL);
    EXPECT_EQ(clFinish(nullptr), CL_INVALID_COMMAND_QUEUE);
    EXPECT_EQ(clEnqueueWriteBuffer(nullptr, out, CL_TRUE, 0, 4, &one, 0, nullptr, nullptr), CL_INVALID_COMMAND_QUEUE);
    EXPECT_EQ(clEnqueueWriteBuffer(queue, nullptr, CL_TRUE, 0, 4, &one, 0, nullptr, nullptr), CL_INVALID_MEM_OBJECT);
    EXPECT_EQ(references(nullptr, value), CL_INVALID_MEM_OBJECT);
    EXPECT_EQ(clGetProgramInfo(nullptr, CL_PROGRAM_NUM_DEVICES, 4, &value, nullptr), CL_INVALID_PROGRAM);
    EXPECT_EQ(clBuildProgram(nullptr, 0, nullptr, "", nullptr, nullptr), CL_INVALID_PROGRAM);
    EXPECT_EQ(clGetProgramBuildInfo(nullptr, device, CL_PROGRAM_BUILD_STATUS, 4, &value, nullptr), CL_INVALID_PROGRAM);
    EXPECT_EQ(clGetProgramBuildInfo(program, nullptr, CL_PROGRAM_BUILD_STATUS, 4, &value, nullptr), CL_INVALID_DEVICE);
    EXPECT_EQ(clGetDeviceInfo(nullptr, CL_DEVICE_NAME, 0, nullptr, nullptr), CL_INVALID_DEVICE);

    EXPECT_EQ(clReleaseDevice(nullptr), CL_INVALID_DEVICE);
    EXPECT_EQ(clReleaseMemObject(nullptr), CL_INVALID_MEM_OBJECT);
    EXPECT_EQ(clReleaseKernel(nullptr), CL_INVALID_KERNEL);
    EXPECT_EQ(clReleaseProgram(nullptr), CL_INVALID_PROGRAM);
    EXPECT_EQ(clReleaseCommandQueue(nullptr), CL_INVALID_COMMAND_QUEUE);
    EXPECT_EQ(clReleaseContext(nullptr), CL_INVALID_CONTEXT);
    EXPECT_EQ(clReleaseSampler(nullptr), CL_INVALID_SAMPLER);
}

TEST_F(Handles, AReleasedProgramIsNoProgram) {
    ASSERT_EQ(clReleaseProgram(program), CL_SUCCESS);
    cl_uint count = 0;
    cl_int status = CL_SUCCESS;
    EXPECT_EQ(clGetProgramInfo(program, CL_PROGRAM_REFERENCE_COUNT, sizeof(count), &count, nullptr),
              CL_INVALID_PROGRAM);
    EXPECT_EQ(clCreateKernel(program, "fill", &status), nullptr);
    EXPECT_EQ(status, CL_INVALID_PROGRAM);
    EXPECT_EQ(clReleaseProgram(program), CL_INVALID_PROGRAM);
    EXPECT_EQ(launch(kernel), CL_SUCCESS) << "its kernels live on";
}

TEST_F(Handles, AReleasedBufferHasNoReferences) {
    cl_uint count = 0;
    EXPECT_EQ(clRetainMemObject(out), CL_SUCCESS);
    EXPECT_EQ(clReleaseMemObject(out), CL_SUCCESS);
    EXPECT_EQ(references(out, count), CL_SUCCESS);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(clReleaseMemObject(out), CL_SUCCESS);
    count = 0;
    EXPECT_EQ(references(out, count), CL_INVALID_MEM_OBJECT);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(clReleaseMemObject(out), CL_INVALID_MEM_OBJECT);
    EXPECT_EQ(clRetainMemObject(out), CL_INVALID_MEM_OBJECT);
    EXPECT_EQ(clSetKernelArg(kernel, 0, sizeof(cl_mem), &out), CL_INVALID_MEM_OBJECT);
}

TEST_F(Handles, SecondReleasesOfAnythingAreRefused) {
    EXPECT_EQ(clReleaseKernel(kernel), CL_SUCCESS);
    EXPECT_EQ(clReleaseKernel(kernel), CL_INVALID_KERNEL);
    EXPECT_EQ(launch(kernel), CL_INVALID_KERNEL);
    cl_command_queue second = clCreateCommandQueue(context, device, 0, nullptr);
    EXPECT_EQ(clReleaseCommandQueue(second), CL_SUCCESS);
    EXPECT_EQ(clReleaseCommandQueue(second), CL_INVALID_COMMAND_QUEUE);
    EXPECT_EQ(clFinish(second), CL_INVALID_COMMAND_QUEUE);
    cl_sampler sampler = clCreateSampler(context, CL_FALSE, CL_ADDRESS_NONE, CL_FILTER_NEAREST, nullptr);
    EXPECT_EQ(clReleaseSampler(sampler), CL_SUCCESS);
    EXPECT_EQ(clReleaseSampler(sampler), CL_INVALID_SAMPLER);
}

TEST_F(Handles, ALaunchNeedsLiveBuffers) {
    const cl_mem none = nullptr;
    EXPECT_EQ(clSetKernelArg(kernel, 2, sizeof(cl_mem), &none), CL_SUCCESS) << "OpenCL allows null buffers";
    EXPECT_EQ(launch(kernel), CL_INVALID_KERNEL_ARGS);
    EXPECT_EQ(clSetKernelArg(kernel, 2, sizeof(cl_mem), nullptr), CL_SUCCESS);
    EXPECT_EQ(launch(kernel), CL_INVALID_KERNEL_ARGS);
    EXPECT_EQ(clSetKernelArg(kernel, 2, sizeof(cl_mem), &in), CL_SUCCESS);
    EXPECT_EQ(launch(kernel), CL_SUCCESS);

    clReleaseMemObject(in);
    EXPECT_EQ(launch(kernel), CL_INVALID_KERNEL_ARGS) << "bound to a released buffer";
    // A new buffer, often at the same address, is not the one that was bound.
    in = clCreateBuffer(context, CL_MEM_READ_WRITE, 64, nullptr, nullptr);
    EXPECT_EQ(launch(kernel), CL_INVALID_KERNEL_ARGS);
    EXPECT_EQ(clSetKernelArg(kernel, 2, sizeof(cl_mem), &in), CL_SUCCESS);
    EXPECT_EQ(launch(kernel), CL_SUCCESS);
}

TEST_F(Handles, BuffersAreKnownInAProgramLoadedFromItsBinary) {
    size_t size = 0;
    ASSERT_EQ(clGetProgramInfo(program, CL_PROGRAM_BINARY_SIZES, sizeof(size), &size, nullptr), CL_SUCCESS);
    std::vector<unsigned char> binary(size);
    unsigned char* data = binary.data();
    ASSERT_EQ(clGetProgramInfo(program, CL_PROGRAM_BINARIES, sizeof(unsigned char*), &data, nullptr), CL_SUCCESS);
    const unsigned char* loaded = data;
    cl_program cached = clCreateProgramWithBinary(context, 1, &device, &size, &loaded, nullptr, nullptr);
    ASSERT_EQ(clBuildProgram(cached, 0, nullptr, nullptr, nullptr, nullptr), CL_SUCCESS);
    cl_kernel fill = clCreateKernel(cached, "fill", nullptr);
    const cl_mem none = nullptr;
    clSetKernelArg(fill, 0, sizeof(cl_mem), &out);
    clSetKernelArg(fill, 1, sizeof(one), &one);
    EXPECT_EQ(launch(fill), CL_INVALID_KERNEL_ARGS) << "an argument never set";
    clSetKernelArg(fill, 2, sizeof(cl_mem), &none);
    EXPECT_EQ(launch(fill), CL_INVALID_KERNEL_ARGS);
    clReleaseKernel(fill);
    clReleaseProgram(cached);
}

TEST_F(Handles, AnUnbuiltProgramAnswersForItself) {
    const char* text = "kernel void broken(";
    cl_int status = CL_SUCCESS;
    cl_program broken = clCreateProgramWithSource(context, 1, &text, nullptr, &status);
    EXPECT_EQ(clCreateKernel(broken, "broken", &status), nullptr);
    EXPECT_EQ(status, CL_INVALID_PROGRAM_EXECUTABLE);
    EXPECT_EQ(clBuildProgram(broken, 0, nullptr, nullptr, nullptr, nullptr), CL_BUILD_PROGRAM_FAILURE);
    EXPECT_EQ(clCreateKernel(broken, "broken", &status), nullptr);
    EXPECT_EQ(status, CL_INVALID_PROGRAM_EXECUTABLE);
    EXPECT_EQ(clCreateKernel(program, "no such kernel", &status), nullptr);
    EXPECT_EQ(status, CL_INVALID_KERNEL_NAME);
    clReleaseProgram(broken);
}
