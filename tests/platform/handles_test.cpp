// Null and released handles get the code that the device's driver gives, and never reach PoCL.
#include <algorithm>
#include <vector>

#include "opencl_test.h"

class Handles : public OpenClTest {
protected:
    void SetUp() override {
        OpenClTest::SetUp();
        program = build("kernel void fill(global long* out, long value, global const long* in) {"
                        " out[get_global_id(0)] = value + in[0]; }");
        kernel = clCreateKernel(program, "fill", nullptr);
        out = clCreateBuffer(context, CL_MEM_READ_WRITE, 128, nullptr, nullptr);
        in = clCreateBuffer(context, CL_MEM_READ_WRITE, 128, nullptr, nullptr);
        // A number of a handle's size is no handle.
        EXPECT_EQ(clSetKernelArg(kernel, 1, sizeof(one), &one), CL_SUCCESS);
        EXPECT_EQ(set(0, &out), CL_SUCCESS);
        EXPECT_EQ(set(2, &in), CL_SUCCESS);
    }

    void TearDown() override {
        // Releases what a test has not: releasing once too often is safe here.
        clReleaseMemObject(in);
        clReleaseMemObject(out);
        clReleaseKernel(kernel);
        clReleaseProgram(program);
        OpenClTest::TearDown();
    }

    cl_int set(cl_uint index, const cl_mem* memory) { return clSetKernelArg(kernel, index, sizeof(cl_mem), memory); }

    cl_int launch(cl_kernel which) {
        const size_t size = 16;
        const cl_int status = clEnqueueNDRangeKernel(queue, which, 1, nullptr, &size, nullptr, 0, nullptr, nullptr);
        EXPECT_EQ(clFinish(queue), CL_SUCCESS);
        return status;
    }

    template <typename Handle>
    static void expect_one_release(cl_int (*release)(Handle), Handle handle, cl_int code) {
        EXPECT_EQ(release(handle), CL_SUCCESS) << code;
        EXPECT_EQ(release(handle), code);
        EXPECT_EQ(release(nullptr), code);
    }

    const cl_long one = 1;
    cl_program program = nullptr;
    cl_kernel kernel = nullptr;
    cl_mem out = nullptr, in = nullptr;
};

TEST_F(Handles, NullOnesGetTheirCodes) {
    cl_int made[3] = {};
    clCreateKernel(nullptr, "fill", &made[0]);
    clCreateBuffer(nullptr, CL_MEM_READ_WRITE, 64, nullptr, &made[1]);
    EXPECT_EQ(clImportMemoryARM(nullptr, CL_MEM_READ_WRITE, nullptr, made, sizeof(made), &made[2]), nullptr);
    EXPECT_EQ(made[0], CL_INVALID_PROGRAM);
    EXPECT_EQ(made[1], CL_INVALID_CONTEXT);
    EXPECT_EQ(made[2], CL_INVALID_CONTEXT);
    EXPECT_EQ(launch(nullptr), CL_INVALID_KERNEL);
    EXPECT_EQ(clSetKernelArg(nullptr, 0, sizeof(cl_mem), &out), CL_INVALID_KERNEL);
    EXPECT_EQ(clFinish(nullptr), CL_INVALID_COMMAND_QUEUE);
    EXPECT_EQ(clEnqueueWriteBuffer(queue, nullptr, CL_TRUE, 0, 4, &one, 0, nullptr, nullptr), CL_INVALID_MEM_OBJECT);
    EXPECT_EQ(clGetMemObjectInfo(nullptr, CL_MEM_REFERENCE_COUNT, 0, nullptr, nullptr), CL_INVALID_MEM_OBJECT);
    EXPECT_EQ(clBuildProgram(nullptr, 0, nullptr, "", nullptr, nullptr), CL_INVALID_PROGRAM);
}

TEST_F(Handles, ReleasedOnesAreGone) {
    // A driver may count references of its own, for example those of kernel arguments: only the difference is ours.
    const auto references = [&] {
        cl_uint count = 0;
        EXPECT_EQ(clGetMemObjectInfo(out, CL_MEM_REFERENCE_COUNT, sizeof(count), &count, nullptr), CL_SUCCESS);
        return count;
    };
    const cl_uint before = references();
    EXPECT_EQ(clRetainMemObject(out), CL_SUCCESS);
    EXPECT_EQ(references(), before + 1);
    EXPECT_EQ(clReleaseMemObject(out), CL_SUCCESS);
    EXPECT_EQ(references(), before);
    expect_one_release(clReleaseMemObject, out, CL_INVALID_MEM_OBJECT);
    EXPECT_EQ(clRetainMemObject(out), CL_INVALID_MEM_OBJECT);
    EXPECT_EQ(set(0, &out), CL_INVALID_MEM_OBJECT);
    cl_int status = CL_SUCCESS;
    clEnqueueMapBuffer(queue, out, CL_TRUE, CL_MAP_READ, 0, 4, 0, nullptr, nullptr, &status);
    EXPECT_EQ(status, CL_INVALID_MEM_OBJECT);
    const cl_image_format format = {CL_RGBA, CL_UNSIGNED_INT8};
    cl_image_desc over_buffer{};
    over_buffer.image_type = CL_MEM_OBJECT_IMAGE1D_BUFFER;
    over_buffer.image_width = 32;
    over_buffer.buffer = out;
    EXPECT_EQ(clCreateImage(context, CL_MEM_READ_WRITE, &format, &over_buffer, nullptr, &status), nullptr);
    EXPECT_EQ(status, CL_INVALID_IMAGE_DESCRIPTOR);

    EXPECT_EQ(set(0, &in), CL_SUCCESS);
    expect_one_release(clReleaseProgram, program, CL_INVALID_PROGRAM);
    EXPECT_EQ(launch(kernel), CL_SUCCESS) << "a program's kernels live on";
    expect_one_release(clReleaseKernel, kernel, CL_INVALID_KERNEL);
    EXPECT_EQ(launch(kernel), CL_INVALID_KERNEL);
    expect_one_release(clReleaseSampler,
                       clCreateSampler(context, CL_FALSE, CL_ADDRESS_NONE, CL_FILTER_NEAREST, nullptr),
                       CL_INVALID_SAMPLER);
    expect_one_release(clReleaseCommandQueue, queue, CL_INVALID_COMMAND_QUEUE);
    expect_one_release(clReleaseContext, context, CL_INVALID_CONTEXT);
}

TEST_F(Handles, ALaunchNeedsLiveBuffers) {
    EXPECT_EQ(launch(kernel), CL_SUCCESS);
    EXPECT_EQ(launch(kernel), CL_SUCCESS) << "arguments stay bound";
    const cl_mem none = nullptr;
    for (const cl_mem* null_buffer : {&none, static_cast<const cl_mem*>(nullptr)}) {
        EXPECT_EQ(set(2, null_buffer), CL_SUCCESS) << "OpenCL allows null buffers";
        EXPECT_EQ(launch(kernel), CL_INVALID_KERNEL_ARGS);
    }
    EXPECT_EQ(set(2, &in), CL_SUCCESS);
    EXPECT_EQ(launch(kernel), CL_SUCCESS);

    clReleaseMemObject(in);
    EXPECT_EQ(launch(kernel), CL_INVALID_KERNEL_ARGS) << "bound to a released buffer";
    // A new buffer is not the one that was bound, not even at the same address, which drivers hand out again.
    const cl_mem released = in;
    std::vector<cl_mem> others;
    in = clCreateBuffer(context, CL_MEM_READ_WRITE, 128, nullptr, nullptr);
    while (in != released && others.size() < 1000) {
        others.push_back(in);
        in = clCreateBuffer(context, CL_MEM_READ_WRITE, 128, nullptr, nullptr);
    }
    std::for_each(others.begin(), others.end(), clReleaseMemObject);
    EXPECT_EQ(launch(kernel), CL_INVALID_KERNEL_ARGS);
    EXPECT_EQ(set(2, &in), CL_SUCCESS);
    EXPECT_EQ(launch(kernel), CL_SUCCESS);
}
