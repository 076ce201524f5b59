// The text put before programs on CPU devices: as good a powr as relaxed math needs, and nothing else changed.
#include <cfloat>
#include <cmath>

#include "opencl_test.h"

class PoclTuning : public OpenClTest {
protected:
    /// Computes the powers of a multiple of four numbers four at a time, which are taken apart into three and one.
    void expect_powers(const std::vector<float>& bases, float exponent, double tolerance) {
        cl_program program = build("kernel void power(global float4* v, float e) {"
                                   " size_t i = get_global_id(0); v[i] = powr(v[i], (float4)(e)); }",
                                   "-cl-fast-relaxed-math");
        cl_kernel kernel = clCreateKernel(program, "power", nullptr);
        const size_t bytes = bases.size() * sizeof(float), items = bases.size() / 4;
        std::vector<float> result = bases;
        cl_mem buffer = clCreateBuffer(context, CL_MEM_COPY_HOST_PTR, bytes, result.data(), nullptr);
        clSetKernelArg(kernel, 0, sizeof(cl_mem), &buffer);
        clSetKernelArg(kernel, 1, sizeof(exponent), &exponent);
        EXPECT_EQ(clEnqueueNDRangeKernel(queue, kernel, 1, nullptr, &items, nullptr, 0, nullptr, nullptr), CL_SUCCESS);
        clEnqueueReadBuffer(queue, buffer, CL_TRUE, 0, bytes, result.data(), 0, nullptr, nullptr);
        clReleaseMemObject(buffer);
        clReleaseKernel(kernel);
        clReleaseProgram(program);

        for (size_t i = 0; i < bases.size(); ++i) {
            const double exact = std::pow(static_cast<double>(bases[i]), static_cast<double>(exponent));
            const double expected = exact < FLT_MIN ? 0 : exact > FLT_MAX ? INFINITY : exact;
            if (result[i] == expected) continue; // infinity, which is not near itself, among others
            ASSERT_NEAR(result[i], expected, tolerance * exact) << bases[i] << " to " << exponent;
        }
    }
};

TEST_F(PoclTuning, PowrIsCloseToThePower) {
    std::vector<float> bases{0.0F, 1.0F, FLT_MIN, 0.5F, std::nextafter(0.5F, 0.0F), std::nextafter(1.0F, 0.0F), 2.0F};
    while (bases.size() < 12000)
        bases.push_back(std::exp(-10.0F * bases.size() / 12000)); // down to 4.5e-5
    // 1/m2 and 1/m1 of SMPTE ST 2084, and the display's encoding. The bound leaves room for compilers that do not fuse
    // multiplications and additions: at most 5.3e-7 with fusing, 2.7e-6 without.
    for (const float exponent : {0.0126833135156559F, 6.2773946360153259F, 0.45F})
        expect_powers(bases, exponent, 3e-6);
    for (const float exponent : {0.01F, 1.0F, 6.0F})
        expect_powers({1e-30F, 1e-10F, 3.0F, 1e10F, 1e30F, 0.0F, 1e38F, 2e-38F}, exponent, 2e-5);
}

TEST_F(PoclTuning, ErrorsKeepTheirLines) {
    cl_program program = build("// one\n\nkernel void k() { nonsense; }\n", "", CL_BUILD_PROGRAM_FAILURE);
    EXPECT_NE(build_log(program).find(":3:"), std::string::npos) << build_log(program);
    clReleaseProgram(program);
}
