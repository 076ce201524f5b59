// The text put before programs on CPU devices: as good a powr as relaxed math needs, and nothing else changed.
#include <cfloat>
#include <cmath>

#include "opencl_test.h"

class PoclTuning : public OpenClTest {
protected:
    /// out = powr(in, exponent), computed with vectors of 1, 3 or 4.
    std::vector<float> powr(int width, const std::vector<float>& in, float exponent) {
        cl_program program = build({"kernel void powr1(global const float* a, float e, global float* r) {",
                                    " size_t i = get_global_id(0); r[i] = powr(a[i], e); }\n",
                                    "kernel void powr3(global const float* a, float e, global float* r) {",
                                    " size_t i = get_global_id(0); vstore3(powr(vload3(i, a), (float3)(e)), i, r); }\n",
                                    "kernel void powr4(global const float* a, float e, global float* r) {",
                                    " size_t i = get_global_id(0); vstore4(powr(vload4(i, a), (float4)(e)), i, r); }"},
                                   "-cl-fast-relaxed-math");
        const std::string name = "powr" + std::to_string(width);
        cl_kernel kernel = clCreateKernel(program, name.c_str(), nullptr);
        std::vector<float> base = in, result(in.size());
        const size_t bytes = in.size() * sizeof(float), items = in.size() / width;
        cl_mem a = clCreateBuffer(context, CL_MEM_USE_HOST_PTR, bytes, base.data(), nullptr);
        cl_mem r = clCreateBuffer(context, CL_MEM_READ_WRITE, bytes, nullptr, nullptr);
        clSetKernelArg(kernel, 0, sizeof(cl_mem), &a);
        clSetKernelArg(kernel, 1, sizeof(exponent), &exponent);
        clSetKernelArg(kernel, 2, sizeof(cl_mem), &r);
        EXPECT_EQ(clEnqueueNDRangeKernel(queue, kernel, 1, nullptr, &items, nullptr, 0, nullptr, nullptr), CL_SUCCESS);
        EXPECT_EQ(clEnqueueReadBuffer(queue, r, CL_TRUE, 0, bytes, result.data(), 0, nullptr, nullptr), CL_SUCCESS);
        clReleaseMemObject(a);
        clReleaseMemObject(r);
        clReleaseKernel(kernel);
        clReleaseProgram(program);
        return result;
    }
};

TEST_F(PoclTuning, PowrIsCloseToThePowerForEveryVector) {
    std::vector<float> bases{0.0f, 1.0f, FLT_MIN, 0.5f, std::nextafter(0.5f, 0.0f), std::nextafter(1.0f, 0.0f), 2.0f};
    while (bases.size() < 12000)
        bases.push_back(std::exp(-10.0f * bases.size() / 12000)); // down to 4.5e-5
    // 1/m2 and 1/m1 of SMPTE ST 2084, and the display's encoding.
    for (const float exponent : {0.0126833135156559f, 6.2773946360153259f, 0.45f}) {
        for (const int width : {1, 3, 4}) {
            const std::vector<float> result = powr(width, bases, exponent);
            for (size_t i = 0; i < bases.size(); ++i) {
                const double exact = std::pow(static_cast<double>(bases[i]), static_cast<double>(exponent));
                if (exact < FLT_MIN)
                    ASSERT_EQ(result[i], 0.0f) << bases[i];
                else
                    ASSERT_NEAR(result[i] / exact, 1.0, 5e-7) << bases[i] << " to " << exponent << ", x" << width;
            }
        }
    }
}

TEST_F(PoclTuning, PowrLeavesNoRangeOfTheFloats) {
    const std::vector<float> bases{1e-30f, 1e-10f, 0.1f, 3.0f, 1e10f, 1e30f, 0.0f, 1.0f, 100.0f, 1e38f, 2e-38f, 7.0f};
    for (const float exponent : {0.01f, 1.0f, 6.0f}) {
        const std::vector<float> result = powr(4, bases, exponent);
        for (size_t i = 0; i < bases.size(); ++i) {
            const double exact = std::pow(static_cast<double>(bases[i]), static_cast<double>(exponent));
            if (exact > FLT_MAX)
                EXPECT_EQ(result[i], INFINITY) << bases[i] << " to " << exponent;
            else
                EXPECT_NEAR(result[i], exact, 2e-5 * exact + FLT_MIN) << bases[i] << " to " << exponent;
        }
    }
}

TEST_F(PoclTuning, LaunchesWithoutALocalSizeCoverEveryWidth) {
    cl_program program = build(
        {"kernel void count(global int* n) {", " n[get_global_id(1) * get_global_size(0) + get_global_id(0)] += 1; }"});
    cl_kernel kernel = clCreateKernel(program, "count", nullptr);
    for (const size_t width : {1, 63, 64, 963, 1031, 4099, 7680, 8194}) {
        std::vector<int> counts(3 * width, 6);
        const size_t size[] = {width, 3}, bytes = counts.size() * sizeof(int);
        cl_mem buffer = clCreateBuffer(context, CL_MEM_COPY_HOST_PTR, bytes, counts.data(), nullptr);
        clSetKernelArg(kernel, 0, sizeof(cl_mem), &buffer);
        ASSERT_EQ(clEnqueueNDRangeKernel(queue, kernel, 2, nullptr, size, nullptr, 0, nullptr, nullptr), CL_SUCCESS);
        clEnqueueReadBuffer(queue, buffer, CL_TRUE, 0, bytes, counts.data(), 0, nullptr, nullptr);
        EXPECT_EQ(counts, std::vector<int>(3 * width, 7)) << width;
        clReleaseMemObject(buffer);
    }
    clReleaseKernel(kernel);
    clReleaseProgram(program);
}

TEST_F(PoclTuning, ErrorsKeepTheirLines) {
    const char* pieces[] = {"// one\n// two", "\nkernel void k() { nonsense; }\n"};
    const size_t lengths[] = {6, 0};
    cl_program program = clCreateProgramWithSource(context, 2, pieces, lengths, nullptr);
    EXPECT_EQ(clBuildProgram(program, 0, nullptr, nullptr, nullptr, nullptr), CL_BUILD_PROGRAM_FAILURE);
    EXPECT_NE(build_log(program).find(":2:"), std::string::npos) << build_log(program);
    clReleaseProgram(program);
}
