/// A context and a queue on the first device, and what tests make in them.
#pragma once

#include <string>
#include <vector>

#include <CL/cl.h>
#include <CL/cl_ext.h>
#include <gtest/gtest.h>

class OpenClTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(clGetPlatformIDs(1, &platform, nullptr), CL_SUCCESS);
        ASSERT_EQ(clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, nullptr), CL_SUCCESS);
        context = clCreateContext(nullptr, 1, &device, nullptr, nullptr, nullptr);
        queue = clCreateCommandQueue(context, device, 0, nullptr);
        ASSERT_TRUE(context && queue);
    }

    void TearDown() override {
        clReleaseCommandQueue(queue);
        clReleaseContext(context);
    }

    cl_program build(const char* text, const char* options = "", cl_int expected = CL_SUCCESS) const {
        cl_program program = clCreateProgramWithSource(context, 1, &text, nullptr, nullptr);
        EXPECT_EQ(clBuildProgram(program, 0, nullptr, options, nullptr, nullptr), expected) << build_log(program);
        return program;
    }

    std::string build_log(cl_program program) const {
        std::string log(16384, '\0');
        clGetProgramBuildInfo(program, device, CL_PROGRAM_BUILD_LOG, log.size(), log.data(), nullptr);
        return log.c_str();
    }

    cl_platform_id platform = nullptr;
    cl_device_id device = nullptr;
    cl_context context = nullptr;
    cl_command_queue queue = nullptr;
};
